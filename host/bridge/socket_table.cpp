// Reads text the kernel writes about every socket on the machine: bounded line by line.
#include "bridge/socket_table.h"

#include "core/log_text.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace zthost::bridge {

namespace {

constexpr const char *kTables[] = {"/proc/net/tcp", "/proc/net/tcp6"};
// The kernel's state number for a listening socket.
constexpr int kListenState = 0x0A;
// A line of the table is about 150 characters; a longer one is not the kernel's.
constexpr qint64 kMaxLineBytes = 512;

struct Entry
{
    QByteArray local;   // "0100007F:4CB3", address and port in the table's own hexadecimal
    QByteArray remote;
    int state = 0;
    unsigned uid = 0;
    quint64 inode = 0;
};

// The address as the table prints it: each 32-bit word of the address, as it lies in memory,
// read in the machine's byte order and written as 8 hexadecimal digits.
QByteArray tableWords(const quint8 *bytes, int count)
{
    QByteArray text;
    for (int at = 0; at < count; at += 4) {
        quint32 word = 0;
        std::memcpy(&word, bytes + at, 4);
        char digits[9];
        std::snprintf(digits, sizeof digits, "%08X", word);
        text += digits;
    }
    return text;
}

QByteArray endText(const QByteArray &address, quint16 port)
{
    char digits[6];
    std::snprintf(digits, sizeof digits, "%04X", unsigned(port));
    return address + ':' + QByteArray(digits);
}

// The two ways an IPv4 end can be listed: in tcp as it is, in tcp6 IPv4-mapped.
QList<QByteArray> tableAddresses(const QHostAddress &address)
{
    QList<QByteArray> forms;
    bool isIpv4 = false;
    const quint32 ipv4 = address.toIPv4Address(&isIpv4);
    if (isIpv4) {
        const quint8 network[4] = {quint8(ipv4 >> 24), quint8(ipv4 >> 16), quint8(ipv4 >> 8),
                                   quint8(ipv4)};
        forms << tableWords(network, 4);
        quint8 mapped[16] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff};
        std::memcpy(mapped + 12, network, 4);
        forms << tableWords(mapped, 16);
    } else {
        const Q_IPV6ADDR ipv6 = address.toIPv6Address();
        forms << tableWords(ipv6.c, 16);
    }
    return forms;
}

// Every entry of the tables, or with `wanted` only those whose line holds one of its texts:
// checked on the raw line before it is split, because a busy machine lists hundreds of sockets
// and the bridge asks about each connection it accepts.
template <typename Visit>
void forEachEntry(Visit visit, const QList<QByteArray> &wanted = {})
{
    for (const char *path : kTables) {
        // stdio rather than QFile: the kernel's files say they are empty until read.
        std::FILE *file = std::fopen(path, "re");
        if (!file)
            continue;
        char line[kMaxLineBytes];
        bool first = true;
        bool more = true;
        while (more && std::fgets(line, sizeof line, file)) {
            const QByteArray text(line);
            if (!text.endsWith('\n')) {
                // Longer than any line of the kernel's: skip the rest of it.
                int c = 0;
                while ((c = std::fgetc(file)) != EOF && c != '\n') {
                }
                continue;
            }
            if (first) {  // the column names
                first = false;
                continue;
            }
            if (!wanted.isEmpty()
                && std::none_of(wanted.cbegin(), wanted.cend(), [&line](const QByteArray &text) {
                       return std::strstr(line, text.constData()) != nullptr;
                   }))
                continue;
            const QList<QByteArray> fields = text.simplified().split(' ');
            // sl local rem st tx:rx tr:when retrnsmt uid timeout inode ...
            if (fields.size() < 10)
                continue;
            Entry entry;
            entry.local = fields.at(1);
            entry.remote = fields.at(2);
            bool ok = false;
            entry.state = fields.at(3).toInt(&ok, 16);
            bool uidOk = false;
            entry.uid = fields.at(7).toUInt(&uidOk);
            bool inodeOk = false;
            entry.inode = fields.at(9).toULongLong(&inodeOk);
            if (ok && uidOk && inodeOk)
                more = visit(entry);
        }
        std::fclose(file);
        if (!more)
            return;
    }
}

} // namespace

namespace SocketTable {

std::optional<unsigned> ownerOf(const QHostAddress &local, quint16 localPort,
                                const QHostAddress &remote, quint16 remotePort)
{
    QList<QByteArray> locals;
    for (const QByteArray &address : tableAddresses(local))
        locals << endText(address, localPort);
    QList<QByteArray> remotes;
    for (const QByteArray &address : tableAddresses(remote))
        remotes << endText(address, remotePort);
    std::optional<unsigned> owner;
    forEachEntry(
        [&](const Entry &entry) {
            if (locals.contains(entry.local) && remotes.contains(entry.remote)) {
                owner = entry.uid;
                return false;
            }
            return true;
        },
        remotes);
    return owner;
}

QList<quint64> listeningInodes(quint16 port)
{
    char suffix[6];
    std::snprintf(suffix, sizeof suffix, ":%04X", unsigned(port));
    QList<quint64> inodes;
    forEachEntry([&](const Entry &entry) {
        if (entry.state == kListenState && entry.local.endsWith(suffix) && entry.inode != 0)
            inodes << entry.inode;
        return true;
    });
    return inodes;
}

QString processHolding(const QList<quint64> &inodes)
{
    if (inodes.isEmpty())
        return QString();
    QList<QString> links;
    for (quint64 inode : inodes)
        links << QStringLiteral("socket:[%1]").arg(inode);
    const QStringList pids = QDir(QStringLiteral("/proc")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString &pid : pids) {
        bool isNumber = false;
        pid.toULongLong(&isNumber);
        if (!isNumber)
            continue;
        const QDir fds(QStringLiteral("/proc/%1/fd").arg(pid));
        for (const QString &fd : fds.entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot)) {
            if (!links.contains(QFileInfo(fds.filePath(fd)).symLinkTarget().section(QLatin1Char('/'), -1)))
                continue;
            QFile comm(QStringLiteral("/proc/%1/comm").arg(pid));
            QString name;
            if (comm.open(QIODevice::ReadOnly))
                name = QString::fromLocal8Bit(comm.readLine(64)).trimmed();
            // Any process names itself: shown escaped, as a log would show it.
            return name.isEmpty() ? QStringLiteral("process %1").arg(pid)
                                  : QStringLiteral("process %1 (%2)").arg(pid, cappedForLog(name, 64));
        }
    }
    return QString();
}

} // namespace SocketTable

} // namespace zthost::bridge
