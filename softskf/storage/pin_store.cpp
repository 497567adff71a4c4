#include "pin_store.h"

#include "byte_view.h"
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

// A PIN record once its PIN is checked by a wrap of the key record: the verifier and salts of
// the earlier layout are of no use any more, and an old verifier would only help someone
// guessing an old PIN.
void dropVerifier(PinRecord *record)
{
    record->verifierSalt.fill(0);
    record->verifier.fill(0);
    record->sealingSalt.fill(0);
}

// What one check under the lock found.
struct Check {
    PinRecord pin;
    KeyRecord keys;
    bool haveKeys = false;
    SecretBytes kek;  // opened by the PIN: from its wrap, or derived (earlier layout, user)
};

bool hasWrap(const Check &check, PinKind kind)
{
    return check.haveKeys && check.keys.slot(kind).present;
}

// Whether `pin` is right, by its wrap or (earlier layout) by its verifier. Counts nothing.
Status matchPin(PinKind kind, const std::string &pin, Check *check, bool *matches)
{
    if (hasWrap(*check, kind))
        return unwrapKek(check->keys.slot(kind), kind, pin, check->keys.iterations, matches,
                         &check->kek);
    // A record without a verifier belongs to a key record: that file has gone.
    if (ByteView(check->pin.verifier.data(), check->pin.verifier.size()).allZero())
        return Status::failure(SAR_FILEERR, std::string(layout::kKeyRecord)
                                                + " is missing and the PIN record holds no "
                                                  "verifier");
    Status status = pinMatches(check->pin, pin, matches);
    if (status.ok() && *matches && kind == PinKind::User)
        status = deriveSealingKey(check->pin, pin, &check->kek);
    return status;
}

Status readBoth(const std::string &applicationDir, PinKind kind, Check *check)
{
    Status status = readPinRecord(applicationDir, kind, &check->pin);
    if (!status.ok())
        return status;
    seams::reach(seams::kPinRead);
    status = readKeyRecord(applicationDir, &check->keys, &check->haveKeys);
    if (!status.ok())
        return status;
    seams::reach(seams::kKeysRead);
    return Status::success();
}

// Takes the application's lock into `lock`, then refuses a locked PIN, checks the PIN and counts
// a wrong one. Succeeds only for the right PIN; the caller then does its work, still under the
// lock, and resets the counter.
Status checkCounting(const std::string &applicationDir, PinKind kind, const std::string &pin,
                     std::uint32_t *remaining, FileLock *lock, Check *check)
{
    Status status = lock->acquire(joinPath(applicationDir, layout::kApplicationLock));
    if (!status.ok())
        return status;
    seams::reach(seams::kPinLocked);
    status = readBoth(applicationDir, kind, check);
    if (!status.ok())
        return status;
    if (check->pin.remainingRetries == 0)
        return Status::failure(SAR_PIN_LOCKED, "PIN is locked after "
                                                   + std::to_string(check->pin.maxRetries)
                                                   + " wrong tries");
    bool matches = false;
    status = matchPin(kind, pin, check, &matches);
    if (!status.ok())
        return status;
    seams::reach(seams::kPinCompared);
    if (!matches) {
        check->pin.remainingRetries -= 1;
        status = writePinRecord(applicationDir, kind, check->pin);
        if (!status.ok())
            return status;
        seams::reach(seams::kPinWritten);
        *remaining = check->pin.remainingRetries;
        return Status::failure(SAR_PIN_INCORRECT, "wrong PIN, "
                                                      + std::to_string(check->pin.remainingRetries)
                                                      + " tries left");
    }
    return Status::success();
}

// Writes the PIN record with a full counter when that or anything else changed.
Status resetCounter(const std::string &applicationDir, PinKind kind, PinRecord record,
                    bool changed, std::uint32_t *remaining)
{
    if (record.remainingRetries != record.maxRetries) {
        record.remainingRetries = record.maxRetries;
        changed = true;
    }
    if (changed) {
        Status status = writePinRecord(applicationDir, kind, record);
        if (!status.ok())
            return status;
        seams::reach(seams::kPinWritten);
    }
    *remaining = record.remainingRetries;
    return Status::success();
}

