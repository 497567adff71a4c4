#pragma once

#include "crypto_error.h"

#include <QString>

// A code the error table does not hold. Set it before a call that must leave the process-wide
// code alone; afterwards the message still reads kEarlierCodeKept.
constexpr unsigned long kEarlierCode = 0x7E57;
inline const QString kEarlierCodeKept = QStringLiteral("errorcode : [32343]");

// The message of the current process-wide code, as the library hands it out.
inline QString currentErrorMessage()
{
    return QString::fromUtf8(ZtCryptoGetErrMessage());
}
