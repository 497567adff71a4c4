// PINs typed on a terminal: zthost run on a pseudo-terminal, answering each prompt as it
// appears. A PIN being chosen is asked twice, and what is typed is never echoed.
#include "cli_process.h"

#include "openssl_envelope.h"

#include <QDir>

#include <pty.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

namespace {

struct TerminalRun
{
    int exitCode = -1;
    std::string screen;  // everything the terminal showed
};

// The prompts to wait for, in order, and the line to type at each.
using Dialogue = std::vector<std::pair<std::string, std::string>>;

TerminalRun runOnTerminal(const QStringList &arguments, const QString &root, const Dialogue &dialogue)
{
    std::vector<std::string> words{ZTHOST_PATH};
    for (const QString &argument : arguments)
        words.push_back(argument.toStdString());
    const std::string rootPath = root.toStdString();
    int master = -1;
    const pid_t child = ::forkpty(&master, nullptr, nullptr, nullptr);
    if (child == 0) {
        ::setenv("SOFTSKF_ROOT", rootPath.c_str(), 1);
        for (const char *name : {"ZTHOST_PIN", "ZTHOST_NEW_PIN", "ZTHOST_ADMIN_PIN",
                                 "ZTHOST_PLUGIN", "ZTHOST_SKF", "ZTHOST_DEVICE"})
            ::unsetenv(name);
        // A configuration folder that does not exist: no settings of the user's (it is only read).
        ::setenv("XDG_CONFIG_HOME", (rootPath + "/.no-configuration").c_str(), 1);
        std::vector<char *> argv;
        for (std::string &word : words)
            argv.push_back(word.data());
        argv.push_back(nullptr);
        ::execv(argv[0], argv.data());
        ::_exit(127);
    }
    TerminalRun result;
    if (child < 0) {
        ADD_FAILURE() << "forkpty failed";
        return result;
    }
    std::size_t next = 0, searchFrom = 0;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    for (;;) {
        if (std::chrono::steady_clock::now() > deadline) {
            ADD_FAILURE() << "zthost did not finish on the terminal: " << result.screen;
            ::kill(child, SIGKILL);
            break;
        }
        pollfd ready{master, POLLIN, 0};
        if (::poll(&ready, 1, 100) <= 0)
            continue;
        char buffer[512];
        const ssize_t n = ::read(master, buffer, sizeof buffer);
        if (n <= 0)
            break;  // EIO once the child has closed its side
        result.screen.append(buffer, std::size_t(n));
        if (next < dialogue.size()) {
            const auto at = result.screen.find(dialogue[next].first, searchFrom);
            if (at != std::string::npos) {
                const std::string line = dialogue[next].second + "\n";
                EXPECT_EQ(::write(master, line.data(), line.size()), ssize_t(line.size()));
                searchFrom = at + dialogue[next].first.size();
                ++next;
            }
        }
    }
    ::close(master);
    int status = 0;
    ::waitpid(child, &status, 0);
    result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    EXPECT_EQ(next, dialogue.size()) << "prompts not shown: " << result.screen;
    return result;
}

constexpr const char *kTypedPin = "typed-1234";
constexpr const char *kTypedNewPin = "typed-5678";

} // namespace

using CliTerminal = CliTest;

TEST_F(CliTerminal, keygenAsksForThePinTwiceWithoutEchoingIt)
{
    const TerminalRun made = runOnTerminal({"keygen", "--name", "alpha", "--admin-pin", kAdminPin},
                                           root(),
                                           {{"New user PIN: ", kTypedPin},
                                            {"Repeat the new user PIN: ", kTypedPin}});
    ASSERT_EQ(made.exitCode, 0) << made.screen;
    EXPECT_NE(made.screen.find("created device \"alpha\""), std::string::npos) << made.screen;
    EXPECT_EQ(made.screen.find(kTypedPin), std::string::npos) << "the PIN was echoed";
    EXPECT_EQ(run({"passwd", "--pin", kTypedPin, "--new-pin", kTypedNewPin}).exitCode, 0);
}

