#include "accepted_parameter_types.h"

#include <iterator>

namespace {

// Checked in this order, by exact and case-sensitive equality. Several names can never come out
// of Qt 5's normaliser ("unsigned int" reads "uint", "quint64" reads "qulonglong"); they stay
// so that the list is the same whichever way a host's meta-object spells its types.
constexpr const char *kAcceptedValueTypes[] = {
    "char", "short", "int", "long", "unsigned char",
    "unsigned short", "unsigned int", "unsigned long", "uchar", "ushort", "uint", "ulong",
    "float", "double", "bool",
    "qint8", "qint16", "qint32", "qint64", "qlonglong",
    "quint8", "quint16", "quint32", "quint64", "qulonglong",
    "Qt::HANDLE",
    "QString", "QStringList", "QByteArray", "QBitArray", "QLatin1String",
    "QChar", "QDate", "QTime", "QDateTime",
    "QSize", "QSizeF", "QPoint", "QPointF", "QLine", "QLineF", "QRect", "QRectF",
    "QUrl", "QLocale", "QRegExp",
    "QEasingCurve", "Qt::GlobalColor", "QVariant",
};
static_assert(std::size(kAcceptedValueTypes) == 49, "49 value types precede the two suffix rules");

} // namespace

bool isAcceptedParameterType(const QByteArray &typeName)
{
    for (const char *accepted : kAcceptedValueTypes) {
        if (typeName == accepted)
            return true;
    }
    return typeName.endsWith('*') || typeName.endsWith(']');
}
