#pragma once

#include "zt_export.h"

#include <QString>

// Appends "<yyyy-MM-dd hh:mm:ss> [] - <message>\n" to /tmp/ZtEncodeLog/ZtCryptographic.log,
// but only while the folder /tmp/ZtEncodeLog exists: the library never creates it. The file is
// opened for this line and closed again. Nothing is reported.
ZT_EXPORT void _logCrypto(QString message);
