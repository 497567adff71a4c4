#pragma once

#include "fake_core.h"
#include "installed_core.h"

#include <QList>
#include <QPair>
#include <QPointer>
#include <QString>
#include <QStringList>

class AsnDocumentSpy;

// The reference host's real ASN.1 component ("ZTUTIL.ZtAsn.1", each document recorded by an
// AsnDocumentSpy) and certificate component ("ZTUTIL.ZtCerificate.1"), handed out by a test
// core. The core owns what it made.
class AsnComponents
{
public:
    explicit AsnComponents(FakeCore &core);

    QList<QPointer<AsnDocumentSpy>> documents;
    // Applied to every document made from now on, e.g. {"addSample", 3}.
    QList<QPair<QString, int>> refusals;

    // Takes the ASN.1 component away ("createComponentObject" answers null) and back.
    void withdraw();
    void provide();

    // The calls of every document so far, prefixed with the document's number: "1 create(48)".
    QStringList documentCalls() const;
    void clearRecords();

private:
    FakeCore &m_core;
};

// A core installed with ComponentInit that has the ASN.1 and certificate components only.
struct AsnHost
{
    FakeCore core;
    InstalledCore installed{&core};
    AsnComponents asn{core};
};
