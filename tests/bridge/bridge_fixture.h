#pragma once

#include "fake_scriptable.h"

#include "bridge/bridge_options.h"
#include "bridge/web_bridge.h"
#include "core/host_log.h"
#include "session/scriptable_calls.h"
#include "session/scriptable_source.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <memory>

// What the host session does for the bridge, in front of the stand-in: calls by name, each
// counted once it has returned.
class CountingCalls : public zthost::ObjectCalls
{
public:
    CountingCalls(QObject *target, int *returned) : ObjectCalls(target), m_returned(returned) {}

    zthost::Invocation invoke(const QString &method, const QVariantList &arguments) override
    {
        zthost::Invocation invocation = ObjectCalls::invoke(method, arguments);
        ++*m_returned;
        return invocation;
    }

private:
    int *m_returned;
};

// What the host session does for the bridge's pages, in front of the one stand-in: every page's
// "own" object is the same FakeScriptable, so a test sees every call any page made. The tests of
// separate objects per page run the real plug-in (test_serve_pages.cpp).
class SharedFakeSource : public zthost::ScriptableSource
{
public:
    SharedFakeSource(QObject *target, int *returned) : m_target(target), m_returned(returned) {}

    std::unique_ptr<zthost::ScriptableCalls> createScriptable(QString *) override
    {
        ++created;
        return std::make_unique<CountingCalls>(m_target, m_returned);
    }

    int created = 0;

private:
    QObject *m_target;
    int *m_returned;
};

// A bridge on a free port in front of a FakeScriptable, serving the real web/ folder, with its
// log at debug level in a file of its own.
class BridgeTest : public ::testing::Test
{
protected:
    void SetUp() override;
    void TearDown() override;

    // Starts the bridge with `options` (webRoot is filled in).
    void startBridge(zthost::bridge::BridgeOptions options = zthost::bridge::BridgeOptions());

    QString origin() const { return bridge->origin(); }
    QUrl webSocketUrl() const { return bridge->webSocketUrl(); }
    // The WebSocket address with `token` in place of the right one (empty: none at all).
    QUrl webSocketUrlWithToken(const QString &token) const;
    QString logText() const;

    FakeScriptable fake;
    int callsReturned = 0;
    SharedFakeSource calls{&fake, &callsReturned};
    std::unique_ptr<zthost::bridge::WebBridge> bridge;

private:
    QTemporaryDir m_dir;
    zthost::HostLog m_log;
};
