// Q_Dispatch: calling a host object's methods by name through its meta-object, passing every
// argument by address, and the core log that traces each step.

#include "qt_printers.h"
#include "log_sandbox.h"
#include "q_dispatch.h"

#include <QByteArray>
#include <QDir>
#include <QMetaObject>
#include <QObject>
#include <QPointer>
#include <QRegularExpression>
#include <QString>
#include <QStringList>

#include <gtest/gtest.h>

#include <algorithm>
#include <ostream>

namespace {

// A host structure passed by value: a parameter type the dispatcher does not pass.
struct HostRecord
{
    int value = 0;
};

// A host object with one method per situation; every call is recorded.
class Target : public QObject
{
    Q_OBJECT

public:
    QStringList calls;
    QObject other;

    // "open" comes before "openContainer", so a prefix match would find the wrong one.
    Q_INVOKABLE bool open(int index)
    {
        calls << QStringLiteral("open(%1)").arg(index);
        return true;
    }
    Q_INVOKABLE bool openContainer(QString name)
    {
        calls << QStringLiteral("openContainer(%1)").arg(name);
        return true;
    }
    Q_INVOKABLE int count()
    {
        calls << QStringLiteral("count()");
        return 3;
    }
    Q_INVOKABLE int add(int a, int b)
    {
        calls << QStringLiteral("add(%1,%2)").arg(a).arg(b);
        return a + b;
    }
    Q_INVOKABLE bool negate(bool value)
    {
        calls << QStringLiteral("negate(%1)").arg(value ? "true" : "false");
        return !value;
    }
    Q_INVOKABLE QString greet(QString name)
    {
        calls << QStringLiteral("greet(%1)").arg(name);
        return QStringLiteral("hello ") + name;
    }
    Q_INVOKABLE QByteArray reversed(QByteArray bytes)
    {
        calls << QStringLiteral("reversed(%1)").arg(QString::fromLatin1(bytes.toHex()));
        std::reverse(bytes.begin(), bytes.end());
        return bytes;
    }
    Q_INVOKABLE QObject *otherObject()
    {
        calls << QStringLiteral("otherObject()");
        return &other;
    }
    Q_INVOKABLE bool isOther(QObject *object)
    {
        calls << QStringLiteral("isOther()");
        return object == &other;
    }
    Q_INVOKABLE qulonglong nextHandle(qulonglong handle)
    {
        calls << QStringLiteral("nextHandle(%1)").arg(handle, 0, 16);
        return handle + 1;
    }
    Q_INVOKABLE QStringList names(int howMany)
    {
        calls << QStringLiteral("names(%1)").arg(howMany);
        QStringList list;
        for (int i = 0; i < howMany; ++i)
            list << QStringLiteral("name%1").arg(i);
        return list;
    }
    Q_INVOKABLE void note(QString text) { calls << QStringLiteral("note(%1)").arg(text); }
    Q_INVOKABLE int takesReference(QString &text)
    {
        calls << QStringLiteral("takesReference(%1)").arg(text);
        return 7;
    }
    Q_INVOKABLE int referenceSecond(int first, QString &text)
    {
        calls << QStringLiteral("referenceSecond(%1,%2)").arg(first).arg(text);
        return 7;
    }
    Q_INVOKABLE int takesRecord(HostRecord record)
    {
        calls << QStringLiteral("takesRecord(%1)").arg(record.value);
        return 7;
    }
};

// The longer name first this time: "open" must still skip it.
class LongerNameFirst : public QObject
{
    Q_OBJECT

public:
    QStringList calls;

    Q_INVOKABLE void openContainer(QString name)
    {
        calls << QStringLiteral("openContainer(%1)").arg(name);
    }
    Q_INVOKABLE void open(int index) { calls << QStringLiteral("open(%1)").arg(index); }
};

class IntOverloadFirst : public QObject
{
    Q_OBJECT

public:
    QStringList calls;

    Q_INVOKABLE void f(int value) { calls << QStringLiteral("f(int %1)").arg(value); }
    Q_INVOKABLE void f(QString value) { calls << QStringLiteral("f(QString %1)").arg(value); }
};

class StringOverloadFirst : public QObject
{
    Q_OBJECT

public:
    QStringList calls;

