#include "pin_source.h"

#include "core/pin_wipe.h"

#include <QRandomGenerator>

#include <termios.h>
#include <unistd.h>

#include <cstdio>
#include <string>

namespace zthost::cli {

namespace {
constexpr char kEnvironmentVariable[] = "ZTHOST_PIN";

// Reads one line from the terminal with echo off, restoring the terminal's settings after,
// also when reading fails. Echo goes off (and what was typed ahead is flushed) before the prompt
// shows, so nothing typed after the prompt is echoed or thrown away.
QString promptWithoutEcho(const QString &prompt)
{
    termios saved {};
    const bool haveTerminal = tcgetattr(STDIN_FILENO, &saved) == 0;
    if (haveTerminal) {
        termios quiet = saved;
        quiet.c_lflag &= tcflag_t(~ECHO);
        quiet.c_lflag |= ECHONL;
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet);
    }
    std::fputs(prompt.toUtf8().constData(), stderr);
    std::fflush(stderr);

    std::string line;
    for (int c = std::getchar(); c != EOF && c != '\n'; c = std::getchar())
        line.push_back(char(c));
    if (haveTerminal)
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &saved);
    const QString pin = QString::fromLocal8Bit(line.data(), int(line.size()));
    wipePin(line);
    return pin;
}
} // namespace

Pin readPin(const std::optional<QString> &fromOption, const QString &prompt)
{
    return readPin(fromOption, prompt, kEnvironmentVariable);
}

Pin readNewPin(const std::optional<QString> &fromOption, const QString &prompt,
               const QString &repeatPrompt, const char *environmentVariable, bool *mismatch)
{
    *mismatch = false;
    Pin pin = readPin(fromOption, prompt, environmentVariable);
    if (pin.origin != PinOrigin::Prompt)
        return pin;
    QString repeated = promptWithoutEcho(repeatPrompt);
    const bool same = repeated == pin.text;
    wipePin(repeated);
    if (same)
        return pin;
    wipePin(pin.text);
    *mismatch = true;
    return {};
}

Pin readPin(const std::optional<QString> &fromOption, const QString &prompt,
            const char *environmentVariable)
{
    if (fromOption)
        return {*fromOption, PinOrigin::Option};
    if (qEnvironmentVariableIsSet(environmentVariable))
        return {qEnvironmentVariable(environmentVariable), PinOrigin::Environment};
    if (isatty(STDIN_FILENO)) {
        const QString typed = promptWithoutEcho(prompt);
        if (!typed.isEmpty())
            return {typed, PinOrigin::Prompt};
    }
    return {};
}

QString randomDigits(int digits)
{
    QString pin;
    pin.reserve(digits);
    for (int i = 0; i < digits; ++i)
        pin += QLatin1Char(char('0' + QRandomGenerator::system()->bounded(10)));
    return pin;
}

} // namespace zthost::cli
