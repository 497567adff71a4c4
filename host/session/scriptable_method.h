#pragma once

#include <QMetaMethod>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <QVariantList>

namespace zthost {

// Calling the scriptable object's invokable methods by name, the way a web page does: the
// object is known only through its meta-object.

// The invokable methods the object's own class declares (not QObject's), e.g.
// "WebVerifyPin(QString pinCode)", in declaration order.
QStringList invokableSignatures(const QObject *object);

// The invokable method called `name`; an invalid QMetaMethod when there is none.
QMetaMethod findInvokable(const QObject *object, const QString &name);

// Converts text arguments to the method's parameter types: QString as it is, integers in
// decimal or 0x hexadecimal, bool as true/false/1/0. False with `error` naming the argument,
// e.g. "argument 3 (ulAlgID) of WebZtDecode is not a qulonglong: \"abc\"", or the count,
// "WebVerifyPin(QString pinCode) takes 1 argument, 0 given".
bool convertArguments(const QMetaMethod &method, const QStringList &texts, QVariantList *values,
                      QString *error);

// Invokes `method` directly with `arguments`, already of the parameter types. The answer is
// the return value (invalid for a void method). False with `error` set when Qt refuses the
// call.
bool invoke(QObject *object, const QMetaMethod &method, const QVariantList &arguments,
            QVariant *answer, QString *error);

// The answer as text: "true"/"false" for bool, the text itself for QString, numbers in decimal.
QString answerText(const QVariant &answer);

// Whether the answer is the library's failure value: false, or the text "false".
bool isFailureAnswer(const QVariant &answer);

} // namespace zthost
