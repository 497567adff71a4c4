// Session keys and decryption on the software device: the 44-byte block-cipher record decoded
// field by field, lengths past the array refused, and a real session key wrapped with OpenSSL.

#include "test_key_component_fixture.h"

#include "key/block_cipher_record.h"
#include "openssl_envelope.h"

using namespace zthost;

namespace {

// Writes `value` little-endian at `offset`, inside the array's bounds.
void putLittleEndian32(QByteArray &bytes, int offset, quint32 value)
{
    for (int i = 0; i < 4; ++i)
        bytes[offset + i] = char((value >> (8 * i)) & 0xff);
}

constexpr qulonglong kSm4Ecb = 0x401;

// The 44-byte record with each field at its named offset, little-endian.
QByteArray blockCipherRecord(const QByteArray &iv, quint32 ivLen, quint32 paddingType,
                             quint32 feedBitLen)
{
    using namespace BlockCipherRecord;
    QByteArray record(kSize, '\0');
    record.replace(kIvOffset, qMin(iv.size(), kIvSize), iv.left(kIvSize));
    putLittleEndian32(record, kIvLenOffset, ivLen);
    putLittleEndian32(record, kPaddingTypeOffset, paddingType);
    putLittleEndian32(record, kFeedBitLenOffset, feedBitLen);
    return record;
}

// An SM2 ciphertext in the device's wrapped layout: X and Y right-aligned in 64-byte fields,
// the 32-byte hash, the cipher length little-endian, then the cipher.
QByteArray eccCipherBlob(const Sm2CiphertextFields &fields)
{
    constexpr int kCoordinateField = 64;
    constexpr int kCoordinateSize = 32;
    constexpr int kXOffset = 0;
    constexpr int kYOffset = 64;
    constexpr int kHashOffset = 128;
    constexpr int kCipherLenOffset = 160;
    constexpr int kCipherOffset = 164;
    QByteArray blob(kCipherOffset + fields.cipher.size(), '\0');
    const QByteArray x = fields.x.right(kCoordinateSize);
    const QByteArray y = fields.y.right(kCoordinateSize);
    blob.replace(kXOffset + kCoordinateField - x.size(), x.size(), x);
    blob.replace(kYOffset + kCoordinateField - y.size(), y.size(), y);
    blob.replace(kHashOffset, fields.hash.size(), fields.hash);
    putLittleEndian32(blob, kCipherLenOffset, quint32(fields.cipher.size()));
    blob.replace(kCipherOffset, fields.cipher.size(), fields.cipher);
    return blob;
}

} // namespace

TEST(BlockCipherRecord, fieldsAreDecodedFromTheirOffsets)
{
    QByteArray iv;
    for (int i = 0; i < 32; ++i)
        iv.append(char(0xA0 + i));
    QString error;
    const auto param = decodeBlockCipherRecord(blockCipherRecord(iv, 16, 1, 0x01020304), &error);
    ASSERT_TRUE(param.has_value()) << error.toStdString();
    EXPECT_EQ(QByteArray(reinterpret_cast<const char *>(param->IV), 32), iv);
    EXPECT_EQ(param->IVLen, 16u);
    EXPECT_EQ(param->PaddingType, 1u);
    EXPECT_EQ(param->FeedBitLen, 0x01020304u);
}

TEST(BlockCipherRecord, numbersAreLittleEndian)
{
    QByteArray record(44, '\0');
    record[32] = 0x20; // IVLen 32
    record[36] = 0x01; // PaddingType 1
    record[40] = 0x08; // FeedBitLen 0x00000108
    record[41] = 0x01;
    const auto param = decodeBlockCipherRecord(record, nullptr);
    ASSERT_TRUE(param.has_value());
    EXPECT_EQ(param->IVLen, 32u);
    EXPECT_EQ(param->PaddingType, 1u);
    EXPECT_EQ(param->FeedBitLen, 0x108u);
}

TEST(BlockCipherRecord, faultyRecordsAreRefusedWithTheReason)
{
    const QByteArray valid = blockCipherRecord(QByteArray(16, '\x11'), 16, 1, 0);
    QByteArray ivTooLong = valid;
    putLittleEndian32(ivTooLong, BlockCipherRecord::kIvLenOffset, 33);
    struct Row
    {
        QByteArray record;
        const char *error;
        const char *reason;
    };
    const Row rows[] = {
        {QByteArray(), "block-cipher record is 0 bytes, expected 44", "empty"},
        {valid.left(43), "block-cipher record is 43 bytes, expected 44", "one byte short"},
        {valid + '\0', "block-cipher record is 45 bytes, expected 44", "one byte long"},
        {valid + valid, "block-cipher record is 88 bytes, expected 44", "two records"},
        {ivTooLong, "block-cipher record gives IVLen 33, more than the 32-byte IV",
         "IVLen past the IV field"},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.reason);
        QString error;
        EXPECT_FALSE(decodeBlockCipherRecord(row.record, &error).has_value());
        EXPECT_EQ(error, QString::fromLatin1(row.error));
    }
}

