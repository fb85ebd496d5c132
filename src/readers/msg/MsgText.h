#pragma once
// How the strings and fixed-length values of one message are read: the
// reading's rules, and the code pages the message names for its 8-bit text
// (PidTagInternetCodepage for bodies, PidTagMessageCodepage for the rest,
// then the RTF body's \ansicpg, then Windows-1252).
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <quillhaven/Value.h>
#include "readers/msg/MsgRules.h"
#include "readers/msg/PropertyAccess.h"

namespace qh {

// Sets a dictionary key named in quillhaven/MessageKeys.h.
inline void setKey(Dict& dictionary, std::string_view key, Value value) {
    dictionary.set(std::string(key), std::move(value));
}

class MsgText {
public:
    enum class Use { Body, Other };

    explicit MsgText(const MsgRules& rules) : rules_(&rules) {}
    // The code pages of the message whose property stream is `properties`
    // (after a header of `headerSize` bytes) and whose decompressed RTF body
    // is `rtf`; a code page the message does not name is taken from `outer`
    // (the message it is embedded in), when given.
    static MsgText forMessage(const MsgRules& rules, ByteView properties, std::size_t headerSize, ByteView rtf,
                              const MsgText* outer = nullptr);

    const MsgRules& rules() const { return *rules_; }

    // A string property: its stream of `preferredType` (0x001F or 0x001E),
    // else of the other string type, decoded and cleaned; none when neither
    // stream exists or holds text.
    std::optional<std::string> find(std::uint32_t element, std::uint32_t preferredType, const Dict* container,
                                    Use use = Use::Other) const;
    // The same, "" for none.
    std::string property(std::uint32_t element, std::uint32_t preferredType, const Dict* container,
                         Use use = Use::Other) const {
        return find(element, preferredType, container, use).value_or("");
    }
    // Bytes of one string type as text, before cleaning: UTF-16LE for 0x001F,
    // the 8-bit reading of the rules for anything else. None for empty bytes.
    std::optional<std::string> decode(ByteView bytes, std::uint32_t type, Use use = Use::Other) const;
    // Bytes of an HTML body: the body code pages, then UTF-8, then the fallback.
    std::string decodeHtml(ByteView bytes) const;
    // A value cleaned by the string rule (classic: zapGremlins, which may
    // leave ""; complete: keepWhole, none when nothing is left).
    std::optional<std::string> clean(std::string_view text) const;
    // A subject as one line: classic keeps the first line, complete joins
    // the lines with single spaces.
    std::optional<std::string> oneLine(std::string_view text) const;
    // A fixed-length value of a property stream whose records follow a
    // header of `headerSize` bytes.
    std::optional<MsgPropertyAccess::PropertyValue> fixed(std::uint32_t element, std::uint32_t elementType,
                                                          ByteView properties, std::size_t headerSize) const;

    // The complete reading's clean-up: text up to its terminating NUL,
    // without control characters other than tab, CR and LF, trimmed.
    static std::string keepWhole(std::string_view text);
    // The number after "\ansicpg" in an RTF document's header, 0 when none.
    static std::uint32_t rtfAnsiCodePage(ByteView rtf);

    std::uint32_t messageCodePage() const { return messageCodePage_; }
    std::uint32_t internetCodePage() const { return internetCodePage_; }
    std::uint32_t rtfCodePage() const { return rtfCodePage_; }

private:
    const MsgRules* rules_;
    std::uint32_t messageCodePage_ = 0;
    std::uint32_t internetCodePage_ = 0;
    std::uint32_t rtfCodePage_ = 0;
};

}  // namespace qh
