#include "asn_document_spy.h"

bool AsnDocumentSpy::passes(const QString &method, const QString &arguments)
{
    calls.append(method + QLatin1Char('(') + arguments + QLatin1Char(')'));
    const int nth = ++m_counts[method];
    return !m_refusals.value(method).contains(nth);
}

bool AsnDocumentSpy::create(int tag)
{
    return passes(QStringLiteral("create"), QString::number(tag)) && m_document.create(tag);
}

bool AsnDocumentSpy::open(QByteArray der)
{
    return passes(QStringLiteral("open"), QStringLiteral("%1 bytes").arg(der.size()))
        && m_document.open(der);
}

bool AsnDocumentSpy::checkTag(int tag)
{
    return passes(QStringLiteral("checkTag"), QString::number(tag)) && m_document.checkTag(tag);
}

void AsnDocumentSpy::close()
{
    if (passes(QStringLiteral("close"), QString()))
        m_document.close();
}

QObject *AsnDocumentSpy::getChild(int index, int tag)
{
    return passes(QStringLiteral("getChild"), QStringLiteral("%1,%2").arg(index).arg(tag))
        ? m_document.getChild(index, tag)
        : nullptr;
}

QObject *AsnDocumentSpy::addSample(int tag)
{
    return passes(QStringLiteral("addSample"), QString::number(tag)) ? m_document.addSample(tag)
                                                                     : nullptr;
}

QObject *AsnDocumentSpy::addStruct(int tag)
{
    return passes(QStringLiteral("addStruct"), QString::number(tag)) ? m_document.addStruct(tag)
                                                                     : nullptr;
}

void AsnDocumentSpy::update()
{
    if (passes(QStringLiteral("update"), QString()))
        m_document.update();
}

QByteArray AsnDocumentSpy::build()
{
    return passes(QStringLiteral("build"), QString()) ? m_document.build() : QByteArray();
}