Status writeKeys(const std::string &applicationDir, const KeyRecord &keys)
{
    Status status = writeKeyRecord(applicationDir, keys);
    if (status.ok())
        seams::reach(seams::kKeysWritten);
    return status;
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

Status readKeyRecord(const std::string &applicationDir, KeyRecord *record, bool *present)
{
    *present = false;
    const std::string path = joinPath(applicationDir, layout::kKeyRecord);
    std::vector<unsigned char> bytes;
    Status status = readFile(path, kMaxRecordSize, &bytes);
    if (status.code == SAR_FILE_NOT_EXIST)
        return Status::success();
    if (!status.ok())
        return status;
    status = decodeKeyRecord(bytes, record);
    if (!status.ok()) {
        status.message = path + ": " + status.message;
        return status;
    }
    *present = true;
    return Status::success();
}

Status writeKeyRecord(const std::string &applicationDir, const KeyRecord &record)
{
    return writeFileAtomically(joinPath(applicationDir, layout::kKeyRecord),
                               encodeKeyRecord(record));
}

Status verifyPinCounting(const std::string &applicationDir, PinKind kind, const std::string &pin,
                         std::uint32_t *remaining, SecretBytes *kek, const SecretBytes *userKek)
{
    *remaining = 0;
    Status status = checkPinLength(pin, "PIN");
    if (!status.ok())
        return status;
    FileLock lock;
    Check check;
    status = checkCounting(applicationDir, kind, pin, remaining, &lock, &check);
    if (!status.ok())
        return status;
    bool recordChanged = false;
    if (kind == PinKind::User && !check.haveKeys) {
        // Migration of a device of the earlier layout: its derived sealing key becomes the KEK,
        // so no sealed key is rewritten, and the one new file decides from now on.
        check.keys.iterations = check.pin.iterations;
        status = wrapKek(check.kek, PinKind::User, pin, check.keys.iterations, &check.keys.user);
        if (status.ok())
            status = writeKeys(applicationDir, check.keys);
        if (!status.ok())
            return status;
        dropVerifier(&check.pin);
        recordChanged = true;
    } else if (kind == PinKind::Admin && check.haveKeys && !check.keys.admin.present && userKek
               && userKek->size() == kKekLength) {
        // A migrated device meets its admin PIN beside a user login: the admin wrap completes it.
        status = wrapKek(*userKek, PinKind::Admin, pin, check.keys.iterations, &check.keys.admin);
        if (status.ok())
            status = writeKeys(applicationDir, check.keys);
        if (!status.ok())
            return status;
        dropVerifier(&check.pin);
        recordChanged = true;
    }
    status = resetCounter(applicationDir, kind, check.pin, recordChanged, remaining);
    if (!status.ok())
        return status;
    if (kind == PinKind::User && kek)
        *kek = std::move(check.kek);
    return Status::success();
}

Status changePinCounting(const std::string &applicationDir, PinKind kind,
                         const std::string &oldPin, const std::string &newPin,
                         std::uint32_t *remaining)
{
    *remaining = 0;
    Status status = checkPinLength(oldPin, "old PIN");
    if (status.ok())
        status = checkPinLength(newPin, "new PIN");
    if (!status.ok())
        return status;
    FileLock lock;
    Check check;
    status = checkCounting(applicationDir, kind, oldPin, remaining, &lock, &check);
    if (!status.ok())
        return status;
    if (hasWrap(check, kind) || kind == PinKind::User) {
        // The new wrap replaces the old one in the same file as the other PIN's wrap: one
        // rename switches from the old PIN to the new one. A user PIN of the earlier layout
        // migrates here, straight to the new PIN.
        if (!check.haveKeys)
            check.keys.iterations = check.pin.iterations;
        status = wrapKek(check.kek, kind, newPin, check.keys.iterations, &check.keys.slot(kind));
        if (status.ok())
            status = writeKeys(applicationDir, check.keys);
        if (!status.ok())
            return status;
        dropVerifier(&check.pin);
    } else {
        // An admin PIN still checked by its verifier (a migrated device whose admin PIN has not
        // met the KEK): a new verifier, in one file.
        PinRecord fresh;
        status = makePinRecord(newPin, check.pin.iterations, check.pin.maxRetries, &fresh);
        if (!status.ok())
            return status;
        check.pin = fresh;
    }
    check.pin.isDefault = false;
    return resetCounter(applicationDir, kind, check.pin, true, remaining);
}

Status unblockUserPinCounting(const std::string &applicationDir, const std::string &adminPin,
                              const std::string &newUserPin, std::uint32_t *remaining)
{
    *remaining = 0;
    Status status = checkPinLength(adminPin, "admin PIN");
    if (status.ok())
        status = checkPinLength(newUserPin, "new user PIN");
    if (!status.ok())
        return status;
    FileLock lock;
    Check check;
    status = checkCounting(applicationDir, PinKind::Admin, adminPin, remaining, &lock, &check);
    if (!status.ok())
        return status;
    std::uint32_t adminRemaining = 0;
    if (!hasWrap(check, PinKind::Admin)) {
        status = resetCounter(applicationDir, PinKind::Admin, check.pin, false, &adminRemaining);
        if (!status.ok())
            return status;
        return Status::failure(SAR_NOTSUPPORTYETERR,
                               "the private keys are wrapped under the user PIN only (a device "
                               "of the earlier layout whose admin PIN has not been verified "
                               "beside a user login); a new user PIN would lose them");
    }
    // The key record first: once it is in place the new user PIN opens the keys; a crash before
    // the user counter is written leaves that PIN locked, and the admin PIN unblocks again.
    status = wrapKek(check.kek, PinKind::User, newUserPin, check.keys.iterations, &check.keys.user);
    if (status.ok())
        status = writeKeys(applicationDir, check.keys);
    if (!status.ok())
        return status;
    PinRecord user;
    status = readPinRecord(applicationDir, PinKind::User, &user);
    if (!status.ok())
        return status;
    dropVerifier(&user);
    user.isDefault = false;
    std::uint32_t userRemaining = 0;
    status = resetCounter(applicationDir, PinKind::User, user, true, &userRemaining);
    if (!status.ok())
        return status;
    return resetCounter(applicationDir, PinKind::Admin, check.pin, false, remaining);
}

Status openWithUserPin(const std::string &applicationDir, const std::string &userPin,
                       SecretBytes *kek)
{
    Check check;
    Status status = readBoth(applicationDir, PinKind::User, &check);
    bool matches = false;
    if (status.ok())
        status = matchPin(PinKind::User, userPin, &check, &matches);
    if (!status.ok())
        return status;
    if (!matches)
        return Status::failure(SAR_PIN_INCORRECT, "wrong user PIN");
    *kek = std::move(check.kek);
    return Status::success();
}

Status writeNewPinRecords(const std::string &applicationDir, const std::string &userPin,
                          const std::string &adminPin, std::uint32_t iterations,
                          std::uint32_t maxRetries, SecretBytes *kek)
{
    SecretBytes fresh;
    Status status = makeKek(&fresh);
    KeyRecord keys;
    keys.iterations = iterations;
    if (status.ok())
        status = wrapKek(fresh, PinKind::User, userPin, iterations, &keys.user);
    if (status.ok())
        status = wrapKek(fresh, PinKind::Admin, adminPin, iterations, &keys.admin);
    if (!status.ok())
        return status;
    PinRecord counters;
    counters.iterations = iterations;
    counters.maxRetries = maxRetries;
    counters.remainingRetries = maxRetries;
    status = writePinRecord(applicationDir, PinKind::User, counters);
    if (status.ok())
        status = writePinRecord(applicationDir, PinKind::Admin, counters);
    if (status.ok())
        status = writeKeyRecord(applicationDir, keys);
    if (!status.ok())
        return status;
    *kek = std::move(fresh);
    return Status::success();
}

} // namespace softskf
