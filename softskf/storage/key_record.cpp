// Parses untrusted bytes: the key record read back from an application folder.
#include "key_record.h"

#include "byte_view.h"
#include "openssl_ptr.h"

#include <cstring>

namespace softskf {

namespace {

// key.dat, 168 bytes, integers little-endian:
//   0  magic "SKKW"         4  format version (1)
//   8  PBKDF2 iterations    12 flags: bit 0 user wrap present, bit 1 admin wrap present
//   16 user wrap (76 bytes) 92 admin wrap (76 bytes)
// A wrap: salt (16) | GCM nonce (12) | GCM tag (16) | wrapped KEK (32). An absent wrap is zeros.
constexpr char kMagic[] = "SKKW";
constexpr std::size_t kMagicLength = 4;
constexpr std::uint32_t kFormatVersion = 1;
constexpr std::size_t kMagicOffset = 0;
constexpr std::size_t kVersionOffset = 4;
constexpr std::size_t kIterationsOffset = 8;
constexpr std::size_t kFlagsOffset = 12;
constexpr std::size_t kUserWrapOffset = 16;
constexpr std::size_t kWrapSaltOffset = 0;
constexpr std::size_t kWrapNonceOffset = kWrapSaltOffset + kSaltLength;          // 16
constexpr std::size_t kWrapTagOffset = kWrapNonceOffset + kWrapNonceLength;      // 28
constexpr std::size_t kWrapCipherOffset = kWrapTagOffset + kWrapTagLength;       // 44
constexpr std::size_t kWrapLength = kWrapCipherOffset + kKekLength;              // 76
constexpr std::size_t kAdminWrapOffset = kUserWrapOffset + kWrapLength;          // 92
constexpr std::size_t kKeyRecordSize = kAdminWrapOffset + kWrapLength;           // 168
constexpr std::uint32_t kFlagUser = 1;
constexpr std::uint32_t kFlagAdmin = 2;

static_assert(kKeyRecordSize <= kMaxRecordSize);

// Authenticated with each wrap: which PIN it belongs to, so a user wrap copied into the admin
// slot does not open.
const unsigned char *label(PinKind kind)
{
    return reinterpret_cast<const unsigned char *>(kind == PinKind::User ? "ztsoftskf KEK user"
                                                                         : "ztsoftskf KEK admn");
}
constexpr int kLabelLength = 18;

void storeWrap(std::vector<unsigned char> &bytes, std::size_t offset, const WrappedKek &wrap)
{
    if (!wrap.present)
        return;
    storeBytes(bytes, offset + kWrapSaltOffset, wrap.salt.data(), wrap.salt.size());
    storeBytes(bytes, offset + kWrapNonceOffset, wrap.nonce.data(), wrap.nonce.size());
    storeBytes(bytes, offset + kWrapTagOffset, wrap.tag.data(), wrap.tag.size());
    storeBytes(bytes, offset + kWrapCipherOffset, wrap.cipher.data(), wrap.cipher.size());
}

void loadWrap(const ByteView &view, std::size_t offset, bool present, WrappedKek *wrap)
{
    wrap->present = present;
    view.copyTo(offset + kWrapSaltOffset, kSaltLength, wrap->salt.data());
    view.copyTo(offset + kWrapNonceOffset, kWrapNonceLength, wrap->nonce.data());
    view.copyTo(offset + kWrapTagOffset, kWrapTagLength, wrap->tag.data());
    view.copyTo(offset + kWrapCipherOffset, kKekLength, wrap->cipher.data());
}

Status deriveWrappingKey(const WrappedKek &wrap, const std::string &pin, std::uint32_t iterations,
                         SecretBytes *key)
{
    SecretBytes derived(kKekLength);
    Status status = pbkdf2Sha256(pin, wrap.salt.data(), wrap.salt.size(), iterations,
                                 derived.data(), derived.size());
    if (status.ok())
        *key = std::move(derived);
    return status;
}

} // namespace

std::vector<unsigned char> encodeKeyRecord(const KeyRecord &record)
{
    std::vector<unsigned char> bytes(kKeyRecordSize, 0);
    storeBytes(bytes, kMagicOffset, reinterpret_cast<const unsigned char *>(kMagic), kMagicLength);
    storeU32le(bytes, kVersionOffset, kFormatVersion);
    storeU32le(bytes, kIterationsOffset, record.iterations);
    storeU32le(bytes, kFlagsOffset,
               (record.user.present ? kFlagUser : 0) | (record.admin.present ? kFlagAdmin : 0));
    storeWrap(bytes, kUserWrapOffset, record.user);
    storeWrap(bytes, kAdminWrapOffset, record.admin);
    return bytes;
}

Status decodeKeyRecord(const std::vector<unsigned char> &bytes, KeyRecord *record)
{
    if (bytes.size() != kKeyRecordSize)
        return Status::failure(SAR_FILEERR, "key record is " + std::to_string(bytes.size())
                                                + " bytes, expected "
                                                + std::to_string(kKeyRecordSize));
    const ByteView view(bytes);
    std::uint32_t version = 0, flags = 0;
    KeyRecord parsed;
    view.u32le(kVersionOffset, &version);
    view.u32le(kIterationsOffset, &parsed.iterations);
    view.u32le(kFlagsOffset, &flags);
    if (std::memcmp(bytes.data() + kMagicOffset, kMagic, kMagicLength) != 0
        || version != kFormatVersion)
        return Status::failure(SAR_FILEERR, "key record has no SKKW version-1 header");
    if ((flags & ~(kFlagUser | kFlagAdmin)) != 0 || (flags & kFlagUser) == 0)
        return Status::failure(SAR_FILEERR, "key record flags are " + std::to_string(flags)
                                                + ", expected 1 or 3");
    if (parsed.iterations < kMinPbkdf2Iterations || parsed.iterations > kMaxPbkdf2Iterations)
        return Status::failure(SAR_FILEERR, "key record: " + std::to_string(parsed.iterations)
                                                + " PBKDF2 iterations, expected "
                                                + std::to_string(kMinPbkdf2Iterations) + ".."
                                                + std::to_string(kMaxPbkdf2Iterations));
    loadWrap(view, kUserWrapOffset, true, &parsed.user);
    loadWrap(view, kAdminWrapOffset, (flags & kFlagAdmin) != 0, &parsed.admin);
    *record = parsed;
    return Status::success();
}

Status makeKek(SecretBytes *kek)
{
    SecretBytes fresh(kKekLength);
    Status status = randomBytes(fresh.data(), fresh.size());
    if (status.ok())
        *kek = std::move(fresh);
    return status;
}

Status wrapKek(const SecretBytes &kek, PinKind kind, const std::string &pin,
               std::uint32_t iterations, WrappedKek *wrapped)
{
    if (kek.size() != kKekLength)
        return Status::failure(SAR_INVALIDPARAMERR, "KEK is " + std::to_string(kek.size())
                                                        + " bytes, expected 32");
    WrappedKek out;
    out.present = true;
    Status status = randomBytes(out.salt.data(), out.salt.size());
    if (status.ok())
        status = randomBytes(out.nonce.data(), out.nonce.size());
    SecretBytes wrappingKey;
    if (status.ok())
        status = deriveWrappingKey(out, pin, iterations, &wrappingKey);
    if (!status.ok())
        return status;
    CipherCtxPtr ctx(EVP_CIPHER_CTX_new());
    int length = 0;
    if (!ctx
        || EVP_EncryptInit_ex2(ctx.get(), EVP_aes_256_gcm(), wrappingKey.data(), out.nonce.data(),
                               nullptr)
               != 1
        || EVP_EncryptUpdate(ctx.get(), nullptr, &length, label(kind), kLabelLength) != 1
        || EVP_EncryptUpdate(ctx.get(), out.cipher.data(), &length, kek.data(),
                             static_cast<int>(kek.size()))
               != 1
        || EVP_EncryptFinal_ex(ctx.get(), out.cipher.data() + length, &length) != 1
        || EVP_CIPHER_CTX_ctrl(ctx.get(), EVP_CTRL_AEAD_GET_TAG, static_cast<int>(kWrapTagLength),
                               out.tag.data())
               != 1)
        return Status::failure(SAR_FAIL, "AES-256-GCM wrapping of the KEK failed");
    *wrapped = out;
    return Status::success();
}

Status unwrapKek(const WrappedKek &wrapped, PinKind kind, const std::string &pin,
                 std::uint32_t iterations, bool *opened, SecretBytes *kek)
{
    *opened = false;
    if (!wrapped.present)
        return Status::failure(SAR_FILEERR, "key record holds no wrap for that PIN");
    SecretBytes wrappingKey;
    Status status = deriveWrappingKey(wrapped, pin, iterations, &wrappingKey);
    if (!status.ok())
        return status;
    SecretBytes plain(kKekLength);
    unsigned char tag[kWrapTagLength];
    std::memcpy(tag, wrapped.tag.data(), kWrapTagLength);
    CipherCtxPtr ctx(EVP_CIPHER_CTX_new());
    int length = 0;
    if (!ctx
        || EVP_DecryptInit_ex2(ctx.get(), EVP_aes_256_gcm(), wrappingKey.data(),
                               wrapped.nonce.data(), nullptr)
               != 1
        || EVP_DecryptUpdate(ctx.get(), nullptr, &length, label(kind), kLabelLength) != 1
        || EVP_DecryptUpdate(ctx.get(), plain.data(), &length, wrapped.cipher.data(),
                             static_cast<int>(kKekLength))
               != 1
        || EVP_CIPHER_CTX_ctrl(ctx.get(), EVP_CTRL_AEAD_SET_TAG, static_cast<int>(kWrapTagLength),
                               tag)
               != 1)
        return Status::failure(SAR_FAIL, "AES-256-GCM opening of the KEK failed");
    if (EVP_DecryptFinal_ex(ctx.get(), plain.data() + length, &length) != 1)
        return Status::success();  // a wrong PIN, or an altered wrap: the same to us
    *opened = true;
    *kek = std::move(plain);
    return Status::success();
}

} // namespace softskf
