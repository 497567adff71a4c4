// The figure behind the largest envelope the command line hands the plug-in: Qt 5's own limit
// on the plug-in's first copy of the text (QString::toUtf8 reserves three bytes a character).

#include "envelope_limits.h"

#include <QByteArray>
#include <QString>

#include <gtest/gtest.h>

#include <new>

using zthost::cli::maxEnvelopeBase64Characters;
using zthost::cli::maxEnvelopeDerBytes;

TEST(EnvelopeLimit, utf8OfOneCharacterOverTheLimitCannotBeMade)
{
    // Never touched: the allocation is refused before any byte is written.
    const QString text(int(maxEnvelopeBase64Characters() + 1), Qt::Uninitialized);
    EXPECT_THROW(text.toUtf8(), std::bad_alloc);
}

TEST(EnvelopeLimit, utf8ReservationForTheLimitItselfIsGranted)
{
    // What toUtf8 asks for at the limit; address space only, never touched.
    EXPECT_NO_THROW(QByteArray(int(3 * maxEnvelopeBase64Characters()), Qt::Uninitialized));
    EXPECT_THROW(QByteArray(int(3 * (maxEnvelopeBase64Characters() + 1)), Qt::Uninitialized),
                 std::bad_alloc);
}

TEST(EnvelopeLimit, largestDerIsTheBase64ThatFits)
{
    EXPECT_EQ(maxEnvelopeDerBytes(), 536870904);
    EXPECT_LE((maxEnvelopeDerBytes() + 2) / 3 * 4, maxEnvelopeBase64Characters());
    EXPECT_GT((maxEnvelopeDerBytes() + 3 + 2) / 3 * 4, maxEnvelopeBase64Characters());
}
