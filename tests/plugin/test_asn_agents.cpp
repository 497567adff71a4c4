// The ASN.1 agents: each member is one call of the host method of the same name on the host's
// real ASN.1 component; pointer results come back as fresh block agents owned by the caller.

#include "qt_printers.h"
#include "asn_agents.h"
#include "asn_document_spy.h"
#include "asn_host.h"
#include "log_sandbox.h"
#include "stdout_capture.h"

#include <QPointer>

#include <gtest/gtest.h>

#include <memory>

namespace {

// SEQUENCE { INTEGER 1, INTEGER 2, OCTET STRING 'ab', SEQUENCE {} }
const QByteArray kFourElements = QByteArrayLiteral("\x30\x0c\x02\x01\x01\x02\x01\x02\x04\x02\x61\x62\x30\x00");

struct Agents
{
    LogSandbox logs;
    AsnHost host;
};

} // namespace

TEST(AsnAgents, documentAgentCreatesTheAsnComponentWithAnEmptyClassId)
{
    Agents a;
    ZtAsnAgent document;
    ASSERT_EQ(a.host.core.creations().size(), 1);
    EXPECT_EQ(a.host.core.creations().at(0).progId, QStringLiteral("ZTUTIL.ZtAsn.1"));
    EXPECT_EQ(a.host.core.creations().at(0).classId, QString(""));
    EXPECT_EQ(document.target(), a.host.asn.documents.value(0).data());
    EXPECT_EQ(document.objectName(), QStringLiteral("Agent"));
    EXPECT_EQ(document.parent(), nullptr);
}

TEST(AsnAgents, missingComponentPrintsTheCreationFailureAndEveryCallFails)
{
    Agents a;
    a.host.asn.withdraw();
    StdoutCapture out;
    ZtAsnAgent document;
    EXPECT_EQ(out.text(), QByteArray("createComponentObject =   fail"));
    EXPECT_EQ(document.target(), nullptr);
    EXPECT_FALSE(document.create(ASN_TAG_TYPE_SEQUENCE));
    EXPECT_FALSE(document.open(kFourElements));
    EXPECT_FALSE(document.checkTag(ASN_TAG_TYPE_SEQUENCE));
    EXPECT_EQ(document.getChild(0, ASN_TAG_TYPE_INTEGER), nullptr);
    EXPECT_EQ(document.addSample(ASN_TAG_TYPE_INTEGER), nullptr);
    EXPECT_EQ(document.addStruct(ASN_TAG_TYPE_SEQUENCE), nullptr);
    EXPECT_TRUE(document.build().isEmpty());
}

TEST(AsnAgents, documentMembersCallTheHostMethodsOfTheSameName)
{
    Agents a;
    ZtAsnAgent document;
    EXPECT_TRUE(document.open(kFourElements));
    EXPECT_TRUE(document.checkTag(ASN_TAG_TYPE_SEQUENCE));
    EXPECT_FALSE(document.checkTag(ASN_TAG_TYPE_SET));
    EXPECT_NE(document.getChild(2, ASN_TAG_TYPE_OCTET_STRING), nullptr);
    document.close();
    EXPECT_TRUE(document.create(ASN_TAG_TYPE_SEQUENCE));
    EXPECT_NE(document.addSample(ASN_TAG_TYPE_INTEGER), nullptr);
    EXPECT_NE(document.addStruct(ASN_TAG_TYPE_SET), nullptr);
    document.update();
    EXPECT_EQ(document.build().toHex(), QByteArray("3004020031 00").replace(' ', ""));
    EXPECT_EQ(a.host.asn.documentCalls(),
              (QStringList{"1 open(14 bytes)", "1 checkTag(48)", "1 checkTag(49)",
                           "1 getChild(2,4)", "1 close()", "1 create(48)", "1 addSample(2)",
                           "1 addStruct(49)", "1 update()", "1 build()"}));
}

TEST(AsnAgents, blockMembersReachTheirBlock)
{
    Agents a;
    ZtAsnAgent document;
    ASSERT_TRUE(document.create(ASN_TAG_TYPE_SEQUENCE));
    std::unique_ptr<ZtAsnBlockAgent> set(document.addStruct(ASN_TAG_TYPE_SET));
    ASSERT_NE(set, nullptr);
    std::unique_ptr<ZtAsnBlockAgent> integer(set->addSample(ASN_TAG_TYPE_INTEGER));
    ASSERT_NE(integer, nullptr);
    EXPECT_TRUE(integer->setData(QByteArrayLiteral("\x05")));
    EXPECT_TRUE(set->addBlock(QByteArrayLiteral("\x04\x01\x07")));
    std::unique_ptr<ZtAsnBlockAgent> inner(set->addStruct(ASN_TAG_TYPE_SEQUENCE));
    ASSERT_NE(inner, nullptr);

    EXPECT_EQ(set->build().toHex(), QByteArray("310802010504010730" "00"));
    EXPECT_EQ(set->toByteArray().toHex(), QByteArray("0201050401073000"));
    EXPECT_EQ(integer->build().toHex(), QByteArray("020105"));
    EXPECT_EQ(integer->toByteArray().toHex(), QByteArray("05"));
    std::unique_ptr<ZtAsnBlockAgent> added(set->getChild(1, ASN_TAG_TYPE_OCTET_STRING));
    ASSERT_NE(added, nullptr);
    EXPECT_EQ(added->toByteArray().toHex(), QByteArray("07"));
    EXPECT_EQ(document.build().toHex(), QByteArray("300a" "310802010504010730" "00"));
}

