#include "key/skf_errors.h"

#include <array>

namespace zthost {

namespace {

struct Row
{
    std::uint32_t code;
    SkfErrorInfo info;
};

// The names are the standard's own spellings ("NOTFOUNT" included), so that a log line can be
// searched for in a driver's documentation.
constexpr std::array<Row, 51> kRows{{
    {0x00000000, {"SAR_OK", "success"}},
    {0x0A000001, {"SAR_FAIL", "the operation failed"}},
    {0x0A000002, {"SAR_UNKNOWNERR", "an unexpected error"}},
    {0x0A000003, {"SAR_NOTSUPPORTYETERR", "the driver does not support this call"}},
    {0x0A000004, {"SAR_FILEERR", "a file operation on the device failed"}},
    {0x0A000005, {"SAR_INVALIDHANDLEERR", "the handle is unknown or already closed"}},
    {0x0A000006, {"SAR_INVALIDPARAMERR", "a parameter is invalid"}},
    {0x0A000007, {"SAR_READFILEERR", "reading a file on the device failed"}},
    {0x0A000008, {"SAR_WRITEFILEERR", "writing a file on the device failed"}},
    {0x0A000009, {"SAR_NAMELENERR", "a name has the wrong length"}},
    {0x0A00000A, {"SAR_KEYUSAGEERR", "the key may not be used for this"}},
    {0x0A00000B, {"SAR_MODULUSLENERR", "the modulus has the wrong length"}},
    {0x0A00000C, {"SAR_NOTINITIALIZEERR", "the device or object is not initialised"}},
    {0x0A00000D, {"SAR_OBJERR", "the object is invalid"}},
    {0x0A00000E, {"SAR_MEMORYERR", "the driver ran out of memory"}},
    {0x0A00000F, {"SAR_TIMEOUTERR", "the device did not answer in time"}},
    {0x0A000010, {"SAR_INDATALENERR", "the input has the wrong length"}},
    {0x0A000011, {"SAR_INDATAERR", "the input is malformed"}},
    {0x0A000012, {"SAR_GENRANDERR", "generating random bytes failed"}},
    {0x0A000013, {"SAR_HASHOBJERR", "the hash object is invalid"}},
    {0x0A000014, {"SAR_HASHERR", "hashing failed"}},
    {0x0A000015, {"SAR_GENRSAKEYERR", "generating an RSA key failed"}},
    {0x0A000016, {"SAR_RSAMODULUSLENERR", "the RSA modulus has the wrong length"}},
    {0x0A000017, {"SAR_CSPIMPRTPUBKEYERR", "importing the public key failed"}},
    {0x0A000018, {"SAR_RSAENCERR", "RSA encryption failed"}},
    {0x0A000019, {"SAR_RSADECERR", "RSA decryption failed"}},
    {0x0A00001A, {"SAR_HASHNOTEQUALERR", "the hashes differ"}},
    {0x0A00001B, {"SAR_KEYNOTFOUNTERR", "the key was not found"}},
    {0x0A00001C, {"SAR_CERTNOTFOUNTERR", "the certificate was not found"}},
    {0x0A00001D, {"SAR_NOTEXPORTERR", "the object may not be exported"}},
    {0x0A00001E, {"SAR_DECRYPTPADERR", "the padding of the decrypted data is wrong"}},
    {0x0A00001F, {"SAR_MACLENERR", "the MAC has the wrong length"}},
    {0x0A000020, {"SAR_BUFFER_TOO_SMALL", "the output buffer is too small"}},
    {0x0A000021, {"SAR_KEYINFOTYPEERR", "the key type is wrong"}},
    {0x0A000022, {"SAR_NOT_EVENTERR", "no device event happened"}},
    {0x0A000023, {"SAR_DEVICE_REMOVED", "the device was removed"}},
    {0x0A000024, {"SAR_PIN_INCORRECT", "the PIN is wrong"}},
    {0x0A000025, {"SAR_PIN_LOCKED", "the PIN is locked after too many wrong tries"}},
    {0x0A000026, {"SAR_PIN_INVALID", "the PIN is not valid"}},
    {0x0A000027, {"SAR_PIN_LEN_RANGE", "the PIN is too short or too long"}},
    {0x0A000028, {"SAR_USER_ALREADY_LOGGED_IN", "the user is already logged in"}},
    {0x0A000029, {"SAR_USER_PIN_NOT_INITIALIZED", "the user PIN was never set"}},
    {0x0A00002A, {"SAR_USER_TYPE_INVALID", "the PIN type is neither user nor administrator"}},
    {0x0A00002B, {"SAR_APPLICATION_NAME_INVALID", "the application name is invalid"}},
    {0x0A00002C, {"SAR_APPLICATION_EXISTS", "the application already exists"}},
    {0x0A00002D, {"SAR_USER_NOT_LOGGED_IN", "the user PIN has not been verified"}},
    {0x0A00002E, {"SAR_APPLICATION_NOT_EXISTS", "the application does not exist"}},
    {0x0A00002F, {"SAR_FILE_ALREADY_EXIST", "the file already exists"}},
    {0x0A000030, {"SAR_NO_ROOM", "the device is full"}},
    {0x0A000031, {"SAR_FILE_NOT_EXIST", "the file does not exist"}},
    {0x0A000032, {"SAR_REACH_MAX_CONTAINER_COUNT", "the device holds its maximum of containers"}},
}};

} // namespace

SkfErrorInfo describeSkfResult(std::uint32_t code)
{
    for (const Row &row : kRows) {
        if (row.code == code)
            return row.info;
    }
    return {"unknown result code", "the driver answered a code the standard does not define"};
}

QString skfFailureText(const char *function, std::uint32_t code)
{
    const SkfErrorInfo info = describeSkfResult(code);
    return QStringLiteral("%1 failed: 0x%2 %3 (%4)")
        .arg(QLatin1String(function))
        .arg(QString::number(code, 16).toUpper().rightJustified(8, QLatin1Char('0')))
        .arg(QLatin1String(info.name), QLatin1String(info.meaning));
}

} // namespace zthost