TEST_F(CliTerminal, keygenWithTwoDifferentPinsMakesNothing)
{
    const TerminalRun made = runOnTerminal({"keygen", "--name", "alpha", "--admin-pin", kAdminPin},
                                           root(),
                                           {{"New user PIN: ", kTypedPin},
                                            {"Repeat the new user PIN: ", kTypedNewPin}});
    EXPECT_EQ(made.exitCode, 1);
    EXPECT_NE(made.screen.find("zthost: the two PINs typed differ; nothing was made"),
              std::string::npos)
        << made.screen;
    EXPECT_EQ(run({"devices"}).out, QByteArray());
}

TEST_F(CliTerminal, passwdAsksForTheCurrentPinOnceAndTheNewOneTwice)
{
    provision(QStringLiteral("alpha"));
    const TerminalRun changed = runOnTerminal({"passwd"}, root(),
                                              {{"Current user PIN: ", kUserPin},
                                               {"New user PIN: ", kTypedNewPin},
                                               {"Repeat the new user PIN: ", kTypedNewPin}});
    ASSERT_EQ(changed.exitCode, 0) << changed.screen;
    EXPECT_NE(changed.screen.find("changed the user PIN of key device \"alpha\""), std::string::npos);
    EXPECT_EQ(run({"passwd", "--pin", kTypedNewPin, "--new-pin", kUserPin}).exitCode, 0);
}

TEST_F(CliTerminal, unblockWithTwoDifferentNewPinsChangesNothing)
{
    provision(QStringLiteral("alpha"));
    const TerminalRun refused = runOnTerminal({"unblock"}, root(),
                                              {{"Administrator PIN: ", kAdminPin},
                                               {"New user PIN: ", kTypedPin},
                                               {"Repeat the new user PIN: ", kTypedNewPin}});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_NE(refused.screen.find("zthost: the two new PINs typed differ; the PIN is unchanged"),
              std::string::npos)
        << refused.screen;
    EXPECT_EQ(run({"passwd", "--pin", kUserPin, "--new-pin", kTypedNewPin}).exitCode, 0);
}

TEST_F(CliTerminal, shellAsksForTheOmittedPinWithoutEchoingIt)
{
    provision(QStringLiteral("alpha"));
    const TerminalRun shell = runOnTerminal({"shell"}, root(),
                                            {{"zthost> ", "WebVerifyPin"},
                                             {"User PIN: ", kUserPin},
                                             {"zthost> ", "quit"}});
    EXPECT_EQ(shell.exitCode, 0) << shell.screen;
    EXPECT_NE(shell.screen.find("User PIN: \r\ntrue\r\nzthost> "), std::string::npos) << shell.screen;
    EXPECT_EQ(shell.screen.find(kUserPin), std::string::npos) << "the PIN was echoed";
}

TEST_F(CliTerminal, batchDecryptTellsEachEnvelopeAsItEnds)
{
    provision(QStringLiteral("alpha"));
    const QByteArray certificate = storedCertificate(QStringLiteral("alpha"));
    ASSERT_TRUE(QDir(workFile(QString())).mkpath(QStringLiteral("in")));
    writeWorkFile(QStringLiteral("in/a.b64"),
                  makeEnvelopeWithOpenSsl(certificate, QByteArrayLiteral("a")).toBase64());
    writeWorkFile(QStringLiteral("in/b.b64"), QByteArrayLiteral("not an envelope"));
    const std::string in = workFile(QStringLiteral("in")).toStdString();
    const TerminalRun batch = runOnTerminal({"decrypt", "--pin", kUserPin, "--in-dir",
                                             workFile(QStringLiteral("in")), "--out-dir",
                                             workFile(QStringLiteral("out"))},
                                            root(), {});
    EXPECT_EQ(batch.exitCode, 1) << batch.screen;
    EXPECT_NE(batch.screen.find("[1/2] " + in + "/a.b64  "), std::string::npos) << batch.screen;
    EXPECT_NE(batch.screen.find("[2/2] " + in + "/b.b64  15 B  failed  "), std::string::npos)
        << batch.screen;
    EXPECT_NE(batch.screen.find("1 of 2 envelopes opened"), std::string::npos) << batch.screen;
}
