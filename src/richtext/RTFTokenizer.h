#pragma once
// Splits RTF bytes into tokens: group braces, control words with their
// numeric parameter, control symbols, \'hh bytes, runs of literal text and
// \binN payloads. It never reads outside the input and never allocates; a
// truncated escape at the end yields what is there.
#include <cstdint>
#include <string_view>

#include <quillhaven/Bytes.h>

namespace qh {

struct RTFToken {
    enum class Kind : std::uint8_t { End, GroupOpen, GroupClose, ControlWord, ControlSymbol, HexByte, Text, Binary };
    Kind kind = Kind::End;
    // ControlWord: its letters (at most kMaxControlWordLength, longer words are cut).
    std::string_view word;
    bool hasParameter = false;
    // ControlWord: the numeric parameter, clamped to the int32 range.
    std::int32_t parameter = 0;
    // ControlSymbol: the character after the backslash; HexByte: the byte.
    std::uint8_t byte = 0;
    // Text and Binary: the bytes (text runs never hold braces, backslashes, CR, LF or NUL).
    ByteView bytes;
};

class RTFTokenizer {
public:
    static constexpr std::size_t kMaxControlWordLength = 32;

    explicit RTFTokenizer(ByteView rtf) : data_(rtf) {}
    RTFToken next();
    // Moves past the rest of the group that is open now, nested groups and
    // \binN payloads included, without producing tokens: true when its closing
    // brace was found, false when the data ended first.
    bool skipGroup();
    std::size_t position() const { return position_; }

private:
    RTFToken controlWord();

    ByteView data_;
    std::size_t position_ = 0;
};

}  // namespace qh