    Q_INVOKABLE void f(QString value) { calls << QStringLiteral("f(QString %1)").arg(value); }
    Q_INVOKABLE void f(int value) { calls << QStringLiteral("f(int %1)").arg(value); }
};

// True when `bytes` is `expected` with every "<stamp>" standing for one "hh:mm:ss: " time stamp
// of the core log, and nothing else differs.
bool matchesWithStamps(const QByteArray &bytes, const QString &expected)
{
    QString pattern;
    const QStringList pieces = expected.split(QStringLiteral("<stamp>"));
    for (int i = 0; i < pieces.size(); ++i) {
        if (i > 0)
            pattern += QStringLiteral("[0-2][0-9]:[0-5][0-9]:[0-5][0-9]: ");
        pattern += QRegularExpression::escape(pieces.at(i));
    }
    const QRegularExpression whole(QStringLiteral("\\A") + pattern + QStringLiteral("\\z"));
    return whole.match(QString::fromUtf8(bytes)).hasMatch();
}

QString paramCountLine(const QString &methodName, int count)
{
    return QStringLiteral("methodName=") + methodName + QStringLiteral("::paramCount=")
           + QString(QChar(count));
}

class Dispatch : public testing::Test
{
protected:
    LogSandbox sandbox; // before the dispatcher: it reads the temporary path when made
    Target target;
    Q_Dispatch agent{&target, nullptr};
};

} // namespace

TEST_F(Dispatch, surroundingBlanksAreTrimmedForLookup)
{
    int result = 0;
    agent.invokeHelper(QStringLiteral(" count "), &result);
    EXPECT_EQ(result, 3);
    EXPECT_EQ(target.calls, QStringList{QStringLiteral("count()")});
}

TEST_F(Dispatch, emptyNameIsAMiss)
{
    int result = 42;
    agent.invokeHelper(QString(), &result);
    agent.invokeHelper(QStringLiteral(""), &result);
    EXPECT_EQ(result, 42);
    EXPECT_TRUE(target.calls.isEmpty());
    EXPECT_EQ(sandbox.coreLogMessages(),
              (QStringList{QStringLiteral("methodName="),
                           QStringLiteral("QTCORE____ERROR: findMethodIndex fail!!!cnt"),
                           QStringLiteral("methodName="),
                           QStringLiteral("QTCORE____ERROR: findMethodIndex fail!!!cnt")}));
}

TEST_F(Dispatch, allBlankNameIsAMiss)
{
    int result = 42;
    agent.invokeHelper(QStringLiteral("  \t "), &result);
    EXPECT_EQ(result, 42);
    EXPECT_TRUE(target.calls.isEmpty());
    EXPECT_EQ(sandbox.coreLogMessages(),
              (QStringList{QStringLiteral("methodName=  \t "),
                           QStringLiteral("QTCORE____ERROR: findMethodIndex fail!!!cnt")}));
}

TEST_F(Dispatch, nameIsMatchedCaseSensitively)
{
    int result = 42;
    agent.invokeHelper(QStringLiteral("Count"), &result);
    EXPECT_EQ(result, 42);
    EXPECT_TRUE(target.calls.isEmpty());
}

TEST_F(Dispatch, shortNameFindsOnlyItsOwnMethod)
{
    bool opened = false;
    int index = 4;
    agent.invokeHelper(QStringLiteral("open"), &opened, &index);
    EXPECT_TRUE(opened);
    EXPECT_EQ(target.calls, QStringList{QStringLiteral("open(4)")});
}

TEST_F(Dispatch, longerNameFindsOnlyItsOwnMethod)
{
    bool opened = false;
    QString name = QStringLiteral("enc");
    agent.invokeHelper(QStringLiteral("openContainer"), &opened, &name);
    EXPECT_TRUE(opened);
    EXPECT_EQ(target.calls, QStringList{QStringLiteral("openContainer(enc)")});
}

TEST_F(Dispatch, nameIsNeverMatchedByALongerNameDeclaredBeforeIt)
{
    LongerNameFirst host;
    Q_Dispatch dispatcher(&host, nullptr);
    int index = 1;
    dispatcher.invokeHelper(QStringLiteral("open"), nullptr, &index);
    EXPECT_EQ(host.calls, QStringList{QStringLiteral("open(1)")});
}

TEST_F(Dispatch, nameThatOnlyPrefixesAMethodIsAMiss)
{
    int result = 42;
    agent.invokeHelper(QStringLiteral("cou"), &result);
    EXPECT_EQ(result, 42);
    EXPECT_TRUE(target.calls.isEmpty());
}

