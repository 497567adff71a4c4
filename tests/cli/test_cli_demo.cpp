// zthost demo: the whole road in one command.

#include "cli_process.h"

#include <QDir>
#include <QRegularExpression>

TEST_F(CliTest, demoRunsEveryStepAndCleansUp)
{
    const CliRun demo = run({"demo"});
    ASSERT_EQ(demo.exitCode, 0) << demo.out.constData() << demo.err.constData();
    EXPECT_EQ(demo.err, QByteArray());

    const QStringList expectedSteps = {
        "create software key", "load plug-in", "WebOpenKey", "WebVerifyPin", "WebGetCertData",
        "make envelope", "WebZtDecode", "text came back", "remove software key"};
    const QStringList lines = demo.outText().split(QLatin1Char('\n'));
    const int header = lines.indexOf(QRegularExpression(QStringLiteral("^  step +outcome +time +detail$")));
    ASSERT_GE(header, 0) << demo.out.constData();
    for (int i = 0; i < expectedSteps.size(); ++i) {
        SCOPED_TRACE(expectedSteps.at(i).toStdString());
        const QRegularExpression stepLine(QStringLiteral("^  %1 +ok +\\d+\\.\\d ms( .*)?$")
                                              .arg(QRegularExpression::escape(expectedSteps.at(i))));
        EXPECT_TRUE(stepLine.match(lines.value(header + 1 + i)).hasMatch())
            << lines.value(header + 1 + i).toStdString();
    }
    EXPECT_TRUE(demo.outText().contains(QRegularExpression(QStringLiteral("\nall 9 steps ok in \\d+\\.\\d ms\n$"))))
        << demo.out.constData();
    EXPECT_TRUE(demo.outText().contains(QRegularExpression(QStringLiteral("\n  user PIN      \\d{6}\n"))));

    // Its temporary root went under TMPDIR and is gone; the usual root was never touched.
    const QRegularExpression rootLine(QStringLiteral("in (/\\S+/zthost-demo-\\w+)\n"));
    const QRegularExpressionMatch match = rootLine.match(demo.outText());
    ASSERT_TRUE(match.hasMatch());
    EXPECT_FALSE(QDir(match.captured(1)).exists());
    EXPECT_TRUE(QDir(root()).isEmpty());
}
