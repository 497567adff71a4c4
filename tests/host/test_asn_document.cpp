// The ASN.1 component as the plug-in drives it: building a tree value by value, opening DER,
// walking it by index and tag, and encoding it back.

#include "asn_test_support.h"

#include "asn/asn_block.h"
#include "asn/asn_document.h"

#include <QPointer>

#include <gtest/gtest.h>

#include <memory>

using namespace asntest;
using zthost::AsnBlock;
using zthost::AsnDocument;

namespace {

// SEQUENCE { INTEGER 5, OCTET STRING aa, SEQUENCE {}, NULL }
const char kFourChildren[] = "300a020105" "0401aa" "3000" "0500";

// `count` bytes 0x80, 0x81, ...: the first has its top bit set.
QByteArray topBitBytes(int count)
{
    QByteArray out;
    for (int i = 0; i < count; ++i)
        out.append(static_cast<char>(0x80 + i));
    return out;
}

TEST(HostAsnDocument, methodsAreDeclaredOnceWithTheHostTypes)
{
    EXPECT_EQ(invokableSignatures(AsnDocument::staticMetaObject),
              QStringList({"bool create(int)", "bool open(QByteArray)", "bool checkTag(int)",
                           "void close()", "QObject* getChild(int,int)", "QObject* addSample(int)",
                           "QObject* addStruct(int)", "void update()", "QByteArray build()"}));
    EXPECT_EQ(invokableSignatures(AsnBlock::staticMetaObject),
              QStringList({"QObject* getChild(int,int)", "QObject* addSample(int)",
                           "QObject* addStruct(int)", "bool setData(QByteArray)",
                           "bool addBlock(QByteArray)", "QByteArray build()",
                           "QByteArray toByteArray()"}));
}

TEST(HostAsnDocument, createdRootBuildsAsAnEmptyValue)
{
    AsnDocument document;
    ASSERT_TRUE(document.create(0x30));
    EXPECT_TRUE(document.checkTag(0x30));
    EXPECT_FALSE(document.checkTag(0x31));
    EXPECT_EQ(hex(document.build()), "3000");
}

TEST(HostAsnDocument, createRefusesTagsThatAreNotOneIdentifierOctet)
{
    AsnDocument document;
    for (int tag : {-1, 0x00, 0x20, 0x1F, 0x3F, 0xBF, 0x100}) {
        SCOPED_TRACE(tag);
        ASSERT_TRUE(document.create(0x30));
        EXPECT_FALSE(document.create(tag));
        EXPECT_TRUE(document.build().isEmpty()) << "a refused create leaves no tree";
        EXPECT_FALSE(document.errorString().isEmpty());
    }
}

TEST(HostAsnDocument, builtTreeGetsMinimalLengths)
{
    AsnDocument document;
    ASSERT_TRUE(document.create(0x30));
    ASSERT_TRUE(asBlock(document.addSample(0x02))->setData(bytes("01")));
    ASSERT_TRUE(asBlock(document.addSample(0x04))->setData(QByteArray(200, '\x11')));
    AsnBlock *context = asBlock(document.addStruct(0xA0));
    ASSERT_TRUE(asBlock(context->addSample(0x06))->setData(bytes("2a811ccf5501822d")));
    document.addSample(0x05);

    const QByteArray expected = bytes("3081dc" "020101" "0481c8") + QByteArray(200, '\x11')
                                + bytes("a00a" "06082a811ccf5501822d" "0500");
    EXPECT_EQ(hex(document.build()), hex(expected));
}

TEST(HostAsnDocument, lengthOctetsSwitchFormAtEachBoundary)
{
    struct Row {
        int contentSize;
        const char *header;
    };
    const Row rows[] = {
        {0, "0400"},       {127, "047f"},        {128, "048180"},     {255, "0481ff"},
        {256, "04820100"}, {65535, "0482ffff"}, {65536, "0483010000"},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.contentSize);
        AsnDocument document;
        ASSERT_TRUE(document.create(0x30));
        AsnBlock *octets = asBlock(document.addSample(0x04));
        ASSERT_TRUE(octets->setData(QByteArray(row.contentSize, '\x5a')));
        const QByteArray encoded = octets->build();
        EXPECT_EQ(hex(encoded.left(static_cast<int>(strlen(row.header)) / 2)), row.header);
        EXPECT_EQ(encoded.size(), static_cast<int>(strlen(row.header)) / 2 + row.contentSize);
        EXPECT_EQ(document.build(), tlv(0x30, encoded));
    }
}

