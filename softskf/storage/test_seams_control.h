#pragma once

// What a test does with the seams of test_seams.h. Exists in the test build of the device
// (ztsoftskf_seams) only.

#include "test_seams.h"

#include <functional>

namespace softskf::seams {

// Called with the step's name before each seam; answers 0 to let the step go on, or an errno
// value that the system call behind the step then fails with (ignored by plain steps). May
// stop the process. One hook per process; an empty function removes it.
using Hook = std::function<int(const char *step)>;
void setHook(Hook hook);

} // namespace softskf::seams
