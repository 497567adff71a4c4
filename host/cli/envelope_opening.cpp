#include "envelope_opening.h"

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
        QVariantList arguments{text, QVariant::fromValue<qulonglong>(ZtSessionKey::kAlgorithmId)};
        text = QString(); // the arguments hold the one copy now
        progress.begin(QStringLiteral("opening %1 on the key").arg(envelope.path),
                       envelope.characters);
        decoded = session.call(QStringLiteral("WebZtDecode"), arguments);
        progress.end();
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
