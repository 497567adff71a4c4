#pragma once

#include <QString>

namespace zthost::cli {

// Gives the memory pages that lie wholly inside `text`'s characters back to the system, without
// detaching or freeing the string: those characters read as NUL from then on, and the pages come
// back (zeroed) only if something writes or reads them again. Only for a text nobody will read
// again but that some holder, out of reach, still keeps alive. Texts under a page lose nothing.
void releaseTextPages(const QString &text);

} // namespace zthost::cli
