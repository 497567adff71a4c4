#include "key/driver_answers.h"

namespace zthost {

void DriverAnswers::clear()
{
    m_devicesListed = -1;
    m_failures.clear();
}

void DriverAnswers::recordFailure(const DriverFailure &failure)
{
    if (m_failures.size() < kFailuresKept)
        m_failures.append(failure);
}

} // namespace zthost
