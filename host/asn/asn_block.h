#pragma once

#include <QByteArray>
#include <QObject>

namespace zthost {

class AsnDocument;

// One value of an AsnDocument's tree. Only the document makes blocks, and it owns and deletes
// them (see AsnDocument for when); never delete one yourself. Tags and child indices follow the
// rules described on AsnDocument.
class AsnBlock : public QObject
{
    Q_OBJECT
public:
    ~AsnBlock() override;

    // As on AsnDocument, relative to this value. Null for a primitive value.
    Q_INVOKABLE QObject *getChild(int index, int tag);
    Q_INVOKABLE QObject *addSample(int tag);
    Q_INVOKABLE QObject *addStruct(int tag);

    // Replaces the content octets of a primitive value with `data` as given, with one exception:
    // an INTEGER (identifier 0x02) whose first octet has its top bit set gets one leading 00 octet
    // so that the value stays positive. Nothing else is normalised: a superfluous leading 00 stays.
    // Empty data is allowed. False for a constructed value.
    Q_INVOKABLE bool setData(QByteArray data);

    // Appends one complete DER value (the rules of AsnDocument::open, and the 64-level limit
    // counted from the document's root) as a child. Its bytes are kept, not copied, and reappear
    // unchanged in build; its values can be walked with getChild. False for empty or malformed
    // input or on a primitive value; the tree is then unchanged.
    Q_INVOKABLE bool addBlock(QByteArray der);

    // The complete DER of this value: identifier, length and content octets.
    Q_INVOKABLE QByteArray build();

    // The content octets only; for a constructed value, the encodings of its children.
    Q_INVOKABLE QByteArray toByteArray();

private:
    friend class AsnDocument;
    AsnBlock(AsnDocument *document, int node);

    QObject *append(int tag, bool constructed);

    AsnDocument *m_document;
    int m_node;
};

} // namespace zthost
