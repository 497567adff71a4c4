// The process-wide error code and its messages: every table row from tests/data, the
// "errorcode : [N]" text of any other code, and how long a returned text stays valid.

#include "crypto_error.h"
#include "test_data.h"

#include <QByteArray>
#include <QFile>
#include <QList>
#include <QString>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

struct TableRow
{
    int line;
    unsigned long code;
    QByteArray message;
};

// tests/data/error_messages.tsv: one row per table code, "<hex code>\t<UTF-8 message>".
QList<TableRow> tableRows()
{
    QList<TableRow> rows;
    QFile file(testDataFile("error_messages.tsv"));
    if (!file.open(QIODevice::ReadOnly))
        return rows;
    int line = 0;
    for (const QByteArray &text : file.readAll().split('\n')) {
        ++line;
        if (text.isEmpty())
            continue;
        const QList<QByteArray> fields = text.split('\t');
        bool ok = false;
        const unsigned long code = fields.value(0).toULong(&ok, 0);
        // A malformed row is kept with an empty message, so that it fails visibly.
        rows.append({line, ok ? code : 0, fields.size() == 2 ? fields.at(1) : QByteArray()});
    }
    return rows;
}

QByteArray currentMessage()
{
    return QByteArray(ZtCryptoGetErrMessage());
}

QByteArray fallbackFor(const char *number)
{
    return QByteArray("errorcode : [") + number + "]";
}

// Runs this program again, alone, on one test; answers its exit status and output.
struct ChildRun
{
    int status = -1;
    std::string output;
};

ChildRun runThisTestInAFreshProcess(const char *environmentGuard)
{
    ChildRun run;
    char self[4096] = {};
    const ssize_t length = readlink("/proc/self/exe", self, sizeof self - 1);
    if (length <= 0)
        return run;
    const testing::TestInfo *test = testing::UnitTest::GetInstance()->current_test_info();
    const std::string command = std::string(environmentGuard) + "=1 '" + self
                                + "' --gtest_filter=" + test->test_suite_name() + "."
                                + test->name() + " 2>&1";
    FILE *pipe = popen(command.c_str(), "r");
    if (!pipe)
        return run;
    char buffer[4096];
    size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0)
        run.output.append(buffer, n);
    const int status = pclose(pipe);
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return run;
}

} // namespace

TEST(ErrorMessages, dataFileHoldsEveryTableRow)
{
    const QList<TableRow> rows = tableRows();
    ASSERT_EQ(rows.size(), 85) << "ZT_TEST_DATA=" << qgetenv("ZT_TEST_DATA").constData();
    for (const TableRow &row : rows) {
        SCOPED_TRACE(testing::Message() << "error_messages.tsv:" << row.line);
        EXPECT_NE(row.code, 0ul) << "malformed code";
        EXPECT_FALSE(row.message.isEmpty()) << "malformed message";
    }
}

TEST(ErrorMessages, everyTableCodeGivesItsMessage)
{
    const QList<TableRow> rows = tableRows();
    ASSERT_FALSE(rows.isEmpty());
    for (const TableRow &row : rows) {
        SCOPED_TRACE(testing::Message() << "error_messages.tsv:" << row.line << " code 0x"
                                        << std::hex << row.code);
        SetCryptoErrorCode(row.code);
        EXPECT_EQ(currentMessage(), row.message);
    }
}

TEST(ErrorMessages, tableCodesWithHighBitsSetFallBackToTheLowBits)
{
    const QList<TableRow> rows = tableRows();
    ASSERT_FALSE(rows.isEmpty());
    for (const TableRow &row : rows) {
        SCOPED_TRACE(testing::Message() << "error_messages.tsv:" << row.line << " code 0x"
                                        << std::hex << row.code);
        const QByteArray expected =
            "errorcode : [" + QByteArray::number(static_cast<int>(row.code)) + "]";
        SetCryptoErrorCode(row.code | (1ul << 32));
        EXPECT_EQ(currentMessage(), expected) << "bit 32";
        SetCryptoErrorCode(row.code | (1ul << 63));
        EXPECT_EQ(currentMessage(), expected) << "bit 63";
    }
}

TEST(ErrorMessages, freshProcessReadsCodeZero)
{
    const char kGuard[] = "ZT_ERROR_MESSAGES_FRESH_PROCESS";
    if (qEnvironmentVariableIsSet(kGuard)) {
        // The child: the only test of this process, so nothing has set the code.
        EXPECT_EQ(currentMessage(), QByteArray("errorcode : [0]"));
        return;
    }
    const ChildRun child = runThisTestInAFreshProcess(kGuard);
    EXPECT_EQ(child.status, 0) << child.output;
    EXPECT_NE(child.output.find("[  PASSED  ] 1 test."), std::string::npos) << child.output;
}

