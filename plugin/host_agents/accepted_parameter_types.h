#pragma once

#include <QByteArray>

// True when the dispatcher may pass an argument of this parameter type: the type name is one
// of the value types it knows, or ends in "*" or "]". Anything else, a non-const reference
// ("QString&") or a host structure passed by value in particular, is refused. The name is the
// normalised text Qt's meta-object gives for the parameter ("qulonglong", not "quint64").
bool isAcceptedParameterType(const QByteArray &typeName);
