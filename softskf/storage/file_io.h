#pragma once

#include "status.h"

#include <cstddef>
#include <string>
#include <vector>

namespace softskf {

// File access for the device folders. Folders are created owner-only (0700), files 0600,
// whatever the umask. Results carry SAR_* codes: a missing file is SAR_FILE_NOT_EXIST.

// Reads a whole file of at most maxSize bytes.
Status readFile(const std::string &path, std::size_t maxSize, std::vector<unsigned char> *out);

// Replaces the file in one step: a temporary beside it is written, synced and renamed over
// it, and the folder is synced, so a crash leaves either the old or the new contents.
Status writeFileAtomically(const std::string &path, const unsigned char *data, std::size_t size);
Status writeFileAtomically(const std::string &path, const std::vector<unsigned char> &data);

// Creates one folder; SAR_FILE_ALREADY_EXIST when it is there already.
Status makePrivateDirectory(const std::string &path);
// Creates the folder and any missing parents (each one created 0700); an existing folder is fine.
Status makePrivateDirectories(const std::string &path);

bool isDirectory(const std::string &path);
bool isRegularFile(const std::string &path);

// Names of the entries of a folder that are themselves folders, sorted bytewise; names that
// start with a dot are skipped.
Status listSubdirectories(const std::string &path, std::vector<std::string> *names);

Status removeTree(const std::string &path);

std::string joinPath(const std::string &folder, const std::string &name);

// An exclusive advisory lock (flock) on a lock file, created 0600 when missing, held until
// destruction. Serialises read-modify-write of a record between processes.
class FileLock {
public:
    FileLock() = default;
    ~FileLock();
    FileLock(const FileLock &) = delete;
    FileLock &operator=(const FileLock &) = delete;

    Status acquire(const std::string &path);

private:
    int fd_ = -1;
};

} // namespace softskf
