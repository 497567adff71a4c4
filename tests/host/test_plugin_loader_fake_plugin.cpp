// A stand-in plug-in with the four entry points (ComponentDestroy left out when
// ZT_FAKE_PLUGIN_WITHOUT_DESTROY is defined) that records the order in which a host calls them.

#include <QObject>
#include <QString>

#include <string>

namespace {

std::string &events()
{
    static std::string recorded;
    return recorded;
}

void record(const char *event)
{
    if (!events().empty())
        events() += ' ';
    events() += event;
}

class FakeScriptable : public QObject
{
public:
    ~FakeScriptable() override { record("deleted"); }
};

} // namespace

#define ZT_FAKE_EXPORT __attribute__((visibility("default")))

extern "C" {

ZT_FAKE_EXPORT const char *FakePluginEvents()
{
    return events().c_str();
}

ZT_FAKE_EXPORT void FakePluginReset()
{
    events().clear();
}

ZT_FAKE_EXPORT int Zt_GetVersion(char *, unsigned int *length)
{
    if (length)
        *length = 7;
    return 0;
}

ZT_FAKE_EXPORT int ComponentInit(QObject *core)
{
    record(core ? "init" : "init(null)");
    return 1;
}

ZT_FAKE_EXPORT QObject *CreateComponent(const QString &progId, const QString &)
{
    if (progId != QLatin1String("Crypto.ZtCryptographic.1"))
        return nullptr;
    record("create");
    return new FakeScriptable;
}

#ifndef ZT_FAKE_PLUGIN_WITHOUT_DESTROY
ZT_FAKE_EXPORT void ComponentDestroy()
{
    record("destroy");
}
#endif

} // extern "C"
