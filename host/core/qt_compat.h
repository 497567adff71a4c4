#pragma once
// What the reference host must say differently on Qt 5.15 and Qt 6, in one place; each function
// is, on Qt 5, exactly the call the host made before it built on Qt 6 too.

#include <QMetaType>
#include <QVariant>
#include <QtGlobal>

namespace zthost {

// A default value of the meta-type typeId, as storage for a method's answer.
inline QVariant defaultValueOfType(int typeId)
{
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
    return QVariant(QVariant::Type(typeId));
#else
    return QVariant(QMetaType(typeId));
#endif
}

// Converts value to the meta-type typeId in place; false when Qt cannot.
inline bool convertToType(QVariant &value, int typeId)
{
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
    return value.convert(typeId);
#else
    return value.convert(QMetaType(typeId));
#endif
}

} // namespace zthost