TEST(HostAsnDocument, openedTreeBuildsBackByteForByte)
{
    const QByteArray der = bytes(kFourChildren);
    AsnDocument document;
    ASSERT_TRUE(document.open(der));
    EXPECT_TRUE(document.checkTag(0x30));
    EXPECT_EQ(hex(document.build()), kFourChildren);
    document.update();
    EXPECT_EQ(hex(document.build()), kFourChildren);
}

TEST(HostAsnDocument, buildOfAnUnchangedTreeSharesTheOpenedBytes)
{
    const QByteArray der = tlv(0x30, tlv(0x04, QByteArray(1 << 20, '\x42')));
    AsnDocument document;
    ASSERT_TRUE(document.open(der));
    EXPECT_EQ(document.build().constData(), der.constData());
}

TEST(HostAsnDocument, unchangedValueKeepsItsNonMinimalLength)
{
    AsnDocument document;
    ASSERT_TRUE(document.open(bytes("3081030201" "05")));
    EXPECT_EQ(hex(document.build()), "308103020105");
}

TEST(HostAsnDocument, changedValueGetsMinimalLengthWhileUnchangedSiblingsKeepTheirBytes)
{
    AsnDocument document;
    ASSERT_TRUE(document.open(bytes("3081050481020102")));
    ASSERT_NE(document.addSample(0x05), nullptr);
    EXPECT_EQ(hex(document.build()), "3007" "0481020102" "0500");
}

TEST(HostAsnDocument, getChildAnswersNullForAnIndexOrTagThatDoesNotMatch)
{
    AsnDocument document;
    ASSERT_TRUE(document.open(bytes(kFourChildren)));
    EXPECT_EQ(document.getChild(5, 0x02), nullptr) << "a SEQUENCE of four has no child 5";
    EXPECT_EQ(document.getChild(4, 0x05), nullptr) << "nor child 4";
    EXPECT_EQ(document.getChild(-1, 0x02), nullptr);
    EXPECT_EQ(document.getChild(2, 0x31), nullptr) << "child 2 is a SEQUENCE, not a SET";
    EXPECT_EQ(document.getChild(0, 0x04), nullptr) << "child 0 is an INTEGER";
    EXPECT_EQ(document.getChild(0, 0x102), nullptr) << "no identifier octet is 0x102";

    EXPECT_NE(document.getChild(0, 0x02), nullptr);
    EXPECT_NE(document.getChild(1, 0x04), nullptr);
    EXPECT_NE(document.getChild(2, 0x30), nullptr);
    EXPECT_NE(document.getChild(3, 0x05), nullptr);
}

TEST(HostAsnDocument, firstChildThatIsASequenceIsNotFoundAsASet)
{
    AsnDocument document;
    ASSERT_TRUE(document.open(bytes("3005" "3003020101")));
    EXPECT_EQ(document.getChild(0, 0x31), nullptr);
    AsnBlock *inner = asBlock(document.getChild(0, 0x30));
    ASSERT_NE(inner, nullptr);
    EXPECT_EQ(inner->getChild(0, 0x30), nullptr);
    EXPECT_EQ(inner->getChild(1, 0x02), nullptr);
    EXPECT_NE(inner->getChild(0, 0x02), nullptr);
}

TEST(HostAsnDocument, primitiveValuesHaveNoChildren)
{
    AsnDocument document;
    ASSERT_TRUE(document.open(bytes("020105")));
    EXPECT_EQ(document.getChild(0, 0x02), nullptr);
    EXPECT_EQ(document.addSample(0x02), nullptr);
    EXPECT_EQ(document.addStruct(0x30), nullptr);

    ASSERT_TRUE(document.create(0x30));
    AsnBlock *integer = asBlock(document.addSample(0x02));
    EXPECT_EQ(integer->getChild(0, 0x02), nullptr);
    EXPECT_EQ(integer->addSample(0x02), nullptr);
    EXPECT_EQ(integer->addStruct(0x30), nullptr);
    EXPECT_EQ(hex(document.build()), "30020200");
}

TEST(HostAsnDocument, emptyDocumentAnswersFailureValues)
{
    AsnDocument document;
    EXPECT_FALSE(document.checkTag(0x30));
    EXPECT_EQ(document.getChild(0, 0x30), nullptr);
    EXPECT_EQ(document.addSample(0x02), nullptr);
    EXPECT_EQ(document.addStruct(0x30), nullptr);
    document.update();
    EXPECT_TRUE(document.build().isEmpty());

    ASSERT_TRUE(document.create(0x30));
    document.close();
    EXPECT_FALSE(document.checkTag(0x30));
    EXPECT_TRUE(document.build().isEmpty());
}

