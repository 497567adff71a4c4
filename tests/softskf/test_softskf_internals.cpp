// The device's own parts, below the C interface: the handle registry's size, the blob and
// record parsers and their messages, the DER it builds, and the sealed keys.
#include "softskf_fixture.h"

#include "cipher_blob.h"
#include "der_writer.h"
#include "pin_kdf.h"
#include "records.h"
#include "registry.h"
#include "sealed_key.h"

using namespace softskf_test;

class SoftSkfInternals : public SoftSkfTest {};

TEST_F(SoftSkfInternals, disconnectBringsTheHandleCountBackToZero)
{
    provision("dev");
    ASSERT_EQ(softskf::driver::openHandleCount(), 0u);
    Session session = open("dev");
    Bytes blob = wrapForCertificate(encryptionCertificate(root(), "dev"), randomBytes(16));
    for (int i = 0; i < 100; ++i) {
        HANDLE key = nullptr;
        HCONTAINER container = nullptr;
        char name[] = "SM2Container";
        ASSERT_EQ(SKF_ImportSessionKey(session.container, SGD_SM4_ECB, blob.data(),
                                       static_cast<ULONG>(blob.size()), &key),
                  SAR_OK);
        ASSERT_EQ(SKF_OpenContainer(session.application, name, &container), SAR_OK);
    }
    EXPECT_EQ(softskf::driver::openHandleCount(), 3u + 200u);
    close(session);
    EXPECT_EQ(softskf::driver::openHandleCount(), 0u);
}

TEST_F(SoftSkfInternals, keyUnsealedForALoginGoesWhenAWrongPinEndsIt)
{
    provision("dev");
    Session session = open("dev");
    Bytes blob = wrapForCertificate(encryptionCertificate(root(), "dev"), randomBytes(16));
    HANDLE key = nullptr;
    ASSERT_EQ(SKF_ImportSessionKey(session.container, SGD_SM4_ECB, blob.data(),
                                   static_cast<ULONG>(blob.size()), &key),
              SAR_OK);
    using softskf::driver::ApplicationSession;
    const ApplicationSession *application =
        softskf::driver::registry().find<ApplicationSession>(session.application);
    ASSERT_NE(application, nullptr);
    EXPECT_EQ(application->unsealedEncryptionKeys.size(), 1u);

    char wrongPin[] = "not-the-pin";
    ULONG retries = 0;
    ASSERT_EQ(SKF_VerifyPIN(session.application, USER_TYPE, wrongPin, &retries), SAR_PIN_INCORRECT);
    EXPECT_FALSE(application->userLoggedIn);
    EXPECT_TRUE(application->sealingKey.empty());
    EXPECT_TRUE(application->unsealedEncryptionKeys.empty());
    close(session);
}

TEST_F(SoftSkfInternals, blobBecomesMinimalDer)
{
    Bytes blob(164 + 16, 0);
    blob[32] = 0x00;  // X = 00 80 00.. : a leading zero dropped, a sign byte kept
    blob[33] = 0x80;
    blob[64 + 63] = 0x05;  // Y = 5
    for (int i = 0; i < 32; ++i)
        blob[128 + i] = static_cast<unsigned char>(i);
    blob[160] = 16;
    Bytes der;
    ASSERT_TRUE(softskf::cipher_blob::toSm2Der(blob.data(), blob.size(), &der).ok());
    // SEQUENCE, INTEGER(31 bytes + sign byte), INTEGER 05, OCTET STRING(32), OCTET STRING(16)
    const std::size_t contents = (2 + 32) + (2 + 1) + (2 + 32) + (2 + 16);
    ASSERT_EQ(der.size(), 2 + contents);
    EXPECT_EQ(der[0], 0x30);
    EXPECT_EQ(der[1], contents);
    EXPECT_EQ(der[2], 0x02);
    EXPECT_EQ(der[3], 32);
    EXPECT_EQ(der[4], 0x00);
    EXPECT_EQ(der[5], 0x80);
    EXPECT_EQ(der[36], 0x02);
    EXPECT_EQ(der[37], 1);
    EXPECT_EQ(der[38], 0x05);
    EXPECT_EQ(der[39], 0x04);
    EXPECT_EQ(der[40], 32);
}

