// This file feeds untrusted bytes to the library's envelope reader, over the host's ASN.1 component.
//
// Each input is loaded as an envelope, its encrypted key read back, and then read as a
// recipient certificate. The core is the reference host's, installed with ComponentInit, handing
// out a fresh ASN.1 document per request; documents and the block agents the library keeps are
// reclaimed after every input.
#include "fuzz_environment.h"
#include "kept_object_reclaimer.h"

#include "asn/asn_document.h"
#include "certificate/certificate_component.h"
#include "core/host_core.h"
#include "entry_points.h"
#include "zt_envelope_data.h"

#include <QByteArray>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace {

struct Harness
{
    zthost::HostCore core;
    ztfuzz::KeptObjectReclaimer reclaimer{{"ZtAsnBlockAgent"}};

    Harness()
    {
        // The plug-in reports every refused envelope at error level; keep it off the terminal.
        core.log().setFile(QStringLiteral("/dev/null"));
        core.registerComponent(QStringLiteral("ZTUTIL.ZtAsn.1"), QString(),
                               zthost::HostCore::Lifetime::PerOperation,
                               [] { return new zthost::AsnDocument; });
        core.registerComponent(QStringLiteral("ZTUTIL.ZtCerificate.1"), QString(),
                               zthost::HostCore::Lifetime::PerOperation,
                               [] { return new zthost::CertificateComponent; });
        ComponentInit(&core);
    }
};

Harness *g_harness = nullptr;

} // namespace

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    ztfuzz::prepareProcess(argc, argv);
    g_harness = new Harness;
    if (!g_harness->reclaimer.isActive())
        std::fprintf(stderr, "fuzz: Qt hook table unavailable; block agents accumulate\n");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const QByteArray input = QByteArray::fromRawData(reinterpret_cast<const char *>(data),
                                                     int(size));
    {
        ZtEnvelopeData envelope;
        envelope.load(input);
        const QByteArray keyData = envelope.GetEncKeyData();
        envelope.GetEncContent();
        // What was read back must be writable again: the packed form goes through the builder.
        if (!keyData.isEmpty())
            envelope.SetEncKeyData(keyData);
        envelope.ParseCertData(input);
    }
    g_harness->core.reclaim();
    g_harness->reclaimer.reclaim();
    return 0;
}
