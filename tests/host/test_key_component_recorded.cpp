// What the driver sees of the key component and its key objects, through a driver that passes
// every call on to the software device and records it: a failed open lets go of the device
// connection it made, and the copy of a PIN handed to the driver is wiped before anything is
// logged.

#include "recording_driver.h"
#include "standard_error_watch.h"
#include "test_key_component_fixture.h"

#include <QDir>

#include <algorithm>
#include <cstring>

using namespace zthost;

class RecordedKeyComponentTest : public KeyComponentTest
{
protected:
    void SetUp() override
    {
        KeyComponentTest::SetUp();
        useDriver(QStringLiteral(ZT_RECORDING_DRIVER_PATH));
        zt_forget_recorded_calls();
    }
    void TearDown() override
    {
        KeyComponentTest::TearDown();
        zt_forget_recorded_calls();
    }
};

TEST_F(RecordedKeyComponentTest, failedOpenOfADeviceWithoutItsApplicationDisconnectsIt)
{
    provision(QStringLiteral("alpha"));
    ASSERT_TRUE(QDir(rootPath() + QStringLiteral("/alpha/SOFTAPP")).removeRecursively());
    EXPECT_EQ(component().open(0), nullptr);
    const ZtRecordedCalls calls = zt_recorded_calls();
    EXPECT_EQ(calls.connects, 1u);
    EXPECT_EQ(calls.disconnects, 1u);
    EXPECT_TRUE(logText().endsWith(QStringLiteral(
        " [error] key device \"alpha\": holds no application\n")))
        << logText().toStdString();
}

TEST_F(RecordedKeyComponentTest, failedListingOfApplicationsDisconnectsTheDevice)
{
    provision(QStringLiteral("alpha"));
    component().count(); // loads the driver before the failure is armed
    zt_fail_next_call("SKF_EnumApplication", SAR_FILEERR);
    EXPECT_EQ(component().open(0), nullptr);
    const ZtRecordedCalls calls = zt_recorded_calls();
    EXPECT_EQ(calls.connects, 1u);
    EXPECT_EQ(calls.disconnects, 1u);
    EXPECT_TRUE(logText().endsWith(QStringLiteral(
        " [error] key device \"alpha\": SKF_EnumApplication failed: 0x0A000004 SAR_FILEERR "
        "(a file operation on the device failed)\n")))
        << logText().toStdString();
}

TEST_F(RecordedKeyComponentTest, failedOpenOfTheApplicationDisconnectsTheDevice)
{
    provision(QStringLiteral("alpha"));
    component().count();
    zt_fail_next_call("SKF_OpenApplication", SAR_APPLICATION_NOT_EXISTS);
    EXPECT_EQ(component().open(0), nullptr);
    const ZtRecordedCalls calls = zt_recorded_calls();
    EXPECT_EQ(calls.connects, 1u);
    EXPECT_EQ(calls.disconnects, 1u);
    EXPECT_TRUE(logText().endsWith(QStringLiteral(
        " [error] key device \"alpha\": SKF_OpenApplication failed: 0x0A00002E "
        "SAR_APPLICATION_NOT_EXISTS (the application does not exist), application \"SOFTAPP\"\n")))
        << logText().toStdString();
}

TEST_F(RecordedKeyComponentTest, openedKeyHoldsItsConnectionUntilClosed)
{
    provision(QStringLiteral("alpha"));
    KeyObject *key = openFirst();
    ASSERT_NE(key, nullptr);
    EXPECT_EQ(zt_recorded_calls().connects, 1u);
    EXPECT_EQ(zt_recorded_calls().disconnects, 0u);
    key->close();
    EXPECT_EQ(zt_recorded_calls().disconnects, 1u);
}

TEST_F(RecordedKeyComponentTest, pinCopyHandedToTheDriverIsWipedBeforeTheFailureIsLogged)
{
    provision(QStringLiteral("alpha"));
    log.useStandardError();
    KeyObject *key = openFirst();
    ASSERT_NE(key, nullptr);
    zt_forget_recorded_calls();

    // The key object logs the wrong PIN while its copy is still allocated: that is the moment
    // to look at the bytes the driver was given.
    bool looked = false;
    bool wiped = false;
    unsigned long length = 0;
    {
        StandardErrorWatch watch([&](const QByteArray &) {
            const ZtRecordedCalls calls = zt_recorded_calls();
            if (looked || !calls.pinAddress)
                return;
            looked = true;
            length = calls.pinLength;
            wiped = std::all_of(calls.pinAddress, calls.pinAddress + calls.pinLength,
                                [](char c) { return c == '\0'; });
        });
        EXPECT_FALSE(key->verifyPin(QLatin1String(kWrongPin), false));
        // The copy is freed now; nothing may look at it any more.
        zt_forget_recorded_calls();
        EXPECT_TRUE(watch.text().endsWith(QStringLiteral(
            " [error] key device \"alpha\": SKF_VerifyPIN failed: 0x0A000024 SAR_PIN_INCORRECT "
            "(the PIN is wrong), 5 tries left for the user PIN\n").toUtf8()))
            << watch.text().constData();
    }
    ASSERT_TRUE(looked) << "nothing was logged after the PIN check";
    EXPECT_EQ(length, std::strlen(kWrongPin));
    EXPECT_TRUE(wiped) << "the driver's copy of the PIN still held it when the failure was logged";
}
