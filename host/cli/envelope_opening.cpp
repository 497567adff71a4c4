#include "envelope_opening.h"

#include "text_pages.h"

#include <plugin_host/component_ids.h>
#include <plugin_host/session_key_algorithm.h>

namespace zthost::cli {

bool openEnvelope(HostSession &session, const EnvelopeFile &envelope, const QString &outPath,
                  ResultOutput::Existing existing, Progress &progress, QString *error)
{
    // The output first: a name that cannot be written is found before the work is done.
    ResultOutput output;
    if (!output.open(outPath, existing, error))
        return false;
    Answer decoded;
    {
        QString text;
        if (!readEnvelopeText(envelope, &text, error, progress))
            return false;
        const QVariantList arguments{text,
                                     QVariant::fromValue<qulonglong>(ZtSessionKey::kAlgorithmId)};
        // WebZtDecode takes the text by value, so it stays alive to the end of the call, beside
        // the answer the plug-in makes (8/3 of the plaintext in UTF-16). The plug-in reads it
        // once, into the envelope's bytes, before it asks for its first ASN.1 document to parse
        // them; from that request on the text's pages go back to the system. Should a library
        // read the text later all the same, it would find NULs there and refuse the envelope,
        // never open another one.
        bool released = false;
        session.core().setRequestWatcher([&text, &released](const QString &progId) {
            if (released || progId != QLatin1String(ZtComponentIds::kAsnProgId))
                return;
            releaseTextPages(text);
            released = true;
        });
        progress.begin(QStringLiteral("opening %1 on the key").arg(envelope.path),
                       envelope.characters);
        decoded = session.call(QStringLiteral("WebZtDecode"), arguments);
        progress.end();
        session.core().setRequestWatcher(nullptr);
    }
    if (!decoded.succeeded) {
        *error = decoded.failure;
        return false;
    }
    QString answer = decoded.value.toString();
    decoded = Answer(); // the answer text is held once, by `answer`
    if (!writeDecodedAnswer(answer, output, error, progress))
        return false;
    answer = QString();
    return output.commit(error);
}

} // namespace zthost::cli
