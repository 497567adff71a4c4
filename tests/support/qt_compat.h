#pragma once
// What the tests must say differently on Qt 5.15 and Qt 6, in one place. A test that needs one
// of these names says next to its assertion what Qt 6 changes.

#include <QByteArray>
#include <QtGlobal>

#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
#include <QTextCodec>
#endif

namespace zt_test {

// Qt 5 decodes local 8-bit text (QString::fromLocal8Bit) with a codec the host may choose,
// QTextCodec::setCodecForLocale. Qt 6 has no such codec in Qt Core: on Linux local 8-bit text is
// UTF-8, whatever the host or the environment says.
constexpr bool kLocaleCodecIsSettable = QT_VERSION < QT_VERSION_CHECK(6, 0, 0);

// Qt 5's containers count in int, so one array block stops at 2 GiB; Qt 6 counts in 64 bits.
constexpr bool kQtSizesAreInt = sizeof(QByteArray().size()) == sizeof(int);

// Makes the named codec the locale codec for its lifetime and puts the earlier one back after.
// installed() is false when there is no such codec, and always on Qt 6.
class LocaleCodecOverride
{
public:
    explicit LocaleCodecOverride(const char *codecName)
    {
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
        m_saved = QTextCodec::codecForLocale();
        if (QTextCodec *codec = QTextCodec::codecForName(codecName)) {
            QTextCodec::setCodecForLocale(codec);
            m_installed = true;
        }
#else
        Q_UNUSED(codecName)
#endif
    }
    ~LocaleCodecOverride()
    {
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
        QTextCodec::setCodecForLocale(m_saved);
#endif
    }
    LocaleCodecOverride(const LocaleCodecOverride &) = delete;
    LocaleCodecOverride &operator=(const LocaleCodecOverride &) = delete;

    bool installed() const { return m_installed; }

private:
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
    QTextCodec *m_saved = nullptr;
#endif
    bool m_installed = false;
};

} // namespace zt_test
