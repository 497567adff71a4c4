// The service's view of the approved origins: the file is read again only when it changed, a
// list it cannot take is asked for again at the next page, and an unchanged list is no news.
#include "approved_origins_file.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cstdio>

namespace {

class ApprovedOriginsFileTest : public ::testing::Test
{
protected:
    void SetUp() override { ASSERT_TRUE(m_dir.isValid()); }

    QString path() const { return m_dir.filePath(QStringLiteral("zthost.conf")); }

    // Replaces the file as QSettings does: a new file renamed over the old one.
    void write(const QByteArray &text)
    {
        const QString fresh = path() + QStringLiteral(".new");
        QFile file(fresh);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        ASSERT_EQ(file.write(text), text.size());
        file.close();
        ASSERT_TRUE(::rename(QFile::encodeName(fresh).constData(),
                             QFile::encodeName(path()).constData())
                    == 0);
    }

    // A reader that takes the file's lines as origins, refusing a line "bad".
    zthost::cli::ApprovedOriginsFile::Reader reader()
    {
        return [this](QStringList *origins, QString *error) {
            ++m_reads;
            QFile file(path());
            origins->clear();
            if (!file.open(QIODevice::ReadOnly))
                return true;
            for (const QByteArray &line : file.readAll().split('\n')) {
                if (line == "bad") {
                    *error = QStringLiteral("bad entry");
                    return false;
                }
                if (!line.isEmpty())
                    *origins << QString::fromUtf8(line);
            }
            return true;
        };
    }

    QTemporaryDir m_dir;
    int m_reads = 0;
};

} // namespace

TEST_F(ApprovedOriginsFileTest, unchangedFileIsNotReadAgain)
{
    write("https://a.example\n");
    zthost::cli::ApprovedOriginsFile origins(path(), reader(), {QStringLiteral("https://a.example")});
    QString problem = QStringLiteral("stale");
    EXPECT_EQ(origins.update(&problem), std::nullopt);
    EXPECT_EQ(origins.update(&problem), std::nullopt);
    EXPECT_EQ(problem, QString());
    EXPECT_EQ(m_reads, 0);
}

TEST_F(ApprovedOriginsFileTest, changedFileAnswersTheNewListOnce)
{
    write("https://a.example\n");
    zthost::cli::ApprovedOriginsFile origins(path(), reader(), {QStringLiteral("https://a.example")});
    write("https://a.example\nhttps://b.example\n");
    QString problem;
    EXPECT_EQ(origins.update(&problem),
              (QStringList{QStringLiteral("https://a.example"), QStringLiteral("https://b.example")}));
    EXPECT_EQ(origins.update(&problem), std::nullopt) << "the same list is no news";
    EXPECT_EQ(m_reads, 1);
}

TEST_F(ApprovedOriginsFileTest, rewrittenWithTheSameListIsNoNews)
{
    write("https://a.example\n");
    zthost::cli::ApprovedOriginsFile origins(path(), reader(), {QStringLiteral("https://a.example")});
    write("https://a.example\n");
    QString problem;
    EXPECT_EQ(origins.update(&problem), std::nullopt);
    EXPECT_EQ(problem, QString());
    EXPECT_EQ(m_reads, 1);
}

TEST_F(ApprovedOriginsFileTest, fileCreatedAndRemovedAreChanges)
{
    zthost::cli::ApprovedOriginsFile origins(path(), reader(), {});
    write("https://a.example\n");
    QString problem;
    EXPECT_EQ(origins.update(&problem), QStringList{QStringLiteral("https://a.example")});
    ASSERT_TRUE(QFile::remove(path()));
    EXPECT_EQ(origins.update(&problem), QStringList());
    EXPECT_EQ(m_reads, 2);
}

TEST_F(ApprovedOriginsFileTest, listItCannotTakeIsAskedForAgainUntilPutRight)
{
    write("https://a.example\n");
    zthost::cli::ApprovedOriginsFile origins(path(), reader(), {QStringLiteral("https://a.example")});
    write("bad\n");
    QString problem;
    EXPECT_EQ(origins.update(&problem), std::nullopt);
    EXPECT_EQ(problem, QStringLiteral("bad entry"));
    EXPECT_EQ(origins.update(&problem), std::nullopt);
    EXPECT_EQ(problem, QStringLiteral("bad entry")) << "still wrong, still said";
    EXPECT_EQ(m_reads, 2);
    write("https://c.example\n");
    EXPECT_EQ(origins.update(&problem), QStringList{QStringLiteral("https://c.example")});
    EXPECT_EQ(problem, QString());
}
