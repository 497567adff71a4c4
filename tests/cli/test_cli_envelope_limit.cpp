// The figure behind the largest envelope the command line hands the plug-in: Qt 5's own limit
// on the plug-in's first copy of the text (QString::toUtf8 reserves three bytes a character).

#include "envelope_limits.h"
#include "qt_compat.h"

#include <QByteArray>
#include <QString>

#include <gtest/gtest.h>

#include <new>

// AddressSanitizer's allocator refuses a size it cannot serve by ending the process, where the
// C library answers null and Qt throws std::bad_alloc: what these tests assert is Qt's answer.
#if defined(__SANITIZE_ADDRESS__)
constexpr bool kAllocatorAnswersNull = false;
#else
constexpr bool kAllocatorAnswersNull = true;
#endif

using zthost::cli::maxEnvelopeBase64Characters;
using zthost::cli::maxEnvelopeDerBytes;

TEST(EnvelopeLimit, utf8OfOneCharacterOverTheLimitCannotBeMade)
{
    if (!kAllocatorAnswersNull)
        GTEST_SKIP() << "under AddressSanitizer an impossible allocation ends the process";
    if (!zt_test::kQtSizesAreInt)
        GTEST_SKIP() << "Qt 5 figures: Qt 6 counts in 64 bits (qt6LimitIsOpenSslsIntLengthOfDer)";
    // Never touched: the allocation is refused before any byte is written.
    const QString text(int(maxEnvelopeBase64Characters() + 1), Qt::Uninitialized);
    EXPECT_THROW(text.toUtf8(), std::bad_alloc);
}

TEST(EnvelopeLimit, utf8ReservationForTheLimitItselfIsGranted)
{
    if (!kAllocatorAnswersNull)
        GTEST_SKIP() << "under AddressSanitizer an impossible allocation ends the process";
    if (!zt_test::kQtSizesAreInt)
        GTEST_SKIP() << "Qt 5 figures: Qt 6 counts in 64 bits (qt6LimitIsOpenSslsIntLengthOfDer)";
    // What toUtf8 asks for at the limit; address space only, never touched.
    EXPECT_NO_THROW(QByteArray(int(3 * maxEnvelopeBase64Characters()), Qt::Uninitialized));
    EXPECT_THROW(QByteArray(int(3 * (maxEnvelopeBase64Characters() + 1)), Qt::Uninitialized),
                 std::bad_alloc);
}

TEST(EnvelopeLimit, largestDerIsTheBase64ThatFits)
{
    if (!zt_test::kQtSizesAreInt)
        GTEST_SKIP() << "Qt 5 figures: Qt 6 counts in 64 bits (qt6LimitIsOpenSslsIntLengthOfDer)";
    EXPECT_EQ(maxEnvelopeDerBytes(), 536870904);
    EXPECT_LE((maxEnvelopeDerBytes() + 2) / 3 * 4, maxEnvelopeBase64Characters());
    EXPECT_GT((maxEnvelopeDerBytes() + 3 + 2) / 3 * 4, maxEnvelopeBase64Characters());
}

TEST(EnvelopeLimit, qt6LimitIsOpenSslsIntLengthOfDer)
{
    if (zt_test::kQtSizesAreInt)
        GTEST_SKIP() << "Qt 6 figure: Qt 5's bound is toUtf8's reservation";
    EXPECT_EQ(maxEnvelopeDerBytes(), 2147483646);
    EXPECT_EQ(maxEnvelopeBase64Characters(), maxEnvelopeDerBytes() / 3 * 4);
}
