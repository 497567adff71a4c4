// What the key component records of its driver's answers for a host to explain failures with:
// the load error, the devices listed, and each failure with its device, function, code and the
// tries left, with no PIN anywhere.

#include "test_key_component_fixture.h"

#include "key/driver_answers.h"

using namespace zthost;

namespace {
std::unique_ptr<KeyComponent> componentWith(const QString &driver, HostLog &log,
                                            const std::shared_ptr<DriverAnswers> &answers)
{
    return std::make_unique<KeyComponent>(driver, DriverProfile::Auto, log, answers);
}
} // namespace

TEST_F(KeyComponentTest, answersRecordAWrongPinWithTheTriesLeft)
{
    provision(QStringLiteral("alpha"), 6);
    auto answers = std::make_shared<DriverAnswers>();
    auto keys = componentWith(QStringLiteral(ZT_SOFTSKF_DRIVER_PATH), log, answers);
    auto *key = qobject_cast<KeyObject *>(keys->open(0));
    ASSERT_NE(key, nullptr);
    EXPECT_EQ(answers->devicesListed(), 1);
    EXPECT_TRUE(answers->failures().isEmpty());

    EXPECT_FALSE(key->verifyPin(QLatin1String(kWrongPin), false));
    ASSERT_EQ(answers->failures().size(), 1);
    const DriverFailure &failure = answers->failures().first();
    EXPECT_EQ(failure.device, QStringLiteral("alpha"));
    EXPECT_EQ(failure.function, QStringLiteral("SKF_VerifyPIN"));
    EXPECT_EQ(failure.code, std::uint32_t(SAR_PIN_INCORRECT));
    EXPECT_EQ(failure.triesLeft, 5);
    EXPECT_FALSE(failure.adminPin);

    answers->clear();
    EXPECT_TRUE(answers->failures().isEmpty());
    EXPECT_EQ(answers->devicesListed(), -1);
}

TEST_F(KeyComponentTest, answersRecordALockedPinAndKeepOnlyTheFirstFailures)
{
    provision(QStringLiteral("alpha"), 1);
    auto answers = std::make_shared<DriverAnswers>();
    auto keys = componentWith(QStringLiteral(ZT_SOFTSKF_DRIVER_PATH), log, answers);
    auto *key = qobject_cast<KeyObject *>(keys->open(0));
    ASSERT_NE(key, nullptr);
    for (int i = 0; i < DriverAnswers::kFailuresKept + 4; ++i)
        key->verifyPin(QLatin1String(kWrongPin), false);
    ASSERT_EQ(answers->failures().size(), DriverAnswers::kFailuresKept);
    EXPECT_EQ(answers->failures().at(0).code, std::uint32_t(SAR_PIN_INCORRECT));
    EXPECT_EQ(answers->failures().at(0).triesLeft, 0);
    EXPECT_EQ(answers->failures().at(1).code, std::uint32_t(SAR_PIN_LOCKED));
    EXPECT_EQ(answers->failures().at(1).triesLeft, -1);
}

TEST_F(KeyComponentTest, answersKeepTheDriversLoadErrorThroughAClear)
{
    const QString missing = rootPath() + QStringLiteral("/libnone.so");
    auto answers = std::make_shared<DriverAnswers>();
    auto keys = componentWith(missing, log, answers);
    EXPECT_EQ(keys->count(), 0);
    answers->clear();
    EXPECT_EQ(answers->driverPath(), missing);
    EXPECT_TRUE(answers->loadError().startsWith(
        QStringLiteral("cannot load smart-key driver %1: ").arg(missing)))
        << answers->loadError().toStdString();
}
