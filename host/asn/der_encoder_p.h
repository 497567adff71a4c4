#pragma once

#include "asn_tree_p.h"

#include <QByteArray>

namespace zthost {
namespace asn {

// Sizes are computed once and cached in the nodes (Tree::markChanged drops the caches along the
// path of a change); an unchanged parsed node costs nothing, whatever lies below it. Changed
// nodes get minimal definite lengths.

// The size of the whole encoding of `node`, or -1 when it would exceed kMaxEncodedSize.
qint64 settleEncodedSize(Tree &tree, int node);

// The identifier, length and content octets of `node`; empty (with tree.error set) when the
// encoding would exceed kMaxEncodedSize. An unchanged node that spans all of its source answers
// that source itself, without a copy.
QByteArray encodeValue(Tree &tree, int node);

// The content octets of `node` only: for a constructed node, the encodings of its children.
QByteArray encodeContent(Tree &tree, int node);

} // namespace asn
} // namespace zthost
