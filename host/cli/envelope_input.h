#pragma once

#include "progress.h"

#include <QString>

namespace zthost::cli {

// An envelope file as WebZtDecode takes it: Base64 text. A file of raw DER (it starts with a
// SEQUENCE whose length covers exactly the file) is turned into Base64; anything else is handed
// over as text without its leading and trailing blanks, and the library judges it.
struct EnvelopeFile
{
    QString path;
    qint64 fileSize = 0;
    bool der = false;
    qint64 textStart = 0;  // text: the first byte that is not a blank
    qint64 characters = 0; // the length of the Base64 text WebZtDecode will get
    // A file that is not a regular one (a pipe, `<(...)`) cannot be looked at twice: its bytes,
    // read once by inspectEnvelopeFile, bounded by the limit.
    QByteArray bytes;
    bool readAlready = false;
};

// Looks at the file without reading it whole: its size, its kind and the length of its Base64
// text. False with `error` set when it cannot be read, or when its text is longer than the
// plug-in can take (envelope_limits.h), e.g.
// "big.b64 is too large for the plug-in: 715827875 characters of Base64 text, over the
// 715827874 it can take under Qt 5 (an envelope of at most 536870904 bytes)".
// "-" is standard input, read once like any file that is not a regular one.
bool inspectEnvelopeFile(const QString &path, EnvelopeFile *file, QString *error);

// The envelope's DER, read again whole (or the bytes read already), for a diagnosis after its
// opening failed; empty when it cannot be read or decoded.
QByteArray envelopeDer(const EnvelopeFile &file);

// The Base64 text of an inspected file, read in pieces straight into the one QString the plug-in
// gets, so the file's bytes are never held whole beside it. `progress` sees the bytes read.
// False with `error` set when reading fails or the file changed size since it was inspected.
bool readEnvelopeText(const EnvelopeFile &file, QString *text, QString *error,
                      Progress &progress);

} // namespace zthost::cli
