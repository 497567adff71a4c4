#pragma once

#include "skf.h"

#include "openssl_ptr.h"
#include "secret_bytes.h"
#include "sm4_ecb.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <variant>

namespace softskf::driver {

// What the handles of the C interface stand for. Handles are registry ids, never pointers:
// an unknown or closed handle simply is not found.

struct DeviceSession {
    std::string name;
    std::string dir;
    std::string serialNumber;
};

struct ApplicationSession {
    std::uint64_t device = 0;
    std::string name;
    std::string dir;
    bool userLoggedIn = false;
    bool adminLoggedIn = false;
    // The KEK (key_record.h), opened with the user PIN at login; opens the sealed private keys.
    // Empty when logged out.
    SecretBytes sealingKey;
    // Encryption keys already unsealed during this login, by container folder. Unsealing and
    // decoding a key costs more than the SM2 decryption it serves, and a host imports a session
    // key for every envelope. Dropped with the login.
    std::map<std::string, PkeyPtr> unsealedEncryptionKeys;

    // Ends the user's login: the flag, the sealing key and every key unsealed with it.
    void forgetUserLogin();
    // Ends both logins.
    void forgetLogin();
};

struct ContainerSession {
    std::uint64_t device = 0;
    std::uint64_t application = 0;
    std::string name;
    std::string dir;
    std::uint32_t type = 0;
};

struct SessionKey {
    std::uint64_t device = 0;
    SecretBytes key;
    bool decryptReady = false;
    Padding padding = Padding::None;
};

using Object = std::variant<DeviceSession, ApplicationSession, ContainerSession, SessionKey>;

// All live handles. Not locked itself: every entry point holds apiMutex() for its whole run.
class Registry {
public:
    HANDLE add(Object object);

    template <class T>
    T *find(HANDLE handle)
    {
        const auto it = objects_.find(idOf(handle));
        return it == objects_.end() ? nullptr : std::get_if<T>(&it->second);
    }

    static std::uint64_t idOf(HANDLE handle);
    static HANDLE handleOf(std::uint64_t id);

    void remove(HANDLE handle);
    // Everything a device connection owns, the connection included.
    void removeDevice(std::uint64_t device);
    // An application and the containers opened through it.
    void removeApplication(std::uint64_t application);

    std::size_t size() const { return objects_.size(); }

private:
    std::map<std::uint64_t, Object> objects_;
    std::uint64_t nextId_ = 1;
};

std::mutex &apiMutex();
Registry &registry();

// Number of live handles of every kind; lets tests see that disconnecting releases them.
std::size_t openHandleCount();

} // namespace softskf::driver
