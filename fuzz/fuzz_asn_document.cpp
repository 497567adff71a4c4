// This file feeds untrusted bytes to the host's ASN.1 component and checks what it makes of them.
//
// Every input is opened as a document. What opens must build back to the very same bytes, and a
// walk of the tree with getChild must find each child that an independent reading of the content
// octets finds, with the same encoding, and nothing beyond the last one.
#include "fuzz_environment.h"

#include "asn/asn_block.h"
#include "asn/asn_document.h"

#include <QByteArray>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace {

// The component refuses deeper trees; the walk never goes further.
constexpr int kMaxDepth = 64;
constexpr int kConstructedBit = 0x20;
constexpr int kHighTagNumber = 0x1F;
// A length of more octets than this cannot describe a value inside a fuzzer input.
constexpr int kMaxLengthOctets = 8;

[[noreturn]] void fail(const char *what, int depth, int index)
{
    std::fprintf(stderr, "asn walk: %s (level %d, child %d)\n", what, depth, index);
    std::abort();
}

// One value read from a sequence of encodings: its whole encoding and its identifier.
struct Element
{
    QByteArray encoding;
    QByteArray identifier;
    bool constructed = false;
};

// Reads the encodings that follow one another in `content`, each a definite-length value. False
// when the content is not such a sequence.
bool splitElements(const QByteArray &content, QList<Element> *elements)
{
    const auto *bytes = reinterpret_cast<const unsigned char *>(content.constData());
    const std::size_t size = std::size_t(content.size());
    std::size_t at = 0;
    while (at < size) {
        const std::size_t start = at;
        const unsigned char first = bytes[at++];
        if ((first & kHighTagNumber) == kHighTagNumber) {
            for (;;) {
                if (at >= size)
                    return false;
                if (!(bytes[at++] & 0x80))
                    break;
            }
        }
        const std::size_t identifierEnd = at;
        if (at >= size)
            return false;
        const unsigned char lengthOctet = bytes[at++];
        std::uint64_t length = lengthOctet;
        if (lengthOctet & 0x80) {
            const int count = lengthOctet & 0x7F;
            if (count == 0 || count > kMaxLengthOctets || size - at < std::size_t(count))
                return false;
            length = 0;
            for (int i = 0; i < count; ++i)
                length = (length << 8) | bytes[at++];
        }
        if (length > size - at)
            return false;
        at += std::size_t(length);
        Element element;
        element.encoding = content.mid(int(start), int(at - start));
        element.identifier = content.mid(int(start), int(identifierEnd - start));
        element.constructed = (first & kConstructedBit) != 0;
        elements->append(element);
    }
    return true;
}

// `node` is the document or a block; `content` its content octets.
template <typename Node>
void walk(Node *node, const QByteArray &content, int depth)
{
    QList<Element> elements;
    if (!splitElements(content, &elements))
        fail("content of a constructed value is not a sequence of values", depth, -1);
    if (!elements.isEmpty() && depth > kMaxDepth)
        fail("an opened tree is deeper than the component allows", depth, -1);

    for (int i = 0; i < elements.size(); ++i) {
        const Element &element = elements.at(i);
        if (element.identifier.size() != 1) {
            // A multi-octet identifier equals no int tag: no tag reaches it.
            if (node->getChild(i, 0x1F) || node->getChild(i, 0x3F))
                fail("a high-tag-number value answered a single-octet tag", depth, i);
            continue;
        }
        const int tag = static_cast<unsigned char>(element.identifier.at(0));
        if (node->getChild(i, tag ^ 0x01))
            fail("a child answered a tag it does not have", depth, i);
        auto *child = qobject_cast<zthost::AsnBlock *>(node->getChild(i, tag));
        if (!child)
            fail("a child was not found under its own tag", depth, i);
        if (child->build() != element.encoding)
            fail("a child builds to other bytes than it came from", depth, i);
        if (node->getChild(i, tag) != child)
            fail("a child answered a second, different block", depth, i);
        const QByteArray childContent = child->toByteArray();
        if (!element.encoding.endsWith(childContent))
            fail("a child's content octets are not the end of its encoding", depth, i);
        if (element.constructed)
            walk(child, childContent, depth + 1);
        else if (child->getChild(0, 0x30) || child->getChild(0, 0x04))
            fail("a primitive value answered a child", depth, i);
    }
    const int past = elements.size();
    if (node->getChild(past, 0x30) || node->getChild(past, 0x02) || node->getChild(-1, 0x30))
        fail("a child answered outside the range of children", depth, past);
}

// Reads the root's own identifier and length to find where its content starts.
QByteArray rootContent(const QByteArray &der)
{
    QList<Element> root;
    if (!splitElements(der, &root) || root.size() != 1)
        fail("an opened document is not exactly one value", 1, 0);
    const QByteArray &encoding = root.at(0).encoding;
    int at = root.at(0).identifier.size();
    const unsigned char lengthOctet = static_cast<unsigned char>(encoding.at(at++));
    if (lengthOctet & 0x80)
        at += lengthOctet & 0x7F;
    return encoding.mid(at);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    ztfuzz::prepareProcess(argc, argv);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    // Not copied: a read past the input lands outside the fuzzer's buffer at once.
    const QByteArray input = QByteArray::fromRawData(reinterpret_cast<const char *>(data),
                                                     int(size));
    zthost::AsnDocument document;
    if (!document.open(input)) {
        if (!document.build().isEmpty())
            fail("a refused document builds to bytes", 0, -1);
        return 0;
    }
    if (document.build() != input)
        fail("an opened document does not build back to its input", 1, -1);

    const bool constructed = (data[0] & kConstructedBit) != 0;
    if (constructed)
        walk(&document, rootContent(input), 2);
    else if (document.getChild(0, 0x30) || document.getChild(0, 0x02))
        fail("a primitive root answered a child", 1, 0);

    // The walk only read: the tree must still encode as it came.
    if (document.build() != input)
        fail("walking the tree changed its encoding", 1, -1);
    document.close();
    return 0;
}
