// Parses untrusted bytes: sealed private-key files read back from a device folder.
#include "sealed_key.h"

#include "byte_view.h"
#include "openssl_ptr.h"
#include "pin_kdf.h"

#include <cstring>
#include <string>

namespace softskf {

namespace {

constexpr char kMagic[] = "SKSK";
constexpr std::size_t kMagicLength = 4;
constexpr std::uint32_t kFormatVersion = 1;
constexpr std::size_t kMagicOffset = 0;
constexpr std::size_t kVersionOffset = 4;
constexpr std::size_t kTypeOffset = 8;
constexpr std::size_t kUsageOffset = 12;
constexpr std::size_t kNonceOffset = 16;
constexpr std::size_t kNonceLength = 12;
constexpr std::size_t kTagOffset = kNonceOffset + kNonceLength;  // 28
constexpr std::size_t kTagLength = 16;
constexpr std::size_t kLengthOffset = kTagOffset + kTagLength;  // 44
constexpr std::size_t kCipherOffset = kLengthOffset + 4;        // 48
// Everything before the nonce is authenticated as additional data.
constexpr std::size_t kAuthenticatedHeaderLength = kNonceOffset;

Status cipherFailure(const char *step)
{
    return Status::failure(SAR_FAIL, std::string("AES-256-GCM ") + step + " failed");
}

} // namespace

Status sealPrivateKey(const SecretBytes &sealingKey, std::uint32_t containerType, KeyUsage usage,
                      const SecretBytes &pkcs8, std::vector<unsigned char> *sealed)
{
    if (sealingKey.size() != kSealingKeyLength)
        return Status::failure(SAR_INVALIDPARAMERR, "sealing key is "
                                                        + std::to_string(sealingKey.size())
                                                        + " bytes, expected 32");
    if (kCipherOffset + pkcs8.size() > kMaxSealedKeySize)
        return Status::failure(SAR_INVALIDPARAMERR, "private key of " + std::to_string(pkcs8.size())
                                                        + " bytes does not fit a sealed file");
    std::vector<unsigned char> out(kCipherOffset + pkcs8.size(), 0);
    storeBytes(out, kMagicOffset, reinterpret_cast<const unsigned char *>(kMagic), kMagicLength);
    storeU32le(out, kVersionOffset, kFormatVersion);
    storeU32le(out, kTypeOffset, containerType);
    storeU32le(out, kUsageOffset, static_cast<std::uint32_t>(usage));
    storeU32le(out, kLengthOffset, static_cast<std::uint32_t>(pkcs8.size()));
    Status status = randomBytes(out.data() + kNonceOffset, kNonceLength);
    if (!status.ok())
        return status;

    CipherCtxPtr ctx(EVP_CIPHER_CTX_new());
    int length = 0;
    if (!ctx
        || EVP_EncryptInit_ex2(ctx.get(), EVP_aes_256_gcm(), sealingKey.data(),
                               out.data() + kNonceOffset, nullptr)
               != 1
        || EVP_EncryptUpdate(ctx.get(), nullptr, &length, out.data(),
                             static_cast<int>(kAuthenticatedHeaderLength))
               != 1
        || EVP_EncryptUpdate(ctx.get(), out.data() + kCipherOffset, &length, pkcs8.data(),
                             static_cast<int>(pkcs8.size()))
               != 1
        || EVP_EncryptFinal_ex(ctx.get(), out.data() + kCipherOffset + length, &length) != 1
        || EVP_CIPHER_CTX_ctrl(ctx.get(), EVP_CTRL_AEAD_GET_TAG, static_cast<int>(kTagLength),
                               out.data() + kTagOffset)
               != 1)
        return cipherFailure("sealing");
    *sealed = std::move(out);
    return Status::success();
}

Status unsealPrivateKey(const SecretBytes &sealingKey, std::uint32_t containerType,
                        KeyUsage usage, const std::vector<unsigned char> &sealed,
                        SecretBytes *pkcs8)
{
    if (sealingKey.size() != kSealingKeyLength)
        return Status::failure(SAR_USER_NOT_LOGGED_IN, "no sealing key: the user PIN is not verified");
    const ByteView view(sealed);
    std::uint32_t version = 0, type = 0, storedUsage = 0, cipherLength = 0;
    if (!view.u32le(kVersionOffset, &version) || !view.u32le(kTypeOffset, &type)
        || !view.u32le(kUsageOffset, &storedUsage) || !view.u32le(kLengthOffset, &cipherLength)
        || !view.contains(kCipherOffset, 0))
        return Status::failure(SAR_FILEERR, "sealed key file is " + std::to_string(sealed.size())
                                                + " bytes, at least "
                                                + std::to_string(kCipherOffset) + " expected");
    if (std::memcmp(sealed.data() + kMagicOffset, kMagic, kMagicLength) != 0
        || version != kFormatVersion)
        return Status::failure(SAR_FILEERR, "sealed key file has no SKSK version-1 header");
    if (type != containerType || storedUsage != static_cast<std::uint32_t>(usage))
        return Status::failure(SAR_FILEERR, "sealed key is for container type "
                                                + std::to_string(type) + " usage "
                                                + std::to_string(storedUsage) + ", expected "
                                                + std::to_string(containerType) + " usage "
                                                + std::to_string(static_cast<std::uint32_t>(usage)));
    ByteView cipher;
    if (cipherLength == 0 || !view.slice(kCipherOffset, cipherLength, &cipher)
        || cipher.size() != sealed.size() - kCipherOffset)
        return Status::failure(SAR_FILEERR, "sealed key says " + std::to_string(cipherLength)
                                                + " bytes follow, the file has "
                                                + std::to_string(sealed.size() - kCipherOffset));

    unsigned char tag[kTagLength];
    view.copyTo(kTagOffset, kTagLength, tag);
    SecretBytes plain(cipher.size());
    CipherCtxPtr ctx(EVP_CIPHER_CTX_new());
    int length = 0;
    if (!ctx
        || EVP_DecryptInit_ex2(ctx.get(), EVP_aes_256_gcm(), sealingKey.data(),
                               sealed.data() + kNonceOffset, nullptr)
               != 1
        || EVP_DecryptUpdate(ctx.get(), nullptr, &length, sealed.data(),
                             static_cast<int>(kAuthenticatedHeaderLength))
               != 1
        || EVP_DecryptUpdate(ctx.get(), plain.data(), &length, cipher.data(),
                             static_cast<int>(cipher.size()))
               != 1
        || EVP_CIPHER_CTX_ctrl(ctx.get(), EVP_CTRL_AEAD_SET_TAG, static_cast<int>(kTagLength), tag)
               != 1)
        return cipherFailure("opening");
    if (EVP_DecryptFinal_ex(ctx.get(), plain.data() + length, &length) != 1)
        return Status::failure(SAR_FILEERR, "sealed key does not authenticate: altered file or "
                                            "a different KEK");
    *pkcs8 = std::move(plain);
    return Status::success();
}

} // namespace softskf
