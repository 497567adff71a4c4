#include "bridge/access_token.h"

#include <QRandomGenerator>

#include <array>

namespace zthost::bridge {

namespace {
constexpr int kTokenBytes = 32;
} // namespace

AccessToken AccessToken::generate()
{
    std::array<quint32, kTokenBytes / sizeof(quint32)> words{};
    QRandomGenerator::system()->fillRange(words.data(), int(words.size()));
    const QByteArray raw(reinterpret_cast<const char *>(words.data()), kTokenBytes);
    return AccessToken(QString::fromLatin1(
        raw.toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals)));
}

AccessToken AccessToken::fromText(const QString &text)
{
    return AccessToken(text);
}

bool AccessToken::matches(const QString &candidate) const
{
    const QByteArray expected = m_text.toUtf8();
    const QByteArray given = candidate.toUtf8();
    if (expected.isEmpty() || given.size() != expected.size())
        return false;
    unsigned char difference = 0;
    for (int i = 0; i < expected.size(); ++i)
        difference |= static_cast<unsigned char>(expected.at(i) ^ given.at(i));
    return difference == 0;
}

} // namespace zthost::bridge
