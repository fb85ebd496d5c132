#pragma once
// The control words the RTF reader acts on, shared by RTFConverter and the
// encapsulated-HTML pass so that both know the same words. A word the table
// does not hold is one the reader ignores (or skips, after \*).
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace qh::rtfwords {

enum class Keyword : std::uint8_t {
    SkipDestination, FontTable, FieldInstruction, FieldResult, Field, HtmlTag,
    Bold, Italic, Underline, UnderlineNone, Hidden, Plain, Font, DefaultFont, FontCharset, FontCodePage,
    UnicodeSkip, Unicode, AnsiCodePage, Ansi, Mac, Pc, Pca, HtmlRtf, FromHtml,
    Par, Line, Tab, Cell, Row, Character,
};

struct KeywordEntry {
    Keyword keyword;
    char32_t character = 0;  // Keyword::Character
};

// A word's key: its length and its first eight letters (zero-padded, in
// memory order). Words of up to eight letters are told apart by the key
// alone, so a scanner that has the letters in a register looks them up
// without comparing strings.
struct WordKey {
    std::uint64_t prefix = 0;
    std::uint32_t length = 0;
};
WordKey keyOf(std::string_view word);

// The words in an open-addressing table: looking words up is much of the
// work on control-word-dense documents.
class KeywordTable {
public:
    void emplace(std::string_view word, KeywordEntry entry);
    // The entry of `word` (whose key is `key`), or nullptr for a word the reader does not know.
    const KeywordEntry* find(std::string_view word, WordKey key) const {
        for (std::size_t i = slotOf(key); slots_[i].used; i = (i + 1) & kMask) {
            const Slot& slot = slots_[i];
            if (slot.key.prefix != key.prefix || slot.key.length != key.length) continue;
            if (key.length <= 8 || slot.word == word) return &slot.entry;
        }
        return nullptr;
    }

private:
    static constexpr std::size_t kSlots = 512;  // about three times the words held
    static constexpr std::size_t kMask = kSlots - 1;
    static std::size_t slotOf(WordKey key) {
        // Fibonacci hashing of the key: the top nine bits of the product.
        const std::uint64_t mixed = (key.prefix ^ (std::uint64_t{key.length} << 58)) * 0x9E3779B97F4A7C15ull;
        return static_cast<std::size_t>(mixed >> 55);
    }
    struct Slot {
        std::string_view word;
        WordKey key;
        KeywordEntry entry{Keyword::SkipDestination};
        bool used = false;
    };
    Slot slots_[kSlots] = {};
};

// The reader's words (built on first use: a process that reads no RTF pays nothing for it).
const KeywordTable& table();

// The entry of `word`, or nullptr for a word the reader does not know.
inline const KeywordEntry* find(std::string_view word) { return table().find(word, keyOf(word)); }

// The document's code page that \ansicpgN, \ansi, \mac, \pc and \pca
// name; none for other words and for a number no code page has.
inline std::optional<std::uint16_t> documentCodePage(Keyword keyword, std::int32_t parameter) {
    switch (keyword) {
        case Keyword::AnsiCodePage:
            if (parameter > 0 && parameter < 65536) return static_cast<std::uint16_t>(parameter);
            return std::nullopt;
        case Keyword::Ansi: return 1252;
        case Keyword::Mac: return 10000;
        case Keyword::Pc: return 437;
        case Keyword::Pca: return 850;
        default: return std::nullopt;
    }
}

}  // namespace qh::rtfwords
