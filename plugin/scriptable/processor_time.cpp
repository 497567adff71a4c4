#include "processor_time.h"

#include <cstdarg>
#include <cstdio>

namespace {
constexpr double kClockTicksPerSecond = 1000000.0;
constexpr size_t kLogLineBufferSize = 256;
} // namespace

double processorSecondsSince(std::clock_t start)
{
    return double(std::clock() - start) / kClockTicksPerSecond;
}

QString formatLogLine(const char *format, ...)
{
    char line[kLogLineBufferSize] = {};
    va_list args;
    va_start(args, format);
    std::vsnprintf(line, sizeof line, format, args);
    va_end(args);
    return QString::fromUtf8(line);
}
