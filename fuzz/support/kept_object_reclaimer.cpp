#include "kept_object_reclaimer.h"

#include <QtGlobal>

#include <typeinfo>

// Qt's hook table for tools that follow object lifetimes. Its header is private and not
// installed with the development package; the table itself is exported. Keep in sync with
// QtCore's qhooks_p.h (layout unchanged since Qt 5.4).
extern Q_CORE_EXPORT quintptr qtHookData[];

namespace ztfuzz {

namespace {

enum HookIndex : int {
    HookDataSize = 1,
    AddQObject = 3,
    RemoveQObject = 4,
};
using ObjectCallback = void (*)(QObject *);

KeptObjectReclaimer *g_reclaimer = nullptr;
quintptr g_previousAdd = 0;
quintptr g_previousRemove = 0;

} // namespace

KeptObjectReclaimer::KeptObjectReclaimer(std::vector<std::string> classNames)
{
    // typeid names of classes in the global namespace under the Itanium ABI: length, name.
    for (const std::string &name : classNames)
        m_mangledNames.push_back(std::to_string(name.size()) + name);
    if (g_reclaimer || qtHookData[HookDataSize] <= RemoveQObject)
        return;
    g_reclaimer = this;
    g_previousAdd = qtHookData[AddQObject];
    g_previousRemove = qtHookData[RemoveQObject];
    qtHookData[AddQObject] = reinterpret_cast<quintptr>(&KeptObjectReclaimer::added);
    qtHookData[RemoveQObject] = reinterpret_cast<quintptr>(&KeptObjectReclaimer::removed);
    m_active = true;
}

KeptObjectReclaimer::~KeptObjectReclaimer()
{
    if (!m_active)
        return;
    qtHookData[AddQObject] = g_previousAdd;
    qtHookData[RemoveQObject] = g_previousRemove;
    g_reclaimer = nullptr;
}

void KeptObjectReclaimer::added(QObject *object)
{
    g_reclaimer->m_made.insert(object);
    if (g_previousAdd)
        reinterpret_cast<ObjectCallback>(g_previousAdd)(object);
}

void KeptObjectReclaimer::removed(QObject *object)
{
    g_reclaimer->m_made.erase(object);
    if (g_previousRemove)
        reinterpret_cast<ObjectCallback>(g_previousRemove)(object);
}

int KeptObjectReclaimer::reclaim()
{
    std::vector<QObject *> kept;
    for (QObject *object : m_made) {
        if (object->parent())
            continue;
        const std::string type = typeid(*object).name();
        for (const std::string &name : m_mangledNames) {
            if (type == name) {
                kept.push_back(object);
                break;
            }
        }
    }
    // Everything else made during the input is either deleted already or someone's to keep.
    m_made.clear();
    for (QObject *object : kept)
        delete object;
    m_made.clear();
    return int(kept.size());
}

} // namespace ztfuzz
