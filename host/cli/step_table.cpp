#include "step_table.h"

#include "console.h"

namespace zthost::cli {

namespace {
constexpr int kNameWidth = 20;
constexpr int kOutcomeWidth = 8;
constexpr int kTimeWidth = 10;

QString line(const QString &name, const QString &outcome, const QString &time, const QString &detail)
{
    QString text = QStringLiteral("  %1  %2%3  %4")
                       .arg(name, -kNameWidth)
                       .arg(outcome, -kOutcomeWidth)
                       .arg(time, kTimeWidth)
                       .arg(detail);
    while (text.endsWith(QLatin1Char(' ')))
        text.chop(1);
    return text;
}

QString milliseconds(double ms)
{
    return QString::number(ms, 'f', 1) + QStringLiteral(" ms");
}
} // namespace

void StepTable::show(const QString &text) const
{
    if (m_output == Output::Printed)
        printLine(text);
}

void StepTable::printHeader() const
{
    show(line(QStringLiteral("step"), QStringLiteral("outcome"), QStringLiteral("time"),
                   QStringLiteral("detail")));
}

bool StepTable::run(const QString &name, const std::function<StepResult()> &step, Kind kind)
{
    ++m_count;
    if (!m_failedStep.isEmpty() && kind == Kind::Regular) {
        show(line(name, QStringLiteral("skipped"), QString(), QString()));
        m_records.append({name, QStringLiteral("skipped"), -1, QString()});
        return false;
    }
    QElapsedTimer timer;
    timer.start();
    const StepResult result = step();
    const double ms = double(timer.nsecsElapsed()) / 1e6;
    m_totalMs += ms;
    const QString outcome = result.held ? QStringLiteral("ok") : QStringLiteral("FAILED");
    show(line(name, outcome, milliseconds(ms), result.detail));
    m_records.append({name, outcome, ms, result.detail});
    if (!result.held && m_failedStep.isEmpty()) {
        m_failedStep = name;
        m_failedIndex = m_count;
    }
    return result.held;
}

void StepTable::printSummary() const
{
    if (allHeld())
        show(QStringLiteral("all %1 steps ok in %2").arg(m_count).arg(milliseconds(m_totalMs)));
    else
        show(QStringLiteral("step %1 of %2 (%3) FAILED")
                      .arg(m_failedIndex)
                      .arg(m_count)
                      .arg(m_failedStep));
}

} // namespace zthost::cli
