// Bad input from callers: wrapped keys with one field changed, and decryption records and
// ciphertexts that do not fit. Each answers its SAR code and never crashes.
#include "softskf_fixture.h"

using namespace softskf_test;

namespace {

void putU32le(Bytes &blob, std::size_t offset, std::uint32_t value)
{
    for (int i = 0; i < 4; ++i)
        blob[offset + i] = static_cast<unsigned char>(value >> (8 * i));
}

struct BlobCase {
    const char *reason;
    void (*change)(Bytes &blob, ULONG &length);
    ULONG expected;
};

const BlobCase kBlobCases[] = {
    {"shorter than the 164-byte header",
     [](Bytes &, ULONG &length) { length = 163; }, SAR_INDATALENERR},
    {"no bytes at all", [](Bytes &, ULONG &length) { length = 0; }, SAR_INDATALENERR},
    {"one byte short of 164 + CipherLen", [](Bytes &, ULONG &length) { length = 179; },
     SAR_INDATALENERR},
    {"CipherLen larger than the bytes that follow",
     [](Bytes &blob, ULONG &) { putU32le(blob, 160, 17); }, SAR_INDATALENERR},
    {"CipherLen 0", [](Bytes &blob, ULONG &) { putU32le(blob, 160, 0); }, SAR_INDATALENERR},
    {"CipherLen 0xFFFFFFFF, which overflows 164 + CipherLen in 32 bits",
     [](Bytes &blob, ULONG &) { putU32le(blob, 160, 0xFFFFFFFFu); }, SAR_INDATALENERR},
    {"CipherLen over the 256-byte limit with the bytes present",
     [](Bytes &blob, ULONG &length) {
         blob.resize(164 + 257, 0x5A);
         putU32le(blob, 160, 257);
         length = static_cast<ULONG>(blob.size());
     },
     SAR_INDATALENERR},
    {"non-zero left padding of X", [](Bytes &blob, ULONG &) { blob[0] = 0x01; }, SAR_INDATAERR},
    {"non-zero left padding of Y", [](Bytes &blob, ULONG &) { blob[64 + 31] = 0x80; },
     SAR_INDATAERR},
    {"C1 not on the curve (Y changed)", [](Bytes &blob, ULONG &) { blob[127] ^= 0x01; },
     SAR_INDATAERR},
    {"C1 the all-zero point", [](Bytes &blob, ULONG &) { std::fill(blob.begin(), blob.begin() + 128, 0); },
     SAR_INDATAERR},
    {"hash altered", [](Bytes &blob, ULONG &) { blob[128] ^= 0x01; }, SAR_INDATAERR},
    {"cipher altered", [](Bytes &blob, ULONG &) { blob[164] ^= 0x01; }, SAR_INDATAERR},
};

} // namespace

class SoftSkfMalformedInput : public SoftSkfTest {
protected:
    void SetUp() override
    {
        SoftSkfTest::SetUp();
        provision("dev");
        sessionKey_ = randomBytes(16);
        blob_ = wrapForCertificate(encryptionCertificate(root(), "dev"), sessionKey_);
        ASSERT_EQ(blob_.size(), 180u);
        session_ = open("dev");
    }
    void TearDown() override
    {
        close(session_);
        SoftSkfTest::TearDown();
    }

    HANDLE importedKey()
    {
        Bytes blob = blob_;
        HANDLE key = nullptr;
        EXPECT_EQ(SKF_ImportSessionKey(session_.container, SGD_SM4_ECB, blob.data(),
                                       static_cast<ULONG>(blob.size()), &key),
                  SAR_OK);
        return key;
    }

    Bytes sessionKey_;
    Bytes blob_;
    Session session_;
};

TEST_F(SoftSkfMalformedInput, wrappedKeyWithOneFieldChangedIsRefused)
{
    for (const BlobCase &row : kBlobCases) {
        SCOPED_TRACE(row.reason);
        Bytes blob = blob_;
        ULONG length = static_cast<ULONG>(blob.size());
        row.change(blob, length);
        HANDLE key = reinterpret_cast<HANDLE>(0x1);
        EXPECT_EQ(SKF_ImportSessionKey(session_.container, SGD_SM4_ECB, blob.data(), length, &key),
                  row.expected);
        EXPECT_EQ(key, nullptr);
    }
}

