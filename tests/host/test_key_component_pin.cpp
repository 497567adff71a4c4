// PIN verification and its log lines: tries left on a wrong PIN, a locked PIN, a removed device,
// and never the PIN itself.

#include "test_key_component_fixture.h"

using namespace zthost;

TEST_F(KeyComponentTest, rightUserPinVerifies)
{
    provision(QStringLiteral("alpha"));
    KeyObject *key = openFirst();
    ASSERT_NE(key, nullptr);
    EXPECT_TRUE(key->verifyPin(QLatin1String(kUserPin), false));
}

TEST_F(KeyComponentTest, adminFlagSelectsTheAdministratorPin)
{
    provision(QStringLiteral("alpha"));
    KeyObject *key = openFirst();
    ASSERT_NE(key, nullptr);
    EXPECT_TRUE(key->verifyPin(QLatin1String(kAdminPin), true));
    EXPECT_FALSE(key->verifyPin(QLatin1String(kUserPin), true));
    EXPECT_FALSE(key->verifyPin(QLatin1String(kAdminPin), false));
    EXPECT_TRUE(logText().contains(QStringLiteral("tries left for the administrator PIN")))
        << logText().toStdString();
}

TEST_F(KeyComponentTest, wrongPinLogsTriesLeftWithoutThePin)
{
    provision(QStringLiteral("alpha"), 6);
    KeyObject *key = openFirst();
    ASSERT_NE(key, nullptr);
    EXPECT_FALSE(key->verifyPin(QLatin1String(kWrongPin), false));
    EXPECT_FALSE(key->verifyPin(QLatin1String(kWrongPin), false));
    const QString text = logText();
    EXPECT_TRUE(text.contains(QStringLiteral(
        "[error] key device \"alpha\": SKF_VerifyPIN failed: 0x0A000024 SAR_PIN_INCORRECT "
        "(the PIN is wrong), 5 tries left for the user PIN\n")))
        << text.toStdString();
    EXPECT_TRUE(text.contains(QStringLiteral("4 tries left for the user PIN\n")));
    EXPECT_FALSE(text.contains(QLatin1String(kWrongPin)));
    EXPECT_FALSE(text.contains(QLatin1String(kUserPin)));
}

TEST_F(KeyComponentTest, lockedPinHasItsOwnLine)
{
    constexpr unsigned kRetries = 2;
    provision(QStringLiteral("alpha"), kRetries);
    KeyObject *key = openFirst();
    ASSERT_NE(key, nullptr);
    for (unsigned i = 0; i < kRetries; ++i)
        EXPECT_FALSE(key->verifyPin(QLatin1String(kWrongPin), false));
    EXPECT_FALSE(key->verifyPin(QLatin1String(kUserPin), false)); // right, but too late
    const QString text = logText();
    EXPECT_TRUE(text.contains(QStringLiteral(
        "[error] key device \"alpha\": SKF_VerifyPIN failed: 0x0A000025 SAR_PIN_LOCKED "
        "(the PIN is locked after too many wrong tries), the user PIN is locked\n")))
        << text.toStdString();
    EXPECT_FALSE(text.contains(QLatin1String(kUserPin)));
    EXPECT_FALSE(text.contains(QLatin1String(kWrongPin)));
}

TEST_F(KeyComponentTest, removedDeviceHasItsOwnLine)
{
    provision(QStringLiteral("alpha"));
    KeyObject *key = openFirst();
    ASSERT_NE(key, nullptr);
    unplug(QStringLiteral("alpha"));
    EXPECT_FALSE(key->verifyPin(QLatin1String(kUserPin), false));
    EXPECT_TRUE(key->enumContainer().isEmpty());
    const QString text = logText();
    EXPECT_TRUE(text.contains(QStringLiteral(
        "[error] key device \"alpha\": SKF_VerifyPIN failed: 0x0A000023 SAR_DEVICE_REMOVED "
        "(the device was removed), the device is no longer there\n")))
        << text.toStdString();
    EXPECT_FALSE(text.contains(QLatin1String(kUserPin)));
    key->close(); // still lets go of the driver's connection, without a crash
    EXPECT_TRUE(key->isClosed());
}
