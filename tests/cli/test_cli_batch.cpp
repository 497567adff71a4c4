// zthost decrypt with many envelopes: one PIN entry, a table of outcomes, no plaintext replaced
// without --force; and the size the plug-in cannot take, refused before any PIN try.

#include "cli_process.h"

#include "envelope_limits.h"
#include "qt_compat.h"
#include "openssl_envelope.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>

#include <sys/stat.h>
#include <unistd.h>

// QStrings compared as UTF-8, so that a failure shows the text.
#define EXPECT_TEXT(actual, expected) EXPECT_EQ((actual).toStdString(), (expected).toStdString())

namespace {
const QByteArray kAlpha = QByteArrayLiteral("bid from alpha\n");
const QByteArray kBravo = QByteArrayLiteral("bid from bravo, as DER\n");
const QString kEnvelopeUnreadable = QStringLiteral("数字信封解析失败");

// The table with each time (the one figure that differs between runs) as "T".
QString withoutTimes(const QString &table)
{
    QString text = table;
    text.replace(QRegularExpression(QStringLiteral(" +[0-9]+\\.[0-9]+ m?s\\n")),
                 QStringLiteral("  T\n"));
    text.replace(QRegularExpression(QStringLiteral(" +time\\n")), QStringLiteral("  time\n"));
    text.replace(QRegularExpression(QStringLiteral(" +-\\n")), QStringLiteral("  -\n"));
    return text;
}
} // namespace

class CliBatch : public CliTest
{
protected:
    void SetUp() override
    {
        CliTest::SetUp();
        provision(QStringLiteral("alpha"));
        const QByteArray certificate = storedCertificate(QStringLiteral("alpha"));
        ASSERT_TRUE(QDir(workFile(QString())).mkpath(QStringLiteral("in")));
        m_alpha = makeEnvelopeWithOpenSsl(certificate, kAlpha).toBase64() + '\n';
        m_bravo = makeEnvelopeWithOpenSsl(certificate, kBravo);
        writeWorkFile(QStringLiteral("in/a.b64"), m_alpha);
        writeWorkFile(QStringLiteral("in/b.der"), m_bravo);
        writeWorkFile(QStringLiteral("in/c.b64"), QByteArrayLiteral("not an envelope\n"));
    }

    QString triesLeft()
    {
        return run({"devices"}).outText().section(QLatin1Char('\n'), 1, 1);
    }

    // The table as printed for a, b and c with the given outcomes; sizes from the files.
    QString table(const QString &a, const QString &b, const QString &c, int opened) const
    {
        const QString sizeA = QStringLiteral("%1 B").arg(m_alpha.size());
        const QString sizeB = QStringLiteral("%1 B").arg(m_bravo.size());
        const int width = qMax(sizeA.size(), sizeB.size());
        // The outcome's padding goes with the time's (withoutTimes).
        auto line = [&](const QString &file, const QString &size, const QString &outcome,
                        const QString &time) {
            return QStringLiteral("%1  %2  %3  %4\n")
                .arg(file.leftJustified(8), size.rightJustified(width), outcome, time);
        };
        return line(QStringLiteral("file"), QStringLiteral("size"), QStringLiteral("outcome"),
                    QStringLiteral("time"))
               + line(QStringLiteral("in/a.b64"), sizeA, a, a == QLatin1String("output exists")
                                                                ? QStringLiteral("-")
                                                                : QStringLiteral("T"))
               + line(QStringLiteral("in/b.der"), sizeB, b, b == QLatin1String("output exists")
                                                                ? QStringLiteral("-")
                                                                : QStringLiteral("T"))
               + line(QStringLiteral("in/c.b64"), QStringLiteral("16 B"), c, QStringLiteral("T"))
               + QStringLiteral("%1 of 3 envelopes opened\n").arg(opened);
    }

    QByteArray m_alpha;
    QByteArray m_bravo;
};