TEST_F(Dispatch, overloadWithTheLowerIndexIsAlwaysCalled)
{
    IntOverloadFirst host;
    const QMetaObject *meta = host.metaObject();
    ASSERT_LT(meta->indexOfMethod("f(int)"), meta->indexOfMethod("f(QString)"));

    Q_Dispatch dispatcher(&host, nullptr);
    int value = 5;
    dispatcher.invokeHelper(QStringLiteral("f"), nullptr, &value);
    dispatcher.invokeHelper(QStringLiteral("f"), nullptr, &value);
    EXPECT_EQ(host.calls, (QStringList{QStringLiteral("f(int 5)"), QStringLiteral("f(int 5)")}));
    EXPECT_TRUE(sandbox.coreLogMessages().contains(QStringLiteral("paramTypeName=int")));
    EXPECT_FALSE(sandbox.coreLogMessages().contains(QStringLiteral("paramTypeName=QString")));
}

TEST_F(Dispatch, overloadOrderDecidesNotTheArguments)
{
    StringOverloadFirst host;
    const QMetaObject *meta = host.metaObject();
    ASSERT_LT(meta->indexOfMethod("f(QString)"), meta->indexOfMethod("f(int)"));

    Q_Dispatch dispatcher(&host, nullptr);
    QString value = QStringLiteral("five");
    dispatcher.invokeHelper(QStringLiteral("f"), nullptr, &value);
    EXPECT_EQ(host.calls, QStringList{QStringLiteral("f(QString five)")});
}

TEST_F(Dispatch, inheritedMethodsAreFound)
{
    QString seen;
    QObject::connect(&target, &QObject::objectNameChanged,
                     [&seen](const QString &name) { seen = name; });
    QString name = QStringLiteral("from the dispatcher");
    agent.invokeHelper(QStringLiteral("objectNameChanged"), nullptr, &name);
    EXPECT_EQ(seen, name);
}

TEST_F(Dispatch, nonConstReferenceParameterIsRefused)
{
    int result = 42;
    QString text = QStringLiteral("t");
    agent.invokeHelper(QStringLiteral("takesReference"), &result, &text);
    EXPECT_EQ(result, 42);
    EXPECT_TRUE(target.calls.isEmpty());
    EXPECT_EQ(sandbox.coreLogMessages(),
              (QStringList{QStringLiteral("methodName=takesReference"),
                           paramCountLine(QStringLiteral("takesReference"), 1),
                           QStringLiteral("paramTypeName=QString&"),
                           QStringLiteral("参数错误")}));
}

TEST_F(Dispatch, refusedSecondParameterStopsTheCall)
{
    int result = 42;
    int first = 1;
    QString text = QStringLiteral("t");
    agent.invokeHelper(QStringLiteral("referenceSecond"), &result, &first, &text);
    EXPECT_EQ(result, 42);
    EXPECT_TRUE(target.calls.isEmpty());
    EXPECT_EQ(sandbox.coreLogMessages(),
              (QStringList{QStringLiteral("methodName=referenceSecond"),
                           paramCountLine(QStringLiteral("referenceSecond"), 2),
                           QStringLiteral("paramTypeName=int"),
                           QStringLiteral("paramTypeName=QString&"),
                           QStringLiteral("参数错误")}));
}

TEST_F(Dispatch, hostStructureByValueIsRefused)
{
    int result = 42;
    HostRecord record{9};
    agent.invokeHelper(QStringLiteral("takesRecord"), &result, &record);
    EXPECT_EQ(result, 42);
    EXPECT_TRUE(target.calls.isEmpty());
    EXPECT_EQ(sandbox.coreLogMessages(),
              (QStringList{QStringLiteral("methodName=takesRecord"),
                           paramCountLine(QStringLiteral("takesRecord"), 1),
                           QStringLiteral("paramTypeName=HostRecord"),
                           QStringLiteral("参数错误")}));
}

TEST_F(Dispatch, zeroParameterCountSwallowsTheLineEnd)
{
    int result = 0;
    agent.invokeHelper(QStringLiteral("count"), &result);
    EXPECT_EQ(result, 3);
    const QByteArray log = sandbox.coreLogBytes();
    EXPECT_TRUE(matchesWithStamps(log, QStringLiteral("<stamp>methodName=count\n"
                                                      "<stamp>methodName=count::paramCount="
                                                      "<stamp>QMetaObject::metacall call in\n"
                                                      "<stamp>QMetaObject::metacall call end\n")))
        << log.constData();
    EXPECT_FALSE(log.contains('\0'));
}

TEST_F(Dispatch, logFolderAbsentMeansNoLogAndAnUnchangedCall)
{
    LogSandbox quiet(LogSandbox::CoreLog::Off);
    Target host;
    Q_Dispatch dispatcher(&host, nullptr);
    int a = 2, b = 3, sum = 0;
    dispatcher.invokeHelper(QStringLiteral("add"), &sum, &a, &b);
    EXPECT_EQ(sum, 5);
    EXPECT_FALSE(quiet.coreLogExists());
    EXPECT_FALSE(QDir(quiet.coreLogFolder()).exists());
}

