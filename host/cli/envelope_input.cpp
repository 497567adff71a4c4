// Looks at untrusted bytes: only the outer DER header is read, by OpenSSL, within the bytes read.
#include "envelope_input.h"

#include "envelope_limits.h"

#include <QFile>
#include <QFileInfo>

#include <openssl/asn1.h>

#include <sys/mman.h>

#include <cstring>

namespace zthost::cli {

namespace {
constexpr char kSequenceIdentifier = 0x30;
constexpr int kAsn1HeaderError = 0x80;
// A tag, a length byte and at most 127 length octets: the most ASN1_get_object may look at.
constexpr qint64 kHeaderBytes = 160;
// Pieces of the file read at a time: a multiple of 3, so that DER pieces encode to Base64
// without padding between them.
constexpr qint64 kPieceBytes = 3 << 20;

bool isBlank(char c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

bool isOneDerSequence(const QByteArray &header, qint64 fileSize)
{
    if (header.isEmpty() || header.at(0) != kSequenceIdentifier)
        return false;
    const auto *start = reinterpret_cast<const unsigned char *>(header.constData());
    const unsigned char *p = start;
    long length = 0;
    int tag = 0;
    int xclass = 0;
    // The header bytes are all OpenSSL reads; the file size is what the length must fit in.
    if (ASN1_get_object(&p, &length, &tag, &xclass, long(header.size())) & kAsn1HeaderError) {
        // "Too long" is flagged against the bytes handed over; judge the length against the file.
        if (p == start)
            return false;
    }
    return p > start && (p - start) + qint64(length) == fileSize;
}

QString readFailure(const QString &path, const QFile &file)
{
    return QStringLiteral("cannot read %1: %2").arg(path, file.errorString());
}

// Blanks at one end of the text, read in pieces from that end.
bool countBlanks(QFile &file, qint64 from, qint64 to, bool forward, qint64 *blanks)
{
    *blanks = 0;
    while (from < to) {
        const qint64 piece = qMin<qint64>(64 * 1024, to - from);
        const qint64 at = forward ? from : to - piece;
        if (!file.seek(at))
            return false;
        const QByteArray bytes = file.read(piece);
        if (bytes.size() != piece)
            return false;
        for (qint64 i = 0; i < piece; ++i) {
            const char c = bytes.at(int(forward ? i : piece - 1 - i));
            if (!isBlank(c))
                return true;
            ++*blanks;
        }
        if (forward)
            from += piece;
        else
            to -= piece;
    }
    return true;
}

// Latin-1 bytes widened into the QString at `at`. QString::fromLatin1 widens with SIMD, many
// times faster than a loop here, and its piece-sized result is copied in place.
void widen(const QByteArray &bytes, QString *text, qint64 at)
{
    const QString wide = QString::fromLatin1(bytes);
    std::memcpy(text->data() + at, wide.constData(), size_t(wide.size()) * sizeof(QChar));
}

// Asks for transparent huge pages under a large text: it is written once from end to end, and
// 2 MiB pages take it in with 512 times fewer page faults, which cost more than the copying on
// a virtual machine. Only advice: the kernel may ignore it.
void adviseHugePages(QString *text)
{
    constexpr quintptr kHugePage = 2 << 20;
    const auto start = reinterpret_cast<quintptr>(text->data());
    const quintptr end = start + quintptr(text->size()) * sizeof(QChar);
    const quintptr first = (start + kHugePage - 1) & ~(kHugePage - 1);
    const quintptr last = end & ~(kHugePage - 1);
    if (last > first)
        ::madvise(reinterpret_cast<void *>(first), last - first, MADV_HUGEPAGE);
}
bool withinLimit(const EnvelopeFile &file, QString *error)
{
    if (file.characters <= maxEnvelopeBase64Characters())
        return true;
    *error = QStringLiteral("%1 is too large for the plug-in: %2 characters of Base64 text, over "
                            "the %3 it can take under Qt 5 (an envelope of at most %4 bytes)")
                 .arg(file.path)
                 .arg(file.characters)
                 .arg(maxEnvelopeBase64Characters())
                 .arg(maxEnvelopeDerBytes());
    return false;
}
} // namespace

bool inspectEnvelopeFile(const QString &path, EnvelopeFile *file, QString *error)
{
    *file = EnvelopeFile();
    file->path = path;
    // QFile happily opens a folder and reads nothing from it; say what it is instead.
    if (QFileInfo(path).isDir()) {
        *error = QStringLiteral("cannot read %1: it is a folder").arg(path);
        return false;
    }
    const bool standardInput = path == QLatin1String("-");
    QFile in;
    if (!standardInput)
        in.setFileName(path);
    if (!(standardInput ? in.open(stdin, QIODevice::ReadOnly) : in.open(QIODevice::ReadOnly))) {
        *error = readFailure(path, in);
        return false;
    }
    if (standardInput || in.isSequential()) {
        // One character more than the limit is enough to refuse it.
        file->bytes = in.read(maxEnvelopeBase64Characters() + 1);
        file->readAlready = true;
        file->fileSize = file->bytes.size();
        file->der = isOneDerSequence(file->bytes.left(int(kHeaderBytes)), file->fileSize);
        if (!file->der)
            file->bytes = file->bytes.trimmed();
        file->characters = file->der ? (file->fileSize + 2) / 3 * 4 : file->bytes.size();
        return withinLimit(*file, error);
    }
    file->fileSize = in.size();
    const QByteArray header = in.read(qMin(kHeaderBytes, file->fileSize));
    if (header.size() != qMin(kHeaderBytes, file->fileSize)) {
        *error = readFailure(path, in);
        return false;
    }
    file->der = isOneDerSequence(header, file->fileSize);
    if (file->der) {
        file->characters = (file->fileSize + 2) / 3 * 4;
    } else {
        qint64 leading = 0;
        qint64 trailing = 0;
        if (!countBlanks(in, 0, file->fileSize, true, &leading)
            || !countBlanks(in, leading, file->fileSize, false, &trailing)) {
            *error = readFailure(path, in);
            return false;
        }
        file->textStart = leading;
        file->characters = file->fileSize - leading - trailing;
    }
    return withinLimit(*file, error);
}

QByteArray envelopeDer(const EnvelopeFile &file)
{
    QByteArray bytes = file.bytes;
    if (!file.readAlready) {
        QFile in(file.path);
        if (!in.open(QIODevice::ReadOnly))
            return QByteArray();
        bytes = in.readAll();
    }
    return file.der ? bytes : QByteArray::fromBase64(bytes.trimmed());
}

bool readEnvelopeText(const EnvelopeFile &file, QString *text, QString *error, Progress &progress)
{
    *text = QString();
    if (file.readAlready) {
        *text = QString::fromLatin1(file.der ? file.bytes.toBase64() : file.bytes);
        return true;
    }
    QFile in(file.path);
    if (!in.open(QIODevice::ReadOnly) || !in.seek(file.textStart)) {
        *error = readFailure(file.path, in);
        return false;
    }
    if (in.size() != file.fileSize) {
        *error = QStringLiteral("cannot read %1: it changed size while being read").arg(file.path);
        return false;
    }
    const qint64 toRead = file.der ? file.fileSize : file.characters;
    QString base64(int(file.characters), Qt::Uninitialized);
    adviseHugePages(&base64);
    progress.begin(QStringLiteral("reading %1").arg(file.path), toRead);
    qint64 done = 0;
    qint64 written = 0;
    // One buffer for every piece: a fresh one each time would be mapped and faulted in again.
    QByteArray piece(int(qMin(kPieceBytes, toRead)), Qt::Uninitialized);
    while (done < toRead) {
        const qint64 wanted = qMin(kPieceBytes, toRead - done);
        const qint64 got = in.read(piece.data(), wanted);
        if (got != wanted) {
            progress.end();
            *error = in.error() != QFileDevice::NoError
                         ? readFailure(file.path, in)
                         : QStringLiteral("cannot read %1: it changed size while being read")
                               .arg(file.path);
            return false;
        }
        const QByteArray bytes = QByteArray::fromRawData(piece.constData(), int(got));
        const QByteArray encoded = file.der ? bytes.toBase64() : bytes;
        widen(encoded, &base64, written);
        written += encoded.size();
        done += got;
        progress.advance(done);
    }
    progress.end();
    *text = std::move(base64);
    return true;
}

} // namespace zthost::cli
