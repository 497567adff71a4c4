#pragma once
// What the library's sources need to say differently on Qt 5.15 and Qt 6, in one place. Each
// name below is the Qt 5 spelling's own type on Qt 5, so the Qt 5 build compiles to what it
// always did.

#include <QByteArray>

// The size and index type of Qt's containers: int on Qt 5, qsizetype (64 bits) on Qt 6, where a
// container can hold more than 2 GiB. Arithmetic on sizes uses it, so neither build narrows.
using ZtQtSize = decltype(QByteArray().size());
