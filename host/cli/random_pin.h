#pragma once

#include <QString>

namespace zthost::cli {

// `digits` decimal digits from the system's random source, for PINs the command makes up.
QString randomDigits(int digits);

} // namespace zthost::cli