TEST_F(CliBatch, folderOfEnvelopesOpensWithOnePinAndGoesOnAfterAFailure)
{
    const CliRun batch = run({"decrypt", "--pin", kUserPin, "--in-dir", "in", "--out-dir", "out"});
    EXPECT_EQ(batch.exitCode, 1);
    EXPECT_TEXT(withoutTimes(batch.outText()), table(QStringLiteral("opened"), QStringLiteral("opened"),
                                                   QStringLiteral("failed"), 2));
    EXPECT_TEXT(batch.errText(), QString::fromUtf8(usingDevice("alpha"))
                                     + QStringLiteral("zthost: in/c.b64: WebZtDecode answered "
                                                      "\"false\": ")
                                     + kEnvelopeUnreadable + QLatin1Char('\n'));
    EXPECT_EQ(readWorkFile(QStringLiteral("out/a")), kAlpha);
    EXPECT_EQ(readWorkFile(QStringLiteral("out/b")), kBravo);
    EXPECT_FALSE(QFileInfo::exists(workFile(QStringLiteral("out/c")))) << "no partial plaintext";
    EXPECT_EQ(QDir(workFile(QStringLiteral("out"))).entryList(QDir::Files | QDir::Hidden),
              QStringList({QStringLiteral("a"), QStringLiteral("b")}))
        << "no temporary file is left";
    struct stat status {};
    ASSERT_EQ(::stat(QFile::encodeName(workFile(QStringLiteral("out/a"))).constData(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600u) << "plaintexts are the owner's alone";
    EXPECT_TEXT(triesLeft(), QStringLiteral("alpha   SOFTAPP      6 of 6"));
}

TEST_F(CliBatch, envelopeForAnotherKeyGetsItsDiagnosisAndTheNextOneStillOpens)
{
    provision(QStringLiteral("beta"));
    const QByteArray beta = storedCertificate(QStringLiteral("beta"));
    ASSERT_TRUE(QDir(workFile(QString())).mkpath(QStringLiteral("mixed")));
    writeWorkFile(QStringLiteral("mixed/1.der"), makeEnvelopeWithOpenSsl(beta, kBravo));
    writeWorkFile(QStringLiteral("mixed/2.b64"), m_alpha);

    const CliRun batch = run({"decrypt", "--device", "alpha", "--pin", kUserPin, "--in-dir",
                              "mixed", "--out-dir", "out"});
    EXPECT_EQ(batch.exitCode, 1);
    // The host log's error lines, timestamped, come between: the library's own account.
    QString messages = batch.errText();
    messages.remove(QRegularExpression(QStringLiteral("^\\d{4}-\\d\\d-\\d\\dT[^\\n]* \\[error\\] [^\\n]*\\n"),
                                       QRegularExpression::MultilineOption));
    EXPECT_TEXT(messages,
                QString::fromUtf8(usingDevice("alpha"))
                    + QStringLiteral("zthost: mixed/1.der: WebZtDecode answered \"false\": "
                                     "密钥盘不匹配，解密失败\n"
                                     "zthost: diagnosis: the envelope was made for another "
                                     "certificate (issuer CN=beta, serial %1); key device "
                                     "\"alpha\" holds the certificate with issuer CN=alpha, "
                                     "serial %2\n")
                          .arg(serialOf(beta), serialOf(storedCertificate(QStringLiteral("alpha")))));
    EXPECT_FALSE(QFileInfo::exists(workFile(QStringLiteral("out/1"))));
    EXPECT_EQ(readWorkFile(QStringLiteral("out/2")), kAlpha) << "the diagnosis ends no session";
}

TEST_F(CliBatch, existingPlaintextIsKeptWithoutForceAndReplacedWithIt)
{
    ASSERT_TRUE(QDir(workFile(QString())).mkpath(QStringLiteral("out")));
    writeWorkFile(QStringLiteral("out/a"), QByteArrayLiteral("keep me"));

    const CliRun kept = run({"decrypt", "--pin", kUserPin, "--in-dir", "in", "--out-dir", "out"});
    EXPECT_EQ(kept.exitCode, 1);
    EXPECT_TEXT(withoutTimes(kept.outText()), table(QStringLiteral("output exists"),
                                                  QStringLiteral("opened"),
                                                  QStringLiteral("failed"), 1));
    EXPECT_TEXT(kept.errText().section(QLatin1Char('\n'), 0, 0),
              QStringLiteral("zthost: out/a exists (--force replaces it)"));
    EXPECT_EQ(readWorkFile(QStringLiteral("out/a")), QByteArray("keep me"));

    const CliRun forced =
        run({"decrypt", "--pin", kUserPin, "--in-dir", "in", "--out-dir", "out", "--force"});
    EXPECT_EQ(forced.exitCode, 1) << "c still fails";
    EXPECT_TEXT(withoutTimes(forced.outText()), table(QStringLiteral("opened"),
                                                    QStringLiteral("opened"),
                                                    QStringLiteral("failed"), 2));
    EXPECT_EQ(readWorkFile(QStringLiteral("out/a")), kAlpha);
}

TEST_F(CliBatch, severalInOptionsThatAllOpenExitZero)
{
    const CliRun batch = run({"decrypt", "--pin", kUserPin, "--in", "in/b.der", "--in", "in/a.b64",
                              "--out-dir", "plain"});
    EXPECT_EQ(batch.exitCode, 0) << batch.err.constData();
    const QStringList lines = withoutTimes(batch.outText()).split(QLatin1Char('\n'));
    EXPECT_TRUE(lines.value(1).startsWith(QStringLiteral("in/b.der  "))) << "in the order given";
    EXPECT_TRUE(lines.value(2).startsWith(QStringLiteral("in/a.b64  ")));
    EXPECT_TEXT(lines.value(3), QStringLiteral("2 of 2 envelopes opened"));
    EXPECT_EQ(batch.err, usingDevice("alpha"));
    EXPECT_EQ(readWorkFile(QStringLiteral("plain/a")), kAlpha);
    EXPECT_EQ(readWorkFile(QStringLiteral("plain/b")), kBravo);
}

TEST_F(CliBatch, nothingToOpenAsksForNoPin)
{
    ASSERT_TRUE(QDir(workFile(QString())).mkpath(QStringLiteral("out")));
    writeWorkFile(QStringLiteral("out/a"), QByteArrayLiteral("keep me"));
    const CliRun batch = run({"decrypt", "--pin", kWrongPin, "--in", "in/a.b64", "--in",
                              "in/missing.b64", "--out-dir", "out"});
    EXPECT_EQ(batch.exitCode, 1);
    EXPECT_TEXT(batch.errText(), QStringLiteral("zthost: out/a exists (--force replaces it)\n"
                                              "zthost: cannot read in/missing.b64: No such file "
                                              "or directory\n"));
    EXPECT_TRUE(batch.outText().endsWith(QStringLiteral("0 of 2 envelopes opened\n")));
    EXPECT_TEXT(triesLeft(), QStringLiteral("alpha   SOFTAPP      6 of 6")) << "the wrong PIN was never tried";
}

TEST_F(CliBatch, severalEnvelopesNeedAnOutputFolder)
{
    struct Row
    {
        QStringList arguments;
        QString message;
        const char *reason;
    };
    const Row rows[] = {
        {{"decrypt", "--pin", kUserPin, "--in-dir", "in"},
         QStringLiteral("zthost decrypt: missing --out-dir: several envelopes need a folder for "
                        "their plaintexts"),
         "a folder and no output folder"},
        {{"decrypt", "--pin", kUserPin, "--in-dir", "in", "--out-dir", "out", "--out", "x"},
         QStringLiteral("zthost decrypt: --out names one plaintext; with several envelopes give "
                        "--out-dir"),
         "--out with a folder"},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.reason);
        const CliRun batch = run(row.arguments);
        EXPECT_EQ(batch.exitCode, 2);
        EXPECT_EQ(batch.out, QByteArray());
        EXPECT_TEXT(batch.errText().section(QLatin1Char('\n'), 0, 0), row.message);
    }
}

TEST_F(CliBatch, envelopeOverThePluginsLimitIsRefusedBeforeAnyPinTry)
{
    // A sparse file one character over the limit: no disk space, and it is never read whole.
    const qint64 size = zthost::cli::maxEnvelopeBase64Characters() + 1;
    writeWorkFile(QStringLiteral("big.b64"), QByteArray());
    ASSERT_EQ(::truncate(QFile::encodeName(workFile(QStringLiteral("big.b64"))).constData(), size), 0);
    // Qt 5's figures; Qt 6 takes more (envelope_limits.h), and names itself.
    const QString refusal =
        zt_test::kQtSizesAreInt
            ? QStringLiteral("zthost: big.b64 is too large for the plug-in: 715827875 characters "
                             "of Base64 text, over the 715827874 it can take under Qt 5 (an "
                             "envelope of at most 536870904 bytes)\n")
            : QStringLiteral("zthost: big.b64 is too large for the plug-in: 2863311529 characters "
                             "of Base64 text, over the 2863311528 it can take under Qt 6 (an "
                             "envelope of at most 2147483646 bytes)\n");

    const CliRun single = run({"decrypt", "--pin", kWrongPin, "--in", "big.b64", "--out", "big"});
    EXPECT_EQ(single.exitCode, 1);
    EXPECT_EQ(single.out, QByteArray());
    EXPECT_TEXT(single.errText(), refusal);
    EXPECT_FALSE(QFileInfo::exists(workFile(QStringLiteral("big"))));
    EXPECT_TEXT(triesLeft(), QStringLiteral("alpha   SOFTAPP      6 of 6")) << "the PIN was never tried";

    const CliRun batch = run({"decrypt", "--pin", kUserPin, "--in", "big.b64", "--in", "in/a.b64",
                              "--out-dir", "out"});
    EXPECT_EQ(batch.exitCode, 1);
    EXPECT_TEXT(batch.errText(), refusal + QString::fromUtf8(usingDevice("alpha")));
    EXPECT_TRUE(batch.outText().contains(QStringLiteral("\nbig.b64 ")));
    EXPECT_EQ(readWorkFile(QStringLiteral("out/a")), kAlpha) << "the others are opened";
}

TEST_F(CliBatch, envelopesLargerThanOnePieceComeBackWhole)
{
    // 4 MiB of content: its DER and its Base64 text are read, and its answer written, in more
    // than one piece each (3 MiB read, 4 Mi characters decoded at a time).
    const QByteArray content = randomBytes(4 << 20);
    const QByteArray envelope =
        makeEnvelopeWithOpenSsl(storedCertificate(QStringLiteral("alpha")), content);
    ASSERT_FALSE(envelope.isEmpty());
    ASSERT_TRUE(QDir(workFile(QString())).mkpath(QStringLiteral("big")));
    writeWorkFile(QStringLiteral("big/large.der"), envelope);
    writeWorkFile(QStringLiteral("big/large-text.b64"), "\n  " + envelope.toBase64() + "\r\n\n");
    const CliRun batch = run({"decrypt", "--pin", kUserPin, "--in-dir", "big", "--out-dir", "out"});
    EXPECT_EQ(batch.exitCode, 0) << batch.err.constData();
    EXPECT_TRUE(readWorkFile(QStringLiteral("out/large")) == content);
    EXPECT_TRUE(readWorkFile(QStringLiteral("out/large-text")) == content);
}

TEST_F(CliBatch, envelopeFromAPipeIsReadOnceAndOpens)
{
    // /dev/stdin is the pipe the test writes to: it cannot be looked at and then read again.
    const CliRun opened =
        runWithInput({"decrypt", "--pin", kUserPin, "--in", "/dev/stdin", "--out", "piped"}, m_alpha);
    EXPECT_EQ(opened.exitCode, 0) << opened.err.constData();
    EXPECT_EQ(readWorkFile(QStringLiteral("piped")), kAlpha);
}
