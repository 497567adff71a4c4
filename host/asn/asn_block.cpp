#include "asn_block.h"

#include "asn_document.h"
#include "asn_tree_p.h"
#include "der_encoder_p.h"

namespace zthost {

AsnBlock::AsnBlock(AsnDocument *document, int node) : m_document(document), m_node(node) {}

AsnBlock::~AsnBlock() = default;

QObject *AsnBlock::getChild(int index, int tag)
{
    return m_document->blockFor(m_document->tree().child(m_node, index, tag));
}

QObject *AsnBlock::addSample(int tag)
{
    return append(tag, false);
}

QObject *AsnBlock::addStruct(int tag)
{
    return append(tag, true);
}

bool AsnBlock::setData(QByteArray data)
{
    return m_document->tree().setContent(m_node, data);
}

bool AsnBlock::addBlock(QByteArray der)
{
    return m_document->tree().appendEncoded(m_node, der) >= 0;
}

QByteArray AsnBlock::build()
{
    return asn::encodeValue(m_document->tree(), m_node);
}

QByteArray AsnBlock::toByteArray()
{
    return asn::encodeContent(m_document->tree(), m_node);
}

QObject *AsnBlock::append(int tag, bool constructed)
{
    return m_document->blockFor(m_document->tree().appendMade(m_node, tag, constructed));
}

} // namespace zthost
