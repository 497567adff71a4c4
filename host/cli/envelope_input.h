#pragma once

#include <QByteArray>
#include <QString>

namespace zthost::cli {

// An envelope file as WebZtDecode takes it: Base64 text. A file of raw DER (it starts with a
// SEQUENCE whose length covers exactly the file) is turned into Base64 first; anything else is
// handed over as text, and the library judges it.
QString envelopeAsBase64(const QByteArray &file);

} // namespace zthost::cli
