#include "decrypt_road.h"

#include "decode_world.h"

#include <QFile>
#include <QTemporaryDir>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <vector>

namespace {

constexpr int kRounds = 3;

double secondsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double medianOf(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values.empty() ? -1 : values[values.size() / 2];
}

double cpuSeconds(const struct rusage &usage)
{
    return double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec)
           + double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

// CPU time of the calling thread, user and system.
double threadCpuSeconds()
{
    struct rusage usage {};
    ::getrusage(RUSAGE_THREAD, &usage);
    return cpuSeconds(usage);
}

struct ProcessRun
{
    bool ok = false;
    double seconds = -1;
    double cpuSeconds = -1;
    qint64 peakBytes = -1;
};

// zthost with `arguments`, its output and messages thrown away, measured by wait4.
ProcessRun runZthost(const std::vector<std::string> &arguments)
{
    std::vector<std::string> words{ZT_ZTHOST_PATH};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char *> argv;
    for (std::string &word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);

    ProcessRun run;
    const auto start = std::chrono::steady_clock::now();
    const pid_t child = ::fork();
    if (child == 0) {
        const int null = ::open("/dev/null", O_RDWR);
        ::dup2(null, STDIN_FILENO);
        ::dup2(null, STDOUT_FILENO);
        ::dup2(null, STDERR_FILENO);
        ::execv(argv[0], argv.data());
        ::_exit(127);
    }
    if (child < 0)
        return run;
    int status = 0;
    struct rusage usage {};
    if (::wait4(child, &status, 0, &usage) != child)
        return run;
    run.seconds = secondsSince(start);
    run.cpuSeconds = cpuSeconds(usage);
    run.peakBytes = qint64(usage.ru_maxrss) * 1024; // kilobytes on Linux
    run.ok = WIFEXITED(status) && WEXITSTATUS(status) == 0;
    return run;
}

} // namespace

QJsonObject probeDecryptRoad(int contentSize)
{
    DecodeWorld &world = DecodeWorld::instance();
    world.decode(world.envelopeText(patternedContent(1024))); // one-time set-up is not the call's
    const QByteArray content = patternedContent(contentSize);
    const QString text = world.envelopeText(content);

    QTemporaryDir work;
    const QString envelopePath = work.filePath(QStringLiteral("envelope.b64"));
    const QString plaintextPath = work.filePath(QStringLiteral("plaintext"));
    {
        QFile envelope(envelopePath);
        if (!envelope.open(QIODevice::WriteOnly) || envelope.write(text.toLatin1() + '\n') < 0)
            benchFatal(QStringLiteral("cannot write %1").arg(envelopePath));
    }
    const std::vector<std::string> arguments{
        "decrypt",
        "--plugin", ZT_PLUGIN_PATH,
        "--skf", ZT_SOFTSKF_DRIVER_PATH,
        "--root", QFile::encodeName(world.rootPath()).toStdString(),
        "--pin", DecodeWorld::userPin().toStdString(),
        "--in", QFile::encodeName(envelopePath).toStdString(),
        "--out", QFile::encodeName(plaintextPath).toStdString()};

    std::vector<double> alone;
    std::vector<double> road;
    std::vector<double> aloneCpu;
    std::vector<double> roadCpu;
    qint64 peak = 0;
    bool ok = true;
    for (int round = 0; round < kRounds; ++round) {
        const auto start = std::chrono::steady_clock::now();
        const double cpuStart = threadCpuSeconds();
        const QString answer = world.decode(text);
        aloneCpu.push_back(threadCpuSeconds() - cpuStart);
        alone.push_back(secondsSince(start));
        ok = ok && answer.size() == (contentSize + 2) / 3 * 4;

        const ProcessRun run = runZthost(arguments);
        ok = ok && run.ok;
        road.push_back(run.seconds);
        roadCpu.push_back(run.cpuSeconds);
        peak = std::max(peak, run.peakBytes);
        QFile written(plaintextPath);
        ok = ok && written.open(QIODevice::ReadOnly) && written.readAll() == content;
        QFile::remove(plaintextPath);
    }
    QJsonObject result;
    result.insert(QStringLiteral("content_bytes"), contentSize);
    result.insert(QStringLiteral("webztdecode_wall_seconds"), medianOf(alone));
    result.insert(QStringLiteral("zthost_wall_seconds"), medianOf(road));
    result.insert(QStringLiteral("webztdecode_seconds"), medianOf(aloneCpu));
    result.insert(QStringLiteral("zthost_seconds"), medianOf(roadCpu));
    result.insert(QStringLiteral("ratio"), medianOf(roadCpu) / medianOf(aloneCpu));
    result.insert(QStringLiteral("zthost_peak_rss"), double(peak));
    result.insert(QStringLiteral("multiple"), double(peak) / contentSize);
    result.insert(QStringLiteral("ok"), ok);
    return result;
}