TEST(HostAsnDocument, sameNodeAnswersTheSameBlock)
{
    AsnDocument document;
    ASSERT_TRUE(document.open(bytes(kFourChildren)));
    QObject *first = document.getChild(2, 0x30);
    EXPECT_EQ(document.getChild(2, 0x30), first);
    EXPECT_NE(document.getChild(0, 0x02), first);

    QObject *added = document.addSample(0x04);
    EXPECT_EQ(document.getChild(4, 0x04), added);
    AsnBlock *inner = asBlock(first);
    QObject *grandchild = inner->addStruct(0x31);
    EXPECT_EQ(inner->getChild(0, 0x31), grandchild);
}

TEST(HostAsnDocument, blocksAreReleasedWithTheirTree)
{
    AsnDocument document;
    ASSERT_TRUE(document.open(bytes(kFourChildren)));
    QPointer<QObject> fromOpen = document.getChild(0, 0x02);
    ASSERT_TRUE(fromOpen);
    ASSERT_TRUE(document.create(0x30));
    EXPECT_FALSE(fromOpen) << "create releases the blocks of the tree it replaces";

    QPointer<QObject> fromCreate = document.addStruct(0x30);
    ASSERT_TRUE(document.open(bytes(kFourChildren)));
    EXPECT_FALSE(fromCreate) << "open releases them too";

    QPointer<QObject> beforeClose = document.getChild(1, 0x04);
    document.close();
    EXPECT_FALSE(beforeClose) << "and close";

    QPointer<QObject> beforeDestruction;
    {
        AsnDocument scoped;
        ASSERT_TRUE(scoped.create(0x30));
        beforeDestruction = scoped.addSample(0x02);
        ASSERT_TRUE(beforeDestruction);
    }
    EXPECT_FALSE(beforeDestruction) << "and the document's destruction";
}

TEST(HostAsnDocument, builderTagsMustNameTheRightKindOfValue)
{
    AsnDocument document;
    ASSERT_TRUE(document.create(0x30));
    EXPECT_EQ(document.addSample(0x30), nullptr) << "constructed bit set";
    EXPECT_EQ(document.addStruct(0x02), nullptr) << "constructed bit clear";
    EXPECT_EQ(document.addSample(0x1F), nullptr) << "high-tag-number escape";
    EXPECT_EQ(document.addStruct(0x3F), nullptr) << "high-tag-number escape";
    EXPECT_EQ(document.addSample(0x00), nullptr) << "end-of-contents";
    EXPECT_EQ(document.addStruct(0x20), nullptr) << "universal tag 0";
    EXPECT_EQ(document.addSample(0x102), nullptr) << "more than one octet";
    EXPECT_EQ(document.addSample(-2), nullptr) << "negative";
    EXPECT_EQ(hex(document.build()), "3000") << "refusals add nothing";

    EXPECT_NE(document.addSample(0x80), nullptr);
    EXPECT_NE(document.addStruct(0xA1), nullptr);
    EXPECT_NE(document.addSample(0xDE), nullptr);
    EXPECT_EQ(hex(document.build()), "3006" "8000" "a100" "de00");
}

TEST(HostAsnDocument, integerWithTopBitSetGetsOneLeadingZeroOctet)
{
    AsnDocument document;
    ASSERT_TRUE(document.create(0x30));
    AsnBlock *integer = asBlock(document.addSample(0x02));
    const QByteArray value = topBitBytes(32);
    ASSERT_TRUE(integer->setData(value));
    EXPECT_EQ(hex(integer->toByteArray()), hex(QByteArray(1, '\0') + value));
    EXPECT_EQ(integer->toByteArray().size(), 33);
    EXPECT_EQ(hex(integer->build()), "0221" + hex(QByteArray(1, '\0') + value));
}

TEST(HostAsnDocument, integerContentIsOtherwiseStoredVerbatim)
{
    AsnDocument document;
    ASSERT_TRUE(document.create(0x30));
    AsnBlock *integer = asBlock(document.addSample(0x02));
    for (const char *content : {"0001", "00ff", "7f", "0080", ""}) {
        SCOPED_TRACE(content);
        ASSERT_TRUE(integer->setData(bytes(content)));
        EXPECT_EQ(hex(integer->toByteArray()), content);
    }
}

TEST(HostAsnDocument, onlyIntegersGainTheLeadingZeroOctet)
{
    AsnDocument document;
    ASSERT_TRUE(document.create(0x30));
    for (int tag : {0x04, 0x03, 0x0A, 0x82, 0x42}) {
        SCOPED_TRACE(tag);
        AsnBlock *value = asBlock(document.addSample(tag));
        ASSERT_TRUE(value->setData(bytes("80ff")));
        EXPECT_EQ(hex(value->toByteArray()), "80ff");
    }
}