TEST_F(SoftSkfMalformedInput, bytesPastTheBlobAreIgnored)
{
    Bytes blob = blob_;
    blob.resize(blob.size() + 20, 0xEE);
    HANDLE key = nullptr;
    EXPECT_EQ(SKF_ImportSessionKey(session_.container, SGD_SM4_ECB, blob.data(),
                                   static_cast<ULONG>(blob.size()), &key),
              SAR_OK);
}

TEST_F(SoftSkfMalformedInput, unknownPaddingTypeIsRefused)
{
    HANDLE key = importedKey();
    EXPECT_EQ(SKF_DecryptInit(key, paddingParam(7)), SAR_INVALIDPARAMERR);
    Bytes cipher = sm4EcbEncrypt(sessionKey_, randomBytes(5));
    ULONG length = 64;
    Bytes plain(64);
    EXPECT_EQ(SKF_Decrypt(key, cipher.data(), static_cast<ULONG>(cipher.size()), plain.data(), &length),
              SAR_NOTINITIALIZEERR);
}

struct CipherCase {
    const char *reason;
    ULONG paddingType;
    Bytes (*make)(const Bytes &key);
    ULONG expected;
};

// A last block deciphering to `tail`, laid out with no padding by the sender.
Bytes lastBlock(const Bytes &key, Bytes tail)
{
    tail.resize(16, 0);
    return sm4EcbEncrypt(key, tail, false);
}

const CipherCase kCipherCases[] = {
    {"no padding and 20 bytes, not whole blocks", SKF_NO_PADDING,
     [](const Bytes &) { return randomBytes(20); }, SAR_INDATALENERR},
    {"PKCS#7 and 20 bytes, not whole blocks", SKF_PKCS7_PADDING,
     [](const Bytes &) { return randomBytes(20); }, SAR_INDATALENERR},
    {"empty ciphertext", SKF_PKCS7_PADDING, [](const Bytes &) { return Bytes{}; },
     SAR_INDATALENERR},
    {"pad byte 0", SKF_PKCS7_PADDING,
     [](const Bytes &key) { return lastBlock(key, Bytes(16, 0x00)); }, SAR_DECRYPTPADERR},
    {"pad byte 17, longer than a block", SKF_PKCS7_PADDING,
     [](const Bytes &key) { return lastBlock(key, Bytes(16, 0x11)); }, SAR_DECRYPTPADERR},
    {"pad bytes that disagree", SKF_PKCS7_PADDING,
     [](const Bytes &key) {
         Bytes block(16, 0x04);
         block[13] = 0x03;
         return lastBlock(key, block);
     },
     SAR_DECRYPTPADERR},
    {"a whole block of padding unpads to nothing", SKF_PKCS7_PADDING,
     [](const Bytes &key) { return lastBlock(key, Bytes(16, 0x10)); }, SAR_OK},
};

TEST_F(SoftSkfMalformedInput, ciphertextsThatDoNotFitAreRefused)
{
    HANDLE key = importedKey();
    for (const CipherCase &row : kCipherCases) {
        SCOPED_TRACE(row.reason);
        ASSERT_EQ(SKF_DecryptInit(key, paddingParam(row.paddingType)), SAR_OK);
        Bytes cipher = row.make(sessionKey_);
        Bytes plain(cipher.size() + 16, 0xCC);
        ULONG length = static_cast<ULONG>(plain.size());
        // A non-null pointer even for the empty case, so only the length is wrong.
        Bytes input = cipher;
        input.reserve(1);
        EXPECT_EQ(SKF_Decrypt(key, input.data() ? input.data() : plain.data(),
                              static_cast<ULONG>(cipher.size()), plain.data(), &length),
                  row.expected);
        if (row.expected == SAR_OK) {
            EXPECT_EQ(length, 0u);
        }
    }
}

TEST_F(SoftSkfMalformedInput, nullPointersAreRefused)
{
    HANDLE key = importedKey();
    ASSERT_EQ(SKF_DecryptInit(key, paddingParam(SKF_PKCS7_PADDING)), SAR_OK);
    Bytes cipher = sm4EcbEncrypt(sessionKey_, randomBytes(3));
    ULONG length = 16;
    EXPECT_EQ(SKF_Decrypt(key, nullptr, 16, cipher.data(), &length), SAR_INVALIDPARAMERR);
    EXPECT_EQ(SKF_Decrypt(key, cipher.data(), 16, cipher.data(), nullptr), SAR_INVALIDPARAMERR);
}