TEST(ErrorMessages, codeZeroReadsAsFallback)
{
    SetCryptoErrorCode(0xA000024);
    SetCryptoErrorCode(0);
    EXPECT_EQ(currentMessage(), fallbackFor("0"));
}

TEST(ErrorMessages, wrongPinCodeGivesItsMessage)
{
    SetCryptoErrorCode(0xA000024);
    EXPECT_EQ(currentMessage(), QByteArray("PIN错误"));
}

TEST(ErrorMessages, unlistedCodeGivesItsNumber)
{
    SetCryptoErrorCode(1001);
    EXPECT_EQ(currentMessage(), fallbackFor("1001"));
}

TEST(ErrorMessages, bitThirtyOneReadsAsNegative)
{
    SetCryptoErrorCode(0x80000000ul);
    EXPECT_EQ(currentMessage(), fallbackFor("-2147483648"));
}

TEST(ErrorMessages, allLowBitsSetReadsMinusOne)
{
    SetCryptoErrorCode(0xFFFFFFFFul);
    EXPECT_EQ(currentMessage(), fallbackFor("-1"));
}

TEST(ErrorMessages, bitsAboveThirtyOneNeverMatchATableRow)
{
    SetCryptoErrorCode(0x1000003E8ul);
    EXPECT_EQ(currentMessage(), fallbackFor("1000"));
    SetCryptoErrorCode(0xFFFFFFFF0A000024ul);
    EXPECT_EQ(currentMessage(), fallbackFor("167772196"));
    SetCryptoErrorCode(0xFFFFFFFFFFFFFFFFul);
    EXPECT_EQ(currentMessage(), fallbackFor("-1"));
}

TEST(ErrorMessages, prefixesOfTheLastDeviceCodesAreNotInterchangeable)
{
    SetCryptoErrorCode(0xA000033);
    EXPECT_EQ(currentMessage(), fallbackFor("167772211"));
    SetCryptoErrorCode(0xB000039);
    EXPECT_EQ(currentMessage(), fallbackFor("184549433"));
    SetCryptoErrorCode(0xC000033);
    EXPECT_EQ(currentMessage(), fallbackFor("201326643"));
}

TEST(ErrorMessages, readingDoesNotResetTheCode)
{
    SetCryptoErrorCode(0xA000024);
    EXPECT_EQ(currentMessage(), QByteArray("PIN错误"));
    EXPECT_EQ(currentMessage(), QByteArray("PIN错误"));

    SetCryptoErrorCode(1001);
    EXPECT_EQ(currentMessage(), fallbackFor("1001"));
    EXPECT_EQ(currentMessage(), fallbackFor("1001"));
}

TEST(ErrorMessages, lastWriterWins)
{
    SetCryptoErrorCode(0x2004);
    SetCryptoErrorCode(0x2003);
    EXPECT_EQ(currentMessage(), QByteArray("解密初始化失败"));
}

TEST(ErrorMessages, tableTextStaysValidAcrossLaterCalls)
{
    SetCryptoErrorCode(0xA000024);
    const char *message = ZtCryptoGetErrMessage();
    SetCryptoErrorCode(1001);
    ZtCryptoGetErrMessage();
    EXPECT_STREQ(message, "PIN错误");
}

TEST(ErrorMessages, fallbackTextStaysValidUntilTheNextCall)
{
    SetCryptoErrorCode(1001);
    const char *message = ZtCryptoGetErrMessage();
    SetCryptoErrorCode(424242); // setting the code alone does not touch the text
    const QByteArray reusesFreedMemory = QString::number(123456789).toUtf8().repeated(64);
    EXPECT_STREQ(message, "errorcode : [1001]");
}

TEST(ErrorMessages, eachThreadKeepsItsOwnFallbackText)
{
    SetCryptoErrorCode(1001);
    const char *mine = ZtCryptoGetErrMessage();

    QByteArray theirs;
    std::thread other([&theirs] {
        SetCryptoErrorCode(2002);
        theirs = QByteArray(ZtCryptoGetErrMessage());
    });
    other.join();

    EXPECT_EQ(theirs, fallbackFor("2002"));
    EXPECT_STREQ(mine, "errorcode : [1001]") << "the other thread's call changed this one's text";
    EXPECT_EQ(currentMessage(), fallbackFor("2002")) << "the code itself is shared";
}
