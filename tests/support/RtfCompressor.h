#pragma once
// Makes compressed-RTF streams (MS-OXRTFCP) for fixtures: a real "LZFu"
// encoder with the standard's preset dictionary, the uncompressed "MELA"
// wrapper, and a token-level builder for streams no encoder would write
// (references past the raw size, tokens after the end marker, ...).
#include <cstdint>
#include <string_view>

#include <quillhaven/Bytes.h>

namespace qhtest {

class RtfCompressor {
public:
    // A complete "LZFu" stream: 16-byte header (sizes, type, CRC), the tokens
    // of a greedy longest-match encoding of `raw`, and the end marker.
    static qh::Bytes compress(qh::ByteView raw);
    static qh::Bytes compress(std::string_view raw) { return compress(qh::asBytes(raw)); }

    // A "MELA" stream: header with CRC 0, then `raw` as it stands.
    static qh::Bytes uncompressed(qh::ByteView raw);
    static qh::Bytes uncompressed(std::string_view raw) { return uncompressed(qh::asBytes(raw)); }

    // The CRC-32 variant of the format (reflected 0xEDB88320, start 0, no final xor).
    static std::uint32_t crc(qh::ByteView bytes);

    // Puts a header in front of hand-made token bytes. `rawSize` is whatever the
    // fixture wants the header to claim.
    static qh::Bytes withHeader(qh::ByteView tokens, std::uint32_t rawSize,
                                std::uint32_t type = 0x75465A4C /* "LZFu" */);

    // Token bytes written one token at a time; a control byte is opened for
    // every eight tokens and completed as tokens are added.
    class Tokens {
    public:
        Tokens& literal(std::uint8_t byte);
        Tokens& literals(std::string_view text);
        // A reference to `length` (2 to 17) bytes at dictionary `offset` (0 to 4095).
        Tokens& reference(std::uint16_t offset, std::uint8_t length);
        // The end marker: a reference to the current write position, given by
        // the caller (207 plus the bytes produced so far, modulo 4096).
        Tokens& endMarker(std::uint16_t writePosition) { return reference(writePosition, 2); }
        // Bytes appended as they are, outside any token (padding, garbage). The
        // builder opens a fresh group after them: use it where the decoder ends
        // a group early (after an end marker or a dropped token).
        Tokens& raw(qh::ByteView bytes);
        const qh::Bytes& bytes() const { return bytes_; }

    private:
        void startToken(bool isReference);
        qh::Bytes bytes_;
        std::size_t controlPosition_ = 0;
        int tokensInGroup_ = 8;
    };
};

}  // namespace qhtest
