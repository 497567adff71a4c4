#pragma once

#include "agents.h"

#include <QByteArray>
#include <QObject>

// Typed access to the host's ASN.1 component. A document (ZtAsnAgent) holds one tree; a block
// (ZtAsnBlockAgent) is one node of it. Every member is one call of the host method of the same
// name, so the two classes together are the whole ASN.1 vocabulary the library uses.
//
// Results start at their failure value (false, empty, null), so a call that cannot be made
// reads as a refusal. Neither agent owns its target: documents and blocks are the host's.

// Tags travel as the DER identifier octet.
constexpr int ASN_TAG_TYPE_INTEGER = 0x02;
constexpr int ASN_TAG_TYPE_OCTET_STRING = 0x04;
constexpr int ASN_TAG_TYPE_OBJECT_IDENTIFIER = 0x06;
constexpr int ASN_TAG_TYPE_SEQUENCE = 0x30;
constexpr int ASN_TAG_TYPE_SET = 0x31;
constexpr int ASN_TAG_TYPE_CONTEXT_0 = 0xA0;

class ZtAsnBlockAgent;

namespace ZtAsnCalls {
// A fresh agent around the block the host answered, or null. The agent belongs to the caller,
// with no Qt parent; the envelope code keeps every one of them for the life of the process.
ZtAsnBlockAgent *wrapBlock(QObject *block);

template <typename Agent>
ZtAsnBlockAgent *blockCall(Agent *agent, const char *method, int *first, int *second = nullptr)
{
    QObject *block = nullptr;
    if (second)
        agent->invokeHelper(QLatin1String(method), &block, first, second);
    else
        agent->invokeHelper(QLatin1String(method), &block, first);
    return wrapBlock(block);
}
} // namespace ZtAsnCalls

// One document of the host's ASN.1 component, created through the core on construction. When
// the core has none, "createComponentObject =   fail" goes to standard output and every call
// answers its failure value.
class ZtAsnAgent : public Q_Dispatch
{
public:
    explicit ZtAsnAgent(QObject *parent = nullptr);
    virtual ~ZtAsnAgent();

    bool create(int tag)
    {
        bool created = false;
        invokeHelper(QStringLiteral("create"), &created, &tag);
        return created;
    }
    bool open(QByteArray der)
    {
        bool opened = false;
        invokeHelper(QStringLiteral("open"), &opened, &der);
        return opened;
    }
    bool checkTag(int tag)
    {
        bool matches = false;
        invokeHelper(QStringLiteral("checkTag"), &matches, &tag);
        return matches;
    }
    void close() { invokeHelper(QStringLiteral("close"), nullptr); }
    ZtAsnBlockAgent *getChild(int index, int tag)
    {
        return ZtAsnCalls::blockCall(this, "getChild", &index, &tag);
    }
    ZtAsnBlockAgent *addSample(int tag) { return ZtAsnCalls::blockCall(this, "addSample", &tag); }
    ZtAsnBlockAgent *addStruct(int tag) { return ZtAsnCalls::blockCall(this, "addStruct", &tag); }
    void update() { invokeHelper(QStringLiteral("update"), nullptr); }
    QByteArray build()
    {
        QByteArray der;
        invokeHelper(QStringLiteral("build"), &der);
        return der;
    }
};

// One block of a host document. Usable only while the document's tree holds the block.
class ZtAsnBlockAgent : public Q_Dispatch
{
public:
    explicit ZtAsnBlockAgent(QObject *block);
    virtual ~ZtAsnBlockAgent();

    ZtAsnBlockAgent *getChild(int index, int tag)
    {
        return ZtAsnCalls::blockCall(this, "getChild", &index, &tag);
    }
    ZtAsnBlockAgent *addSample(int tag) { return ZtAsnCalls::blockCall(this, "addSample", &tag); }
    ZtAsnBlockAgent *addStruct(int tag) { return ZtAsnCalls::blockCall(this, "addStruct", &tag); }
    bool setData(QByteArray data)
    {
        bool stored = false;
        invokeHelper(QStringLiteral("setData"), &stored, &data);
        return stored;
    }
    bool addBlock(QByteArray der)
    {
        bool added = false;
        invokeHelper(QStringLiteral("addBlock"), &added, &der);
        return added;
    }
    // The whole encoding of the block: identifier, length and content.
    QByteArray build()
    {
        QByteArray der;
        invokeHelper(QStringLiteral("build"), &der);
        return der;
    }
    // The content octets only.
    QByteArray toByteArray()
    {
        QByteArray content;
        invokeHelper(QStringLiteral("toByteArray"), &content);
        return content;
    }
};
