#pragma once

#include <cstddef>
#include <string>

namespace softskf::layout {

// A device on disk (keep in sync with README.md):
//
//   <root>/<device>/                 0700, the folder's name is the device's name
//     device.dat                     serial number
//     <application>/                 the one application, "SOFTAPP" by default
//       .lock                        advisory lock around PIN counter updates
//       user.pin, admin.pin          retry counters (and, earlier layout, PBKDF2 verifiers)
//       key.dat                      the KEK wrapped under the user PIN and under the admin PIN
//       <container>/                 one folder per container
//         container.dat              container type
//         enc.cer, sign.cer          certificates (DER), each optional
//         enc.key, sign.key          private keys sealed under the KEK, each optional
//
// Files are 0600 and replaced by rename, never rewritten in place.

inline constexpr char kDeviceRecord[] = "device.dat";
inline constexpr char kApplicationLock[] = ".lock";
inline constexpr char kUserPin[] = "user.pin";
inline constexpr char kAdminPin[] = "admin.pin";
inline constexpr char kKeyRecord[] = "key.dat";
inline constexpr char kContainerRecord[] = "container.dat";
inline constexpr char kEncryptionCertificate[] = "enc.cer";
inline constexpr char kSigningCertificate[] = "sign.cer";
inline constexpr char kEncryptionKey[] = "enc.key";
inline constexpr char kSigningKey[] = "sign.key";

inline constexpr char kDefaultApplication[] = "SOFTAPP";

// Longest device, application or container name. Names are folder names, so the limit
// also keeps paths short.
inline constexpr std::size_t kMaxNameLength = 64;

// Upper bound of a certificate file read back from disk.
inline constexpr std::size_t kMaxCertificateSize = 64 * 1024;

// A name usable as a device, application or container: 1 to kMaxNameLength printable ASCII
// characters, no '/', not starting with '.' (which also rules out "." and "..").
bool isValidName(const std::string &name);

} // namespace softskf::layout