TEST(AsnAgents, childPastTheLastElementIsNull)
{
    Agents a;
    ZtAsnAgent document;
    ASSERT_TRUE(document.open(kFourElements));
    EXPECT_EQ(document.getChild(5, ASN_TAG_TYPE_INTEGER), nullptr);
    EXPECT_EQ(document.getChild(4, ASN_TAG_TYPE_INTEGER), nullptr);
    std::unique_ptr<ZtAsnBlockAgent> last(document.getChild(3, ASN_TAG_TYPE_SEQUENCE));
    EXPECT_NE(last, nullptr);
}

TEST(AsnAgents, childWithAnotherTagIsNull)
{
    Agents a;
    ZtAsnAgent document;
    ASSERT_TRUE(document.open(QByteArrayLiteral("\x30\x04\x30\x00\x31\x00")));
    EXPECT_EQ(document.getChild(0, ASN_TAG_TYPE_SET), nullptr);
    std::unique_ptr<ZtAsnBlockAgent> sequence(document.getChild(0, ASN_TAG_TYPE_SEQUENCE));
    EXPECT_NE(sequence, nullptr);
}

TEST(AsnAgents, twoLookupsGiveTwoAgentsOfTheSameBlock)
{
    Agents a;
    ZtAsnAgent document;
    ASSERT_TRUE(document.open(kFourElements));
    std::unique_ptr<ZtAsnBlockAgent> first(document.getChild(1, ASN_TAG_TYPE_INTEGER));
    std::unique_ptr<ZtAsnBlockAgent> second(document.getChild(1, ASN_TAG_TYPE_INTEGER));
    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    EXPECT_NE(first.get(), second.get());
    EXPECT_EQ(first->target(), second->target());
    EXPECT_EQ(first->objectName(), QStringLiteral("Agent"));
    EXPECT_EQ(first->parent(), nullptr);
}

TEST(AsnAgents, deletingABlockAgentLeavesTheHostTreeIntact)
{
    Agents a;
    ZtAsnAgent document;
    ASSERT_TRUE(document.open(kFourElements));
    ZtAsnBlockAgent *agent = document.getChild(2, ASN_TAG_TYPE_OCTET_STRING);
    ASSERT_NE(agent, nullptr);
    QPointer<QObject> block = agent->target();
    delete agent;

    ASSERT_FALSE(block.isNull());
    std::unique_ptr<ZtAsnBlockAgent> again(document.getChild(2, ASN_TAG_TYPE_OCTET_STRING));
    ASSERT_NE(again, nullptr);
    EXPECT_EQ(again->target(), block.data());
    EXPECT_EQ(again->toByteArray(), QByteArray("ab"));
    EXPECT_EQ(document.build(), kFourElements);
}

TEST(AsnAgents, refusedBlockCallsAnswerTheirFailureValues)
{
    Agents a;
    ZtAsnAgent document;
    ASSERT_TRUE(document.open(kFourElements));
    std::unique_ptr<ZtAsnBlockAgent> integer(document.getChild(0, ASN_TAG_TYPE_INTEGER));
    ASSERT_NE(integer, nullptr);
    // A primitive block has no children and takes no encoded value.
    EXPECT_EQ(integer->getChild(0, ASN_TAG_TYPE_INTEGER), nullptr);
    EXPECT_EQ(integer->addSample(ASN_TAG_TYPE_INTEGER), nullptr);
    EXPECT_EQ(integer->addStruct(ASN_TAG_TYPE_SEQUENCE), nullptr);
    EXPECT_FALSE(integer->addBlock(QByteArrayLiteral("\x02\x01\x01")));
    std::unique_ptr<ZtAsnBlockAgent> sequence(document.getChild(3, ASN_TAG_TYPE_SEQUENCE));
    ASSERT_NE(sequence, nullptr);
    EXPECT_FALSE(sequence->setData(QByteArrayLiteral("\x01")));
    EXPECT_FALSE(sequence->addBlock(QByteArray()));
}

TEST(AsnAgents, blockAgentWithoutTargetAnswersFailureValues)
{
    LogSandbox logs;
    ZtAsnBlockAgent block(nullptr);
    EXPECT_EQ(block.getChild(0, ASN_TAG_TYPE_INTEGER), nullptr);
    EXPECT_EQ(block.addSample(ASN_TAG_TYPE_INTEGER), nullptr);
    EXPECT_EQ(block.addStruct(ASN_TAG_TYPE_SEQUENCE), nullptr);
    EXPECT_FALSE(block.setData(QByteArrayLiteral("\x01")));
    EXPECT_FALSE(block.addBlock(QByteArrayLiteral("\x02\x01\x01")));
    EXPECT_TRUE(block.build().isEmpty());
    EXPECT_TRUE(block.toByteArray().isEmpty());
}

TEST(AsnAgents, tagConstantsAreTheIdentifierOctets)
{
    EXPECT_EQ(ASN_TAG_TYPE_INTEGER, 0x02);
    EXPECT_EQ(ASN_TAG_TYPE_OCTET_STRING, 0x04);
    EXPECT_EQ(ASN_TAG_TYPE_OBJECT_IDENTIFIER, 0x06);
    EXPECT_EQ(ASN_TAG_TYPE_SEQUENCE, 0x30);
    EXPECT_EQ(ASN_TAG_TYPE_SET, 0x31);
    EXPECT_EQ(ASN_TAG_TYPE_CONTEXT_0, 0xA0);
}