TEST_F(SoftSkfInternals, zeroIntegerIsOneZeroByte)
{
    Bytes out;
    const unsigned char zero[4] = {};
    softskf::der::appendUnsignedInteger(out, zero, sizeof zero);
    EXPECT_EQ(out, (Bytes{0x02, 0x01, 0x00}));
}

TEST_F(SoftSkfInternals, blobErrorsNameTheSizes)
{
    Bytes blob(150, 0);
    Bytes der;
    softskf::Status status = softskf::cipher_blob::toSm2Der(blob.data(), blob.size(), &der);
    EXPECT_EQ(status.code, SAR_INDATALENERR);
    EXPECT_EQ(status.message, "blob is 150 bytes, expected at least 165");
    blob.assign(180, 0);
    blob[160] = 0x20;
    status = softskf::cipher_blob::toSm2Der(blob.data(), blob.size(), &der);
    EXPECT_EQ(status.message, "blob is 180 bytes, expected at least 196 for CipherLen 32");
}

struct RecordCase {
    const char *reason;
    std::size_t offset;
    unsigned char value;
    std::size_t resize;  // 0: keep the size
};

TEST_F(SoftSkfInternals, pinRecordWithOneFieldChangedIsRefused)
{
    softskf::PinRecord record;
    ASSERT_TRUE(softskf::makePinRecord(kUserPin, 10, 6, &record).ok());
    const Bytes good = softskf::encodePinRecord(record);
    ASSERT_EQ(good.size(), 88u);
    softskf::PinRecord parsed;
    ASSERT_TRUE(softskf::decodePinRecord(good, &parsed).ok());
    EXPECT_EQ(parsed.remainingRetries, 6u);
    const RecordCase cases[] = {
        {"magic changed", 0, 'X', 0},
        {"format version 2", 4, 2, 0},
        {"zero iterations", 8, 0, 0},
        {"iterations over the limit", 11, 0xFF, 0},
        {"retry limit 0", 12, 0, 0},
        {"more tries left than the limit", 16, 7, 0},
        {"one byte short", 0, 'S', 87},
        {"one byte long", 0, 'S', 89},
    };
    for (const RecordCase &row : cases) {
        SCOPED_TRACE(row.reason);
        Bytes bytes = good;
        bytes[row.offset] = row.value;
        if (row.resize)
            bytes.resize(row.resize, 0);
        EXPECT_EQ(softskf::decodePinRecord(bytes, &parsed).code, SAR_FILEERR);
    }
}

TEST_F(SoftSkfInternals, sealedKeyOpensOnlyWithItsKeyAndUnaltered)
{
    softskf::SecretBytes sealingKey(32), otherKey(32);
    sealingKey.data()[0] = 1;
    otherKey.data()[0] = 2;
    const unsigned char secret[] = "pretend PKCS#8 bytes";
    softskf::SecretBytes plain(secret, sizeof secret);
    Bytes sealed;
    ASSERT_TRUE(softskf::sealPrivateKey(sealingKey, CONTAINER_TYPE_SM2,
                                        softskf::KeyUsage::Encryption, plain, &sealed)
                    .ok());
    softskf::SecretBytes opened;
    ASSERT_TRUE(softskf::unsealPrivateKey(sealingKey, CONTAINER_TYPE_SM2,
                                          softskf::KeyUsage::Encryption, sealed, &opened)
                    .ok());
    EXPECT_EQ(Bytes(opened.data(), opened.data() + opened.size()), Bytes(secret, secret + sizeof secret));
    EXPECT_EQ(softskf::unsealPrivateKey(otherKey, CONTAINER_TYPE_SM2, softskf::KeyUsage::Encryption,
                                        sealed, &opened)
                  .code,
              SAR_FILEERR);
    EXPECT_EQ(softskf::unsealPrivateKey(sealingKey, CONTAINER_TYPE_SM2, softskf::KeyUsage::Signing,
                                        sealed, &opened)
                  .code,
              SAR_FILEERR);
    for (std::size_t i = 0; i < sealed.size(); ++i) {
        SCOPED_TRACE(i);
        Bytes altered = sealed;
        altered[i] ^= 0x01;
        EXPECT_EQ(softskf::unsealPrivateKey(sealingKey, CONTAINER_TYPE_SM2,
                                            softskf::KeyUsage::Encryption, altered, &opened)
                      .code,
                  SAR_FILEERR);
    }
}
