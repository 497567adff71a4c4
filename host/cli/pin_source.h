#pragma once

#include <QString>

#include <optional>

namespace zthost::cli {

enum class PinOrigin { Option, Environment, Prompt, Missing };

struct Pin
{
    QString text;
    PinOrigin origin = PinOrigin::Missing;
};

// The PIN from, in order: the command line (`fromOption`, when it was given), the ZTHOST_PIN
// environment variable, or a prompt on the terminal that does not echo what is typed, when
// standard input is one. Missing otherwise, or when the prompt was left empty. `prompt` is
// shown on standard error, e.g. "User PIN: ".
Pin readPin(const std::optional<QString> &fromOption, const QString &prompt);
// The same with another environment variable than ZTHOST_PIN.
Pin readPin(const std::optional<QString> &fromOption, const QString &prompt,
            const char *environmentVariable);

// A PIN being chosen: like readPin, but a PIN typed on the terminal is asked twice (`prompt`,
// then `repeatPrompt`) and *mismatch is set when the two differ (the PIN is then Missing).
Pin readNewPin(const std::optional<QString> &fromOption, const QString &prompt,
               const QString &repeatPrompt, const char *environmentVariable, bool *mismatch);

// `digits` decimal digits from the system's random source, for PINs the command makes up.
QString randomDigits(int digits);

} // namespace zthost::cli
