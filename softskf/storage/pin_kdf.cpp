#include "pin_kdf.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/rand.h>

namespace softskf {

Status checkPinLength(const std::string &pin, const char *what)
{
    if (pin.size() < kMinPinLength || pin.size() > kMaxPinLength)
        return Status::failure(SAR_PIN_LEN_RANGE, std::string(what) + " is "
                                                      + std::to_string(pin.size())
                                                      + " bytes, expected "
                                                      + std::to_string(kMinPinLength) + ".."
                                                      + std::to_string(kMaxPinLength));
    return Status::success();
}

Status pbkdf2Sha256(const std::string &pin, const unsigned char *salt, std::size_t saltLength,
                    std::uint32_t iterations, unsigned char *out, std::size_t outLength)
{
    if (pin.size() > kMaxPinLength || iterations < kMinPbkdf2Iterations
        || iterations > kMaxPbkdf2Iterations)
        return Status::failure(SAR_INVALIDPARAMERR,
                               "PBKDF2 with a " + std::to_string(pin.size()) + "-byte PIN and "
                                   + std::to_string(iterations) + " iterations");
    if (PKCS5_PBKDF2_HMAC(pin.data(), static_cast<int>(pin.size()), salt,
                          static_cast<int>(saltLength), static_cast<int>(iterations),
                          EVP_sha256(), static_cast<int>(outLength), out)
        != 1)
        return Status::failure(SAR_FAIL, "PBKDF2-SHA256 failed");
    return Status::success();
}

Status randomBytes(unsigned char *out, std::size_t length)
{
    if (RAND_bytes(out, static_cast<int>(length)) != 1)
        return Status::failure(SAR_GENRANDERR,
                               "no " + std::to_string(length) + " random bytes to be had");
    return Status::success();
}

Status makePinRecord(const std::string &pin, std::uint32_t iterations, std::uint32_t maxRetries,
                     PinRecord *record)
{
    PinRecord fresh;
    fresh.iterations = iterations;
    fresh.maxRetries = maxRetries;
    fresh.remainingRetries = maxRetries;
    Status status = randomBytes(fresh.verifierSalt.data(), fresh.verifierSalt.size());
    if (status.ok())
        status = randomBytes(fresh.sealingSalt.data(), fresh.sealingSalt.size());
    if (status.ok())
        status = pbkdf2Sha256(pin, fresh.verifierSalt.data(), fresh.verifierSalt.size(),
                              iterations, fresh.verifier.data(), fresh.verifier.size());
    if (!status.ok())
        return status;
    *record = fresh;
    return Status::success();
}

Status pinMatches(const PinRecord &record, const std::string &pin, bool *matches)
{
    SecretBytes candidate(kPinVerifierLength);
    Status status = pbkdf2Sha256(pin, record.verifierSalt.data(), record.verifierSalt.size(),
                                 record.iterations, candidate.data(), candidate.size());
    if (!status.ok())
        return status;
    *matches = CRYPTO_memcmp(candidate.data(), record.verifier.data(), kPinVerifierLength) == 0;
    return Status::success();
}

Status deriveSealingKey(const PinRecord &record, const std::string &pin, SecretBytes *key)
{
    SecretBytes derived(kSealingKeyLength);
    Status status = pbkdf2Sha256(pin, record.sealingSalt.data(), record.sealingSalt.size(),
                                 record.iterations, derived.data(), derived.size());
    if (!status.ok())
        return status;
    *key = std::move(derived);
    return Status::success();
}

} // namespace softskf
