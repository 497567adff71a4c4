#include "text_pages.h"

#include <sys/mman.h>
#include <unistd.h>

namespace zthost::cli {

namespace {
// madvise on the whole `page`-sized pages within the characters of `text`: the allocator's own
// bookkeeping lies just outside them.
void adviseWithin(const QString &text, quintptr page, int advice)
{
    const auto start = reinterpret_cast<quintptr>(text.constData());
    const quintptr end = start + quintptr(text.size()) * sizeof(QChar);
    const quintptr first = (start + page - 1) & ~(page - 1);
    const quintptr last = end & ~(page - 1);
    if (last > first)
        ::madvise(reinterpret_cast<void *>(first), last - first, advice);
}
} // namespace

void releaseTextPages(const QString &text)
{
    adviseWithin(text, quintptr(::sysconf(_SC_PAGESIZE)), MADV_DONTNEED);
}

void adviseHugePages(const QString &text)
{
    constexpr quintptr kHugePage = 2 << 20;
    adviseWithin(text, kHugePage, MADV_HUGEPAGE);
}

} // namespace zthost::cli
