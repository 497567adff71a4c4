// Hosts that refuse a call at some step of the key road. Every host call of WebOpenKey,
// WebVerifyPin and WebGetCertData (with the container search it makes) is made to fail in turn:
// the component is not there (null target), the host class has no method of that name, or the
// method declares a parameter type the dispatcher does not pass; and, where that differs, the
// host answers empty, zero or false. Each case must end in the documented answer and error code,
// leave the matching line in the core log, call nothing it should not, and leave the object
// usable once the host is good again.

#include "error_probe.h"
#include "qt_printers.h"
#include "crypto_error.h"
#include "key_host.h"
#include "log_sandbox.h"
#include "stdout_capture.h"
#include "zt_cryptographic.h"

#include <QFile>
#include <QObject>
#include <QString>
#include <QStringList>

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <ostream>
#include <utility>
#include <vector>

namespace {

const QString kManagerProgId = QStringLiteral("ZTSIGNATUREMANAGER.ZtSignatureManager.1");
const QString kKeyProgId = QStringLiteral("ZTKEY.ZtKey.1");
const QString kPin = QStringLiteral("123456");
// KeyHost's encryption certificate, 30 03 02 01 07, as WebGetCertData hands it out.
const QString kCertificateBase64 = QStringLiteral("MAMCAQc=");

// Messages of the codes the refusals end in: 1000, 1007, 0x0B000035 and 0x2008.
const QString kNoKeyDevice = QStringLiteral("未检测到电子密钥盘");
const QString kWrongPin = QStringLiteral("您输入的电子钥匙盘密码错误，请重新输入!");
const QString kContainerMissing = QStringLiteral("密钥盘容器不存在");
const QString kCertificateUnread = QStringLiteral("获取加密证书失败");
// Set before each refused call, so that a call which sets no code shows as this text.
// Host types passed by value: the dispatcher refuses any class it does not know.
struct KeyFilter
{
    int kind = 0;
};
struct ContainerRef
{
    qulonglong handle = 0;
};

// A variant of one of the regular doubles. It forwards every call to that double, which keeps
// the state and records the calls, and differs from it only in the one method it lacks or
// declares with a refused parameter type. A refused method forwards too, so that a call the
// dispatcher should not have made shows in the record.
template<typename Regular>
class Variant : public QObject
{
public:
    explicit Variant(Regular &regular) : script(regular) {}

protected:
    Regular &script;
};
using ManagerVariant = Variant<FakeSignatureManager>;
using KeyComponentVariant = Variant<FakeKeyComponent>;
using KeyObjectVariant = Variant<ScriptedKeyObject>;

// Signature managers.

class ManagerWithoutGetZtKey : public ManagerVariant
{
    Q_OBJECT
public:
    using ManagerVariant::ManagerVariant;
};

class ManagerRefusingGetZtKey : public ManagerVariant
{
    Q_OBJECT
public:
    using ManagerVariant::ManagerVariant;
    Q_INVOKABLE QObject *getZtKey(QString & /*caller*/) { return script.getZtKey(); }
};

// Key components.

class KeyComponentWithoutCount : public KeyComponentVariant
{
    Q_OBJECT
public:
    using KeyComponentVariant::KeyComponentVariant;
    Q_INVOKABLE QObject *open(int index) { return script.open(index); }
};

class KeyComponentRefusingCount : public KeyComponentVariant
{
    Q_OBJECT
public:
    using KeyComponentVariant::KeyComponentVariant;
    Q_INVOKABLE int count(KeyFilter /*filter*/) { return script.count(); }
    Q_INVOKABLE QObject *open(int index) { return script.open(index); }
};

class KeyComponentWithoutOpen : public KeyComponentVariant
{
    Q_OBJECT
public:
    using KeyComponentVariant::KeyComponentVariant;
    Q_INVOKABLE int count() { return script.count(); }
};

class KeyComponentRefusingOpen : public KeyComponentVariant
{
    Q_OBJECT
public:
    using KeyComponentVariant::KeyComponentVariant;
    Q_INVOKABLE int count() { return script.count(); }
    Q_INVOKABLE QObject *open(int &index) { return script.open(index); }
};

// Key objects, with the part of the vocabulary that these roads reach.

// The regular key-object methods, forwarded unchanged. Each variant lists the ones it keeps
// by name and spells out the one that differs, so that the difference is the line that stands
// out. moc expands these macros as the compiler does.
#define FORWARD_ENUM_CONTAINER \
    Q_INVOKABLE QStringList enumContainer() { return script.enumContainer(); }
#define FORWARD_OPEN_CONTAINER \
    Q_INVOKABLE qulonglong openContainer(QString name) { return script.openContainer(name); }
#define FORWARD_GET_CONTAINER_TYPE \
    Q_INVOKABLE int getContainerType(qulonglong h) { return script.getContainerType(h); }
#define FORWARD_CLOSE_CONTAINER \
    Q_INVOKABLE void closeContainer(qulonglong h) { script.closeContainer(h); }
#define FORWARD_EXPORT_CERTIFICATE \
    Q_INVOKABLE QByteArray exportCertificate(qulonglong h, bool sign) \
    { \
        return script.exportCertificate(h, sign); \
    }
#define FORWARD_VERIFY_PIN \
    Q_INVOKABLE bool verifyPin(QString pin, bool admin) { return script.verifyPin(pin, admin); }

class KeyWithoutEnumContainer : public KeyObjectVariant
{
    Q_OBJECT
public:
    using KeyObjectVariant::KeyObjectVariant;
    FORWARD_OPEN_CONTAINER
    FORWARD_GET_CONTAINER_TYPE
    FORWARD_CLOSE_CONTAINER
    FORWARD_EXPORT_CERTIFICATE
    FORWARD_VERIFY_PIN
};

class KeyRefusingEnumContainer : public KeyObjectVariant
{
    Q_OBJECT
public:
    using KeyObjectVariant::KeyObjectVariant;
    Q_INVOKABLE QStringList enumContainer(QStringList & /*into*/) { return script.enumContainer(); }
    FORWARD_OPEN_CONTAINER
    FORWARD_GET_CONTAINER_TYPE
    FORWARD_CLOSE_CONTAINER
    FORWARD_EXPORT_CERTIFICATE
    FORWARD_VERIFY_PIN
};

class KeyWithoutOpenContainer : public KeyObjectVariant
{
    Q_OBJECT
public:
    using KeyObjectVariant::KeyObjectVariant;
    FORWARD_ENUM_CONTAINER
    FORWARD_GET_CONTAINER_TYPE
    FORWARD_CLOSE_CONTAINER
    FORWARD_EXPORT_CERTIFICATE
    FORWARD_VERIFY_PIN
};

class KeyRefusingOpenContainer : public KeyObjectVariant
{
    Q_OBJECT
public:
    using KeyObjectVariant::KeyObjectVariant;
    FORWARD_ENUM_CONTAINER
    Q_INVOKABLE qulonglong openContainer(QString &name) { return script.openContainer(name); }
    FORWARD_GET_CONTAINER_TYPE
    FORWARD_CLOSE_CONTAINER
    FORWARD_EXPORT_CERTIFICATE
    FORWARD_VERIFY_PIN
};

class KeyWithoutGetContainerType : public KeyObjectVariant
{
    Q_OBJECT
public:
    using KeyObjectVariant::KeyObjectVariant;
    FORWARD_ENUM_CONTAINER
    FORWARD_OPEN_CONTAINER
    FORWARD_CLOSE_CONTAINER
    FORWARD_EXPORT_CERTIFICATE
    FORWARD_VERIFY_PIN
};

class KeyRefusingGetContainerType : public KeyObjectVariant
{
    Q_OBJECT
public:
    using KeyObjectVariant::KeyObjectVariant;
    FORWARD_ENUM_CONTAINER
    FORWARD_OPEN_CONTAINER
    Q_INVOKABLE int getContainerType(ContainerRef c) { return script.getContainerType(c.handle); }
    FORWARD_CLOSE_CONTAINER
    FORWARD_EXPORT_CERTIFICATE
    FORWARD_VERIFY_PIN
};

class KeyWithoutCloseContainer : public KeyObjectVariant
{
    Q_OBJECT
public:
    using KeyObjectVariant::KeyObjectVariant;
    FORWARD_ENUM_CONTAINER
    FORWARD_OPEN_CONTAINER
    FORWARD_GET_CONTAINER_TYPE
    FORWARD_EXPORT_CERTIFICATE
    FORWARD_VERIFY_PIN
};

class KeyRefusingCloseContainer : public KeyObjectVariant
{
    Q_OBJECT
public:
    using KeyObjectVariant::KeyObjectVariant;
    FORWARD_ENUM_CONTAINER
    FORWARD_OPEN_CONTAINER
    FORWARD_GET_CONTAINER_TYPE
    Q_INVOKABLE void closeContainer(qulonglong &h) { script.closeContainer(h); }
    FORWARD_EXPORT_CERTIFICATE
    FORWARD_VERIFY_PIN
};

class KeyWithoutExportCertificate : public KeyObjectVariant
{
    Q_OBJECT
public:
    using KeyObjectVariant::KeyObjectVariant;
    FORWARD_ENUM_CONTAINER
    FORWARD_OPEN_CONTAINER
    FORWARD_GET_CONTAINER_TYPE
    FORWARD_CLOSE_CONTAINER
    FORWARD_VERIFY_PIN
};

class KeyRefusingExportCertificate : public KeyObjectVariant
{
    Q_OBJECT
public:
    using KeyObjectVariant::KeyObjectVariant;
    FORWARD_ENUM_CONTAINER
    FORWARD_OPEN_CONTAINER
    FORWARD_GET_CONTAINER_TYPE
    FORWARD_CLOSE_CONTAINER
    Q_INVOKABLE QByteArray exportCertificate(qulonglong h, bool &sign)
    {
        return script.exportCertificate(h, sign);
    }
    FORWARD_VERIFY_PIN
};

class KeyWithoutVerifyPin : public KeyObjectVariant
{
    Q_OBJECT
public:
    using KeyObjectVariant::KeyObjectVariant;
    FORWARD_ENUM_CONTAINER
    FORWARD_OPEN_CONTAINER
    FORWARD_GET_CONTAINER_TYPE
    FORWARD_CLOSE_CONTAINER
    FORWARD_EXPORT_CERTIFICATE
};

class KeyRefusingVerifyPin : public KeyObjectVariant
{
    Q_OBJECT
public:
    using KeyObjectVariant::KeyObjectVariant;
    FORWARD_ENUM_CONTAINER
    FORWARD_OPEN_CONTAINER
    FORWARD_GET_CONTAINER_TYPE
    FORWARD_CLOSE_CONTAINER
    FORWARD_EXPORT_CERTIFICATE
    Q_INVOKABLE bool verifyPin(QString &pin, bool admin) { return script.verifyPin(pin, admin); }
};

// One test's world: the log sandbox (made before any library object, so that every agent logs
// into it), a good KeyHost, the variants a case puts in its place, and the object under test.
struct Road
{
    LogSandbox logs;
    KeyHost host;
    std::vector<std::unique_ptr<QObject>> variants;
    std::unique_ptr<ZtCryptographic> crypto = std::make_unique<ZtCryptographic>();

