#pragma once

#include <QElapsedTimer>
#include <QList>
#include <QString>

#include <functional>

namespace zthost::cli {

// What one step of the demo found.
struct StepResult
{
    bool held = false;
    QString detail; // what it produced, or why it failed
};

// The demo's steps as an aligned table on standard output, one line as each step ends:
//   step                  outcome       time  detail
//   WebVerifyPin          ok          3.8 ms  true
// A step after a failed one is shown as skipped and not run, unless it is a clean-up step.
// Silent, nothing is printed and the steps are only recorded (the demo's --json).
class StepTable
{
public:
    enum class Kind { Regular, CleanUp };
    enum class Output { Printed, Silent };

    // What one step did; `ms` is negative for a skipped step.
    struct Record
    {
        QString name;
        QString outcome; // "ok", "FAILED" or "skipped"
        double ms = -1;
        QString detail;
    };

    explicit StepTable(Output output = Output::Printed) : m_output(output) {}

    void printHeader() const;
    // Runs `step` and prints its line; answers whether it held (false when skipped).
    bool run(const QString &name, const std::function<StepResult()> &step, Kind kind = Kind::Regular);
    // "all 9 steps ok in 42.0 ms", or "step 4 of 9 (WebVerifyPin) FAILED".
    void printSummary() const;

    bool allHeld() const { return m_failedStep.isEmpty() && m_count > 0; }
    const QList<Record> &records() const { return m_records; }
    double totalMs() const { return m_totalMs; }

private:
    void show(const QString &text) const;

    Output m_output;
    QList<Record> m_records;
    int m_count = 0;
    int m_failedIndex = 0;
    QString m_failedStep;
    double m_totalMs = 0;
};

} // namespace zthost::cli