TEST_F(Dispatch, creatingTheLogFolderSwitchesTheLogOnForALivingDispatcher)
{
    LogSandbox quiet(LogSandbox::CoreLog::Off);
    Target host;
    Q_Dispatch dispatcher(&host, nullptr);
    int first = 0;
    dispatcher.invokeHelper(QStringLiteral("nope"), &first);
    ASSERT_FALSE(quiet.coreLogExists());

    quiet.enableCoreLog();
    dispatcher.invokeHelper(QStringLiteral("missing"), &first);
    EXPECT_EQ(quiet.coreLogMessages(),
              (QStringList{QStringLiteral("methodName=missing"),
                           QStringLiteral("QTCORE____ERROR: findMethodIndex fail!!!cnt")}));
}

TEST_F(Dispatch, removingTheLogFolderSwitchesTheLogOff)
{
    int result = 0;
    agent.invokeHelper(QStringLiteral("missing"), &result);
    ASSERT_TRUE(sandbox.coreLogExists());

    sandbox.disableCoreLog();
    agent.invokeHelper(QStringLiteral("missing"), &result);
    EXPECT_FALSE(sandbox.coreLogExists());
    EXPECT_FALSE(QDir(sandbox.coreLogFolder()).exists());
}

TEST_F(Dispatch, logFolderIsTakenFromTheTemporaryPathAtConstruction)
{
    {
        LogSandbox later;
        int result = 0;
        agent.invokeHelper(QStringLiteral("missing"), &result);
        EXPECT_FALSE(later.coreLogExists());
    }
    EXPECT_EQ(sandbox.coreLogMessages(),
              (QStringList{QStringLiteral("methodName=missing"),
                           QStringLiteral("QTCORE____ERROR: findMethodIndex fail!!!cnt")}));
}

TEST_F(Dispatch, constructionCreatesNothingOnDisk)
{
    LogSandbox quiet(LogSandbox::CoreLog::Off);
    Q_Dispatch dispatcher(&target, nullptr);
    EXPECT_TRUE(QDir(quiet.tempPath()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden)
                    .isEmpty());
}

TEST_F(Dispatch, nullResultPointerDiscardsTheReturnValue)
{
    int a = 1, b = 2;
    agent.invokeHelper(QStringLiteral("add"), nullptr, &a, &b);
    EXPECT_EQ(target.calls, QStringList{QStringLiteral("add(1,2)")});
}

TEST_F(Dispatch, hitWithTwoParametersIsTracedStepByStep)
{
    int a = 2, b = 40, sum = 0;
    agent.invokeHelper(QStringLiteral("add"), &sum, &a, &b);
    EXPECT_EQ(sum, 42);
    EXPECT_EQ(sandbox.coreLogMessages(),
              (QStringList{QStringLiteral("methodName=add"),
                           QStringLiteral("methodName=add::paramCount=\x02"),
                           QStringLiteral("paramTypeName=int"),
                           QStringLiteral("paramTypeName=int"),
                           QStringLiteral("QMetaObject::metacall call in"),
                           QStringLiteral("QMetaObject::metacall call end")}));
    EXPECT_TRUE(sandbox.coreLogBytes().contains("methodName=add::paramCount=\x02\n"));
}

TEST_F(Dispatch, missIsTracedAndLeavesTheResult)
{
    int result = 42;
    int argument = 1;
    agent.invokeHelper(QStringLiteral("nope"), &result, &argument);
    EXPECT_EQ(result, 42);
    EXPECT_TRUE(target.calls.isEmpty());
    EXPECT_EQ(sandbox.coreLogMessages(),
              (QStringList{QStringLiteral("methodName=nope"),
                           QStringLiteral("QTCORE____ERROR: findMethodIndex fail!!!cnt")}));
}

TEST_F(Dispatch, nullTargetLogsOnlyTheName)
{
    Q_Dispatch unbound(nullptr, nullptr);
    int result = 42;
    unbound.invokeHelper(QStringLiteral("count"), &result);
    EXPECT_EQ(result, 42);
    EXPECT_EQ(sandbox.coreLogMessages(), QStringList{QStringLiteral("methodName=count")});
}

