#pragma once
// Quoted-printable, UTF-8 encoded words, percent-decoding and address validation
// as the mail readers and the writer use them (not RFC-exact on purpose: the
// callers are built around these behaviours).
#include <optional>
#include <string>
#include <string_view>

namespace qh {

class WebWangers {
public:
    // For the encoding name "quoted-printable" (exactly): soft breaks "=\n" removed,
    // upper-case escapes =01..=FE percent-decoded as UTF-8, falling back to
    // decodedQuotedPrintable of the input; the result trimmed. Any other name:
    // the text trimmed.
    static std::string decodeQuotedPrintableString(std::string_view text, std::string_view encoding);
    // Byte-per-character decoding (codes 128-255 as ISO Latin-1 characters). An
    // escape at index 0 or among the last four characters is left as it is.
    static std::string decodedQuotedPrintable(std::string_view text);
    // UTF-8 bytes 32-126 and LF as they are, every other byte "=XX"; "=" itself
    // is not escaped and lines are never broken.
    static std::string createQuotedPrintableFromString(std::string_view text);

    // "=?UTF-8?B?...?=" words decoded; the blanks between words are kept.
    static std::string decodeUTF8B(std::string_view text);
    // "=?UTF-8?Q?...?=" words decoded; text after the last word is dropped.
    static std::string decodeUTF8Q(std::string_view text);
    // Percent escapes decoded as UTF-8; none when that fails. The second argument is unused.
    static std::optional<std::string> removePercentEncodingFromString(std::string_view text,
                                                                      const void* didFailLoadWithError = nullptr);

    // Whether the whole text is an e-mail address by the published RFC 5322
    // address pattern (any case). Display names and angle brackets make it invalid.
    static bool validateEmailAddress(std::string_view text);
};

}  // namespace qh
