#include "asn_host.h"

#include "asn_document_spy.h"
#include "certificate/certificate_component.h"

namespace {
const QString kAsnProgId = QStringLiteral("ZTUTIL.ZtAsn.1");
const QString kCertificateProgId = QStringLiteral("ZTUTIL.ZtCerificate.1");
} // namespace

AsnComponents::AsnComponents(FakeCore &core) : m_core(core)
{
    provide();
    m_core.provide(kCertificateProgId, [] { return new zthost::CertificateComponent; });
}

void AsnComponents::withdraw()
{
    m_core.withdraw(kAsnProgId);
}

void AsnComponents::provide()
{
    m_core.provide(kAsnProgId, [this] {
        auto *spy = new AsnDocumentSpy;
        for (const auto &refusal : qAsConst(refusals))
            spy->refuse(refusal.first, refusal.second);
        documents.append(spy);
        return spy;
    });
}

QStringList AsnComponents::documentCalls() const
{
    QStringList calls;
    for (int i = 0; i < documents.size(); ++i) {
        if (!documents.at(i))
            continue;
        for (const QString &call : documents.at(i)->calls)
            calls.append(QStringLiteral("%1 %2").arg(i + 1).arg(call));
    }
    return calls;
}

void AsnComponents::clearRecords()
{
    documents.clear();
}
