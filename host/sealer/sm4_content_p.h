#pragma once

#include <QByteArray>
#include <QString>

namespace zthost::sealing {

inline constexpr int kSm4KeySize = 16;
inline constexpr int kSm4BlockSize = 16;

// `content` SM4-ECB encrypted under `key` with PKCS#7 padding: one to 16 bytes longer. The
// caller keeps content.size() + kSm4BlockSize within an int. Empty with `error` when OpenSSL
// fails.
QByteArray sm4EcbEncrypt(const QByteArray &key, const QByteArray &content, QString *error);

} // namespace zthost::sealing