TEST_F(Dispatch, logShowsTheNameUntrimmed)
{
    int result = 0;
    agent.invokeHelper(QStringLiteral("  count "), &result);
    EXPECT_EQ(result, 3);
    EXPECT_TRUE(matchesWithStamps(sandbox.coreLogBytes(),
                                  QStringLiteral("<stamp>methodName=  count \n"
                                                 "<stamp>methodName=  count ::paramCount="
                                                 "<stamp>QMetaObject::metacall call in\n"
                                                 "<stamp>QMetaObject::metacall call end\n")))
        << sandbox.coreLogBytes().constData();
}

TEST_F(Dispatch, boolResultIsWrittenBack)
{
    bool result = false;
    bool value = false;
    agent.invokeHelper(QStringLiteral("negate"), &result, &value);
    EXPECT_TRUE(result);
    EXPECT_EQ(target.calls, QStringList{QStringLiteral("negate(false)")});
}

TEST_F(Dispatch, intResultIsWrittenBack)
{
    int result = 0;
    int a = -7, b = 3;
    agent.invokeHelper(QStringLiteral("add"), &result, &a, &b);
    EXPECT_EQ(result, -4);
}

TEST_F(Dispatch, stringResultIsWrittenBack)
{
    QString result = QStringLiteral("untouched");
    QString name = QStringLiteral("世界");
    agent.invokeHelper(QStringLiteral("greet"), &result, &name);
    EXPECT_EQ(result, QStringLiteral("hello 世界"));
}

TEST_F(Dispatch, byteArrayResultIsWrittenBack)
{
    QByteArray result;
    QByteArray bytes = QByteArray("\x01\x00\xff", 3);
    agent.invokeHelper(QStringLiteral("reversed"), &result, &bytes);
    EXPECT_EQ(result, QByteArray("\xff\x00\x01", 3));
    EXPECT_EQ(target.calls, QStringList{QStringLiteral("reversed(0100ff)")});
}

TEST_F(Dispatch, objectPointerResultIsWrittenBack)
{
    QObject *result = nullptr;
    agent.invokeHelper(QStringLiteral("otherObject"), &result);
    EXPECT_EQ(result, &target.other);
}

TEST_F(Dispatch, objectPointerParameterIsPassedByAddress)
{
    bool result = false;
    QObject *object = &target.other;
    agent.invokeHelper(QStringLiteral("isOther"), &result, &object);
    EXPECT_TRUE(result);
    EXPECT_TRUE(sandbox.coreLogMessages().contains(QStringLiteral("paramTypeName=QObject*")));
}

TEST_F(Dispatch, unsignedLongLongResultIsWrittenBack)
{
    qulonglong result = 0;
    qulonglong handle = Q_UINT64_C(0xFFFFFFFF00000001);
    agent.invokeHelper(QStringLiteral("nextHandle"), &result, &handle);
    EXPECT_EQ(result, Q_UINT64_C(0xFFFFFFFF00000002));
    EXPECT_EQ(target.calls, QStringList{QStringLiteral("nextHandle(ffffffff00000001)")});
    EXPECT_TRUE(sandbox.coreLogMessages().contains(QStringLiteral("paramTypeName=qulonglong")));
}

TEST_F(Dispatch, stringListResultIsWrittenBack)
{
    QStringList result;
    int howMany = 2;
    agent.invokeHelper(QStringLiteral("names"), &result, &howMany);
    EXPECT_EQ(result, (QStringList{QStringLiteral("name0"), QStringLiteral("name1")}));
}

TEST_F(Dispatch, voidMethodIsCalledWithItsArgument)
{
    QString text = QStringLiteral("a line");
    agent.invokeHelper(QStringLiteral("note"), nullptr, &text);
    EXPECT_EQ(target.calls, QStringList{QStringLiteral("note(a line)")});
}

TEST_F(Dispatch, objectNameIsAgent)
{
    EXPECT_EQ(agent.objectName(), QStringLiteral("Agent"));
    Q_Dispatch unbound(nullptr, nullptr);
    EXPECT_EQ(unbound.objectName(), QStringLiteral("Agent"));
}

TEST_F(Dispatch, parentIsTheGivenObject)
{
    QObject parent;
    auto *child = new Q_Dispatch(&target, &parent);
    EXPECT_EQ(child->parent(), &parent);
    EXPECT_EQ(child->target(), &target);
}

TEST_F(Dispatch, destructionNeverDeletesTheTarget)
{
    auto *host = new Target;
    QPointer<Target> watch(host);
    {
        Q_Dispatch dispatcher(host, nullptr);
    }
    EXPECT_FALSE(watch.isNull());

    {
        QObject parent;
        new Q_Dispatch(host, &parent);
    }
    EXPECT_FALSE(watch.isNull());
    delete host;
}

#include "test_dispatch.moc"
