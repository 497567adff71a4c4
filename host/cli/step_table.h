#pragma once

#include <QElapsedTimer>
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
class StepTable
{
public:
    enum class Kind { Regular, CleanUp };

    void printHeader() const;
    // Runs `step` and prints its line; answers whether it held (false when skipped).
    bool run(const QString &name, const std::function<StepResult()> &step, Kind kind = Kind::Regular);
    // "all 9 steps ok in 42.0 ms", or "step 4 of 9 (WebVerifyPin) FAILED".
    void printSummary() const;

    bool allHeld() const { return m_failedStep.isEmpty() && m_count > 0; }

private:
    int m_count = 0;
    int m_failedIndex = 0;
    QString m_failedStep;
    double m_totalMs = 0;
};

} // namespace zthost::cli
