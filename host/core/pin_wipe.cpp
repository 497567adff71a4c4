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
    if (pin.isDetached())
        overwrite(pin.data(), std::size_t(pin.size()) * sizeof(QChar));
    else
        pin = QString();
}

void wipePin(QByteArray &pin)
{
    if (pin.isDetached())
        overwrite(pin.data(), std::size_t(pin.size()));
    else
        pin = QByteArray();
}

void wipePin(std::string &pin)
{
    overwrite(pin.data(), pin.size());
}

} // namespace zthost
