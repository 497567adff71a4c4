#pragma once

#include <QString>

#include <ctime>

// Timings of the crypto log: processor time of the whole process from clock(), divided by a
// fixed 1000000 whatever the platform's CLOCKS_PER_SEC, as the log's readers expect.
double processorSecondsSince(std::clock_t start);

// A crypto-log line formatted printf-style into a zero-filled 256-byte buffer, so a longer
// text is cut there.
QString formatLogLine(const char *format, ...) __attribute__((format(printf, 1, 2)));
