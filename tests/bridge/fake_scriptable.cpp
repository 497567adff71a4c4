#include "fake_scriptable.h"

bool FakeScriptable::WebOpenKey()
{
    calls << QStringLiteral("WebOpenKey");
    return true;
}

bool FakeScriptable::WebCloseKey()
{
    calls << QStringLiteral("WebCloseKey");
    return true;
}

bool FakeScriptable::WebVerifyPin(QString pinCode)
{
    calls << QStringLiteral("WebVerifyPin");
    if (pinCode == rightPin)
        return true;
    lastError = QStringLiteral("wrong PIN");
    return false;
}

QString FakeScriptable::WebGetCertData(QString)
{
    calls << QStringLiteral("WebGetCertData");
    return certificate;
}

QString FakeScriptable::WebZtEncode(QString, QString, quint64)
{
    calls << QStringLiteral("WebZtEncode");
    return QString();
}

QString FakeScriptable::WebZtDecode(QString bas64EncData, quint64 ulAlgID)
{
    calls << QStringLiteral("WebZtDecode");
    decodeData = bas64EncData;
    decodeAlgorithm = ulAlgID;
    if (duringDecode)
        duringDecode();
    return plaintext;
}

QString FakeScriptable::WebGetLastErrorMsg()
{
    calls << QStringLiteral("WebGetLastErrorMsg");
    return lastError;
}
