// The host's one PIN-wiping policy (core/pin_wipe.h): a buffer the host alone holds is zeroed in
// place; a buffer shared with someone else is left to them, and only our reference goes.

#include "core/pin_wipe.h"

#include <QByteArray>
#include <QString>

#include <gtest/gtest.h>

#include <string>

using zthost::wipePin;

TEST(PinWipe, aStringHeldAloneIsZeroedInPlace)
{
    QString pin = QStringLiteral("123456");
    pin.detach();
    const QChar *before = pin.constData();
    wipePin(pin);
    ASSERT_EQ(pin.constData(), before) << "the same buffer, not a copy";
    EXPECT_EQ(pin, QString(6, QChar(0)));
}

TEST(PinWipe, aSharedStringIsLeftToItsOtherHolder)
{
    const QString callers = QStringLiteral("654321");
    QString ours = callers;
    wipePin(ours);
    EXPECT_TRUE(ours.isEmpty());
    EXPECT_EQ(callers, QStringLiteral("654321"));
}

TEST(PinWipe, bytesHeldAloneAreZeroedInPlace)
{
    QByteArray encoded = QStringLiteral("24680").toUtf8();
    const char *before = encoded.constData();
    wipePin(encoded);
    ASSERT_EQ(encoded.constData(), before);
    EXPECT_EQ(encoded, QByteArray(5, '\0'));
}

TEST(PinWipe, sharedBytesAreLeftToTheirOtherHolder)
{
    const QByteArray callers = QByteArrayLiteral("13579");
    QByteArray ours = callers;
    wipePin(ours);
    EXPECT_TRUE(ours.isEmpty());
    EXPECT_EQ(callers, QByteArrayLiteral("13579"));
}

TEST(PinWipe, aStandardStringIsZeroedInPlace)
{
    std::string line = "typed-pin";
    wipePin(line);
    EXPECT_EQ(line, std::string(9, '\0'));
}
