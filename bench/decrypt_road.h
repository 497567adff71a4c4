#pragma once

#include <QJsonObject>

// The whole road of `zthost decrypt` against WebZtDecode alone, on one envelope of a
// `contentSize` content: WebZtDecode timed in this process (its host session open, its PIN
// verified, the Base64 text in hand), and a real zthost process timed from fork to exit with its
// peak resident size from wait4, decrypting the same envelope from a Base64 file to a file.
// Three of each, interleaved; medians of the times, the largest peak. The ratio is of CPU time
// (user and system: the thread's for WebZtDecode, the whole process's for zthost), as the other
// rows are, so that a busy machine's waiting falls on neither side; wall times are kept too.
QJsonObject probeDecryptRoad(int contentSize);
