#include "approved_origins_file.h"

#include <QFile>

#include <sys/stat.h>

#include <utility>

namespace zthost::cli {

bool ApprovedOriginsFile::Stamp::operator==(const Stamp &other) const
{
    return exists == other.exists && device == other.device && inode == other.inode
           && size == other.size && modifiedNs == other.modifiedNs
           && changedNs == other.changedNs;
}

ApprovedOriginsFile::ApprovedOriginsFile(QString path, Reader read, QStringList current)
    : m_path(std::move(path)), m_read(std::move(read)), m_current(std::move(current)),
      m_stamp(stampNow())
{
}

ApprovedOriginsFile::Stamp ApprovedOriginsFile::stampNow() const
{
    Stamp stamp;
    struct stat status {};
    if (::stat(QFile::encodeName(m_path).constData(), &status) != 0)
        return stamp;
    stamp.exists = true;
    stamp.device = status.st_dev;
    stamp.inode = status.st_ino;
    stamp.size = status.st_size;
    stamp.modifiedNs = status.st_mtim.tv_sec * 1000000000LL + status.st_mtim.tv_nsec;
    stamp.changedNs = status.st_ctim.tv_sec * 1000000000LL + status.st_ctim.tv_nsec;
    return stamp;
}

std::optional<QStringList> ApprovedOriginsFile::update(QString *problem)
{
    problem->clear();
    const Stamp now = stampNow();
    if (now == m_stamp)
        return std::nullopt;
    QStringList origins;
    if (!m_read(&origins, problem))
        return std::nullopt; // asked again next time: the file may be mid-edit
    m_stamp = now;
    if (origins == m_current)
        return std::nullopt;
    m_current = origins;
    return origins;
}

} // namespace zthost::cli
