#pragma once

#include <QByteArray>
#include <QObject>
#include <QString>

#include <memory>
#include <vector>

namespace zthost {

namespace asn {
class Tree;
}
class AsnBlock;

// The ASN.1 component the host core hands out for "ZTUTIL.ZtAsn.1": one DER tree, built up
// value by value or opened from bytes, and encoded back.
//
// Tags are ints holding the DER identifier octet (0x02 INTEGER, 0x30 SEQUENCE, 0xA0 [0]
// constructed, 0x80 [0] primitive, ...). The builders take 1..255 except the high-tag-number
// escape (low five bits 0x1F) and universal tag 0 in either form; addSample wants the
// constructed bit 0x20 clear, addStruct set. Values opened from bytes may carry multi-octet
// (high-tag-number) identifiers: they parse, walk and encode as they are, but equal no int tag.
// Tags are not checked against the universal types' rules (a primitive 0x10 is built as asked).
//
// Child indices count the direct children of a value from 0, in encoding order.
//
// Ownership: the document owns every block it hands out. A node always answers the same block,
// made on first request. create, open, close and the destructor delete all blocks handed out
// for the tree they replace: pointers to them must not be used afterwards.
//
// Encoding: values opened from bytes and left unchanged encode as the very bytes they came from;
// values that were made or changed get minimal definite lengths. A tree never grows deeper than
// 64 levels (the root is level 1): deeper input is refused and so is a child past that level.
class AsnDocument : public QObject
{
    Q_OBJECT
public:
    explicit AsnDocument(QObject *parent = nullptr);
    ~AsnDocument() override;

    // Replaces the tree by one whose root has identifier `tag` and no content. False for a tag the
    // builders refuse; the document then holds no tree.
    Q_INVOKABLE bool create(int tag);

    // Replaces the tree by the one DER value `der` holds (definite lengths only, nothing after
    // it). The bytes are kept, not copied: the tree points into them (so an array made with
    // QByteArray::fromRawData must outlive the tree). False for anything else,
    // including empty input; the document then holds no tree.
    Q_INVOKABLE bool open(QByteArray der);

    // True when there is a tree and its root's identifier is the single octet `tag`.
    Q_INVOKABLE bool checkTag(int tag);

    // Drops the tree and deletes its blocks.
    Q_INVOKABLE void close();

    // Child `index` of the root when its identifier is `tag`. Null when there is no tree, the root
    // is primitive, the index is out of range or negative, or the tag differs.
    Q_INVOKABLE QObject *getChild(int index, int tag);

    // Appends to the root a primitive (addSample) or constructed (addStruct) child with identifier
    // `tag` and no content, and answers its block. Null when there is no tree, the root is
    // primitive, or the tag is refused (see above).
    Q_INVOKABLE QObject *addSample(int tag);
    Q_INVOKABLE QObject *addStruct(int tag);

    // Settles every length of the tree at once. Optional: build settles what it needs.
    Q_INVOKABLE void update();

    // The DER of the whole tree; empty when there is none (or it would exceed 2 GiB).
    Q_INVOKABLE QByteArray build();

    // Why the last refused call of this document or one of its blocks was refused, with the
    // offsets or sizes involved. Not part of the component's dispatch vocabulary.
    QString errorString() const;

private:
    friend class AsnBlock;

    asn::Tree &tree() { return *m_tree; }
    QObject *blockFor(int node);
    void releaseBlocks();
    QObject *appendToRoot(int tag, bool constructed);

    std::unique_ptr<asn::Tree> m_tree;
    // Indexed by node; null where no block was handed out yet. Blocks have no QObject parent,
    // so that releasing many of them stays linear.
    std::vector<std::unique_ptr<AsnBlock>> m_blocks;
};

} // namespace zthost
