#pragma once

#include <QString>
#include <QStringList>

#include <functional>
#include <optional>

#include <sys/types.h>

namespace zthost::cli {

// The approved origins as the configuration file holds them now, for a service that runs for
// months while its user approves and removes sites with `zthost origins`. Each ask costs one
// stat of the file; the file is read again only when that changed (it was written, replaced or
// removed).
class ApprovedOriginsFile
{
public:
    // Reads the list as the file holds it; false with `error` saying what in the file is wrong.
    using Reader = std::function<bool(QStringList *origins, QString *error)>;

    // `current` is what `read` answered when the service started.
    ApprovedOriginsFile(QString path, Reader read, QStringList current);

    // The list when it differs from the one answered last; nothing when it does not. When the
    // file changed but cannot be taken, nothing, with `problem` saying why: the caller keeps
    // the list it has.
    std::optional<QStringList> update(QString *problem);

private:
    struct Stamp
    {
        bool exists = false;
        dev_t device = 0;
        ino_t inode = 0;
        off_t size = 0;
        long long modifiedNs = 0;
        long long changedNs = 0;

        bool operator==(const Stamp &other) const;
    };
    Stamp stampNow() const;

    QString m_path;
    Reader m_read;
    QStringList m_current;
    Stamp m_stamp;
};

} // namespace zthost::cli
