#pragma once

#include <QString>

namespace zthost::cli {

// Gives the memory pages that lie wholly inside `text`'s characters back to the system, without
// detaching or freeing the string: those characters read as NUL from then on, and the pages come
// back (zeroed) only if something writes or reads them again. Only for a text nobody will read
// again but that some holder, out of reach, still keeps alive. Texts under a page lose nothing.
void releaseTextPages(const QString &text);

// Asks for transparent huge pages under a large text: it is written once from end to end, and
// 2 MiB pages take it in with 512 times fewer page faults, which cost more than the copying on
// a virtual machine. Only advice: the kernel may ignore it.
void adviseHugePages(const QString &text);

} // namespace zthost::cli
