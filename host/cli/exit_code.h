#pragma once

namespace zthost::cli {

// The command's exit status: 0 when everything held, 1 when an operation failed (a method
// answered false, a file could not be read, a device could not be made), 2 when the command
// line itself was wrong (unknown command or option, missing required option, unknown method).
enum class ExitCode : int { Success = 0, Failure = 1, Usage = 2 };

} // namespace zthost::cli