TEST(HostAsnDocument, setDataIsRefusedOnAConstructedValue)
{
    AsnDocument document;
    ASSERT_TRUE(document.create(0x30));
    AsnBlock *sequence = asBlock(document.addStruct(0x30));
    EXPECT_FALSE(sequence->setData(bytes("0101")));
    EXPECT_EQ(hex(document.build()), "30023000");
}

TEST(HostAsnDocument, setDataReplacesTheContentOfAnOpenedValue)
{
    AsnDocument document;
    ASSERT_TRUE(document.open(bytes(kFourChildren)));
    ASSERT_TRUE(asBlock(document.getChild(0, 0x02))->setData(bytes("0102")));
    EXPECT_EQ(hex(document.build()), "300b" "02020102" "0401aa" "3000" "0500");
    ASSERT_TRUE(asBlock(document.getChild(0, 0x02))->setData(bytes("f0")));
    EXPECT_EQ(hex(document.build()), "300b" "020200f0" "0401aa" "3000" "0500");
}

TEST(HostAsnDocument, addBlockKeepsTheEncodedBytesVerbatim)
{
    AsnDocument document;
    ASSERT_TRUE(document.create(0x30));
    AsnBlock *context = asBlock(document.addStruct(0xA0));
    // Non-minimal long-form length: re-encoding it would change the bytes.
    const QByteArray block = bytes("048103010203");
    ASSERT_TRUE(context->addBlock(block));
    EXPECT_EQ(hex(context->toByteArray()), hex(block));
    EXPECT_EQ(hex(document.build()), "3008" "a006" "048103010203");

    AsnBlock *octets = asBlock(context->getChild(0, 0x04));
    ASSERT_NE(octets, nullptr);
    EXPECT_EQ(hex(octets->toByteArray()), "010203");
    EXPECT_EQ(hex(octets->build()), hex(block));
}

TEST(HostAsnDocument, addedBlockIsWalkedLikeAnOpenedOne)
{
    AsnDocument document;
    ASSERT_TRUE(document.create(0x30));
    AsnBlock *set = asBlock(document.addStruct(0x31));
    ASSERT_TRUE(set->addBlock(bytes("3006020101020102")));
    AsnBlock *inner = asBlock(set->getChild(0, 0x30));
    ASSERT_NE(inner, nullptr);
    AsnBlock *second = asBlock(inner->getChild(1, 0x02));
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(hex(second->toByteArray()), "02");

    ASSERT_TRUE(second->setData(bytes("0203")));
    EXPECT_EQ(hex(document.build()), "300b" "3109" "3007020101" "02020203");
}

TEST(HostAsnDocument, addBlockRefusesEmptyMalformedOrMisplacedInput)
{
    AsnDocument document;
    ASSERT_TRUE(document.create(0x30));
    AsnBlock *sequence = asBlock(document.addStruct(0x30));
    AsnBlock *integer = asBlock(document.addSample(0x02));
    const QByteArray before = document.build();

    EXPECT_FALSE(sequence->addBlock(QByteArray())) << "empty";
    EXPECT_FALSE(sequence->addBlock(bytes("040501"))) << "length past the end";
    EXPECT_FALSE(sequence->addBlock(bytes("04010100"))) << "trailing byte";
    EXPECT_FALSE(sequence->addBlock(bytes("3080050000"))) << "indefinite length";
    EXPECT_FALSE(sequence->addBlock(bytes("3004020105"))) << "inner value cut short";
    EXPECT_FALSE(integer->addBlock(bytes("020101"))) << "a primitive value takes no children";

    EXPECT_EQ(hex(document.build()), hex(before));
    EXPECT_EQ(sequence->getChild(0, 0x04), nullptr);
    EXPECT_TRUE(sequence->addBlock(bytes("020101")));
    EXPECT_EQ(hex(document.build()), "3007" "3003020101" "0200");
}

