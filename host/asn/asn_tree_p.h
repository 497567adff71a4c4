#pragma once

#include <QByteArray>
#include <QString>
#include <QtGlobal>

#include <limits>
#include <vector>

namespace zthost {
namespace asn {

// The deepest a value may sit, the root counting as level 1. Parsing refuses deeper input and
// the builders refuse to grow a tree past it, so every tree held here encodes into bytes that
// open again, and the recursive walks stay shallow. The malformed-input tests build 64 and 65
// levels against it.
constexpr int kMaxDepth = 64;

// The largest encoding a tree may have: a Qt 5 QByteArray holds a little less than INT_MAX
// bytes (its allocation header comes out of the same int), so keep a margin below that.
constexpr qint64 kMaxEncodedSize = std::numeric_limits<int>::max() - 1024;

// Identifier octet bits.
constexpr int kConstructedBit = 0x20;
constexpr int kTagNumberBits = 0x1F;    // all five set: the tag number follows in more octets
constexpr int kClassBits = 0xC0;
constexpr int kIntegerIdentifier = 0x02;

// True for a one-octet identifier the builders accept: 0..255, not the high-tag-number escape,
// and not universal tag 0 (the end-of-contents marker, meaningless without indefinite lengths).
bool isSingleOctetIdentifier(int tag);

// One value of the tree. Nodes that came from parsed bytes keep only offsets into the bytes they
// came from; their content is never copied.
struct Node {
    int parent = -1;
    int depth = 1;

    // Where the node's original encoding lies; source is -1 for nodes the builders made.
    int source = -1;           // index into Tree::sources
    int start = 0;             // offset of the first identifier octet in that source
    int headerLength = 0;      // identifier and length octets there
    int contentLength = 0;     // content octets there
    int identifierLength = 1;  // more than 1 only for parsed high-tag-number identifiers
    quint8 firstIdentifierOctet = 0;

    // False while the node's encoding is exactly its source's bytes, which are then copied as
    // they are (non-minimal lengths included). Set for made nodes, for replaced content, and on
    // every ancestor of a change.
    bool changed = true;
    bool hasData = false;      // data replaces the primitive content
    QByteArray data;

    // Cached by the encoder; -1 until computed and again after any change below the node.
    qint64 encodedSize = -1;
    qint64 contentSize = -1;

    std::vector<int> children;

    bool isConstructed() const { return (firstIdentifierOctet & kConstructedBit) != 0; }
};

// One tree: the nodes (index 0 is the root), the byte arrays parsed nodes point into, and the
// reason the last refused operation gave. Node indices stay valid until clear(): nodes are only
// ever appended.
class Tree
{
public:
    bool isEmpty() const { return nodes.empty(); }
    void clear();

    // Each answers false or -1 on refusal and leaves the reason in `error`; the tree is then
    // unchanged, except that a refused create or open leaves it empty.
    bool create(int tag);
    bool open(const QByteArray &der);

    // The index of child `index` of `node` when its identifier is the single octet `tag`, else -1.
    int child(int node, int index, int tag) const;

    // Appends a made child with identifier `tag` to a constructed `node`; `constructed` says
    // which kind the tag must name.
    int appendMade(int node, int tag, bool constructed);

    // Appends one complete encoded value, parsed under the same rules as open, that keeps its
    // bytes as they are.
    int appendEncoded(int node, const QByteArray &der);

    // Replaces the content of a primitive node; an INTEGER whose first content octet has the
    // top bit set gains one leading zero octet.
    bool setContent(int node, const QByteArray &content);

    std::vector<Node> nodes;
    std::vector<QByteArray> sources;
    QString error;

private:
    void markChanged(int node);
};

} // namespace asn
} // namespace zthost
