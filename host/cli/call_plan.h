#pragma once

#include "session/host_session.h"

#include <QString>
#include <QStringList>
#include <QVariantList>

namespace zthost::cli {

// One call of the scriptable object as `zthost call` and `zthost shell` take it: a method name
// and its arguments as words, each word converted to the method's parameter type.
//
// A word "@FILE" stands for the file's text (UTF-8, trailing line ends dropped), "@-" for all
// of standard input, "@@..." for the word without its first "@". WebVerifyPin without its
// argument takes the PIN from readPin (ZTHOST_PIN, else asked on the terminal without echo).
struct PlannedCall
{
    QString method;
    QVariantList values;
    // The PIN of a WebVerifyPin, kept apart so that it can be wiped after the call.
    QString pin;
};

enum class PlanFailure { None, Usage, Input };

// False with `error` set: PlanFailure::Usage for an unknown method, a wrong number of arguments
// or one that does not convert; PlanFailure::Input for an @FILE that cannot be read (or is
// longer than a QString the plug-in can take) and a PIN that cannot be had.
bool planCall(const QObject *scriptable, const QStringList &words, PlannedCall *call,
              QString *error, PlanFailure *failure);

// Makes the call, prints its answer on standard output (when it has one) and, on failure, the
// explained message on standard error. Wipes the PIN of a WebVerifyPin. Answers whether the
// call succeeded.
bool runPlannedCall(HostSession &session, PlannedCall &call);

} // namespace zthost::cli
