// Q_Dispatch against Qt's own call by name, and against the floor the core log sets: one check
// of its folder per trace line, which must stay because the log is switched on and off by
// creating and removing that folder while the host runs.

#include "log_file.h"
#include "q_dispatch.h"
#include "report.h"

#include <QDir>
#include <QMetaObject>
#include <QObject>

#include <benchmark/benchmark.h>

#include <sys/stat.h>

namespace {

// A host object the size of a real component: 40 methods, the one called is the last, so the
// lookup walks past every other one.
class WideHostObject : public QObject
{
    Q_OBJECT
public:
    Q_INVOKABLE int method01(int value) { return value + 1; }
    Q_INVOKABLE int method02(int value) { return value + 2; }
    Q_INVOKABLE int method03(int value) { return value + 3; }
    Q_INVOKABLE int method04(int value) { return value + 4; }
    Q_INVOKABLE int method05(int value) { return value + 5; }
    Q_INVOKABLE int method06(int value) { return value + 6; }
    Q_INVOKABLE int method07(int value) { return value + 7; }
    Q_INVOKABLE int method08(int value) { return value + 8; }
    Q_INVOKABLE int method09(int value) { return value + 9; }
    Q_INVOKABLE int method10(int value) { return value + 10; }
    Q_INVOKABLE int method11(int value) { return value + 11; }
    Q_INVOKABLE int method12(int value) { return value + 12; }
    Q_INVOKABLE int method13(int value) { return value + 13; }
    Q_INVOKABLE int method14(int value) { return value + 14; }
    Q_INVOKABLE int method15(int value) { return value + 15; }
    Q_INVOKABLE int method16(int value) { return value + 16; }
    Q_INVOKABLE int method17(int value) { return value + 17; }
    Q_INVOKABLE int method18(int value) { return value + 18; }
    Q_INVOKABLE int method19(int value) { return value + 19; }
    Q_INVOKABLE int method20(int value) { return value + 20; }
    Q_INVOKABLE int method21(int value) { return value + 21; }
    Q_INVOKABLE int method22(int value) { return value + 22; }
    Q_INVOKABLE int method23(int value) { return value + 23; }
    Q_INVOKABLE int method24(int value) { return value + 24; }
    Q_INVOKABLE int method25(int value) { return value + 25; }
    Q_INVOKABLE int method26(int value) { return value + 26; }
    Q_INVOKABLE int method27(int value) { return value + 27; }
    Q_INVOKABLE int method28(int value) { return value + 28; }
    Q_INVOKABLE int method29(int value) { return value + 29; }
    Q_INVOKABLE int method30(int value) { return value + 30; }
    Q_INVOKABLE int method31(int value) { return value + 31; }
    Q_INVOKABLE int method32(int value) { return value + 32; }
    Q_INVOKABLE int method33(int value) { return value + 33; }
    Q_INVOKABLE int method34(int value) { return value + 34; }
    Q_INVOKABLE int method35(int value) { return value + 35; }
    Q_INVOKABLE int method36(int value) { return value + 36; }
    Q_INVOKABLE int method37(int value) { return value + 37; }
    Q_INVOKABLE int method38(int value) { return value + 38; }
    Q_INVOKABLE int method39(int value) { return value + 39; }
    Q_INVOKABLE int lastMethod(int number, QString text, QByteArray bytes)
    {
        return number + text.size() + bytes.size();
    }
};

// Seven core-log lines per call of a method with three parameters: the name, the parameter
// count, one per parameter type, and the two around the call itself.
constexpr int kTraceLinesPerCall = 7;

void dispatchLibrary(benchmark::State &state)
{
    WideHostObject host;
    Q_Dispatch dispatch(&host, nullptr);
    int number = 7;
    QString text = QStringLiteral("forty methods");
    QByteArray bytes("\x01\x02\x03", 3);
    const QString name = QStringLiteral("lastMethod");
    for (auto _ : state) {
        int result = 0;
        dispatch.invokeHelper(name, &result, &number, &text, &bytes);
        benchmark::DoNotOptimize(result);
    }
}

void dispatchBaseline(benchmark::State &state)
{
    WideHostObject host;
    const int number = 7;
    const QString text = QStringLiteral("forty methods");
    const QByteArray bytes("\x01\x02\x03", 3);
    for (auto _ : state) {
        int result = 0;
        QMetaObject::invokeMethod(&host, "lastMethod", Qt::DirectConnection,
                                  Q_RETURN_ARG(int, result), Q_ARG(int, number),
                                  Q_ARG(QString, text), Q_ARG(QByteArray, bytes));
        benchmark::DoNotOptimize(result);
    }
}

// The floor: the seven folder checks alone, each the one system call that must be made.
void dispatchLogChecks(benchmark::State &state)
{
    const QByteArray folder = QFile::encodeName(QDir::tempPath() + QLatin1String("/ardlow"));
    for (auto _ : state) {
        for (int line = 0; line < kTraceLinesPerCall; ++line) {
            struct stat info;
            benchmark::DoNotOptimize(::stat(folder.constData(), &info));
        }
    }
}

// The same seven checks as the library makes them, through the log writer with no folder.
void dispatchLogWriter(benchmark::State &state)
{
    const QString folder = QDir::tempPath() + QLatin1String("/ardlow");
    const QString file = QStringLiteral("/penwick_core.log");
    const QString line = QStringLiteral("methodName=lastMethod");
    for (auto _ : state) {
        for (int i = 0; i < kTraceLinesPerCall; ++i)
            appendLogLine(folder, file, nullptr, ": ", line);
    }
}

} // namespace

void registerDispatchBenchmarks(int repetitions)
{
    for (int r = 0; r < repetitions; ++r) {
        benchRegister("dispatch/library", 0, dispatchLibrary)->MinTime(0.2);
        benchRegister("dispatch/baseline", 0, dispatchBaseline)->MinTime(0.2);
        benchRegister("dispatch/log_checks", 0, dispatchLogChecks)->MinTime(0.2);
        benchRegister("dispatch/log_writer", 0, dispatchLogWriter)->MinTime(0.2);
    }
}

#include "bench_dispatch.moc"
