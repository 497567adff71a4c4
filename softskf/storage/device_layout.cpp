#include "device_layout.h"

namespace softskf::layout {

bool isValidName(const std::string &name)
{
    if (name.empty() || name.size() > kMaxNameLength || name[0] == '.')
        return false;
    for (const char c : name) {
        if (c < 0x20 || c > 0x7e || c == '/')
            return false;
    }
    return true;
}

} // namespace softskf::layout
