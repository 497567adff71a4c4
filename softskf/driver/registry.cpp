#include "registry.h"

#include <cstdint>
#include <iterator>
#include <type_traits>

namespace softskf::driver {

void ApplicationSession::forgetUserLogin()
{
    userLoggedIn = false;
    sealingKey.clear();
    unsealedEncryptionKeys.clear();
}

void ApplicationSession::forgetLogin()
{
    forgetUserLogin();
    adminLoggedIn = false;
}

HANDLE Registry::add(Object object)
{
    const std::uint64_t id = nextId_++;
    objects_.emplace(id, std::move(object));
    return handleOf(id);
}

HANDLE Registry::handleOf(std::uint64_t id)
{
    return reinterpret_cast<HANDLE>(static_cast<std::uintptr_t>(id));
}

std::uint64_t Registry::idOf(HANDLE handle)
{
    return static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(handle));
}

void Registry::remove(HANDLE handle)
{
    objects_.erase(idOf(handle));
}

void Registry::removeDevice(std::uint64_t device)
{
    for (auto it = objects_.begin(); it != objects_.end();) {
        const std::uint64_t owner = std::visit(
            [&](const auto &object) -> std::uint64_t {
                using T = std::decay_t<decltype(object)>;
                if constexpr (std::is_same_v<T, DeviceSession>)
                    return it->first;
                else
                    return object.device;
            },
            it->second);
        it = owner == device ? objects_.erase(it) : std::next(it);
    }
}

void Registry::removeApplication(std::uint64_t application)
{
    for (auto it = objects_.begin(); it != objects_.end();) {
        const auto *container = std::get_if<ContainerSession>(&it->second);
        const bool owned = it->first == application
                           || (container && container->application == application);
        it = owned ? objects_.erase(it) : std::next(it);
    }
}

std::mutex &apiMutex()
{
    static std::mutex mutex;
    return mutex;
}

Registry &registry()
{
    static Registry instance;
    return instance;
}

std::size_t openHandleCount()
{
    std::lock_guard<std::mutex> lock(apiMutex());
    return registry().size();
}

} // namespace softskf::driver
