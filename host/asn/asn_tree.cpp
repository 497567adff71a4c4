#include "asn_tree_p.h"

#include "der_parser_p.h"

namespace zthost {
namespace asn {
namespace {

// The largest value that fits in one identifier octet.
constexpr int kMaxSingleOctetIdentifier = 0xFF;

// DER keeps INTEGER contents positive by a leading zero when the top bit is set.
constexpr quint8 kSignBit = 0x80;

QString identifierText(int tag)
{
    return QStringLiteral("0x%1").arg(tag, 2, 16, QLatin1Char('0'));
}

} // namespace

bool isSingleOctetIdentifier(int tag)
{
    return tag >= 0 && tag <= kMaxSingleOctetIdentifier
           && (tag & kTagNumberBits) != kTagNumberBits
           && (tag & ~kConstructedBit) != 0;
}

void Tree::clear()
{
    nodes.clear();
    nodes.shrink_to_fit();
    sources.clear();
    error.clear();
}

bool Tree::create(int tag)
{
    clear();
    if (!isSingleOctetIdentifier(tag)) {
        error = QStringLiteral("identifier %1 is not a single-octet tag").arg(identifierText(tag));
        return false;
    }
    Node root;
    root.firstIdentifierOctet = static_cast<quint8>(tag);
    nodes.push_back(std::move(root));
    return true;
}

bool Tree::open(const QByteArray &der)
{
    clear();
    sources.push_back(der);
    if (parseDer(der, 0, -1, 1, nodes, &error) < 0) {
        sources.clear();
        return false;
    }
    return true;
}

int Tree::child(int node, int index, int tag) const
{
    if (node < 0 || node >= static_cast<int>(nodes.size()) || index < 0)
        return -1;
    const std::vector<int> &children = nodes[node].children;
    if (index >= static_cast<int>(children.size()))
        return -1;
    const Node &found = nodes[children[index]];
    if (found.identifierLength != 1 || found.firstIdentifierOctet != tag)
        return -1;
    return children[index];
}

int Tree::appendMade(int node, int tag, bool constructed)
{
    const Node &parent = nodes[node];
    if (!parent.isConstructed()) {
        error = QStringLiteral("a primitive value has no children");
        return -1;
    }
    if (!isSingleOctetIdentifier(tag) || ((tag & kConstructedBit) != 0) != constructed) {
        error = QStringLiteral("identifier %1 is not a single-octet %2 tag")
                    .arg(identifierText(tag),
                         constructed ? QStringLiteral("constructed") : QStringLiteral("primitive"));
        return -1;
    }
    if (parent.depth >= kMaxDepth) {
        error = QStringLiteral("a child would sit %1 levels deep, at most %2 are allowed")
                    .arg(parent.depth + 1).arg(kMaxDepth);
        return -1;
    }
    Node made;
    made.parent = node;
    made.depth = parent.depth + 1;
    made.firstIdentifierOctet = static_cast<quint8>(tag);
    const int index = static_cast<int>(nodes.size());
    nodes.push_back(std::move(made));
    nodes[node].children.push_back(index);
    markChanged(node);
    return index;
}

int Tree::appendEncoded(int node, const QByteArray &der)
{
    if (!nodes[node].isConstructed()) {
        error = QStringLiteral("a primitive value has no children");
        return -1;
    }
    const int source = static_cast<int>(sources.size());
    const int index = parseDer(der, source, node, nodes[node].depth + 1, nodes, &error);
    if (index < 0)
        return -1;
    sources.push_back(der);
    nodes[node].children.push_back(index);
    markChanged(node);
    return index;
}

bool Tree::setContent(int node, const QByteArray &content)
{
    Node &target = nodes[node];
    if (target.isConstructed()) {
        error = QStringLiteral("a constructed value takes children, not content octets");
        return false;
    }
    const bool needsSignOctet = target.identifierLength == 1
                                && target.firstIdentifierOctet == kIntegerIdentifier
                                && !content.isEmpty()
                                && (static_cast<quint8>(content.at(0)) & kSignBit) != 0;
    if (needsSignOctet && content.size() >= kMaxEncodedSize) {
        error = QStringLiteral("content of %1 bytes is too large").arg(content.size());
        return false;
    }
    target.data = needsSignOctet ? QByteArray(1, '\0') + content : content;
    target.hasData = true;
    markChanged(node);
    return true;
}

void Tree::markChanged(int node)
{
    for (int at = node; at >= 0; at = nodes[at].parent) {
        Node &changed = nodes[at];
        changed.changed = true;
        changed.encodedSize = -1;
        changed.contentSize = -1;
    }
}

} // namespace asn
} // namespace zthost
