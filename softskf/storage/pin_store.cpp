#include "pin_store.h"

#include "device_layout.h"
#include "file_io.h"
#include "pin_kdf.h"
#include "test_seams.h"

namespace softskf {

namespace {
const char *fileName(PinKind kind)
{
    return kind == PinKind::User ? layout::kUserPin : layout::kAdminPin;
}
} // namespace

Status readPinRecord(const std::string &applicationDir, PinKind kind, PinRecord *record)
{
    const std::string path = joinPath(applicationDir, fileName(kind));
    std::vector<unsigned char> bytes;
    Status status = readFile(path, kMaxRecordSize, &bytes);
    if (status.code == SAR_FILE_NOT_EXIST)
        return Status::failure(SAR_USER_PIN_NOT_INITIALIZED, path + " does not exist");
    if (!status.ok())
        return status;
    status = decodePinRecord(bytes, record);
    if (!status.ok())
        status.message = path + ": " + status.message;
    return status;
}

Status writePinRecord(const std::string &applicationDir, PinKind kind, const PinRecord &record)
{
    return writeFileAtomically(joinPath(applicationDir, fileName(kind)), encodePinRecord(record));
}

Status verifyPinCounting(const std::string &applicationDir, PinKind kind, const std::string &pin,
                         std::uint32_t *remaining, SecretBytes *sealingKey)
{
    *remaining = 0;
    if (pin.size() < kMinPinLength || pin.size() > kMaxPinLength)
        return Status::failure(SAR_PIN_LEN_RANGE, "PIN is " + std::to_string(pin.size())
                                                      + " bytes, expected "
                                                      + std::to_string(kMinPinLength) + ".."
                                                      + std::to_string(kMaxPinLength));
    FileLock lock;
    Status status = lock.acquire(joinPath(applicationDir, layout::kApplicationLock));
    if (!status.ok())
        return status;
    seams::reach(seams::kPinLocked);
    PinRecord record;
    status = readPinRecord(applicationDir, kind, &record);
    if (!status.ok())
        return status;
    seams::reach(seams::kPinRead);
    if (record.remainingRetries == 0)
        return Status::failure(SAR_PIN_LOCKED, "PIN is locked after "
                                                   + std::to_string(record.maxRetries)
                                                   + " wrong tries");
    bool matches = false;
    status = pinMatches(record, pin, &matches);
    if (!status.ok())
        return status;
    seams::reach(seams::kPinCompared);
    if (!matches) {
        record.remainingRetries -= 1;
        status = writePinRecord(applicationDir, kind, record);
        if (!status.ok())
            return status;
        seams::reach(seams::kPinWritten);
        *remaining = record.remainingRetries;
        return Status::failure(SAR_PIN_INCORRECT, "wrong PIN, "
                                                      + std::to_string(record.remainingRetries)
                                                      + " tries left");
    }
    if (kind == PinKind::User && sealingKey) {
        status = deriveSealingKey(record, pin, sealingKey);
        if (!status.ok())
            return status;
    }
    if (record.remainingRetries != record.maxRetries) {
        record.remainingRetries = record.maxRetries;
        status = writePinRecord(applicationDir, kind, record);
        if (!status.ok())
            return status;
        seams::reach(seams::kPinWritten);
    }
    *remaining = record.remainingRetries;
    return Status::success();
}

} // namespace softskf
