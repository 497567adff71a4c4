#include "report.h"

#include <algorithm>
#include <cstdio>

std::string benchKey(const std::string &name, qint64 size)
{
    return name + "@" + std::to_string(size);
}

benchmark::internal::Benchmark *benchRegister(const std::string &name, qint64 size,
                                              std::function<void(benchmark::State &)> body)
{
    return benchmark::RegisterBenchmark(benchKey(name, size).c_str(),
                                        [body](benchmark::State &state) { body(state); });
}

bool CollectingReporter::ReportContext(const Context &)
{
    return true;
}

void CollectingReporter::ReportRuns(const std::vector<Run> &runs)
{
    for (const Run &run : runs) {
        const std::string name = run.run_name.function_name;
        if (run.error_occurred) {
            std::fprintf(stderr, "  %-32s failed: %s\n", name.c_str(), run.error_message.c_str());
            m_failed = true;
            continue;
        }
        if (run.iterations <= 0)
            continue;
        const double seconds = run.cpu_accumulated_time / double(run.iterations);
        m_seconds[name].push_back(seconds);
        std::fprintf(stderr, "  %-32s %12.0f ns  (%lld iterations)\n", name.c_str(), seconds * 1e9,
                     static_cast<long long>(run.iterations));
    }
}

double CollectingReporter::median(const std::string &name, qint64 size) const
{
    const auto found = m_seconds.find(benchKey(name, size));
    if (found == m_seconds.end() || found->second.empty())
        return -1;
    std::vector<double> values = found->second;
    std::sort(values.begin(), values.end());
    const std::size_t middle = values.size() / 2;
    return values.size() % 2 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}
