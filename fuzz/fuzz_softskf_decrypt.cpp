// This file feeds untrusted bytes to the software key device's session-key import and decryption.
//
// At start-up one device is provisioned in a temporary root, connected, its application opened,
// the user logged in and the SM2 container opened; those handles stay for the whole run. Each
// input then imports a session key (a blob from the input, or a real one wrapped for the
// device's key at start-up, optionally with one byte flipped), initialises decryption with a
// 44-byte record from the input and decrypts the rest. Every key handle obtained is closed.
//
// Input layout, each field only when bytes remain (missing bytes read as zero):
//   flags 1 | algorithm 4 (unless kStandardAlgorithm) | blob: length 2 + bytes, or flip 2 |
//   record 44 | output size 2 | data (the rest)
#include "fuzz_environment.h"
#include "fuzz_soft_key.h"
#include "openssl_envelope.h"

#include "skf.h"

#include <QByteArray>

#include <openssl/x509.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr char kDevice[] = "fuzzdev";
constexpr char kUserPin[] = "fuzz-user-1357";
constexpr char kAdminPin[] = "fuzz-admin-2468";
constexpr char kApplication[] = "SOFTAPP";
constexpr char kContainer[] = "SM2Container";

constexpr unsigned kRealBlob = 0x01;          // import the session key wrapped at start-up
constexpr unsigned kStandardAlgorithm = 0x02; // SGD_SM4_ECB instead of 4 input bytes
constexpr unsigned kSizeQuery = 0x04;         // ask for the output size first, as callers do
constexpr unsigned kInPlace = 0x08;           // output into the input buffer
constexpr unsigned kDecryptTwice = 0x10;      // a second SKF_Decrypt after the first

// The wrapped-key layout: x 64 ‖ y 64 ‖ HASH 32 ‖ CipherLen 4 (little-endian) ‖ Cipher.
constexpr int kCoordinateField = 64;
constexpr int kHashSize = 32;
constexpr int kCipherLengthOffset = 2 * kCoordinateField + kHashSize;
constexpr int kCipherOffset = kCipherLengthOffset + 4;
constexpr int kSessionKeySize = 16;
constexpr std::size_t kRecordSize = sizeof(BLOCKCIPHERPARAM);
static_assert(kRecordSize == 44, "the block-cipher record is 44 bytes");

// Walks the input; past its end every byte reads as zero.
class Reader
{
public:
    Reader(const std::uint8_t *data, std::size_t size) : m_data(data), m_size(size) {}
    unsigned byte() { return m_at < m_size ? m_data[m_at++] : 0; }
    unsigned u16() { const unsigned low = byte(); return low | (byte() << 8); }
    std::uint32_t u32() { const std::uint32_t low = u16(); return low | (std::uint32_t(u16()) << 16); }
    std::vector<unsigned char> take(std::size_t count)
    {
        const std::size_t available = std::min(count, m_size - m_at);
        std::vector<unsigned char> bytes(m_data + m_at, m_data + m_at + available);
        m_at += available;
        return bytes;
    }
    std::vector<unsigned char> rest() { return take(m_size - m_at); }

private:
    const std::uint8_t *m_data;
    std::size_t m_size;
    std::size_t m_at = 0;
};

struct Device
{
    DEVHANDLE device = nullptr;
    HAPPLICATION application = nullptr;
    HCONTAINER container = nullptr;
    std::vector<unsigned char> wrappedKey;
};
Device g_device;

[[noreturn]] void die(const char *what, ULONG code = 0)
{
    std::fprintf(stderr, "softskf fuzz: %s (0x%08lx)\n", what, static_cast<unsigned long>(code));
    std::abort();
}

std::vector<unsigned char> wrapSessionKey(const QByteArray &certificate)
{
    EvpPkeyPtr publicKey = publicKeyOfCertificate(certificate);
    if (!publicKey)
        die("the device certificate has no readable key");
    Sm2CiphertextFields fields;
    if (!splitSm2Ciphertext(sm2Encrypt(publicKey.get(), randomBytes(kSessionKeySize)), &fields))
        die("SM2 encryption of the session key failed");
    std::vector<unsigned char> blob(std::size_t(kCipherOffset + fields.cipher.size()), 0);
    const auto place = [&blob](const QByteArray &value, int fieldEnd) {
        const QByteArray tail = value.right(32);
        std::memcpy(blob.data() + fieldEnd - tail.size(), tail.constData(), std::size_t(tail.size()));
    };
    place(fields.x, kCoordinateField);
    place(fields.y, 2 * kCoordinateField);
    std::memcpy(blob.data() + 2 * kCoordinateField, fields.hash.constData(), kHashSize);
    const auto cipherLength = std::uint32_t(fields.cipher.size());
    for (int i = 0; i < 4; ++i)
        blob[std::size_t(kCipherLengthOffset + i)] = static_cast<unsigned char>(cipherLength >> (8 * i));
    std::memcpy(blob.data() + kCipherOffset, fields.cipher.constData(), std::size_t(fields.cipher.size()));
    return blob;
}

