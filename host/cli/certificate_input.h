#pragma once

#include <QByteArray>
#include <QString>

namespace zthost::cli {

enum class CertificateFormat { Der, Pem, Base64 };

// A recipient certificate as a user hands it over: DER, PEM, or the Base64 text WebGetCertData
// answers (line breaks and blanks allowed). The answer is its DER, checked to be one whole
// X.509 certificate. False with `error` saying what the bytes were not, with their size.
bool certificateDer(const QByteArray &input, QByteArray *der, CertificateFormat *format,
                    QString *error);

const char *formatName(CertificateFormat format);

} // namespace zthost::cli
