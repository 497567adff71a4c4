#include "file_io.h"

#include "test_seams.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <algorithm>
#include <atomic>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace softskf {

namespace {

constexpr mode_t kFolderMode = 0700;
constexpr mode_t kFileMode = 0600;

std::string errnoText(int error)
{
    return std::strerror(error);
}

int openRetrying(const char *path, int flags, mode_t mode = 0)
{
    int fd;
    do {
        fd = ::open(path, flags | O_CLOEXEC, mode);
    } while (fd < 0 && errno == EINTR);
    return fd;
}

bool writeAll(int fd, const unsigned char *data, std::size_t size)
{
    while (size != 0) {
        const ssize_t n = seams::write(seams::kWriteTemporary, fd, data, size);
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return false;
        }
        data += n;
        size -= static_cast<std::size_t>(n);
    }
    return true;
}

std::string parentOf(const std::string &path)
{
    const auto slash = path.find_last_of('/');
    if (slash == std::string::npos)
        return ".";
    if (slash == 0)
        return "/";
    return path.substr(0, slash);
}

void syncFolder(const std::string &folder)
{
    const int fd = openRetrying(folder.c_str(), O_RDONLY | O_DIRECTORY);
    if (fd >= 0) {
        seams::fsync(seams::kSyncFolder, fd);
        ::close(fd);
    }
}

} // namespace

std::string joinPath(const std::string &folder, const std::string &name)
{
    if (!folder.empty() && folder.back() == '/')
        return folder + name;
    return folder + "/" + name;
}

Status readFile(const std::string &path, std::size_t maxSize, std::vector<unsigned char> *out)
{
    out->clear();
    const int fd = openRetrying(path.c_str(), O_RDONLY);
    if (fd < 0) {
        const int error = errno;
        if (error == ENOENT || error == ENOTDIR)
            return Status::failure(SAR_FILE_NOT_EXIST, path + " does not exist");
        return Status::failure(SAR_READFILEERR,
                               "cannot open " + path + ": " + errnoText(error));
    }
    struct stat info {};
    if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) {
        ::close(fd);
        return Status::failure(SAR_READFILEERR, path + " is not a regular file");
    }
    const auto size = static_cast<unsigned long long>(info.st_size);
    if (size > maxSize) {
        ::close(fd);
        return Status::failure(SAR_FILEERR, path + " is " + std::to_string(size)
                                                + " bytes, at most " + std::to_string(maxSize)
                                                + " expected");
    }
    out->resize(static_cast<std::size_t>(size));
    std::size_t done = 0;
    while (done < out->size()) {
        const ssize_t n = ::read(fd, out->data() + done, out->size() - done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        done += static_cast<std::size_t>(n);
    }
    ::close(fd);
    if (done != out->size()) {
        out->clear();
        return Status::failure(SAR_READFILEERR, "read " + std::to_string(done) + " of "
                                                    + std::to_string(size) + " bytes of " + path);
    }
    return Status::success();
}

Status writeFileAtomically(const std::string &path, const unsigned char *data, std::size_t size)
{
    // Unique per process and call: two writers never share a temporary, and the lock
    // around read-modify-write decides whose rename lands last.
    static std::atomic<unsigned> sequence{0};
    const std::string temporary = path + ".tmp." + std::to_string(::getpid()) + "."
                                  + std::to_string(sequence++);
    const int fd = openRetrying(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL, kFileMode);
    if (fd < 0) {
        const int error = errno;
        if (error == ENOENT || error == ENOTDIR)
            return Status::failure(SAR_DEVICE_REMOVED,
                                   "folder of " + path + " does not exist any more");
        return Status::failure(SAR_WRITEFILEERR,
                               "cannot create " + temporary + ": " + errnoText(error));
    }
    ::fchmod(fd, kFileMode);
    const bool written = writeAll(fd, data, size) && seams::fsync(seams::kSyncTemporary, fd) == 0;
    const int writeError = errno;
    ::close(fd);
    if (!written) {
        ::unlink(temporary.c_str());
        return Status::failure(SAR_WRITEFILEERR, "cannot write " + std::to_string(size)
                                                     + " bytes to " + temporary + ": "
                                                     + errnoText(writeError));
    }
    if (seams::rename(seams::kRename, temporary.c_str(), path.c_str()) != 0) {
        const int error = errno;
        ::unlink(temporary.c_str());
        return Status::failure(SAR_WRITEFILEERR,
                               "cannot rename " + temporary + " to " + path + ": "
                                   + errnoText(error));
    }
    syncFolder(parentOf(path));
    return Status::success();
}

