// The key component and its key objects against the software key device: listing, opening,
// containers, certificates, closing, and refusal of handles the key object never issued.

#include "test_key_component_fixture.h"

#include "core/host_log.h"
#include "session/default_paths.h"
#include "key/key_component.h"
#include "key/key_object.h"
#include "key/skf_driver.h"
#include "key/skf_errors.h"

#include <QTemporaryDir>

using namespace zthost;

TEST_F(KeyComponentTest, countIsZeroWithNoDevice)
{
    EXPECT_EQ(component().count(), 0);
    EXPECT_EQ(component().open(0), nullptr);
}

TEST_F(KeyComponentTest, countListsEveryDeviceInNameOrder)
{
    provision(QStringLiteral("bravo"));
    provision(QStringLiteral("alpha"));
    EXPECT_EQ(component().count(), 2);
    EXPECT_EQ(component().deviceNames(), QStringList({"alpha", "bravo"}));
    KeyObject *first = openFirst();
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first->deviceName(), QStringLiteral("alpha"));
}

TEST_F(KeyComponentTest, aChosenDeviceIsTheOnlyOneShownAndOpened)
{
    provision(QStringLiteral("alpha"));
    provision(QStringLiteral("bravo"));
    component().setDeviceChoice(QStringLiteral("bravo"));
    EXPECT_EQ(component().count(), 1);
    EXPECT_EQ(component().deviceNames(), QStringList({"bravo"}));
    EXPECT_EQ(component().driverDeviceNames(), QStringList({"alpha", "bravo"}));
    KeyObject *opened = openFirst();
    ASSERT_NE(opened, nullptr);
    EXPECT_EQ(opened->deviceName(), QStringLiteral("bravo"));
    EXPECT_EQ(component().lastOpenedDevice(), QStringLiteral("bravo"));
}

TEST_F(KeyComponentTest, aChosenDeviceTheDriverDoesNotListLeavesNoneAndIsLogged)
{
    provision(QStringLiteral("alpha"));
    component().setDeviceChoice(QStringLiteral("zulu"));
    EXPECT_EQ(component().count(), 0);
    EXPECT_EQ(component().open(0), nullptr);
    EXPECT_EQ(component().lastOpenedDevice(), QString());
    EXPECT_TRUE(logText().contains(
        QStringLiteral("no key device \"zulu\" among the 1 the driver lists")));
}

TEST_F(KeyComponentTest, openOutsideTheListAnswersNull)
{
    provision(QStringLiteral("alpha"));
    EXPECT_EQ(component().open(1), nullptr);
    EXPECT_EQ(component().open(-1), nullptr);
    EXPECT_TRUE(logText().contains(QStringLiteral("no key device at index 1 (1 listed)")));
}

TEST_F(KeyComponentTest, keyObjectsBelongToTheComponentAndAreNewEachTime)
{
    provision(QStringLiteral("alpha"));
    KeyObject *first = openFirst();
    KeyObject *second = openFirst();
    ASSERT_TRUE(first && second);
    EXPECT_NE(first, second);
    EXPECT_EQ(first->parent(), &component());
}

TEST_F(KeyComponentTest, unloadableDriverListsNothingAndSaysWhy)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("libmissing.so"));
    KeyComponent keys(path, DriverProfile::Auto, log);
    EXPECT_EQ(keys.driver(), nullptr);
    EXPECT_EQ(keys.count(), 0);
    EXPECT_EQ(keys.open(0), nullptr);
    EXPECT_TRUE(
        logText().contains(QStringLiteral("[error] cannot load smart-key driver %1: ").arg(path)))
        << logText().toStdString();
}

TEST_F(KeyComponentTest, driverWithoutTheFunctionsIsNamedBySymbol)
{
    // The host library of this test is a shared object with none of the SKF_* functions.
    QString error;
    EXPECT_EQ(SkfDriver::load(QStringLiteral(ZT_NOT_A_DRIVER_PATH), DriverProfile::Auto, &error),
              nullptr);
    EXPECT_EQ(error, QStringLiteral("symbol SKF_EnumDev missing in smart-key driver %1")
                         .arg(QStringLiteral(ZT_NOT_A_DRIVER_PATH)));
}

