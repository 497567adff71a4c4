#include "sm4_ecb.h"

#include "openssl_ptr.h"

#include <openssl/crypto.h>
#include <openssl/err.h>

#include <cstring>
#include <string>

namespace softskf {

namespace {

// EVP takes int lengths; inputs can be up to 4 GiB, so they go through in whole-block chunks.
constexpr std::size_t kChunkLength = std::size_t(1) << 30;
static_assert(kChunkLength % kSm4BlockLength == 0);

const EVP_CIPHER *sm4Ecb()
{
    static const CipherPtr cipher(EVP_CIPHER_fetch(nullptr, "SM4-ECB", nullptr));
    return cipher.get();
}

// Deciphers whole blocks with padding off: EVP then writes exactly as many bytes as it reads.
bool decipherBlocks(EVP_CIPHER_CTX *ctx, const unsigned char *in, std::size_t length,
                    unsigned char *out)
{
    while (length != 0) {
        const std::size_t chunk = length < kChunkLength ? length : kChunkLength;
        int written = 0;
        if (EVP_DecryptUpdate(ctx, out, &written, in, static_cast<int>(chunk)) != 1
            || static_cast<std::size_t>(written) != chunk)
            return false;
        in += chunk;
        out += chunk;
        length -= chunk;
    }
    return true;
}

// The PKCS#7 pad length of the last block, or 0 when the padding is malformed. Checks every
// pad byte without an early exit.
std::size_t pkcs7PadLength(const unsigned char *block)
{
    const unsigned pad = block[kSm4BlockLength - 1];
    if (pad == 0 || pad > kSm4BlockLength)
        return 0;
    unsigned char mismatch = 0;
    for (std::size_t i = kSm4BlockLength - pad; i < kSm4BlockLength; ++i)
        mismatch |= static_cast<unsigned char>(block[i] ^ pad);
    return mismatch == 0 ? pad : 0;
}

} // namespace

Status sm4EcbDecrypt(const SecretBytes &key, Padding padding, const unsigned char *in,
                     std::size_t inLength, unsigned char *out, std::size_t outCapacity,
                     std::size_t *outLength)
{
    *outLength = 0;
    if (key.size() != kSm4KeyLength)
        return Status::failure(SAR_KEYINFOTYPEERR, "SM4 key is " + std::to_string(key.size())
                                                       + " bytes, expected 16");
    if (inLength == 0 || inLength % kSm4BlockLength != 0)
        return Status::failure(SAR_INDATALENERR, "ciphertext is " + std::to_string(inLength)
                                                     + " bytes, expected a non-zero multiple of 16");
    const EVP_CIPHER *cipher = sm4Ecb();
    CipherCtxPtr ctx(EVP_CIPHER_CTX_new());
    if (!cipher || !ctx || EVP_DecryptInit_ex2(ctx.get(), cipher, key.data(), nullptr, nullptr) != 1
        || EVP_CIPHER_CTX_set_padding(ctx.get(), 0) != 1) {
        ERR_clear_error();
        return Status::failure(SAR_FAIL, "SM4-ECB is not available");
    }

    // ECB blocks stand alone, so the last block is deciphered first: its padding gives the
    // exact length before anything is written to the caller's buffer.
    std::size_t bulkLength = inLength;
    std::size_t tailLength = 0;
    unsigned char lastBlock[kSm4BlockLength];
    if (padding == Padding::Pkcs7) {
        bulkLength = inLength - kSm4BlockLength;
        if (!decipherBlocks(ctx.get(), in + bulkLength, kSm4BlockLength, lastBlock))
            return Status::failure(SAR_FAIL, "SM4-ECB decryption failed");
        const std::size_t pad = pkcs7PadLength(lastBlock);
        if (pad == 0) {
            OPENSSL_cleanse(lastBlock, sizeof lastBlock);
            return Status::failure(SAR_DECRYPTPADERR,
                                   "PKCS#7 padding of the last block is malformed");
        }
        tailLength = kSm4BlockLength - pad;
    }
    const std::size_t total = bulkLength + tailLength;
    *outLength = total;
    if (outCapacity < total) {
        OPENSSL_cleanse(lastBlock, sizeof lastBlock);
        return Status::failure(SAR_BUFFER_TOO_SMALL, "plaintext is " + std::to_string(total)
                                                         + " bytes, the buffer holds "
                                                         + std::to_string(outCapacity));
    }
    if (!decipherBlocks(ctx.get(), in, bulkLength, out)) {
        OPENSSL_cleanse(lastBlock, sizeof lastBlock);
        *outLength = 0;
        return Status::failure(SAR_FAIL, "SM4-ECB decryption failed");
    }
    if (tailLength != 0)
        std::memcpy(out + bulkLength, lastBlock, tailLength);
    OPENSSL_cleanse(lastBlock, sizeof lastBlock);
    return Status::success();
}

} // namespace softskf
