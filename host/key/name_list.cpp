// Splits name lists as drivers write them; a driver's bytes are not trusted to be well formed.

#include "key/name_list.h"

namespace zthost {

namespace {
// Far above any real list (names are short, devices and containers few); a larger size is a
// driver fault, refused before allocating.
constexpr ULONG kMaxNameListSize = 1u << 20;
} // namespace

QStringList splitNameList(const QByteArray &list)
{
    QStringList names;
    int start = 0;
    while (start < list.size()) {
        int end = list.indexOf('\0', start);
        if (end < 0)
            end = list.size();
        if (end == start)
            break; // the empty name that closes the list
        names.append(QString::fromUtf8(list.constData() + start, end - start));
        start = end + 1;
    }
    return names;
}

ULONG readNameList(const std::function<ULONG(LPSTR, ULONG *)> &call, QStringList *names)
{
    names->clear();
    ULONG size = 0;
    ULONG code = call(nullptr, &size);
    if (code != SAR_OK)
        return code;
    if (size == 0)
        return SAR_OK;
    if (size > kMaxNameListSize)
        return SAR_INDATALENERR;
    // A list can grow between the two calls (a device plugged in): one retry with the new size.
    for (int attempt = 0; attempt < 2; ++attempt) {
        QByteArray buffer(int(size), '\0');
        ULONG filled = size;
        code = call(buffer.data(), &filled);
        if (code == SAR_BUFFER_TOO_SMALL && filled > size && filled <= kMaxNameListSize) {
            size = filled;
            continue;
        }
        if (code != SAR_OK)
            return code;
        buffer.truncate(int(qMin(filled, size)));
        *names = splitNameList(buffer);
        return SAR_OK;
    }
    return code;
}

} // namespace zthost