TEST_F(KeyComponentTest, pinManagementFunctionsAreOptionalAndNamedWhenMissing)
{
    QString error;
    const std::unique_ptr<SkfDriver> soft =
        SkfDriver::load(QStringLiteral(ZT_SOFTSKF_DRIVER_PATH), DriverProfile::Auto, &error);
    ASSERT_NE(soft, nullptr) << error.toStdString();
    EXPECT_TRUE(soft->has(SkfFunction::ChangePIN));
    EXPECT_TRUE(soft->has(SkfFunction::UnblockPIN));
    EXPECT_TRUE(soft->require(SkfFunction::ChangePIN, &error));

    // The recording driver passes on only what the key component needs.
    const std::unique_ptr<SkfDriver> recording =
        SkfDriver::load(QStringLiteral(ZT_RECORDING_DRIVER_PATH), DriverProfile::Auto, &error);
    ASSERT_NE(recording, nullptr) << error.toStdString();
    EXPECT_FALSE(recording->has(SkfFunction::ChangePIN));
    EXPECT_FALSE(recording->has(SkfFunction::UnblockPIN));
    EXPECT_FALSE(recording->require(SkfFunction::UnblockPIN, &error));
    EXPECT_EQ(error, QStringLiteral("smart-key driver %1 has no SKF_UnblockPIN")
                         .arg(QStringLiteral(ZT_RECORDING_DRIVER_PATH)));
}

TEST_F(KeyComponentTest, containersAreListedAndOpened)
{
    provision(QStringLiteral("alpha"));
    KeyObject *key = openFirst();
    ASSERT_NE(key, nullptr);
    EXPECT_EQ(key->enumContainer(), QStringList({kContainer}));
    const qulonglong container = key->openContainer(QLatin1String(kContainer));
    ASSERT_NE(container, 0u);
    EXPECT_EQ(key->getContainerType(container), 2);
    key->closeContainer(container);
    EXPECT_EQ(key->getContainerType(container), 0); // closed: no longer passed to the driver
}

TEST_F(KeyComponentTest, unknownContainerNameFailsWithTheDriversCode)
{
    provision(QStringLiteral("alpha"));
    KeyObject *key = openFirst();
    ASSERT_NE(key, nullptr);
    EXPECT_EQ(key->openContainer(QStringLiteral("NoSuchContainer")), 0u);
    EXPECT_TRUE(
        logText().contains(QStringLiteral("key device \"alpha\": SKF_OpenContainer failed: 0x0A")))
        << logText().toStdString();
    EXPECT_TRUE(logText().contains(QStringLiteral("container \"NoSuchContainer\"")));
}

TEST_F(KeyComponentTest, certificatesAreExportedWhole)
{
    provision(QStringLiteral("alpha"));
    KeyObject *key = openFirst();
    ASSERT_NE(key, nullptr);
    const qulonglong container = key->openContainer(QLatin1String(kContainer));
    const QByteArray encryption = key->exportCertificate(container, false);
    const QByteArray signing = key->exportCertificate(container, true);
    EXPECT_EQ(encryption, storedCertificate(QStringLiteral("alpha")));
    EXPECT_EQ(signing, storedCertificate(QStringLiteral("alpha"), true));
    EXPECT_NE(encryption, signing);
}

TEST_F(KeyComponentTest, handlesTheKeyObjectNeverIssuedAreRefused)
{
    provision(QStringLiteral("alpha"));
    KeyObject *key = openFirst();
    ASSERT_NE(key, nullptr);
    const qulonglong madeUp = 0x3039;
    EXPECT_EQ(key->getContainerType(madeUp), 0);
    EXPECT_TRUE(key->exportCertificate(madeUp, false).isEmpty());
    EXPECT_EQ(key->importSessionKey(madeUp, 0x401, QByteArray(180, '\0'), 180), 0u);
    EXPECT_FALSE(key->decryptInit(madeUp, QByteArray(44, '\0')));
    EXPECT_TRUE(key->decrypt(madeUp, QByteArray(16, '\0'), 16).isEmpty());
    key->closeContainer(madeUp);
    const QString text = logText();
    EXPECT_TRUE(text.contains(
        QStringLiteral("getContainerType refused: container handle 0x3039 is not open")))
        << text.toStdString();
    EXPECT_TRUE(text.contains(
        QStringLiteral("decryptInit refused: session key handle 0x3039 is not open")));
}

