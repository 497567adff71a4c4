#include "text_pages.h"

#include <sys/mman.h>
#include <unistd.h>

namespace zthost::cli {

void releaseTextPages(const QString &text)
{
    const auto pageSize = quintptr(::sysconf(_SC_PAGESIZE));
    const auto start = reinterpret_cast<quintptr>(text.constData());
    const quintptr end = start + quintptr(text.size()) * sizeof(QChar);
    // Whole pages only: the allocator's own bookkeeping lies just outside the characters.
    const quintptr first = (start + pageSize - 1) & ~(pageSize - 1);
    const quintptr last = end & ~(pageSize - 1);
    if (last > first)
        ::madvise(reinterpret_cast<void *>(first), last - first, MADV_DONTNEED);
}

} // namespace zthost::cli
