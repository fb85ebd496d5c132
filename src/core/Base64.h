#pragma once
// The one base64 codec (RFC 4648 alphabet, padded). The named front ends of
// the mail code (util/Base64Codec.h, DataWangers) and the JSON encoding call it.
#include <string>

#include <quillhaven/Bytes.h>

namespace qh {

class Base64 {
public:
    // The bytes encoded; with a `lineLength` (a multiple of 4), lines of that
    // many characters joined by CR LF, none after the last.
    static std::string encode(ByteView bytes, std::size_t lineLength = 0);
    // The same, appended to `out`.
    static void append(ByteView bytes, std::string& out, std::size_t lineLength = 0);
    // Every byte outside the alphabet (padding, line ends, junk) is skipped and
    // decoding goes on past padding. A trailing group of three values gives two
    // bytes, of two values one byte; a single leftover value is dropped.
    static Bytes decode(ByteView text);
    // The alphabet value of `c`, or -1 for any other byte ('=' included).
    static int valueOf(char c);
};

}  // namespace qh
