// Opening a digital envelope on the key device.

#include "zt_cryptographic.h"

QString ZtCryptographic::WebZtDecode(QString bas64EncData, quint64 ulAlgID)
{
    // Opening envelopes needs the envelope reader, which this build does not have yet: every
    // envelope is refused with the method's failure text, and nothing else happens.
    Q_UNUSED(bas64EncData)
    Q_UNUSED(ulAlgID)
    return QStringLiteral("false");
}
