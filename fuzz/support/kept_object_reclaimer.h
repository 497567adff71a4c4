#pragma once

#include <QObject>

#include <string>
#include <unordered_set>
#include <vector>

namespace ztfuzz {

// The library keeps on purpose, for the life of the process, every ASN.1 block agent it obtains
// (ZtAsnBlockAgent, a small parentless QObject). A host lives with that; a fuzzer running
// millions of inputs would run out of memory instead of finding bugs. The reclaimer watches
// QObject construction through Qt's hook table and, between two inputs, deletes the parentless
// objects of the named classes that the input made. Only for points where the library holds
// none of them: its envelope code drops every block agent when its call returns.
//
// One reclaimer at a time; calling thread only.
class KeptObjectReclaimer
{
public:
    // `classNames`: unqualified names of classes in the global namespace.
    explicit KeptObjectReclaimer(std::vector<std::string> classNames);
    ~KeptObjectReclaimer();
    KeptObjectReclaimer(const KeptObjectReclaimer &) = delete;
    KeptObjectReclaimer &operator=(const KeptObjectReclaimer &) = delete;

    // False when this Qt has no hook table of the expected layout; reclaim() then does nothing.
    bool isActive() const { return m_active; }

    // Deletes what was kept since the last call; answers how many objects that was.
    int reclaim();

private:
    static void added(QObject *object);
    static void removed(QObject *object);

    std::vector<std::string> m_mangledNames;
    std::unordered_set<QObject *> m_made;
    bool m_active = false;
};

} // namespace ztfuzz
