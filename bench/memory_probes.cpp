#include "memory_probes.h"

#include "asn_agents.h"
#include "core/host_core.h"
#include "decode_world.h"
#include "session/host_session.h"

#include <QFile>
#include <QObject>

#include <dlfcn.h>
#include <malloc.h>

#include <algorithm>
#include <chrono>
#include <vector>

// Qt's object hooks (QtCore exports them for debugging tools): slot 3 is called for every
// QObject made, slot 4 for every one destroyed.
extern "C" Q_DECL_IMPORT quintptr qtHookData[];

namespace {

constexpr int kAddObjectHook = 3;
constexpr int kRemoveObjectHook = 4;

qint64 liveObjects = 0;
void countAdded(QObject *)
{
    ++liveObjects;
}
void countRemoved(QObject *)
{
    --liveObjects;
}

// A field of /proc/self/status in bytes ("VmRSS", "VmHWM").
qint64 statusBytes(const char *field)
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    const QByteArray key = QByteArray(field) + ':';
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (line.startsWith(key))
            return line.mid(key.size()).trimmed().split(' ').value(0).toLongLong() * 1024;
    }
    return -1;
}

// Lets the peak start again from the current resident size (Linux 4.0 and later).
bool resetPeak()
{
    QFile clear(QStringLiteral("/proc/self/clear_refs"));
    return clear.open(QIODevice::WriteOnly) && clear.write("5") == 1;
}

qint64 heapInUse()
{
    const struct mallinfo2 info = mallinfo2();
    return qint64(info.uordblks) + qint64(info.hblkhd);
}

double secondsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double medianOf(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values.empty() ? -1 : values[values.size() / 2];
}

} // namespace

QJsonObject probePeakMemory(int contentSize)
{
    DecodeWorld &world = DecodeWorld::instance();
    world.decode(world.envelopeText(patternedContent(1024))); // one-time set-up is not the call's
    QString text = world.envelopeText(patternedContent(contentSize));
    malloc_trim(0);

    QJsonObject result;
    const qint64 before = statusBytes("VmRSS");
    if (!resetPeak())
        result.insert(QStringLiteral("error"), QStringLiteral("cannot reset the peak resident size"));
    const QString plaintext = world.decode(text);
    const qint64 peak = statusBytes("VmHWM");
    result.insert(QStringLiteral("content_bytes"), contentSize);
    result.insert(QStringLiteral("rss_before"), double(before));
    result.insert(QStringLiteral("peak"), double(peak));
    result.insert(QStringLiteral("growth"), double(peak - before));
    result.insert(QStringLiteral("multiple"), double(peak - before) / contentSize);
    result.insert(QStringLiteral("ok"), plaintext.size() == (contentSize + 2) / 3 * 4);
    return result;
}

QJsonObject probeGrowth(int calls)
{
    DecodeWorld &world = DecodeWorld::instance();
    const QString text = world.envelopeText(patternedContent(1024));
    // Warm-up: the allocator's arenas and the host's tables reach their working size first.
    for (int i = 0; i < 500; ++i)
        world.decode(text);

    // What one block agent costs: the library keeps every one it makes.
    QObject block;
    const qint64 heapBeforeAgents = heapInUse();
    constexpr int kSampleAgents = 1000;
    for (int i = 0; i < kSampleAgents; ++i)
        new ZtAsnBlockAgent(&block);
    const double bytesPerAgent = double(heapInUse() - heapBeforeAgents) / kSampleAgents;

    malloc_trim(0);
    const qint64 rssBefore = statusBytes("VmRSS");
    const qint64 heapBefore = heapInUse();
    qtHookData[kAddObjectHook] = reinterpret_cast<quintptr>(&countAdded);
    qtHookData[kRemoveObjectHook] = reinterpret_cast<quintptr>(&countRemoved);
    bool allGood = true;
    for (int i = 0; i < calls; ++i)
        allGood = world.decode(text).size() > 8 && allGood;
    qtHookData[kAddObjectHook] = 0;
    qtHookData[kRemoveObjectHook] = 0;
    malloc_trim(0);
    const qint64 rssAfter = statusBytes("VmRSS");
    const qint64 heapAfter = heapInUse();

    const double objectsPerCall = double(liveObjects) / calls;
    QJsonObject result;
    result.insert(QStringLiteral("calls"), calls);
    result.insert(QStringLiteral("rss_per_call"), double(rssAfter - rssBefore) / calls);
    result.insert(QStringLiteral("heap_per_call"), double(heapAfter - heapBefore) / calls);
    result.insert(QStringLiteral("live_objects_per_call"), objectsPerCall);
    result.insert(QStringLiteral("bytes_per_agent"), bytesPerAgent);
    result.insert(QStringLiteral("leak_bytes_per_call"), objectsPerCall * bytesPerAgent);
    result.insert(QStringLiteral("ok"), allGood);
    return result;
}

QJsonObject probeStart(int rounds)
{
    const QByteArray path(ZT_PLUGIN_PATH);
    std::vector<double> dl;
    for (int i = 0; i < rounds; ++i) {
        const auto start = std::chrono::steady_clock::now();
        void *handle = dlopen(path.constData(), RTLD_NOW | RTLD_LOCAL);
        if (!handle)
            benchFatal(QString::fromLocal8Bit(dlerror()));
        dlclose(handle);
        dl.push_back(secondsSince(start));
    }

    // A whole host session: core and components, the plug-in loaded and initialised, its
    // scriptable object made, and all of it shut down again.
    zthost::SessionOptions options;
    options.pluginPath = QString::fromLocal8Bit(path);
    std::vector<double> plugin;
    for (int i = 0; i < rounds; ++i) {
        const auto start = std::chrono::steady_clock::now();
        QString error;
        std::unique_ptr<zthost::HostSession> session = zthost::HostSession::start(options, &error);
        if (!session)
            benchFatal(error);
        session.reset();
        plugin.push_back(secondsSince(start));
    }
    QJsonObject result;
    result.insert(QStringLiteral("dlopen_dlclose"), medianOf(dl));
    // The first round maps the file; the loader keeps it mapped (RTLD_NODELETE), so the later
    // rounds are the warm start a host sees when it loads the plug-in again.
    result.insert(QStringLiteral("plugin_cold"), plugin.front());
    result.insert(QStringLiteral("plugin_warm"),
                  medianOf(std::vector<double>(plugin.begin() + 1, plugin.end())));
    return result;
}
