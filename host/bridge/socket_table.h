#pragma once

#include <QHostAddress>
#include <QList>
#include <QString>

#include <optional>

namespace zthost::bridge {

// The kernel's table of TCP sockets on Linux (/proc/net/tcp and /proc/net/tcp6): who owns a
// socket, which socket listens on a port. Reads text the kernel writes; other systems, and a
// /proc that cannot be read, answer nothing.
namespace SocketTable {

// The uid owning the socket whose local end is `local`:`localPort` and whose remote end is
// `remote`:`remotePort` (an IPv4 end is also found in its IPv6-mapped form); nothing when no
// such socket is listed.
std::optional<unsigned> ownerOf(const QHostAddress &local, quint16 localPort,
                                const QHostAddress &remote, quint16 remotePort);

// The inodes of the sockets listening on `port`, on any address.
QList<quint64> listeningInodes(quint16 port);

// "process PID (NAME)" for the first process holding one of `inodes` open, found through
// /proc/PID/fd; empty when none can be seen.
QString processHolding(const QList<quint64> &inodes);

} // namespace SocketTable

} // namespace zthost::bridge
