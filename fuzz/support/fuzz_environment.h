#pragma once

#include <QString>

namespace ztfuzz {

// Once per fuzzer, from LLVMFuzzerInitialize: Qt's debug output off (the library traces every
// call), TMPDIR pointed at a fresh empty folder so that QDir::tempPath() has no "ardlow" in it
// and the core log stays off, and a QCoreApplication as a host has one. The folder is removed
// when the process exits normally. Answers the folder.
QString prepareProcess(int *argc, char ***argv);

// The first folder named on libFuzzer's command line (its output corpus), or empty. Fuzzers
// whose seeds can only be made at start-up write them there; fuzz/run_smoke hands libFuzzer a
// copy of the checked-in corpus, so those never change.
QString firstCorpusFolder(int argc, char **argv);

} // namespace ztfuzz