// The same road on the software device built twice: with the standard's 4-byte ULONG and BOOL,
// and with 8-byte ones as some vendors' headers declare them. The host lays out the session-key
// blob and the block-cipher record for whichever it finds.
struct DriverCase
{
    const char *name;
    const char *path;
};

class SessionKeyTest : public KeyComponentTest, public ::testing::WithParamInterface<DriverCase>
{
protected:
    void SetUp() override
    {
        KeyComponentTest::SetUp();
        useDriver(QString::fromLatin1(GetParam().path));
        provision(QStringLiteral("alpha"));
        key = openFirst();
        ASSERT_NE(key, nullptr);
        container = key->openContainer(QLatin1String(kContainer));
        ASSERT_NE(container, 0u);
        ASSERT_TRUE(key->verifyPin(QLatin1String(kUserPin), false));

        sessionKey = randomBytes(16);
        EvpPkeyPtr recipient = publicKeyOfCertificate(key->exportCertificate(container, false));
        ASSERT_TRUE(recipient);
        Sm2CiphertextFields fields;
        ASSERT_TRUE(splitSm2Ciphertext(sm2Encrypt(recipient.get(), sessionKey), &fields));
        wrapped = eccCipherBlob(fields);
        ASSERT_EQ(wrapped.size(), 180);
    }

    KeyObject *key = nullptr;
    qulonglong container = 0;
    QByteArray sessionKey;
    QByteArray wrapped;
};

TEST_P(SessionKeyTest, lengthsPastTheBlobAreRefused)
{
    struct Row
    {
        qulonglong blobLen;
        qulonglong algId;
        const char *logged;
        const char *reason;
    };
    const Row rows[] = {
        {181, kSm4Ecb, "importSessionKey refused: length 181 is past the 180-byte blob",
         "one byte past the array"},
        {0x100000000ull, kSm4Ecb,
         "importSessionKey refused: length 4294967296 is past the 180-byte blob", "beyond 32 bits"},
        {180, 0x100000401ull,
         "importSessionKey refused: length 180 or algorithm 0x100000401 does not fit in 32 bits",
         "algorithm beyond 32 bits"},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.reason);
        EXPECT_EQ(key->importSessionKey(container, row.algId, wrapped, row.blobLen), 0u);
        EXPECT_TRUE(logText().contains(QString::fromLatin1(row.logged))) << logText().toStdString();
    }
}

TEST_P(SessionKeyTest, shorterLengthHandsOnlyThosePrefixBytesToTheDriver)
{
    // 179 of the 180 bytes: the driver sees a truncated blob and refuses it.
    EXPECT_EQ(key->importSessionKey(container, kSm4Ecb, wrapped, 179), 0u);
    EXPECT_TRUE(logText().contains(QStringLiteral("SKF_ImportSessionKey failed: 0x0A")))
        << logText().toStdString();
}

TEST_P(SessionKeyTest, decryptsWhatOpenSslEncrypted)
{
    const QByteArray plaintext = QByteArrayLiteral("seventeen bytes!!");
    const QByteArray ciphertext = sm4EcbEncrypt(sessionKey, plaintext);
    ASSERT_EQ(ciphertext.size(), 32);

    const qulonglong handle = key->importSessionKey(container, kSm4Ecb, wrapped, 180);
    ASSERT_NE(handle, 0u) << logText().toStdString();
    ASSERT_TRUE(key->decryptInit(handle, blockCipherRecord(QByteArray(), 0, 1, 0)));
    EXPECT_EQ(key->decrypt(handle, ciphertext, qulonglong(ciphertext.size())), plaintext);
}

TEST_P(SessionKeyTest, paddingTypeIsReadFromItsOffset)
{
    const QByteArray plaintext = QByteArrayLiteral("sixteen bytes!!!");
    const QByteArray ciphertext = sm4EcbEncrypt(sessionKey, plaintext); // a whole padding block
    const qulonglong handle = key->importSessionKey(container, kSm4Ecb, wrapped, 180);
    ASSERT_NE(handle, 0u) << logText().toStdString();
    // No padding: the padding block comes back as data, 16 bytes of 0x10.
    ASSERT_TRUE(key->decryptInit(handle, blockCipherRecord(QByteArray(), 0, 0, 0)));
    EXPECT_EQ(key->decrypt(handle, ciphertext, qulonglong(ciphertext.size())),
              plaintext + QByteArray(16, '\x10'));
}

