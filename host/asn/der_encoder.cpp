#include "der_encoder_p.h"

#include <openssl/asn1.h>

#include <cstring>

namespace zthost {
namespace asn {
namespace {

// ASN1_put_object writes at most one identifier octet (tag 0) and 1 + sizeof(int) length
// octets for an int length.
constexpr int kScratchHeaderSize = 1 + 1 + sizeof(int);

// The number of definite length octets OpenSSL writes for `length`: its object size for a
// one-octet identifier, less that octet and the content.
int lengthOctetCount(qint64 length)
{
    return ASN1_object_size(0, static_cast<int>(length), 0) - 1 - static_cast<int>(length);
}

char *writeLengthOctets(char *out, qint64 length)
{
    unsigned char scratch[kScratchHeaderSize];
    unsigned char *end = scratch;
    ASN1_put_object(&end, 0, static_cast<int>(length), 0, V_ASN1_UNIVERSAL);
    const int count = static_cast<int>(end - scratch) - 1;
    std::memcpy(out, scratch + 1, count);
    return out + count;
}

qint64 settleContentSize(Tree &tree, int index);

qint64 settleSize(Tree &tree, int index)
{
    Node &node = tree.nodes[index];
    if (node.encodedSize >= 0)
        return node.encodedSize;
    if (!node.changed) {
        node.encodedSize = qint64(node.headerLength) + node.contentLength;
        return node.encodedSize;
    }
    const qint64 content = settleContentSize(tree, index);
    if (content < 0)
        return -1;
    const qint64 total = tree.nodes[index].identifierLength + lengthOctetCount(content) + content;
    if (total > kMaxEncodedSize)
        return -1;
    tree.nodes[index].encodedSize = total;
    return total;
}

qint64 settleContentSize(Tree &tree, int index)
{
    Node &node = tree.nodes[index];
    if (node.contentSize >= 0)
        return node.contentSize;
    qint64 content = 0;
    if (node.hasData) {
        content = node.data.size();
    } else if (node.isConstructed() && node.changed) {
        // Children are visited by index: settling them may not move this node, but stay safe.
        const std::size_t count = node.children.size();
        for (std::size_t i = 0; i < count; ++i) {
            const qint64 child = settleSize(tree, tree.nodes[index].children[i]);
            if (child < 0)
                return -1;
            content += child;
            if (content > kMaxEncodedSize)
                return -1;
        }
    } else {
        content = node.contentLength;
    }
    tree.nodes[index].contentSize = content;
    return content;
}

char *writeContent(const Tree &tree, int index, char *out);

char *writeValue(const Tree &tree, int index, char *out)
{
    const Node &node = tree.nodes[index];
    if (!node.changed) {
        const qint64 size = qint64(node.headerLength) + node.contentLength;
        std::memcpy(out, tree.sources[node.source].constData() + node.start, size);
        return out + size;
    }
    if (node.source >= 0) {
        std::memcpy(out, tree.sources[node.source].constData() + node.start, node.identifierLength);
        out += node.identifierLength;
    } else {
        *out++ = static_cast<char>(node.firstIdentifierOctet);
    }
    out = writeLengthOctets(out, node.contentSize);
    return writeContent(tree, index, out);
}

char *writeContent(const Tree &tree, int index, char *out)
{
    const Node &node = tree.nodes[index];
    if (node.hasData) {
        std::memcpy(out, node.data.constData(), node.data.size());
        return out + node.data.size();
    }
    if (node.isConstructed() && node.changed) {
        for (int child : node.children)
            out = writeValue(tree, child, out);
        return out;
    }
    if (node.source >= 0) {
        std::memcpy(out, tree.sources[node.source].constData() + node.start + node.headerLength,
                    node.contentLength);
        out += node.contentLength;
    }
    return out;
}

QString tooLargeReason()
{
    return QStringLiteral("the encoding would exceed %1 bytes").arg(kMaxEncodedSize);
}

} // namespace

qint64 settleEncodedSize(Tree &tree, int node)
{
    return settleSize(tree, node);
}

QByteArray encodeValue(Tree &tree, int index)
{
    const qint64 size = settleSize(tree, index);
    if (size < 0) {
        tree.error = tooLargeReason();
        return QByteArray();
    }
    const Node &node = tree.nodes[index];
    if (!node.changed && node.start == 0 && size == tree.sources[node.source].size())
        return tree.sources[node.source];
    QByteArray bytes(static_cast<int>(size), Qt::Uninitialized);
    char *end = writeValue(tree, index, bytes.data());
    Q_ASSERT(end == bytes.constData() + size);
    Q_UNUSED(end);
    return bytes;
}

QByteArray encodeContent(Tree &tree, int index)
{
    if (settleSize(tree, index) < 0) {
        tree.error = tooLargeReason();
        return QByteArray();
    }
    const Node &node = tree.nodes[index];
    if (node.hasData)
        return node.data;
    const qint64 size = node.changed ? node.contentSize : node.contentLength;
    QByteArray bytes(static_cast<int>(size), Qt::Uninitialized);
    char *end = writeContent(tree, index, bytes.data());
    Q_ASSERT(end == bytes.constData() + size);
    Q_UNUSED(end);
    return bytes;
}

} // namespace asn
} // namespace zthost