    template<typename V, typename Regular>
    V *variantOf(Regular &regular)
    {
        variants.push_back(std::make_unique<V>(regular));
        return static_cast<V *>(variants.back().get());
    }

    // The object takes its signature manager from the core when it is made, and keeps it.
    void recreate() { crypto = std::make_unique<ZtCryptographic>(); }

    // Back to KeyHost as it was made: every component offered, one key with one SM2 container.
    void restore()
    {
        host.core.provideShared(kManagerProgId, &host.signatureManager);
        host.core.provideShared(kKeyProgId, &host.keyComponent);
        host.signatureManager.keyManager = &host.keyManager;
        host.keyComponent.keys = {&host.key};
        host.key.containers = {ScriptedKeyObject::sm2(QStringLiteral("enc"), KeyHost::kSm2Handle,
                                                      host.encryptionCertificate)};
        host.key.userPin = kPin;
    }

    void clearRecords()
    {
        host.clearRecords();
        QFile::remove(logs.coreLogPath());
    }

    QStringList hostCalls() const { return host.hostCalls(); }

    QStringList trace() const
    {
        return host.core.traceLines(
            {"WebOpenKey", "WebVerifyPin", "WebGetCertData", "GetContainer"});
    }
};

enum class Call { OpenKey, VerifyPin, GetCertData };

QString answerOf(Road &road, Call call)
{
    const auto text = [](bool ok) { return ok ? QStringLiteral("true") : QStringLiteral("false"); };
    switch (call) {
    case Call::OpenKey:
        return text(road.crypto->WebOpenKey());
    case Call::VerifyPin:
        return text(road.crypto->WebVerifyPin(kPin));
    case Call::GetCertData:
        return road.crypto->WebGetCertData(QStringLiteral("0"));
    }
    return QString();
}

// For WebOpenKey cases: what became of the key opened before the refused call.
enum class EarlierKey {
    NotChecked, // not a WebOpenKey case
    Kept,       // the call failed before "open"
    Forgotten,  // the call failed at "open"
    NeverHad,   // the object was made anew for the case, so it never opened one
};

// Where the road works again once the host is good: the same object, or only a new one for
// cases whose object was made with a bad signature manager, which it keeps.
enum class Recovery { SameObject, NewObject };

struct Refusal
{
    Refusal(const char *name, const char *reason, Call call, std::function<void(Road &)> arrange,
            QString answer, QString message, QStringList trace, QStringList hostCalls,
            QStringList coreLog, EarlierKey earlierKey = EarlierKey::NotChecked,
            Recovery recovery = Recovery::SameObject, QString printed = QString())
        : name(name), reason(reason), call(call), arrange(std::move(arrange)),
          answer(std::move(answer)), message(std::move(message)), trace(std::move(trace)),
          hostCalls(std::move(hostCalls)), coreLog(std::move(coreLog)), earlierKey(earlierKey),
          recovery(recovery), printed(std::move(printed))
    {
    }

