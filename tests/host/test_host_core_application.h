#pragma once

#include <QCoreApplication>

#include <gtest/gtest.h>

// One application object for a whole test program: deferred deletes and event loops need it.
// Include from exactly one source file of the program.
class HostTestApplication : public ::testing::Environment
{
public:
    void SetUp() override
    {
        if (!QCoreApplication::instance())
            m_app = new QCoreApplication(m_argc, m_argv);
    }
    void TearDown() override
    {
        delete m_app;
        m_app = nullptr;
    }

private:
    int m_argc = 1;
    char m_name[16] = "zthost-test";
    char *m_argv[2] = {m_name, nullptr};
    QCoreApplication *m_app = nullptr;
};

inline ::testing::Environment *const kHostTestApplication
    = ::testing::AddGlobalTestEnvironment(new HostTestApplication);
