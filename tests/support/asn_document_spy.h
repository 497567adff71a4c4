#pragma once

#include "asn/asn_document.h"

#include <QByteArray>
#include <QHash>
#include <QObject>
#include <QSet>
#include <QString>
#include <QStringList>

// The host's real ASN.1 document behind a recorder: every document-level call the library makes
// is written to `calls` ("create(48)", "open(5 bytes)", "checkTag(48)", "close()",
// "getChild(1,160)", "addSample(2)", "addStruct(160)", "update()", "build()") and then handed to
// the real document. Blocks are the real document's and are not recorded.
class AsnDocumentSpy : public QObject
{
    Q_OBJECT

public:
    QStringList calls;

    // The nth call (from 1) of `method` answers its failure value without reaching the document.
    void refuse(const QString &method, int nth) { m_refusals[method].insert(nth); }

    zthost::AsnDocument &document() { return m_document; }

    Q_INVOKABLE bool create(int tag);
    Q_INVOKABLE bool open(QByteArray der);
    Q_INVOKABLE bool checkTag(int tag);
    Q_INVOKABLE void close();
    Q_INVOKABLE QObject *getChild(int index, int tag);
    Q_INVOKABLE QObject *addSample(int tag);
    Q_INVOKABLE QObject *addStruct(int tag);
    Q_INVOKABLE void update();
    Q_INVOKABLE QByteArray build();

private:
    // Records the call; false when this call is to be refused.
    bool passes(const QString &method, const QString &arguments);

    zthost::AsnDocument m_document;
    QHash<QString, QSet<int>> m_refusals;
    QHash<QString, int> m_counts;
};