    const char *name;
    const char *reason;
    Call call;
    std::function<void(Road &)> arrange;
    QString answer;
    QString message; // WebGetLastErrorMsg right after the call
    QStringList trace;
    QStringList hostCalls;
    // The core log from the dispatch of the refused method on; empty where nothing is refused.
    QStringList coreLog;
    EarlierKey earlierKey;
    Recovery recovery;
    QString printed; // standard output while the case is arranged and run
};

// Names the case in test listings by its reason.
void PrintTo(const Refusal &row, std::ostream *out)
{
    *out << row.reason;
}

// Arrangements.

void managerWithdrawn(Road &road)
{
    road.host.core.withdraw(kManagerProgId);
    road.recreate();
}

template<typename V>
void managerReplacedBy(Road &road)
{
    road.host.core.provideShared(kManagerProgId, road.variantOf<V>(road.host.signatureManager));
    road.recreate();
}

template<typename V>
void keyComponentReplacedBy(Road &road)
{
    road.host.core.provideShared(kKeyProgId, road.variantOf<V>(road.host.keyComponent));
}

template<typename V>
void keyReplacedBy(Road &road)
{
    road.host.keyComponent.keys = {road.variantOf<V>(road.host.key)};
}

void noKeyObject(Road &road)
{
    road.host.keyComponent.keys = {nullptr};
}

// Core-log excerpts, from the "methodName=" line of the refused dispatch on.

// No target: the name is logged and nothing else, so the next line is already the dispatch of
// the failure trace.
QStringList unbound(const QString &method)
{
    return {QStringLiteral("methodName=") + method, QStringLiteral("methodName=logDebug")};
}

QStringList missing(const QString &method)
{
    return {QStringLiteral("methodName=") + method,
            QStringLiteral("QTCORE____ERROR: findMethodIndex fail!!!cnt")};
}

// `types` runs up to and including the refused one; parameters after it are not looked at.
QStringList refused(const QString &method, int declaredCount, const QStringList &types)
{
    QStringList lines = {QStringLiteral("methodName=") + method,
                         QStringLiteral("methodName=%1::paramCount=").arg(method)
                             + QChar(declaredCount)};
    for (const QString &type : types)
        lines << QStringLiteral("paramTypeName=") + type;
    return lines << QStringLiteral("参数错误");
}

QStringList refusalLines(const QStringList &log)
{
    QStringList lines;
    for (const QString &line : log) {
        if (line == QStringLiteral("参数错误")
            || line == QStringLiteral("QTCORE____ERROR: findMethodIndex fail!!!cnt"))
            lines << line;
    }
    return lines;
}

QStringList excerptFrom(const QStringList &log, const QString &first, int count)
{
    const int at = log.indexOf(first);
    return at < 0 ? QStringList() : log.mid(at, count);
}

// Traces.

const QStringList kOpenKeyFails = {"D [WebOpenKey:#] start ",
                                   "D [WebOpenKey:#] end, open key fail "};
const QStringList kVerifyPinStarts = {"D [WebVerifyPin:#] start "};

QStringList noSm2Container(const QString &searchLine = QString())
{
    QStringList lines = {"D [WebGetCertData:#] start ", "D [GetContainer:#]start"};
    if (!searchLine.isEmpty())
        lines << searchLine;
    return lines << "D [WebGetCertData:#] get sm2 container fail ";
}

const QStringList kExportFails = {"D [WebGetCertData:#] start ", "D [GetContainer:#]start",
                                  "D [GetContainer:#] end ",
                                  "E [WebGetCertData:#] export container certData fail "};
const QStringList kCertificateRead = {"D [WebGetCertData:#] start ", "D [GetContainer:#]start",
                                      "D [GetContainer:#] end ", "D [WebGetCertData:#] end "};

// A type-1 container listed before the SM2 one, so that the search has one to close.
void rsaContainerFirst(Road &road)
{
    ScriptedKeyObject::Container rsa;
    rsa.name = QStringLiteral("rsa");
    rsa.handle = 0x100;
    rsa.type = 1;
    road.host.key.containers.prepend(rsa);
}

std::vector<Refusal> refusals()
{
    const QStringList openKeyCalls = {"getZtKey()", "count()", "open(0)"};
    const QStringList upToOpenContainer = {"enumContainer()", "openContainer(enc)"};
    const QStringList upToExport = {"enumContainer()", "openContainer(enc)",
                                    "getContainerType(257)"};

    return {
        // WebOpenKey: "getZtKey"
        {"getZtKeyNullTarget", "the core had no signature manager when the object was made",
         Call::OpenKey, managerWithdrawn, "false", kNoKeyDevice, kOpenKeyFails, {},
         unbound("getZtKey"), EarlierKey::NeverHad, Recovery::NewObject,
         "createComponentObject = A3C5E761-0B2F-4D88-B613-2F97C4D1E05B  fail"},
        {"getZtKeyMethodMissing", "the signature manager has no getZtKey",
         Call::OpenKey, managerReplacedBy<ManagerWithoutGetZtKey>, "false", kNoKeyDevice,
         kOpenKeyFails, {}, missing("getZtKey"), EarlierKey::NeverHad, Recovery::NewObject},
        {"getZtKeyRefusedParameter", "getZtKey declares a QString& parameter",
         Call::OpenKey, managerReplacedBy<ManagerRefusingGetZtKey>, "false", kNoKeyDevice,
         kOpenKeyFails, {}, refused("getZtKey", 1, {"QString&"}), EarlierKey::NeverHad,
         Recovery::NewObject},
        {"getZtKeyAnswersNull", "getZtKey answers no key manager",
         Call::OpenKey, [](Road &r) { r.host.signatureManager.keyManager = nullptr; }, "false",
         kNoKeyDevice, kOpenKeyFails, {"getZtKey()"}, {}, EarlierKey::Kept},

        // WebOpenKey: "count"
        {"countNullTarget", "the core has no key component",
         Call::OpenKey, [](Road &r) { r.host.core.withdraw(kKeyProgId); }, "false",
         kNoKeyDevice, kOpenKeyFails, {"getZtKey()"}, unbound("count"), EarlierKey::Kept,
         Recovery::SameObject,
         "createComponentObject = 5F02B9D8-61E4-4A37-9C25-D0B3E8A41F76  fail"},
        {"countMethodMissing", "the key component has no count",
         Call::OpenKey, keyComponentReplacedBy<KeyComponentWithoutCount>, "false", kNoKeyDevice,
         kOpenKeyFails, {"getZtKey()"}, missing("count"), EarlierKey::Kept},
        {"countRefusedParameter", "count declares a host struct parameter by value",
         Call::OpenKey, keyComponentReplacedBy<KeyComponentRefusingCount>, "false", kNoKeyDevice,
         kOpenKeyFails, {"getZtKey()"}, refused("count", 1, {"KeyFilter"}), EarlierKey::Kept},
        {"countAnswersZero", "no key is attached",
         Call::OpenKey, [](Road &r) { r.host.detachKeys(); }, "false", kNoKeyDevice,
         kOpenKeyFails, {"getZtKey()", "count()"}, {}, EarlierKey::Kept},

        // WebOpenKey: "open"
        {"openAnswersNull", "open yields no key object",
         Call::OpenKey, noKeyObject, "false", kNoKeyDevice, kOpenKeyFails, openKeyCalls, {},
         EarlierKey::Forgotten},
        {"openMethodMissing", "the key component has no open",
         Call::OpenKey, keyComponentReplacedBy<KeyComponentWithoutOpen>, "false", kNoKeyDevice,
         kOpenKeyFails, {"getZtKey()", "count()"}, missing("open"), EarlierKey::Forgotten},
        {"openRefusedParameter", "open declares an int& parameter",
         Call::OpenKey, keyComponentReplacedBy<KeyComponentRefusingOpen>, "false", kNoKeyDevice,
         kOpenKeyFails, {"getZtKey()", "count()"}, refused("open", 1, {"int&"}),
         EarlierKey::Forgotten},

        // WebVerifyPin: "verifyPin"
        {"verifyPinWithoutKeyObject", "open yielded no key object, so there is none to ask",
         Call::VerifyPin, noKeyObject, "false", kNoKeyDevice, kVerifyPinStarts, {}, {}},
        {"verifyPinMethodMissing", "the key object has no verifyPin",
         Call::VerifyPin, keyReplacedBy<KeyWithoutVerifyPin>, "false", kWrongPin,
         kVerifyPinStarts, {}, missing("verifyPin")},
        {"verifyPinRefusedParameter", "verifyPin declares a QString& parameter",
         Call::VerifyPin, keyReplacedBy<KeyRefusingVerifyPin>, "false", kWrongPin,
         kVerifyPinStarts, {}, refused("verifyPin", 2, {"QString&"})},
        {"verifyPinAnswersFalse", "the key rejects the PIN",
         Call::VerifyPin, [](Road &r) { r.host.key.userPin = QStringLiteral("654321"); },
         "false", kWrongPin, kVerifyPinStarts, {"verifyPin(123456,false)"}, {}},

        // WebGetCertData: the container search and "exportCertificate"
        {"certDataWithoutKeyObject", "open yielded no key object: no container call is made",
         Call::GetCertData, noKeyObject, "false", kContainerMissing,
         noSm2Container("D [GetContainer:#] userKey is NULL "), {}, {}},
        {"enumContainerMethodMissing", "the key object has no enumContainer",
         Call::GetCertData, keyReplacedBy<KeyWithoutEnumContainer>, "false", kContainerMissing,
         noSm2Container("D [GetContainer:#] get container count = 0 "), {},
         missing("enumContainer")},
        {"enumContainerRefusedParameter", "enumContainer declares a QStringList& parameter",
         Call::GetCertData, keyReplacedBy<KeyRefusingEnumContainer>, "false", kContainerMissing,
         noSm2Container("D [GetContainer:#] get container count = 0 "), {},
         refused("enumContainer", 1, {"QStringList&"})},
        {"enumContainerAnswersEmpty", "the key lists no container",
         Call::GetCertData, [](Road &r) { r.host.key.containers.clear(); }, "false",
         kContainerMissing, noSm2Container("D [GetContainer:#] get container count = 0 "),
         {"enumContainer()"}, {}},
        {"openContainerMethodMissing", "the key object has no openContainer",
         Call::GetCertData, keyReplacedBy<KeyWithoutOpenContainer>, "false", kContainerMissing,
         noSm2Container("D [GetContainer:#] userKey openContainer fail "), {"enumContainer()"},
         missing("openContainer")},
        {"openContainerRefusedParameter", "openContainer declares a QString& parameter",
         Call::GetCertData, keyReplacedBy<KeyRefusingOpenContainer>, "false", kContainerMissing,
         noSm2Container("D [GetContainer:#] userKey openContainer fail "), {"enumContainer()"},
         refused("openContainer", 1, {"QString&"})},
        {"openContainerAnswersZero", "the container does not open",
         Call::GetCertData, [](Road &r) { r.host.key.containers[0].handle = 0; }, "false",
         kContainerMissing, noSm2Container("D [GetContainer:#] userKey openContainer fail "),
         upToOpenContainer, {}},
        {"getContainerTypeMethodMissing", "the key object has no getContainerType: type 0",
         Call::GetCertData, keyReplacedBy<KeyWithoutGetContainerType>, "false",
         kContainerMissing, noSm2Container(),
         upToOpenContainer + QStringList{"closeContainer(257)"}, missing("getContainerType")},
        {"getContainerTypeRefusedParameter", "getContainerType takes a host struct by value",
         Call::GetCertData, keyReplacedBy<KeyRefusingGetContainerType>, "false",
         kContainerMissing, noSm2Container(),
         upToOpenContainer + QStringList{"closeContainer(257)"},
         refused("getContainerType", 1, {"ContainerRef"})},
        {"getContainerTypeAnswersOther", "the only container is of type 1",
         Call::GetCertData, [](Road &r) { r.host.key.containers[0].type = 1; }, "false",
         kContainerMissing, noSm2Container(),
         upToExport + QStringList{"closeContainer(257)"}, {}},
        {"closeContainerMethodMissing", "no closeContainer: the SM2 container after it is found",
         Call::GetCertData,
         [](Road &r) { rsaContainerFirst(r); keyReplacedBy<KeyWithoutCloseContainer>(r); },
         kCertificateBase64, kEarlierCodeKept, kCertificateRead,
         {"enumContainer()", "openContainer(rsa)", "getContainerType(256)", "openContainer(enc)",
          "getContainerType(257)", "exportCertificate(257,false)"},
         missing("closeContainer")},
        {"closeContainerRefusedParameter", "closeContainer declares a qulonglong& parameter",
         Call::GetCertData,
         [](Road &r) { rsaContainerFirst(r); keyReplacedBy<KeyRefusingCloseContainer>(r); },
         kCertificateBase64, kEarlierCodeKept, kCertificateRead,
         {"enumContainer()", "openContainer(rsa)", "getContainerType(256)", "openContainer(enc)",
          "getContainerType(257)", "exportCertificate(257,false)"},
         refused("closeContainer", 1, {"qulonglong&"})},
        {"exportCertificateMethodMissing", "the key object has no exportCertificate",
         Call::GetCertData, keyReplacedBy<KeyWithoutExportCertificate>, "false",
         kCertificateUnread, kExportFails, upToExport, missing("exportCertificate")},
        {"exportCertificateRefusedParameter", "exportCertificate declares a bool& second parameter",
         Call::GetCertData, keyReplacedBy<KeyRefusingExportCertificate>, "false",
         kCertificateUnread, kExportFails, upToExport,
         refused("exportCertificate", 2, {"qulonglong", "bool&"})},
        {"exportCertificateAnswersEmpty", "the SM2 container holds no encryption certificate",
         Call::GetCertData,
         [](Road &r) { r.host.key.containers[0].encryptionCertificate.clear(); }, "false",
         kCertificateUnread, kExportFails, upToExport + QStringList{"exportCertificate(257,false)"},
         {}},
    };
}

class HostRefusals : public testing::TestWithParam<Refusal>
{
};

TEST_P(HostRefusals, answerAsDocumentedAndRecover)
{
    const Refusal &row = GetParam();
    SCOPED_TRACE(row.reason);
    Road road;
    if (row.call == Call::OpenKey) {
        ASSERT_TRUE(road.crypto->WebOpenKey()); // the key the refused call keeps or forgets
    }

    QString answer;
    QString printed;
    {
        // Nothing is asserted while standard output is captured.
        StdoutCapture out;
        row.arrange(road);
        if (row.call != Call::OpenKey)
            road.crypto->WebOpenKey(); // brings the key object of the case into the session
        road.clearRecords();
        SetCryptoErrorCode(kEarlierCode);
        answer = answerOf(road, row.call);
        printed = QString::fromUtf8(out.text());
    }

    EXPECT_EQ(answer, row.answer);
    EXPECT_EQ(road.crypto->WebGetLastErrorMsg(), row.message);
    EXPECT_EQ(road.trace(), row.trace);
    EXPECT_EQ(road.hostCalls(), row.hostCalls);
    EXPECT_EQ(printed, row.printed);

    const QStringList coreLog = road.logs.coreLogMessages();
    EXPECT_EQ(refusalLines(coreLog), refusalLines(row.coreLog));
    if (!row.coreLog.isEmpty()) {
        EXPECT_EQ(excerptFrom(coreLog, row.coreLog.first(), row.coreLog.size()), row.coreLog);
    }

    if (row.earlierKey != EarlierKey::NotChecked) {
        road.clearRecords();
        const bool kept = row.earlierKey == EarlierKey::Kept;
        EXPECT_EQ(road.crypto->WebVerifyPin(kPin), kept);
        EXPECT_EQ(road.hostCalls(), kept ? QStringList{"verifyPin(123456,false)"} : QStringList());
    }

    road.restore();
    if (row.recovery == Recovery::NewObject) {
        EXPECT_FALSE(road.crypto->WebOpenKey());
        road.recreate();
    }
    EXPECT_TRUE(road.crypto->WebOpenKey());
    EXPECT_TRUE(road.crypto->WebVerifyPin(kPin));
    EXPECT_EQ(road.crypto->WebGetCertData(QStringLiteral("0")), kCertificateBase64);
}

INSTANTIATE_TEST_SUITE_P(HostRefusals, HostRefusals, testing::ValuesIn(refusals()),
                         [](const testing::TestParamInfo<Refusal> &info) {
                             return std::string(info.param.name);
                         });

} // namespace

#include "test_host_refusals.moc"
