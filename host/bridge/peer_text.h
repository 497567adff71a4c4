#pragma once

#include "bridge/access_token.h"

#include <QString>

namespace zthost::bridge {

// A text a peer sent (a path, a Host header, an Origin) as a log line may show it: the token
// replaced wherever it appears, then cut to kMaxPeerTextChars. The token goes first, so that a
// cut never leaves most of it behind; the host log escapes the rest.
QString peerText(const QString &text, const AccessToken &token);

// `line` with every occurrence of the token replaced: the last step before the host log.
QString withoutToken(QString line, const AccessToken &token);

constexpr int kMaxPeerTextChars = 120;
constexpr const char *kTokenPlaceholder = "<token>";

} // namespace zthost::bridge
