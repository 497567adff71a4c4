#pragma once

#include <openssl/asn1.h>

#include <initializer_list>

// The baselines' way through a DER tree: OpenSSL's ASN1_get_object, header by header, no tree.
// `value`/`length` hold one whole encoding; each step of `path` moves to that child of it.
// On success `content`/`contentLength` are the content octets of the value reached.
inline bool derDescend(const unsigned char *value, long length, std::initializer_list<int> path,
                       const unsigned char **content, long *contentLength)
{
    auto header = [](const unsigned char **cursor, long available, long *size) {
        int tag = 0;
        int tagClass = 0;
        const int answer = ASN1_get_object(cursor, size, &tag, &tagClass, available);
        return (answer & 0x80) == 0;
    };
    const unsigned char *cursor = value;
    long size = 0;
    if (!header(&cursor, length, &size))
        return false;
    for (int index : path) {
        const unsigned char *end = cursor + size;
        for (int i = 0;; ++i) {
            if (cursor >= end)
                return false;
            const unsigned char *child = cursor;
            long childSize = 0;
            if (!header(&cursor, end - cursor, &childSize))
                return false;
            if (i == index) {
                size = childSize;
                break;
            }
            cursor += childSize;
            (void)child;
        }
    }
    *content = cursor;
    *contentLength = size;
    return true;
}
