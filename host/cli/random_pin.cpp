#include "random_pin.h"

#include <QRandomGenerator>

namespace zthost::cli {

QString randomDigits(int digits)
{
    QString pin;
    pin.reserve(digits);
    for (int i = 0; i < digits; ++i)
        pin += QLatin1Char(char('0' + QRandomGenerator::system()->bounded(10)));
    return pin;
}

} // namespace zthost::cli