TEST_F(KeyComponentTest, closeThenEveryCallFailsCleanly)
{
    provision(QStringLiteral("alpha"));
    KeyObject *key = openFirst();
    ASSERT_NE(key, nullptr);
    const qulonglong container = key->openContainer(QLatin1String(kContainer));
    ASSERT_NE(container, 0u);
    key->close();
    EXPECT_TRUE(key->isClosed());
    key->close(); // a second close is harmless

    EXPECT_TRUE(key->enumContainer().isEmpty());
    EXPECT_EQ(key->openContainer(QLatin1String(kContainer)), 0u);
    EXPECT_EQ(key->getContainerType(container), 0);
    EXPECT_TRUE(key->exportCertificate(container, false).isEmpty());
    EXPECT_FALSE(key->verifyPin(QLatin1String(kUserPin), false));
    EXPECT_TRUE(logText().contains(
        QStringLiteral("key device \"alpha\": verifyPin refused: the key object is closed")))
        << logText().toStdString();
    EXPECT_FALSE(logText().contains(QLatin1String(kUserPin)));

    // The device itself is free again: a new key object opens it.
    KeyObject *again = openFirst();
    ASSERT_NE(again, nullptr);
    EXPECT_TRUE(again->verifyPin(QLatin1String(kUserPin), false));
}

TEST(DefaultDriver, softwareDeviceOfThisBuildTreeComesFirst)
{
    const QStringList candidates = defaultSkfDriverCandidates();
    ASSERT_EQ(candidates.size(), 2);
    EXPECT_EQ(candidates.first(), QStringLiteral(ZT_SOFTSKF_DRIVER_PATH));
    EXPECT_TRUE(candidates.last().endsWith(QStringLiteral("/libztsoftskf.so")));
    EXPECT_EQ(defaultSkfDriverPath(), QStringLiteral(ZT_SOFTSKF_DRIVER_PATH));
}

TEST(SkfErrors, everyFailureNamesCodeNameAndMeaning)
{
    struct Row
    {
        std::uint32_t code;
        const char *expected;
    };
    const Row rows[] = {
        {0x0A000024, "SKF_VerifyPIN failed: 0x0A000024 SAR_PIN_INCORRECT (the PIN is wrong)"},
        {0x0A000025, "SKF_VerifyPIN failed: 0x0A000025 SAR_PIN_LOCKED (the PIN is locked after too "
                     "many wrong tries)"},
        {0x0A000023,
         "SKF_VerifyPIN failed: 0x0A000023 SAR_DEVICE_REMOVED (the device was removed)"},
        {0x0A00002D, "SKF_VerifyPIN failed: 0x0A00002D SAR_USER_NOT_LOGGED_IN (the user PIN has "
                     "not been verified)"},
        {0x0A000020,
         "SKF_VerifyPIN failed: 0x0A000020 SAR_BUFFER_TOO_SMALL (the output buffer is too small)"},
        {0x0B000001, "SKF_VerifyPIN failed: 0x0B000001 unknown result code (the driver answered a "
                     "code the standard does not define)"},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.expected);
        EXPECT_EQ(skfFailureText("SKF_VerifyPIN", row.code), QString::fromLatin1(row.expected));
    }
}

TEST(SkfErrors, tableCoversTheWholeStandardRange)
{
    for (std::uint32_t code = 0x0A000001; code <= 0x0A000032; ++code) {
        SCOPED_TRACE(code);
        const SkfErrorInfo info = describeSkfResult(code);
        EXPECT_TRUE(QByteArray(info.name).startsWith("SAR_"));
    }
    EXPECT_STREQ(describeSkfResult(SAR_OK).name, "SAR_OK");
}