Status writeFileAtomically(const std::string &path, const std::vector<unsigned char> &data)
{
    return writeFileAtomically(path, data.data(), data.size());
}

Status makePrivateDirectory(const std::string &path)
{
    if (::mkdir(path.c_str(), kFolderMode) != 0) {
        const int error = errno;
        if (error == EEXIST)
            return Status::failure(SAR_FILE_ALREADY_EXIST, path + " exists already");
        return Status::failure(SAR_WRITEFILEERR,
                               "cannot create folder " + path + ": " + errnoText(error));
    }
    // mkdir's mode is filtered by the umask; the folder must be exactly owner-only.
    ::chmod(path.c_str(), kFolderMode);
    return Status::success();
}

Status makePrivateDirectories(const std::string &path)
{
    if (path.empty())
        return Status::failure(SAR_INVALIDPARAMERR, "empty folder path");
    if (isDirectory(path))
        return Status::success();
    const std::string parent = parentOf(path);
    if (parent != path && !isDirectory(parent)) {
        Status status = makePrivateDirectories(parent);
        if (!status.ok())
            return status;
    }
    Status status = makePrivateDirectory(path);
    if (status.code == SAR_FILE_ALREADY_EXIST && isDirectory(path))
        return Status::success();
    return status;
}

bool isDirectory(const std::string &path)
{
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

bool isRegularFile(const std::string &path)
{
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode);
}

Status listSubdirectories(const std::string &path, std::vector<std::string> *names)
{
    names->clear();
    std::error_code error;
    std::filesystem::directory_iterator it(path, error);
    if (error) {
        if (error == std::errc::no_such_file_or_directory)
            return Status::failure(SAR_FILE_NOT_EXIST, path + " does not exist");
        return Status::failure(SAR_READFILEERR, "cannot list " + path + ": " + error.message());
    }
    for (const std::filesystem::directory_iterator end; it != end; it.increment(error)) {
        if (error)
            return Status::failure(SAR_READFILEERR,
                                   "cannot list " + path + ": " + error.message());
        const std::string name = it->path().filename().string();
        if (name.empty() || name[0] == '.')
            continue;
        std::error_code statError;
        if (it->is_directory(statError))
            names->push_back(name);
    }
    std::sort(names->begin(), names->end());
    return Status::success();
}

Status removeTree(const std::string &path)
{
    std::error_code error;
    std::filesystem::remove_all(path, error);
    if (error)
        return Status::failure(SAR_WRITEFILEERR, "cannot remove " + path + ": " + error.message());
    return Status::success();
}

FileLock::~FileLock()
{
    if (fd_ >= 0) {
        ::flock(fd_, LOCK_UN);
        ::close(fd_);
    }
}

Status FileLock::acquire(const std::string &path)
{
    const int fd = openRetrying(path.c_str(), O_RDWR | O_CREAT, kFileMode);
    if (fd < 0) {
        const int error = errno;
        if (error == ENOENT || error == ENOTDIR)
            return Status::failure(SAR_DEVICE_REMOVED,
                                   "folder of " + path + " does not exist any more");
        return Status::failure(SAR_FILEERR, "cannot open lock " + path + ": " + errnoText(error));
    }
    int result;
    do {
        result = ::flock(fd, LOCK_EX);
    } while (result != 0 && errno == EINTR);
    if (result != 0) {
        const int error = errno;
        ::close(fd);
        return Status::failure(SAR_FILEERR, "cannot lock " + path + ": " + errnoText(error));
    }
    fd_ = fd;
    return Status::success();
}

} // namespace softskf
