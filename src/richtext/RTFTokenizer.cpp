#include "richtext/RTFTokenizer.h"

#include <array>
#include <limits>

namespace qh {
namespace {

constexpr bool isLetter(std::uint8_t c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
constexpr bool isDigit(std::uint8_t c) { return c >= '0' && c <= '9'; }

int hexValue(std::uint8_t c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// Bytes that matter while a group is skipped.
constexpr std::array<bool, 256> kStopsSkipping = [] {
    std::array<bool, 256> table{};
    table['\\'] = table['{'] = table['}'] = true;
    return table;
}();

// Bytes that end a run of literal text.
constexpr std::array<bool, 256> kStopsText = [] {
    std::array<bool, 256> table{};
    table['\\'] = table['{'] = table['}'] = table['\r'] = table['\n'] = table[0] = true;
    return table;
}();

}  // namespace

RTFToken RTFTokenizer::next() {
    const std::size_t size = data_.size();
    // Line ends and NULs carry nothing in RTF; decompressed bodies are often NUL-padded.
    while (position_ < size && (data_[position_] == '\r' || data_[position_] == '\n' || data_[position_] == 0))
        ++position_;
    RTFToken token;
    if (position_ >= size) return token;

    const std::uint8_t c = data_[position_];
    if (c == '{') {
        ++position_;
        token.kind = RTFToken::Kind::GroupOpen;
        return token;
    }
    if (c == '}') {
        ++position_;
        token.kind = RTFToken::Kind::GroupClose;
        return token;
    }
    if (c != '\\') {
        std::size_t end = position_ + 1;
        while (end < size && !kStopsText[data_[end]]) ++end;
        token.kind = RTFToken::Kind::Text;
        token.bytes = data_.subspan(position_, end - position_);
        position_ = end;
        return token;
    }

    ++position_;  // the backslash
    if (position_ >= size) return token;  // a lone backslash at the very end
    const std::uint8_t after = data_[position_];
    if (isLetter(after)) return controlWord();
    if (after == '\'') {
        ++position_;
        int value = -1;
        // A truncated escape keeps the digits it has.
        for (int i = 0; i < 2 && position_ < size; ++i) {
            int digit = hexValue(data_[position_]);
            if (digit < 0) break;
            value = (value < 0 ? 0 : value * 16) + digit;
            ++position_;
        }
        if (value < 0) {
            // "\'" without a digit: an empty symbol that the reader ignores.
            token.kind = RTFToken::Kind::ControlSymbol;
            token.byte = '\'';
            return token;
        }
        token.kind = RTFToken::Kind::HexByte;
        token.byte = static_cast<std::uint8_t>(value);
        return token;
    }
    ++position_;
    // A backslash before a line end is a paragraph mark.
    if (after == '\r' || after == '\n') {
        token.kind = RTFToken::Kind::ControlWord;
        token.word = "par";
        return token;
    }
    token.kind = RTFToken::Kind::ControlSymbol;
    token.byte = after;
    return token;
}

bool RTFTokenizer::skipGroup() {
    const std::size_t size = data_.size();
    std::size_t depth = 1;
    while (position_ < size) {
        const std::uint8_t c = data_[position_++];
        if (!kStopsSkipping[c]) continue;
        if (c == '{') {
            ++depth;
        } else if (c == '}') {
            if (--depth == 0) return true;
        } else if (position_ < size) {
            // A control word is read whole so that a \binN payload is stepped over;
            // any other escape is two bytes (\{, \}, \\ and the rest).
            if (isLetter(data_[position_])) (void)controlWord();
            else ++position_;
        }
    }
    return false;
}

RTFToken RTFTokenizer::controlWord() {
    const std::size_t size = data_.size();
    RTFToken token;
    token.kind = RTFToken::Kind::ControlWord;
    const std::size_t start = position_;
    while (position_ < size && isLetter(data_[position_])) ++position_;
    std::size_t length = position_ - start;
    if (length > kMaxControlWordLength) length = kMaxControlWordLength;
    token.word = std::string_view(reinterpret_cast<const char*>(data_.data()) + start, length);

    bool negative = false;
    if (position_ + 1 < size && data_[position_] == '-' && isDigit(data_[position_ + 1])) {
        negative = true;
        ++position_;
    }
    if (position_ < size && isDigit(data_[position_])) {
        token.hasParameter = true;
        std::int64_t value = 0;
        constexpr std::int64_t kLimit = std::numeric_limits<std::int32_t>::max();
        while (position_ < size && isDigit(data_[position_])) {
            if (value <= kLimit) value = value * 10 + (data_[position_] - '0');
            ++position_;
        }
        if (value > kLimit) value = kLimit;
        token.parameter = static_cast<std::int32_t>(negative ? -value : value);
    }
    if (position_ < size && data_[position_] == ' ') ++position_;  // the delimiting blank belongs to the word

    if (token.word == "bin" && token.hasParameter) {
        // \binN: N raw bytes follow; a count beyond the data takes what remains.
        std::size_t count = token.parameter > 0 ? static_cast<std::size_t>(token.parameter) : 0;
        if (!fits(position_, count, size)) count = size - position_;
        token.kind = RTFToken::Kind::Binary;
        token.bytes = data_.subspan(position_, count);
        position_ += count;
    }
    return token;
}

}  // namespace qh
