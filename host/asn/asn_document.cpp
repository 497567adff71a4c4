#include "asn_document.h"

#include "asn_block.h"
#include "asn_tree_p.h"
#include "der_encoder_p.h"

namespace zthost {
namespace {
constexpr int kRoot = 0;
} // namespace

AsnDocument::AsnDocument(QObject *parent) : QObject(parent), m_tree(new asn::Tree) {}

// Blocks go before the tree they point into.
AsnDocument::~AsnDocument()
{
    releaseBlocks();
}

bool AsnDocument::create(int tag)
{
    releaseBlocks();
    return m_tree->create(tag);
}

bool AsnDocument::open(QByteArray der)
{
    releaseBlocks();
    return m_tree->open(der);
}

bool AsnDocument::checkTag(int tag)
{
    if (m_tree->isEmpty())
        return false;
    const asn::Node &root = m_tree->nodes[kRoot];
    return root.identifierLength == 1 && root.firstIdentifierOctet == tag;
}

void AsnDocument::close()
{
    releaseBlocks();
    m_tree->clear();
}

QObject *AsnDocument::getChild(int index, int tag)
{
    if (m_tree->isEmpty())
        return nullptr;
    return blockFor(m_tree->child(kRoot, index, tag));
}

QObject *AsnDocument::addSample(int tag)
{
    return appendToRoot(tag, false);
}

QObject *AsnDocument::addStruct(int tag)
{
    return appendToRoot(tag, true);
}

void AsnDocument::update()
{
    if (!m_tree->isEmpty() && asn::settleEncodedSize(*m_tree, kRoot) < 0)
        m_tree->error = QStringLiteral("the encoding would exceed %1 bytes").arg(asn::kMaxEncodedSize);
}

QByteArray AsnDocument::build()
{
    if (m_tree->isEmpty())
        return QByteArray();
    return asn::encodeValue(*m_tree, kRoot);
}

QString AsnDocument::errorString() const
{
    return m_tree->error;
}

QObject *AsnDocument::appendToRoot(int tag, bool constructed)
{
    if (m_tree->isEmpty()) {
        m_tree->error = QStringLiteral("there is no tree to add to");
        return nullptr;
    }
    return blockFor(m_tree->appendMade(kRoot, tag, constructed));
}

QObject *AsnDocument::blockFor(int node)
{
    if (node < 0)
        return nullptr;
    if (static_cast<std::size_t>(node) >= m_blocks.size())
        m_blocks.resize(m_tree->nodes.size());
    std::unique_ptr<AsnBlock> &block = m_blocks[node];
    if (!block)
        block.reset(new AsnBlock(this, node));
    return block.get();
}

void AsnDocument::releaseBlocks()
{
    m_blocks.clear();
    m_blocks.shrink_to_fit();
}

} // namespace zthost
