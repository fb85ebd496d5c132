#pragma once
// A message dictionary as one self-contained HTML5 page a person can read in
// any browser, safe to open whatever the message holds:
//  - a header block (subject, sender, recipients, date in the user's locale
//    and zone, attachments with their sizes), set apart from the body;
//  - the body: the HTML body sanitised (see util/HtmlSanitizer.h), inline
//    parts as data: URLs; else the plain body escaped, links made clickable;
//    else the RTF body's HTML (RTF that wraps an HTML body wins over the
//    plain one, as mail clients show it);
//  - a Content-Security-Policy that allows no fetch and no script, so that
//    even a sanitiser slip cannot reach the network;
//  - attachments as data: download links up to a size limit, larger ones
//    listed with their size and the command that saves them;
//  - attached messages as nested sections, read by the caller (writers sit
//    below the readers) through `Options::openEmbedded`.
// Also a plain-text rendering of the same message for a terminal.
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include <quillhaven/Bytes.h>
#include <quillhaven/Value.h>

namespace qh {

class HtmlView {
public:
    // An attachment bigger than this is not embedded in the page.
    static constexpr std::size_t kDefaultEmbedLimit = 10u << 20;
    // All embedded attachments together, across nested messages.
    static constexpr std::size_t kDefaultEmbedTotal = 32u << 20;
    // Attached messages inside attached messages: shown this deep. Forwards
    // of forwards rarely go past three; each level is read again by the caller.
    static constexpr int kMaxNesting = 4;
    // Attached messages shown in one page, all levels together.
    static constexpr int kMaxEmbeddedMessages = 32;

    struct Options {
        std::size_t embedLimit = kDefaultEmbedLimit;
        std::size_t embedTotal = kDefaultEmbedTotal;
        // How the hint for large attachments names the input ("FILE" when empty).
        std::string sourceName;
        // The dictionary of an attached message (its bytes), none when they
        // hold no message. Unset: attached messages are only listed.
        std::function<std::optional<Dict>(ByteView data)> openEmbedded;
    };

    static std::string page(const Dict& message, const Options& options);
    static std::string page(const Dict& message) { return page(message, Options{}); }

    // For a terminal: Subject, From, To, Cc, Date and the attachments' names,
    // a blank line, the body as text (the rich-text body's text, else the
    // plain body, else the HTML body's text).
    static std::string text(const Dict& message);

    // The plain body as HTML: escaped, web and mail links clickable.
    static std::string linkify(std::string_view text);
    // "512 bytes", "1.5 KB", "3.2 MB".
    static std::string formatSize(std::size_t bytes);
};

}  // namespace qh
