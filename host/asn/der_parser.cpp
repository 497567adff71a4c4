// This file parses untrusted bytes: every input ends in a tree or a named refusal, never a read past it.
#include "der_parser_p.h"

#include <openssl/asn1.h>
#include <openssl/err.h>

namespace zthost {
namespace asn {
namespace {

// ASN1_get_object's answer bits: 0x80 flags a malformed header or a length past omax (the
// header fields are still filled in the latter case), 0x01 an indefinite length.
constexpr int kHeaderError = 0x80;
constexpr int kIndefiniteLength = 0x01;

// Subsequent octets of a high-tag-number identifier carry this bit while more follow.
constexpr quint8 kMoreTagOctets = 0x80;

// A read-only window on the input; every access checks its bounds.
class ByteView
{
public:
    explicit ByteView(const QByteArray &bytes)
        : m_data(reinterpret_cast<const unsigned char *>(bytes.constData())), m_size(bytes.size())
    {
    }

    int size() const { return m_size; }

    // The octet at `offset`, or 0 past the end (callers check ranges first; this never reads out).
    quint8 at(int offset) const { return offset >= 0 && offset < m_size ? m_data[offset] : 0; }

    // Pointer to `offset` for a call that is told how many bytes it may read; null outside.
    const unsigned char *from(int offset) const
    {
        return offset >= 0 && offset < m_size ? m_data + offset : nullptr;
    }

private:
    const unsigned char *m_data;
    int m_size;
};

class Parser
{
public:
    Parser(const QByteArray &der, int source, std::vector<Node> &nodes, QString *error)
        : m_bytes(der), m_source(source), m_nodes(nodes), m_error(error)
    {
    }

    // Parses the value at `offset` that must end by `limit`; on success `*next` is its end.
    int parseValue(int offset, int limit, int parent, int depth, int *next);

private:
    int identifierLength(int offset, int headerLength) const;
    int fail(const QString &reason)
    {
        *m_error = reason;
        return -1;
    }

    ByteView m_bytes;
    int m_source;
    std::vector<Node> &m_nodes;
    QString *m_error;
};

int Parser::identifierLength(int offset, int headerLength) const
{
    if ((m_bytes.at(offset) & kTagNumberBits) != kTagNumberBits)
        return 1;
    int length = 1;
    while (length < headerLength && (m_bytes.at(offset + length) & kMoreTagOctets) != 0)
        ++length;
    return length + 1;
}

int Parser::parseValue(int offset, int limit, int parent, int depth, int *next)
{
    if (depth > kMaxDepth) {
        return fail(QStringLiteral("value at offset %1 is nested %2 levels deep, at most %3 are "
                                   "accepted").arg(offset).arg(depth).arg(kMaxDepth));
    }
    const int remaining = limit - offset;
    const unsigned char *const begin = m_bytes.from(offset);
    if (remaining <= 0 || begin == nullptr)
        return fail(QStringLiteral("value expected at offset %1, but no bytes remain").arg(offset));

    const unsigned char *cursor = begin;
    long length = 0;
    int tag = 0;
    int tagClass = 0;
    const int answer = ASN1_get_object(&cursor, &length, &tag, &tagClass, remaining);
    const long headerLength = cursor - begin;
    if ((answer & kHeaderError) != 0) {
        if (headerLength == 0) {
            return fail(QStringLiteral("identifier or length octets at offset %1 are truncated or "
                                       "malformed (%2 bytes remain)").arg(offset).arg(remaining));
        }
        return fail(QStringLiteral("value at offset %1 claims %2 content bytes, but only %3 remain "
                                   "inside its enclosing value")
                        .arg(offset).arg(length).arg(remaining - headerLength));
    }
    if ((answer & kIndefiniteLength) != 0) {
        return fail(QStringLiteral("value at offset %1 has an indefinite length; only definite "
                                   "lengths are accepted").arg(offset));
    }
    // ASN1_get_object has checked these already; the tree relies on them, so they are checked
    // again here rather than trusted.
    if (headerLength <= 0 || headerLength > remaining || length < 0
        || length > remaining - headerLength) {
        return fail(QStringLiteral("value at offset %1 has a %2-byte header and %3 content bytes, "
                                   "more than the %4 bytes that remain")
                        .arg(offset).arg(headerLength).arg(length).arg(remaining));
    }
    const quint8 firstOctet = m_bytes.at(offset);
    if ((firstOctet & ~kConstructedBit) == 0) {
        return fail(QStringLiteral("end-of-contents marker at offset %1 outside an indefinite "
                                   "length").arg(offset));
    }

    Node node;
    node.parent = parent;
    node.depth = depth;
    node.source = m_source;
    node.start = offset;
    node.headerLength = static_cast<int>(headerLength);
    node.contentLength = static_cast<int>(length);
    node.identifierLength = identifierLength(offset, node.headerLength);
    node.firstIdentifierOctet = firstOctet;
    node.changed = false;
    const int index = static_cast<int>(m_nodes.size());
    m_nodes.push_back(std::move(node));

    const int contentStart = offset + static_cast<int>(headerLength);
    const int contentEnd = contentStart + static_cast<int>(length);
    if ((firstOctet & kConstructedBit) != 0) {
        int position = contentStart;
        while (position < contentEnd) {
            const int child = parseValue(position, contentEnd, index, depth + 1, &position);
            if (child < 0)
                return -1;
            m_nodes[index].children.push_back(child);
        }
    }
    *next = contentEnd;
    return index;
}

} // namespace

int parseDer(const QByteArray &der, int source, int parent, int depth, std::vector<Node> &nodes,
             QString *error)
{
    if (der.isEmpty()) {
        *error = QStringLiteral("no bytes to parse");
        return -1;
    }
    const std::size_t nodesBefore = nodes.size();
    // ASN1_get_object queues an error for each refusal; they are ours to drop, not the caller's.
    ERR_set_mark();
    Parser parser(der, source, nodes, error);
    int end = 0;
    int root = parser.parseValue(0, der.size(), parent, depth, &end);
    if (root >= 0 && end != der.size()) {
        *error = QStringLiteral("%1 bytes follow the value, which ends at offset %2")
                     .arg(der.size() - end).arg(end);
        root = -1;
    }
    ERR_pop_to_mark();
    if (root < 0)
        nodes.resize(nodesBefore);
    return root;
}

} // namespace asn
} // namespace zthost
