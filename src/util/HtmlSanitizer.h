#pragma once
// Mail HTML made safe to show in a page of our own: a small tokenizer and an
// allow-list of elements and attributes, re-serialised so that only markup we
// write reaches the browser.
//
//  - Dropped with their content: script, iframe, frame(set), object, embed,
//    applet, noscript, template, svg, math, form controls, title and the like.
//    Dropped, content kept: form, html, head, body, unknown elements (Word's
//    o:p, v:shape). meta, link and base go entirely.
//  - Attributes: an allow-list (no on* handler is on it). Links keep http(s),
//    mailto, tel, ftp and in-page "#" targets; everything else (javascript:,
//    vbscript:, data:, file:, UNC and relative paths, which a page opened from
//    disk would resolve to file: and SMB) is removed. Kept links open with
//    rel="noopener noreferrer" in a new tab.
//  - Images: cid: and bare names go through the resolver (the message's own
//    parts as data: URLs); data: images stay; anything else is a remote
//    image: not loaded, counted.
//  - CSS (style attributes and style elements): url() to anything but data:
//    becomes none (a remote image, counted), @import goes, expression(),
//    image-set(), behavior and -moz-binding are made invalid.
// The result is a fragment for the inside of a <div>: every element it opens
// it closes, and nothing it holds can close the caller's markup.
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace qh {

class HtmlSanitizer {
public:
    // Turns the reference of an inline part ("cid:..." as written, or a bare
    // file name) into a data: URL; none when the message has no such part.
    using Resolver = std::function<std::optional<std::string>(std::string_view reference)>;

    struct Result {
        std::string html;
        std::size_t remoteImagesBlocked = 0;  // <img>, background= and CSS url() to the network
        std::size_t inlineImagesResolved = 0;
        std::size_t elementsRemoved = 0;      // active content: scripts, frames, objects, forms
        std::string direction;                // "rtl" or "ltr" from the html or body element, else empty
    };

    // `html` is UTF-8 (invalid sequences are replaced first).
    static Result sanitize(std::string_view html, const Resolver& resolver = {});
    // CSS from a style attribute or element with the same rules; counts into `result`.
    static std::string sanitizeCss(std::string_view css, Result& result);
    // Text escaped for an element's content or a double-quoted attribute value.
    static std::string escape(std::string_view text);
};

}  // namespace qh
