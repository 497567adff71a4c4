// This file feeds untrusted bytes to the host's certificate component, as DER and as PEM.
//
// The first input byte chooses the form: odd, the rest is wrapped as a PEM certificate block (so
// mutations of DER reach the PEM reader too); even, the rest is handed over as it is, which
// covers raw DER and PEM text of any shape.
#include "fuzz_environment.h"

#include "certificate/certificate_component.h"

#include <QByteArray>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace {

constexpr int kPublicKeyDataSize = 64;  // X ‖ Y, 32 bytes each

} // namespace

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    ztfuzz::prepareProcess(argc, argv);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    if (size == 0)
        return 0;
    const QByteArray rest = QByteArray::fromRawData(reinterpret_cast<const char *>(data + 1),
                                                    int(size - 1));
    QByteArray input;
    if (data[0] & 1) {
        input = QByteArrayLiteral("-----BEGIN CERTIFICATE-----\n");
        const QByteArray base64 = rest.toBase64();
        for (int at = 0; at < base64.size(); at += 64)
            input += base64.mid(at, 64) + '\n';
        input += QByteArrayLiteral("-----END CERTIFICATE-----\n");
    } else {
        input = rest;
    }

    zthost::CertificateComponent certificate;
    const bool opened = certificate.open(input);
    const QByteArray point = certificate.getPublicKeyData();
    if (!opened && !point.isEmpty()) {
        std::fprintf(stderr, "certificate: a refused certificate answers a public key\n");
        std::abort();
    }
    if (!point.isEmpty() && point.size() != kPublicKeyDataSize) {
        std::fprintf(stderr, "certificate: public key data of %d bytes\n", point.size());
        std::abort();
    }
    // A refused open forgets the certificate held before.
    if (opened && !certificate.open(QByteArray()) && !certificate.getPublicKeyData().isEmpty()) {
        std::fprintf(stderr, "certificate: a refused open kept the previous certificate\n");
        std::abort();
    }
    return 0;
}
