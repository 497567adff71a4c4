#pragma once

#include <QJsonObject>

// Measurements that need a process of their own, so that the figure is theirs alone. Each runs
// in a child (zt_bench re-executed with a hidden flag) and answers one JSON object.

// Peak memory of one WebZtDecode of a `contentSize` content: how far the peak resident size
// rose during the call above what the process held before it.
QJsonObject probePeakMemory(int contentSize);

// Resident and heap growth over `calls` WebZtDecode calls of 1 KiB envelopes, and what the
// library's deliberate leaks account for.
QJsonObject probeGrowth(int calls);

// Cold and warm start-up of the plug-in against dlopen/dlclose of the same file.
QJsonObject probeStart(int rounds);
