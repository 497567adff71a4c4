#pragma once

#include <benchmark/benchmark.h>

#include <QString>

#include <functional>
#include <map>
#include <string>
#include <vector>

// Registers one run of a benchmark under `name` (a row key such as "decode/library") for a
// given content `size` (0 when it has none). Registering the same name several times, in turn
// with its baseline, interleaves the repetitions, so that a burst of load on a shared machine
// falls on both sides of a ratio alike; the table takes the median of them.
benchmark::internal::Benchmark *benchRegister(const std::string &name, qint64 size,
                                              std::function<void(benchmark::State &)> body);

// Collects every run: seconds of CPU time per iteration, keyed by "name@size".
class CollectingReporter : public benchmark::BenchmarkReporter
{
public:
    bool ReportContext(const Context &context) override;
    void ReportRuns(const std::vector<Run> &runs) override;

    // Median seconds per iteration, or a negative value when the benchmark never ran.
    double median(const std::string &name, qint64 size) const;
    bool failed() const { return m_failed; }

private:
    std::map<std::string, std::vector<double>> m_seconds;
    bool m_failed = false;
};

std::string benchKey(const std::string &name, qint64 size);
