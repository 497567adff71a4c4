#include "core/pin_wipe.h"

#include <cstddef>

namespace zthost {

namespace {
// Writes through a volatile pointer so that the compiler keeps stores to memory that is freed
// right after.
void overwrite(void *data, std::size_t size)
{
    volatile unsigned char *byte = static_cast<volatile unsigned char *>(data);
    while (size--)
        *byte++ = 0;
}
} // namespace

void wipePin(QString &pin)
{
    // data() on a shared string would detach it: a fresh copy wiped, the original untouched.
    if (pin.isDetached() && !pin.isEmpty())
        overwrite(pin.data(), std::size_t(pin.size()) * sizeof(QChar));
    pin = QString();
}

void wipePin(QByteArray &pin)
{
    if (pin.isDetached() && !pin.isEmpty())
        overwrite(pin.data(), std::size_t(pin.size()));
    pin = QByteArray();
}

void wipePin(std::string &pin)
{
    if (!pin.empty())
        overwrite(pin.data(), pin.size());
    pin.clear();
}

} // namespace zthost
