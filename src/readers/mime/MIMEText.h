#pragma once
// Small text operations of the MIME reader. All of them work on UTF-8 text in
// one pass; case mapping and trimming go through ICU (qh::TextEncoding) with
// an ASCII fast path that gives the same result.
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "util/Ascii.h"

namespace qh {

class MIMEText {
public:
    // Full Unicode lower-casing (root locale).
    static std::string lowercase(std::string_view text);
    // Unicode white space and line ends trimmed from both ends.
    static std::string_view trim(std::string_view text);
    // Every occurrence of `c` removed.
    static std::string removeAll(std::string_view text, char c);
    // Every literal, case-sensitive occurrence of `from` replaced by `to`, left to right.
    static std::string replaceAll(std::string_view text, std::string_view from, std::string_view to);
    // Split at every occurrence of `separator` (adjacent separators give empty pieces).
    static std::vector<std::string_view> split(std::string_view text, std::string_view separator);
    // The first piece, and the second when there is one (of a split at `separator`).
    static std::string_view firstPiece(std::string_view text, std::string_view separator);
    static bool secondPiece(std::string_view text, std::string_view separator, std::string_view& piece);
    // The same at a one-byte separator, in line.
    static std::string_view firstPiece(std::string_view text, char separator) {
        return text.substr(0, text.find(separator));
    }
    static bool secondPiece(std::string_view text, char separator, std::string_view& piece) {
        const std::size_t at = text.find(separator);
        if (at == std::string_view::npos) return false;
        piece = firstPiece(text.substr(at + 1), separator);
        return true;
    }
    // ASCII case-insensitive equality (header names are compared this way).
    static bool equalsASCIIIgnoringCase(std::string_view a, std::string_view b) {
        return ascii::equalsIgnoringCase(a, b);
    }
    // The extension of the last path component ("report.PDF" -> "PDF"), "" when none.
    static std::string_view pathExtension(std::string_view name);
    // Offset of the first occurrence of `needle` at or after `from` (linear time), npos when none.
    static std::size_t find(std::string_view text, std::string_view needle, std::size_t from = 0);
    // How many bytes of `text` are `c` (16 at a time where the processor allows).
    static std::size_t count(std::string_view text, char c);
    // Offset of the first `c` at or after `from` that another `c` follows, npos when none.
    static std::size_t findDoubled(std::string_view text, char c, std::size_t from = 0);
    // Where the header block ends: the offset of the first "\n\n" or "\r\n\r\n",
    // whichever starts first; npos when there is neither. One pass over the
    // header lines only.
    static std::size_t headerBlockEnd(std::string_view text);

    // How the bytes of a message break their lines, checked as UTF-8 on the way.
    enum class Breaks {
        LineFeeds,  // LF alone (or no line break): the bytes are the text as they stand
        CrLfPairs,  // CR LF alone: every CR is followed by LF and every LF preceded by CR
        Other,      // both, or a lone CR, VT, FF, NEL, U+2028, U+2029: the text needs a rewrite
        Invalid,    // not UTF-8 (where met before the bytes are known to be Other)
    };
    static constexpr std::size_t kLineFeedStep = 512;
    // What the check notes of bytes that are read as they stand.
    struct LineIndex {
        // Of CrLfPairs bytes: the number of pairs, and the number of line feeds
        // before offset k * kLineFeedStep (up to the size) at k. The size a piece
        // of the text would have with LF breaks is then known without a pass
        // over all of it.
        std::size_t pairs = 0;
        std::vector<std::size_t> lineFeedMarks;
        // Of LineFeeds and CrLfPairs bytes: where a line after a line feed
        // starts with "--", in order (the places a multipart delimiter may be),
        // while there is at most one such line per kBytesPerDashLine bytes.
        std::vector<std::size_t> dashLines;
        // Every such line is in dashLines (a text with more has none noted past the bound).
        bool dashLinesComplete() const { return dashLines.size() < dashLines.capacity(); }
    };
    static constexpr std::size_t kBytesPerDashLine = 32;
    // Plain text goes sixteen or thirty-two bytes at a time, with no branch on
    // where its lines end.
    static Breaks lineBreaks(std::span<const std::uint8_t> bytes, LineIndex& index);
};

}  // namespace qh
