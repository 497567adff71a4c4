// The bridge and its clients run on an event loop, as in a host application: one application
// object for the whole test program.

#include <QCoreApplication>

#include <gtest/gtest.h>

#include <memory>

namespace {

class BridgeApplication : public ::testing::Environment
{
public:
    void SetUp() override { m_app = std::make_unique<QCoreApplication>(m_argc, m_argv); }
    void TearDown() override { m_app.reset(); }

private:
    int m_argc = 1;
    char m_name[12] = "zt-bridge";
    char *m_argv[2] = {m_name, nullptr};
    std::unique_ptr<QCoreApplication> m_app;
};

::testing::Environment *const kBridgeApplication
    = ::testing::AddGlobalTestEnvironment(new BridgeApplication);

} // namespace