TEST_P(SessionKeyTest, decryptLengthPastTheDataIsRefused)
{
    const qulonglong handle = key->importSessionKey(container, kSm4Ecb, wrapped, 180);
    ASSERT_NE(handle, 0u);
    ASSERT_TRUE(key->decryptInit(handle, blockCipherRecord(QByteArray(), 0, 1, 0)));
    EXPECT_TRUE(key->decrypt(handle, QByteArray(16, '\0'), 17).isEmpty());
    EXPECT_TRUE(
        logText().contains(QStringLiteral("decrypt refused: length 17 is past the 16-byte data")))
        << logText().toStdString();
}

TEST_P(SessionKeyTest, decryptInitRefusesEveryOtherRecordSize)
{
    const qulonglong handle = key->importSessionKey(container, kSm4Ecb, wrapped, 180);
    ASSERT_NE(handle, 0u);
    for (int size : {0, 43, 45}) {
        SCOPED_TRACE(size);
        EXPECT_FALSE(key->decryptInit(handle, QByteArray(size, '\0')));
    }
    EXPECT_TRUE(logText().contains(
        QStringLiteral("decryptInit refused: block-cipher record is 43 bytes, expected 44")));
}

TEST_P(SessionKeyTest, sessionKeyNeedsTheVerifiedPin)
{
    key->close();
    KeyObject *fresh = openFirst();
    ASSERT_NE(fresh, nullptr);
    const qulonglong freshContainer = fresh->openContainer(QLatin1String(kContainer));
    EXPECT_EQ(fresh->importSessionKey(freshContainer, kSm4Ecb, wrapped, 180), 0u);
    EXPECT_TRUE(logText().contains(
        QStringLiteral("SKF_ImportSessionKey failed: 0x0A00002D SAR_USER_NOT_LOGGED_IN")))
        << logText().toStdString();
}

TEST_P(SessionKeyTest, openingAnOpenContainerAgainAnswersItsHandle)
{
    EXPECT_EQ(key->openContainer(QLatin1String(kContainer)), container);
    key->closeContainer(container);
    const qulonglong reopened = key->openContainer(QLatin1String(kContainer));
    EXPECT_NE(reopened, 0u);
    EXPECT_EQ(key->getContainerType(reopened), 2);
}

TEST_P(SessionKeyTest, onlyTheNewestSessionKeysStayOpen)
{
    QList<qulonglong> handles;
    for (int i = 0; i <= KeyObject::kSessionKeysKept; ++i) {
        handles.append(key->importSessionKey(container, kSm4Ecb, wrapped, 180));
        ASSERT_NE(handles.last(), 0u) << logText().toStdString();
    }
    // The first was closed when one more than the kept number came in.
    EXPECT_FALSE(key->decryptInit(handles.first(), blockCipherRecord(QByteArray(), 0, 1, 0)));
    for (int i = 1; i < handles.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_TRUE(key->decryptInit(handles.at(i), blockCipherRecord(QByteArray(), 0, 1, 0)));
    }
    const QByteArray ciphertext = sm4EcbEncrypt(sessionKey, QByteArrayLiteral("still usable"));
    EXPECT_EQ(key->decrypt(handles.last(), ciphertext, qulonglong(ciphertext.size())),
              QByteArrayLiteral("still usable"));
}

TEST_P(SessionKeyTest, keyStaysUsableForLaterImportsAndGoesWithTheLogin)
{
    for (int i = 0; i < 3; ++i)
        EXPECT_NE(key->importSessionKey(container, kSm4Ecb, wrapped, 180), 0u) << i;
    key->close();
    key = openFirst();
    ASSERT_NE(key, nullptr);
    container = key->openContainer(QLatin1String(kContainer));
    EXPECT_EQ(key->importSessionKey(container, kSm4Ecb, wrapped, 180), 0u); // logged out
    ASSERT_TRUE(key->verifyPin(QLatin1String(kUserPin), false));
    EXPECT_NE(key->importSessionKey(container, kSm4Ecb, wrapped, 180), 0u);
}

INSTANTIATE_TEST_SUITE_P(Drivers, SessionKeyTest,
                         ::testing::Values(DriverCase{"standard", ZT_SOFTSKF_DRIVER_PATH},
                                           DriverCase{"wide", ZT_WIDE_DRIVER_PATH}),
                         [](const ::testing::TestParamInfo<DriverCase> &info) {
                             return std::string(info.param.name);
                         });
