#pragma once

// The seven invokable methods of the plug-in's scriptable object, the whole of what a page may
// call. The plug-in's class declares them in its public header; a host object that stands in for
// it (the web bridge's façade, test doubles) declares them with ZT_SCRIPTABLE_METHODS, and
// ScriptableMethods::kSignatures names them as the meta-object system spells them; a method's
// name is its signature up to the parenthesis. A test holds the plug-in's meta-object to this
// list.

#include <array>

// Declarations in the plug-in's order, with its parameter names (a page sees them through the
// web channel). moc expands the macro like any other declaration.
#define ZT_SCRIPTABLE_METHODS                                                                    \
    Q_INVOKABLE bool WebOpenKey();                                                               \
    Q_INVOKABLE bool WebCloseKey();                                                              \
    Q_INVOKABLE bool WebVerifyPin(QString pinCode);                                              \
    Q_INVOKABLE QString WebGetCertData(QString certtype);                                        \
    Q_INVOKABLE QString WebZtEncode(QString bas64SrcData, QString certData, quint64 ulAlgID);    \
    Q_INVOKABLE QString WebZtDecode(QString bas64EncData, quint64 ulAlgID);                      \
    Q_INVOKABLE QString WebGetLastErrorMsg();

namespace ScriptableMethods {
inline constexpr int kCount = 7;

// Normalised signatures, as QMetaMethod::methodSignature() gives them.
inline constexpr std::array<const char *, kCount> kSignatures = {
    "WebOpenKey()",
    "WebCloseKey()",
    "WebVerifyPin(QString)",
    "WebGetCertData(QString)",
    "WebZtEncode(QString,QString,qulonglong)",
    "WebZtDecode(QString,qulonglong)",
    "WebGetLastErrorMsg()",
};

} // namespace ScriptableMethods
