#pragma once

#include "session/session_options.h"

#include <QDateTime>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <QStringList>

namespace zthost::cli {

enum class CheckOutcome { Ok, Warning, Failed, Skipped };

// One check of `zthost doctor`.
struct DoctorCheck
{
    QString name;               // "plug-in", "driver", "devices", "certificate", "logs"
    CheckOutcome outcome = CheckOutcome::Skipped;
    QString detail;             // what was found, one line
    QStringList notes;          // more lines of what was found (names of missing functions)
    QString advice;             // what to do, when not Ok; empty otherwise
    QJsonObject facts;          // the same findings as fields, for --json
};

// "ok", "warning", "FAILED", "skipped".
QString outcomeText(CheckOutcome outcome);

// The checks, in order: the plug-in loads (and its version), the smart-key driver loads and which
// of the standard's functions it lacks, the devices and their containers, the encryption
// certificate of the first device's SM2 container (validity at `now`, key type, key usage), and
// the folders the plug-in and the host write their logs to. A check that needs an earlier one
// (devices need the driver) is skipped when that failed.
QList<DoctorCheck> runDoctorChecks(const SessionOptions &options, const QDateTime &now);

} // namespace zthost::cli
