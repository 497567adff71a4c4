#pragma once

#include <QString>

namespace zthost::cli {

enum class PinOrigin { Option, Environment, Prompt, Missing };

struct Pin
{
    QString text;
    PinOrigin origin = PinOrigin::Missing;
};

// The PIN from, in order: the command line (`optionValue`, when `optionGiven`), the ZTHOST_PIN
// environment variable, or a prompt on the terminal that does not echo what is typed, when
// standard input is one. Missing otherwise, or when the prompt was left empty. `prompt` is
// shown on standard error, e.g. "User PIN: ".
Pin readPin(bool optionGiven, const QString &optionValue, const QString &prompt);

} // namespace zthost::cli
