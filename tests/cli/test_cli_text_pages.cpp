// The pages of a text handed to WebZtDecode go back to the system once the plug-in has read it
// (text_pages.h): what is left of the text, and what is not touched.

#include "text_pages.h"

#include <gtest/gtest.h>

#include <unistd.h>

using zthost::cli::releaseTextPages;

namespace {

// Characters that are never NUL, so a released one shows.
QString patternedText(int size)
{
    QString text(size, Qt::Uninitialized);
    for (int i = 0; i < size; ++i)
        text[i] = QChar(u'A' + i % 26);
    return text;
}

} // namespace

TEST(TextPages, wholePagesInsideTheTextReadAsNulAndTheRestIsKept)
{
    const QString text = patternedText(1 << 20); // 2 MiB of UTF-16
    const QString shared = text;                  // another holder, as the plug-in's parameter
    const QString original = patternedText(1 << 20);
    releaseTextPages(text);

    const auto pageSize = quintptr(::sysconf(_SC_PAGESIZE));
    const auto start = reinterpret_cast<quintptr>(text.constData());
    const int firstReleased = int(((start + pageSize - 1) & ~(pageSize - 1)) - start) / 2;
    const int pastReleased = int(((start + quintptr(text.size()) * 2) & ~(pageSize - 1)) - start) / 2;
    ASSERT_LT(firstReleased, pastReleased);

    EXPECT_EQ(text.size(), 1 << 20);
    EXPECT_EQ(shared.constData(), text.constData()) << "the text was detached";
    EXPECT_EQ(text.left(firstReleased), original.left(firstReleased));
    EXPECT_EQ(text.mid(pastReleased), original.mid(pastReleased));
    EXPECT_EQ(text.mid(firstReleased, pastReleased - firstReleased),
              QString(pastReleased - firstReleased, QChar(0)));
}

TEST(TextPages, aTextWithinOnePageIsLeftAsItIs)
{
    const QString text = patternedText(100);
    const QString original(text.constData(), text.size()); // a copy of its own
    releaseTextPages(text);
    EXPECT_EQ(text, original);
    releaseTextPages(QString());
}