TEST(HostAsnDocument, toByteArrayIsTheContentAndBuildTheWholeValue)
{
    AsnDocument document;
    ASSERT_TRUE(document.create(0x30));
    AsnBlock *sequence = asBlock(document.addStruct(0x30));
    ASSERT_TRUE(asBlock(sequence->addSample(0x02))->setData(bytes("07")));
    ASSERT_TRUE(asBlock(sequence->addSample(0x04))->setData(bytes("abcd")));
    EXPECT_EQ(hex(sequence->toByteArray()), "020107" "0402abcd");
    EXPECT_EQ(hex(sequence->build()), "3007" "020107" "0402abcd");

    AsnBlock *opened = nullptr;
    AsnDocument reopened;
    ASSERT_TRUE(reopened.open(document.build()));
    opened = asBlock(reopened.getChild(0, 0x30));
    ASSERT_NE(opened, nullptr);
    EXPECT_EQ(hex(opened->toByteArray()), "020107" "0402abcd");
    EXPECT_EQ(hex(opened->build()), "3007" "020107" "0402abcd");
}

TEST(HostAsnDocument, updateThenBuildGivesTheSameBytesAsBuildAlone)
{
    auto fill = [](AsnDocument &document) {
        document.create(0x30);
        asBlock(document.addSample(0x02))->setData(topBitBytes(32));
        AsnBlock *context = asBlock(document.addStruct(0xA1));
        asBlock(context->addSample(0x04))->setData(QByteArray(300, '\x01'));
    };
    AsnDocument withUpdate;
    AsnDocument without;
    fill(withUpdate);
    fill(without);
    withUpdate.update();
    const QByteArray built = withUpdate.build();
    EXPECT_EQ(hex(built), hex(without.build()));
    EXPECT_EQ(built.size(), 4 + 35 + 4 + 304);

    // A change after update is still seen: update settles nothing for good.
    ASSERT_TRUE(asBlock(withUpdate.getChild(1, 0xA1))->addSample(0x05) != nullptr);
    EXPECT_EQ(withUpdate.build().size(), built.size() + 2);
}

TEST(HostAsnDocument, highTagNumberIdentifiersParseAndRebuildVerbatim)
{
    // [128] primitive, identifier 9f 81 00: no single int tag names it.
    AsnDocument document;
    ASSERT_TRUE(document.open(bytes("30069f810002abcd")));
    EXPECT_EQ(hex(document.build()), "30069f810002abcd");
    EXPECT_EQ(document.getChild(0, 0x9F), nullptr);
    ASSERT_NE(document.addSample(0x05), nullptr);
    EXPECT_EQ(hex(document.build()), "30089f810002abcd0500");

    // A changed constructed root keeps its three identifier octets.
    ASSERT_TRUE(document.open(bytes("bf810003020107")));
    EXPECT_FALSE(document.checkTag(0xBF));
    ASSERT_NE(document.addSample(0x05), nullptr);
    EXPECT_EQ(hex(document.build()), "bf8100050201070500");
}

TEST(HostAsnDocument, buildersStopAtSixtyFourLevels)
{
    AsnDocument document;
    ASSERT_TRUE(document.create(0x30));
    AsnBlock *deepest = asBlock(document.addStruct(0x30));
    for (int level = 3; level <= 64; ++level) {
        SCOPED_TRACE(level);
        deepest = asBlock(deepest->addStruct(0x30));
        ASSERT_NE(deepest, nullptr);
    }
    EXPECT_EQ(deepest->addStruct(0x30), nullptr) << "level 65";
    EXPECT_EQ(deepest->addSample(0x05), nullptr) << "level 65";
    EXPECT_FALSE(deepest->addBlock(bytes("0500"))) << "level 65";

    AsnDocument reopened;
    EXPECT_TRUE(reopened.open(document.build())) << "a built tree always opens again";
}

TEST(HostAsnDocument, addBlockCountsLevelsFromTheDocumentRoot)
{
    AsnDocument document;
    ASSERT_TRUE(document.create(0x30));
    AsnBlock *level62 = asBlock(document.addStruct(0x30));
    for (int level = 3; level <= 62; ++level)
        level62 = asBlock(level62->addStruct(0x30));
    EXPECT_FALSE(level62->addBlock(nested(3))) << "would reach level 65";
    EXPECT_TRUE(document.errorString().contains("65 levels deep")) << document.errorString().toStdString();
    EXPECT_TRUE(level62->addBlock(nested(2))) << "reaches level 64";
}

TEST(HostAsnDocument, refusedOpenSaysWhatWasWrong)
{
    AsnDocument document;
    EXPECT_FALSE(document.open(QByteArray()));
    EXPECT_EQ(document.errorString(), "no bytes to parse");
    EXPECT_FALSE(document.open(bytes("3003020105ff")));
    EXPECT_EQ(document.errorString(), "1 bytes follow the value, which ends at offset 5");
    EXPECT_FALSE(document.open(bytes("3005020105")));
    EXPECT_EQ(document.errorString(),
              "value at offset 0 claims 5 content bytes, but only 3 remain inside its enclosing value");
}

} // namespace
