// Malformed DER against the ASN.1 component: every fault is refused with a reason, nothing is
// read past the input, and whatever opens rebuilds to exactly the bytes it came from.

#include "asn_test_support.h"
#include "test_certificates.h"

#include "asn/asn_block.h"
#include "asn/asn_document.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

using namespace asntest;
using zthost::AsnBlock;
using zthost::AsnDocument;

namespace {

// The valid value each row changes in one field: SEQUENCE { INTEGER 5, OCTET STRING aa }.
const char kValid[] = "3006" "020105" "0401aa";

struct MalformedCase {
    const char *name;
    QByteArray input;
    const char *errorFragment;  // part of the reason the document gives
};

void PrintTo(const MalformedCase &row, std::ostream *out)
{
    *out << row.name << " " << row.input.toHex().toStdString();
}

QByteArray withValidTail(const char *head)
{
    return bytes(head) + bytes("020105" "0401aa");
}

const MalformedCase kMalformed[] = {
    {"empty input", QByteArray(), "no bytes"},
    {"identifier without a length", bytes("30"), "truncated or malformed"},
    {"length octets cut short", bytes("3082"), "truncated or malformed"},
    {"long-form length cut short", bytes("308200"), "truncated or malformed"},
    {"last content byte missing", bytes("3006" "020105" "0401"), "only 5 remain"},
    {"outer length one past the end", bytes("3007" "020105" "0401aa"), "claims 7 content bytes"},
    {"inner length past its parent", bytes("3006" "020105" "0402aa"), "claims 2 content bytes"},
    {"outer length cuts a child's header", bytes("3004" "020105" "0401aa"), "truncated or malformed"},
    {"indefinite length", withValidTail("3080"), "indefinite length"},
    {"indefinite length on a primitive", bytes("0480" "aa0000"), "truncated or malformed"},
    {"trailing byte", bytes(kValid) + bytes("00"), "1 bytes follow the value"},
    {"trailing value", bytes(kValid) + bytes("0500"), "2 bytes follow the value"},
    {"end-of-contents marker as a child", bytes("3006" "020105" "0001aa"), "end-of-contents"},
    {"end-of-contents marker as the value", bytes("0000"), "end-of-contents"},
    {"four-byte length far past the end", withValidTail("3084ffffffff"), "claims 4294967295"},
    {"longest length a long holds", withValidTail("30887fffffffffffffff"), "claims"},
    {"length beyond a long", withValidTail("308880000000000000ff"), "truncated or malformed"},
    {"nine length octets", withValidTail("3089010000000000000006"), "truncated or malformed"},
    {"reserved length octet 0xff", bytes("30ff") + QByteArray(127, '\x01'), "truncated or malformed"},
    {"high-tag-number identifier never ends", bytes("1f8181"), "truncated or malformed"},
    {"high-tag-number identifier without a length", bytes("1f01"), "truncated or malformed"},
    {"high-tag-number beyond an int", withValidTail("1fffffffff7f06"), "truncated or malformed"},
    {"65 levels of nesting", nested(65), "nested 65 levels deep"},
};

class HostAsnMalformed : public ::testing::TestWithParam<MalformedCase>
{
};

TEST_P(HostAsnMalformed, openRefusesAndNamesTheFault)
{
    const MalformedCase &row = GetParam();
    AsnDocument document;
    ASSERT_TRUE(document.open(bytes(kValid))) << "the valid base opens";
    EXPECT_FALSE(document.open(row.input));
    EXPECT_TRUE(document.errorString().contains(row.errorFragment))
        << document.errorString().toStdString();
    EXPECT_TRUE(document.build().isEmpty()) << "a refused open leaves no tree";
    EXPECT_EQ(document.getChild(0, 0x02), nullptr);
}

TEST_P(HostAsnMalformed, addBlockRefusesAndKeepsTheTree)
{
    const MalformedCase &row = GetParam();
    AsnDocument document;
    ASSERT_TRUE(document.create(0x30));
    AsnBlock *sequence = asBlock(document.addStruct(0x30));
    EXPECT_FALSE(sequence->addBlock(row.input));
    EXPECT_EQ(hex(document.build()), "30023000");
}

INSTANTIATE_TEST_SUITE_P(OneFaultEach, HostAsnMalformed, ::testing::ValuesIn(kMalformed),
                         [](const ::testing::TestParamInfo<MalformedCase> &info) {
                             std::string name;
                             bool upper = false;
                             for (const char *c = info.param.name; *c != '\0'; ++c) {
                                 if (*c == ' ' || *c == '-' || *c == '\'') {
                                     upper = true;
                                 } else {
                                     name += upper ? static_cast<char>(toupper(*c)) : *c;
                                     upper = false;
                                 }
                             }
                             return name;
                         });

TEST(HostAsnLimits, sixtyFourLevelsOfNestingOpen)
{
    const QByteArray der = nested(64);
    AsnDocument document;
    ASSERT_TRUE(document.open(der));
    EXPECT_EQ(hex(document.build()), hex(der));
}

TEST(HostAsnLimits, everyStrictPrefixOfACertificateIsRefused)
{
    certtest::Key key = certtest::ecKey("prime256v1");
    certtest::Certificate certificate = certtest::certificateFor(key.get());
    const QByteArray der = certtest::der(certificate.get());
    ASSERT_FALSE(der.isEmpty());
    AsnDocument document;
    for (int length = 0; length < der.size(); ++length) {
        if (document.open(der.left(length)))
            ADD_FAILURE() << "a " << length << "-byte prefix of a " << der.size()
                          << "-byte certificate opened";
    }
    EXPECT_TRUE(document.open(der));
}

// Whatever opens must rebuild to its own bytes: the tree holds them unchanged.
void expectRefusedOrRebuilt(const QByteArray &input)
{
    AsnDocument document;
    if (document.open(input)) {
        EXPECT_EQ(hex(document.build()), hex(input));
    } else {
        EXPECT_FALSE(document.errorString().isEmpty()) << hex(input);
    }
}

TEST(HostAsnLimits, changedBytesOfACertificateAreRefusedOrRebuilt)
{
    certtest::Key key = certtest::ecKey("prime256v1");
    certtest::Certificate certificate = certtest::certificateFor(key.get());
    const QByteArray der = certtest::der(certificate.get());
    ASSERT_FALSE(der.isEmpty());
    std::mt19937 random(20240611u);
    int refused = 0;
    for (int position = 0; position < der.size(); ++position) {
        for (int round = 0; round < 4; ++round) {
            QByteArray changed = der;
            changed[position] = static_cast<char>(random() & 0xFF);
            AsnDocument document;
            if (!document.open(changed))
                ++refused;
            expectRefusedOrRebuilt(changed);
        }
    }
    EXPECT_GT(refused, 0);
}

TEST(HostAsnLimits, randomBytesAreRefusedOrRebuilt)
{
    // Identifier octets that start most inputs, so that the parser gets past the first header.
    const quint8 leads[] = {0x30, 0x31, 0xA0, 0x02, 0x04, 0x1F, 0x3F, 0x80, 0x05};
    std::mt19937 random(7u);
    int opened = 0;
    for (int round = 0; round < 3000; ++round) {
        const int length = static_cast<int>(random() % 48);
        QByteArray input;
        for (int i = 0; i < length; ++i)
            input.append(static_cast<char>(random() & 0xFF));
        if (!input.isEmpty() && random() % 2 == 0)
            input[0] = static_cast<char>(leads[random() % sizeof leads]);
        if (input.size() > 1 && random() % 2 == 0)
            input[1] = static_cast<char>(input.size() - 2);
        AsnDocument document;
        if (document.open(input))
            ++opened;
        expectRefusedOrRebuilt(input);
    }
    EXPECT_GT(opened, 0) << "the generator also makes well-formed values";
}

} // namespace
