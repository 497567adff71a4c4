#pragma once

#include "asn_tree_p.h"

#include <QByteArray>
#include <QString>

#include <vector>

namespace zthost {
namespace asn {

// Appends to `nodes` the values of the one complete DER value `der` holds, its root under
// `parent` at level `depth`, each node pointing into `der` as source number `source`.
// Definite lengths only; non-minimal long-form lengths and high-tag-number identifiers are
// accepted and kept as they are. Answers the root's index, or -1 with `error` naming the fault
// and its offset: empty input, a truncated or overlong identifier or length, a length past the
// end of its enclosing value, an indefinite length, an end-of-contents marker, nesting past
// kMaxDepth, or bytes after the value. On -1 `nodes` is as it was.
int parseDer(const QByteArray &der, int source, int parent, int depth, std::vector<Node> &nodes,
             QString *error);

} // namespace asn
} // namespace zthost
