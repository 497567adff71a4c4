#include "key_type.h"

#include <openssl/evp.h>

namespace zthost::sealing {

namespace {
// Curve names are short: "prime256v1", "brainpoolP512t1".
constexpr size_t kCurveNameSize = 80;
} // namespace

QString keyTypeOf(EVP_PKEY *key)
{
    if (!key)
        return QStringLiteral("unreadable");
    const char *type = EVP_PKEY_get0_type_name(key);
    const QString name = type ? QString::fromLatin1(type) : QStringLiteral("of an unknown type");
    char curve[kCurveNameSize] = {};
    if (EVP_PKEY_is_a(key, "EC") && EVP_PKEY_get_group_name(key, curve, sizeof curve, nullptr))
        return QStringLiteral("%1 on curve %2").arg(name, QString::fromLatin1(curve));
    return name;
}

} // namespace zthost::sealing