void decryptOnce(HANDLE key, unsigned flags, unsigned outputSize, std::vector<unsigned char> data)
{
    ULONG length = 0;
    if (flags & kSizeQuery) {
        if (SKF_Decrypt(key, data.data(), ULONG(data.size()), nullptr, &length) != SAR_OK)
            return;
        if (length < data.size())
            die("the size query answered less than the input length", length);
    } else {
        length = outputSize;
    }
    if (flags & kInPlace) {
        length = ULONG(data.size());
        if (SKF_Decrypt(key, data.data(), ULONG(data.size()), data.data(), &length) == SAR_OK
            && length > data.size())
            die("in-place decryption claims more bytes than it had", length);
        return;
    }
    // A null output is the size query, which answers an upper bound, not what was written.
    std::vector<unsigned char> output(length);
    const ULONG capacity = length;
    const ULONG rv = SKF_Decrypt(key, data.data(), ULONG(data.size()),
                                 output.empty() ? nullptr : output.data(), &length);
    if (rv == SAR_OK && !output.empty() && length > capacity)
        die("decryption claims more bytes than the buffer holds", length);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    const QString temp = ztfuzz::prepareProcess(argc, argv);
    const QByteArray certificate =
        ztfuzz::provisionSoftKey(temp, {kDevice, kUserPin, kAdminPin, kContainer, 255});
    g_device.wrappedKey = wrapSessionKey(certificate);

    std::string device = kDevice, application = kApplication, container = kContainer,
                pin = kUserPin;
    ULONG rv = SKF_ConnectDev(device.data(), &g_device.device);
    if (rv != SAR_OK)
        die("SKF_ConnectDev", rv);
    rv = SKF_OpenApplication(g_device.device, application.data(), &g_device.application);
    if (rv != SAR_OK)
        die("SKF_OpenApplication", rv);
    ULONG retries = 0;
    rv = SKF_VerifyPIN(g_device.application, USER_TYPE, pin.data(), &retries);
    if (rv != SAR_OK)
        die("SKF_VerifyPIN", rv);
    rv = SKF_OpenContainer(g_device.application, container.data(), &g_device.container);
    if (rv != SAR_OK)
        die("SKF_OpenContainer", rv);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    Reader input(data, size);
    const unsigned flags = input.byte();
    const ULONG algorithm = (flags & kStandardAlgorithm) ? ULONG(SGD_SM4_ECB) : ULONG(input.u32());

    std::vector<unsigned char> blob;
    if (flags & kRealBlob) {
        blob = g_device.wrappedKey;
        const unsigned position = input.byte();
        const unsigned mask = input.byte();
        if (position < blob.size())
            blob[position] ^= static_cast<unsigned char>(mask);
    } else {
        blob = input.take(input.u16());
    }

    std::vector<unsigned char> record = input.take(kRecordSize);
    record.resize(kRecordSize, 0);
    BLOCKCIPHERPARAM param;
    std::memcpy(&param, record.data(), kRecordSize);

    const unsigned outputSize = input.u16();
    const std::vector<unsigned char> cipher = input.rest();

    HANDLE key = nullptr;
    const ULONG rv = SKF_ImportSessionKey(g_device.container, algorithm,
                                          blob.empty() ? nullptr : blob.data(), ULONG(blob.size()),
                                          &key);
    if (rv != SAR_OK) {
        if (key)
            SKF_CloseHandle(key);
        return 0;
    }
    if (!key)
        die("an imported session key has no handle");
    if (SKF_DecryptInit(key, param) == SAR_OK) {
        decryptOnce(key, flags, outputSize, cipher);
        if (flags & kDecryptTwice)
            decryptOnce(key, flags, outputSize, cipher);
    }
    const ULONG closed = SKF_CloseHandle(key);
    if (closed != SAR_OK)
        die("SKF_CloseHandle of a session key", closed);
    return 0;
}
