#pragma once

#include "secret_bytes.h"
#include "status.h"

#include <cstdint>
#include <vector>

namespace softskf {

enum class KeyUsage : std::uint32_t { Encryption = 1, Signing = 2 };

// Bounds a sealed key file read back from disk; a 4096-bit RSA key seals to about 2.4 KiB.
inline constexpr std::size_t kMaxSealedKeySize = 8 * 1024;

// Seals a private key (PKCS#8 DER) with AES-256-GCM under the sealing key (the KEK). The
// container type and the key's usage are authenticated with it, so a sealed file moved to
// another slot does not open.
Status sealPrivateKey(const SecretBytes &sealingKey, std::uint32_t containerType, KeyUsage usage,
                      const SecretBytes &pkcs8, std::vector<unsigned char> *sealed);

// Opens a sealed file (untrusted bytes). A wrong sealing key or any altered byte is
// SAR_FILEERR; the plaintext is never handed out unauthenticated.
Status unsealPrivateKey(const SecretBytes &sealingKey, std::uint32_t containerType,
                        KeyUsage usage, const std::vector<unsigned char> &sealed,
                        SecretBytes *pkcs8);

} // namespace softskf
