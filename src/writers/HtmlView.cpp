#include <quillhaven/HtmlView.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <vector>

#include "core/Base64.h"
#include "core/DateFormatting.h"
#include <quillhaven/ItemKeys.h>
#include <quillhaven/MessageKeys.h>
#include "core/Regex.h"
#include "core/TextEncoding.h"
#include "richtext/RTFReader.h"
#include "util/HtmlSanitizer.h"
#include "writers/MessageItems.h"

namespace qh {

namespace {

// No fetch, no script, no frame, no form target, no plug-in: only the page's
// own styles and data: images. The sanitiser removes all of these already;
// the policy holds even where it would not.
constexpr std::string_view kPolicy = "default-src 'none'; img-src data:; style-src 'unsafe-inline'";

constexpr std::string_view kStyle = R"(
body{margin:0;background:#fff;color:#1f2328;font:15px/1.5 system-ui,-apple-system,"Segoe UI",Roboto,"Noto Sans",Ubuntu,Cantarell,"Helvetica Neue",Arial,sans-serif}
.qh-message{max-width:62rem;margin:0 auto;padding:1.25rem 1.5rem 2rem}
.qh-header{background:#f4f5f7;border:1px solid #d5d9de;border-radius:8px;padding:.9rem 1.2rem;margin:0 0 1.2rem}
.qh-subject{font-size:1.35rem;line-height:1.3;margin:0 0 .55rem;overflow-wrap:anywhere}
.qh-fields{display:grid;grid-template-columns:max-content 1fr;gap:.15rem .9rem;margin:0}
.qh-fields dt{color:#59636e;font-weight:600}
.qh-fields dd{margin:0;overflow-wrap:anywhere}
.qh-address{color:#59636e}
.qh-attachments{list-style:none;margin:0;padding:0}
.qh-attachments li{display:inline-block;margin:0 .4rem .3rem 0;padding:.1rem .55rem;border:1px solid #d5d9de;border-radius:5px;background:#fff}
.qh-size,.qh-hint{color:#59636e;font-size:.9em}
.qh-hint code{font-size:.95em}
.qh-note{margin:0 0 1rem;padding:.45rem .8rem;border:1px solid #e9d48b;border-radius:6px;background:#fff8dc}
.qh-body{overflow-wrap:break-word}
.qh-body img{max-width:100%}
.qh-body img[data-blocked]{display:inline-block;min-width:1.5rem;min-height:1.5rem;outline:1px dashed #b3bac1}
.qh-plain{white-space:pre-wrap;margin:0;font:inherit}
.qh-empty{color:#59636e;font-style:italic}
.qh-embedded{margin:1.8rem 0 0;padding:0 0 0 1rem;border-left:3px solid #c4cad1}
.qh-embedded>h2{font-size:1rem;color:#59636e;margin:0 0 .6rem}
.qh-embedded .qh-message{padding:0;max-width:none}
)";

std::string escape(std::string_view text) { return HtmlSanitizer::escape(text); }

bool endsWithIgnoringCase(std::string_view text, std::string_view suffix) {
    return text.size() >= suffix.size() &&
           TextEncoding::equalsIgnoringCase(text.substr(text.size() - suffix.size()), suffix);
}

// Bytes of unknown encoding as text: UTF-8 when they are valid UTF-8, else
// the charset the HTML declares, else Windows-1252 (what Outlook writes).
std::string decodeText(ByteView bytes, bool isHtml) {
    std::string_view raw = asText(bytes);
    if (raw.starts_with("\xEF\xBB\xBF")) raw.remove_prefix(3);
    if (raw.size() >= 2 && (raw.starts_with("\xFF\xFE") || raw.starts_with("\xFE\xFF"))) {
        auto decoded = TextEncoding::decodeCharset(asBytes(raw.substr(2)), raw[0] == '\xFF' ? "UTF-16LE" : "UTF-16BE");
        if (decoded) return *decoded;
    }
    if (TextEncoding::sanitizeUTF8(raw) == raw) return std::string(raw);
    if (isHtml) {
        static const std::optional<Regex> kCharset =
            Regex::compile(R"(charset\s*=\s*["']?([A-Za-z0-9_.:-]+))", Regex::CaseInsensitive);
        if (kCharset) {
            if (auto match = kCharset->firstMatch(raw.substr(0, std::min<std::size_t>(raw.size(), 4096)))) {
                if (auto decoded = TextEncoding::decodeCharset(asBytes(raw), match->group(raw, 1))) return *decoded;
            }
        }
    }
    if (auto decoded = TextEncoding::decodeCodePage(asBytes(raw), 1252)) return *decoded;
    return TextEncoding::sanitizeUTF8(raw);
}

// A string or byte value as text.
std::optional<std::string> textOf(const Value* value, bool isHtml) {
    if (!value) return std::nullopt;
    if (const std::string* text = value->string()) return TextEncoding::sanitizeUTF8(*text);
    if (const Blob* bytes = value->bytes()) return decodeText(bytes->view(), isHtml);
    return std::nullopt;
}

std::string itemName(const Dict& item, std::size_t index) {
    if (const std::string* name = item.findString(keys::kAttachName); name && !name->empty())
        return TextEncoding::sanitizeUTF8(*name);
    return "attachment " + std::to_string(index + 1);
}

std::string contentIdOf(const Dict& item) {
    const std::string* id = item.findString(keys::kAttachContentID);
    if (!id) id = item.findString(keys::kEmlContentID);
    if (!id) return {};
    std::string_view text = *id;
    while (!text.empty() && (text.front() == '<' || text.front() == ' ')) text.remove_prefix(1);
    while (!text.empty() && (text.back() == '>' || text.back() == ' ')) text.remove_suffix(1);
    return std::string(text);
}

// The image type by the first bytes; the item's own type as a fallback.
std::string imageType(ByteView data, const Dict& item) {
    std::string_view head = asText(data.subspan(0, std::min<std::size_t>(data.size(), 16)));
    if (head.starts_with("\x89PNG")) return "image/png";
    if (head.starts_with("\xFF\xD8\xFF")) return "image/jpeg";
    if (head.starts_with("GIF8")) return "image/gif";
    if (head.starts_with("BM")) return "image/bmp";
    if (head.starts_with("RIFF") && head.size() >= 12 && head.substr(8, 4) == "WEBP") return "image/webp";
    if (const std::string* type = item.findString(keys::kAttachMimeType)) {
        // Only a plain type/subtype goes into the URL.
        static const std::optional<Regex> kPlainType = Regex::compile(R"(image/[A-Za-z0-9.+-]{1,64})");
        if (kPlainType && kPlainType->matchesWhole(*type)) return TextEncoding::lowercase(*type);
    }
    return "application/octet-stream";
}

bool isEmbeddedMessage(const Dict& item, std::string_view name) {
    if (const std::string* type = item.findString(keys::kAttachMimeType);
        type && TextEncoding::equalsIgnoringCase(*type, "message/rfc822"))
        return true;
    return endsWithIgnoringCase(name, ".eml") || endsWithIgnoringCase(name, ".msg");
}

// "Name <address>" for each address record (or string) the value holds.
std::vector<std::string> addresses(const Value* value) {
    std::vector<std::string> out;
    if (!value) return out;
    auto one = [&](const Value& entry) {
        if (const std::string* text = entry.string()) {
            if (!text->empty()) out.push_back("<bdi>" + escape(TextEncoding::sanitizeUTF8(*text)) + "</bdi>");
            return;
        }
        const Dict* record = entry.dict();
        if (!record) return;
        const std::string* name = record->findString(keys::kName);
        const std::string* address = record->findString(keys::kAddress);
        std::string shownName = name ? TextEncoding::trimWhitespaceAndNewlines(TextEncoding::sanitizeUTF8(*name)) : "";
        std::string shownAddress = address ? TextEncoding::trimWhitespaceAndNewlines(TextEncoding::sanitizeUTF8(*address)) : "";
        if (shownName.empty() && shownAddress.empty()) return;
        std::string html;
        if (!shownName.empty()) html += "<bdi>" + escape(shownName) + "</bdi>";
        if (!shownAddress.empty() && shownAddress != shownName) {
            if (!html.empty()) html += " ";
            html += "<span class=\"qh-address\">&lt;" + escape(shownAddress) + "&gt;</span>";
        }
        out.push_back(std::move(html));
    };
    if (const Array* list = value->array()) {
        for (const Value& entry : *list) one(entry);
    } else {
        one(*value);
    }
    return out;
}

std::string joined(const std::vector<std::string>& parts, std::string_view separator) {
    std::string out;
    for (std::size_t i = 0; i < parts.size(); ++i) {
        if (i) out += separator;
        out += parts[i];
    }
    return out;
}

std::optional<std::string> dateText(const Dict& message, std::string_view dateKey, std::string_view textKey) {
    if (const Value* value = message.find(dateKey); value && value->date())
        return DateFormatting::displayString(*value->date());
    if (textKey.empty()) return std::nullopt;
    const std::string* text = message.findString(textKey);
    if (!text || text->empty()) return std::nullopt;
    // A MIME date ("Tue, 5 Mar 2024 10:02:03 +0000") is shown in the reader's
    // locale and zone too; any other text as it is.
    std::string trimmed = TextEncoding::trimWhitespaceAndNewlines(*text);
    for (std::string_view pattern : {"E, d MMM yyyy HH:mm:ss Z", "d MMM yyyy HH:mm:ss Z", "E, d MMM yyyy HH:mm Z"})
        if (std::optional<Date> parsed = DateFormatting::parse(trimmed, pattern, "UTC"))
            return DateFormatting::displayString(*parsed);
    return TextEncoding::sanitizeUTF8(*text);
}

bool isEncapsulatedHtml(ByteView rtf) {
    std::string_view head = asText(rtf.subspan(0, std::min<std::size_t>(rtf.size(), 4096)));
    return head.find("\\fromhtml") != std::string_view::npos;
}

class PageWriter {
public:
    explicit PageWriter(const HtmlView::Options& options) : options_(options), embedLeft_(options.embedTotal) {}

    void message(std::string& out, const Dict& message, int depth) {
        out += "<article class=\"qh-message\">\n";
        std::vector<bool> usedInline;
        std::string body = this->body(message, usedInline);
        header(out, message, usedInline);
        out += body;
        embedded(out, message, depth);
        out += "</article>\n";
    }

private:
    void header(std::string& out, const Dict& message, const std::vector<bool>& usedInline) {
        out += "<header class=\"qh-header\">\n";
        std::string subject;
        if (const std::string* text = message.findString(keys::kSubject))
            subject = TextEncoding::trimWhitespaceAndNewlines(TextEncoding::sanitizeUTF8(*text));
        out += "<h1 class=\"qh-subject\" dir=\"auto\">" + (subject.empty() ? "(no subject)" : escape(subject)) + "</h1>\n";
        out += "<dl class=\"qh-fields\">\n";
        auto row = [&](std::string_view label, const std::string& html) {
            if (html.empty()) return;
            out += "<dt>" + std::string(label) + "</dt><dd dir=\"auto\">" + html + "</dd>\n";
        };
        const Value* from = message.find(keys::kFrom);
        if (!from || addresses(from).empty()) from = message.find(keys::kHeaderFrom);
        row("From", joined(addresses(from), ", "));
        if (const Value* replyTo = message.find(keys::kReplyTo)) row("Reply-To", joined(addresses(replyTo), ", "));
        const Value* to = message.find(keys::kTo);
        if (!to || addresses(to).empty()) to = message.find(keys::kHeaderTo);
        row("To", joined(addresses(to), ", "));
        row("Cc", joined(addresses(message.find(keys::kCC)), ", "));
        row("Bcc", joined(addresses(message.find(keys::kBCC)), ", "));
        if (auto date = dateText(message, keys::kTimeStamp, keys::kDate)) row("Date", escape(*date));
        // Appointments: when and where.
        if (auto start = dateText(message, ItemKeys::kStartTime, {})) row("Start", escape(*start));
        if (auto end = dateText(message, ItemKeys::kEndTime, {})) row("End", escape(*end));
        if (const std::string* location = message.findString(ItemKeys::kLocation))
            row("Location", escape(TextEncoding::sanitizeUTF8(*location)));
        if (const std::string* pattern = message.findString(ItemKeys::kRecurrencePattern))
            row("Recurs", escape(TextEncoding::sanitizeUTF8(*pattern)));
        std::string list = attachments(message, usedInline);
        if (!list.empty()) row("Attachments", list);
        out += "</dl>\n</header>\n";
    }

    std::string attachments(const Dict& message, const std::vector<bool>& usedInline) {
        const Array* list = message.findArray(keys::kAttachmentList);
        if (!list || list->empty()) return {};
        std::string out = "<ul class=\"qh-attachments\">";
        for (std::size_t i = 0; i < list->size(); ++i) {
            const Dict* item = (*list)[i].dict();
            if (!item) continue;
            std::string name = itemName(*item, i);
            std::optional<ByteView> data = items::itemData(*item);
            out += "<li>";
            std::string size;
            if (data) size = HtmlView::formatSize(data->size());
            else if (const Value* recorded = item->find(keys::kAttachSize); recorded && recorded->isNumber())
                size = HtmlView::formatSize(static_cast<std::size_t>(std::max<std::int64_t>(0, recorded->integer())));
            bool inPage = data && data->size() <= options_.embedLimit && data->size() <= embedLeft_;
            if (inPage) {
                embedLeft_ -= data->size();
                // Always a download: a data: page of the sender's choosing is never opened.
                out += "<a download=\"" + escape(name) + "\" href=\"data:application/octet-stream;base64," +
                       Base64::encode(*data) + "\">" + escape(name) + "</a>";
            } else {
                out += "<bdi>" + escape(name) + "</bdi>";
            }
            if (!size.empty()) out += " <span class=\"qh-size\">(" + size + ")</span>";
            if (i < usedInline.size() && usedInline[i]) out += " <span class=\"qh-size\">inline</span>";
            if (data && !inPage) {
                std::string source = options_.sourceName.empty() ? "FILE" : options_.sourceName;
                out += " <span class=\"qh-hint\">too large for the page; save it with <code>quillhaven attachments -d DIR " +
                       escape(source) + "</code></span>";
            }
            out += "</li>";
        }
        out += "</ul>";
        return out;
    }

    // The body's HTML; marks in `usedInline` the attachments it shows inline.
    std::string body(const Dict& message, std::vector<bool>& usedInline) {
        const Array* list = message.findArray(keys::kAttachmentList);
        usedInline.assign(list ? list->size() : 0, false);
        HtmlSanitizer::Resolver resolver = [&](std::string_view reference) -> std::optional<std::string> {
            if (!list) return std::nullopt;
            bool byId = reference.size() > 4 && TextEncoding::equalsIgnoringCase(reference.substr(0, 4), "cid:");
            std::string wanted(byId ? reference.substr(4) : reference);
            for (std::size_t i = 0; i < list->size(); ++i) {
                const Dict* item = (*list)[i].dict();
                if (!item) continue;
                bool matches = false;
                if (byId) {
                    std::string id = contentIdOf(*item);
                    matches = !id.empty() && TextEncoding::equalsIgnoringCase(id, wanted);
                } else {
                    const std::string* location = item->findString(keys::kAttachContentLocation);
                    const std::string* name = item->findString(keys::kAttachName);
                    matches = (location && *location == wanted) || (name && *name == wanted);
                }
                if (!matches) continue;
                std::optional<ByteView> data = items::itemData(*item);
                if (!data || data->size() > inlineLeft_) return std::nullopt;
                inlineLeft_ -= data->size();
                usedInline[i] = true;
                return "data:" + imageType(*data, *item) + ";base64," + Base64::encode(*data);
            }
            return std::nullopt;
        };

        std::optional<std::string> html = textOf(message.find(keys::kHTML), true);
        const Blob* rtf = message.findBytes(keys::kRTF);
        if ((!html || html->empty()) && rtf && isEncapsulatedHtml(rtf->view())) html = RTFReader::htmlFromRTFData(rtf->view());
        if (html && !html->empty()) return sanitized(*html, resolver);
        if (std::optional<std::string> plain = textOf(message.find(keys::kBody), false); plain && !plain->empty()) {
            std::string trimmed = TextEncoding::trimWhitespaceAndNewlines(*plain);
            if (!trimmed.empty())
                return "<div class=\"qh-body\"><pre class=\"qh-plain\" dir=\"auto\">" + HtmlView::linkify(*plain) +
                       "</pre></div>\n";
        }
        if (rtf) {
            if (std::optional<std::string> converted = RTFReader::htmlFromRTFData(rtf->view()))
                return sanitized(*converted, resolver);
        }
        return "<div class=\"qh-body\"><p class=\"qh-empty\">This message has no text.</p></div>\n";
    }

    std::string sanitized(const std::string& html, const HtmlSanitizer::Resolver& resolver) {
        HtmlSanitizer::Result result = HtmlSanitizer::sanitize(html, resolver);
        std::string out;
        if (result.remoteImagesBlocked > 0) {
            std::size_t n = result.remoteImagesBlocked;
            out += "<p class=\"qh-note\">" + std::to_string(n) + (n == 1 ? " remote image was" : " remote images were") +
                   " blocked: they would tell the sender when and where the message was read.</p>\n";
        }
        if (result.elementsRemoved > 0)
            out += "<p class=\"qh-note\">Scripts and other active content were removed from this message.</p>\n";
        out += "<div class=\"qh-body\"";
        if (!result.direction.empty()) out += " dir=\"" + result.direction + "\"";
        out += ">\n" + result.html + "\n</div>\n";
        return out;
    }

    void embedded(std::string& out, const Dict& message, int depth) {
        const Array* list = message.findArray(keys::kAttachmentList);
        if (!list || !options_.openEmbedded) return;
        for (std::size_t i = 0; i < list->size(); ++i) {
            const Dict* item = (*list)[i].dict();
            if (!item) continue;
            std::string name = itemName(*item, i);
            if (!isEmbeddedMessage(*item, name)) continue;
            std::optional<ByteView> data = items::itemData(*item);
            if (!data || data->empty()) continue;
            out += "<section class=\"qh-embedded\">\n<h2>Attached message: <bdi>" + escape(name) + "</bdi></h2>\n";
            if (depth + 1 >= HtmlView::kMaxNesting || embeddedShown_ >= HtmlView::kMaxEmbeddedMessages) {
                out += "<p class=\"qh-empty\">Nested too deep to show here; save it with the attachments command.</p>\n";
            } else if (std::optional<Dict> inner = options_.openEmbedded(*data)) {
                ++embeddedShown_;
                this->message(out, *inner, depth + 1);
            } else {
                out += "<p class=\"qh-empty\">The attachment holds no message that could be read.</p>\n";
            }
            out += "</section>\n";
        }
    }

    const HtmlView::Options& options_;
    std::size_t embedLeft_;
    // Inline images over the whole page: each body may show each part many times.
    std::size_t inlineLeft_ = 48u << 20;
    int embeddedShown_ = 0;
};

// HTML made into text for a terminal: tags gone, block ends as line breaks,
// the common character references decoded.
std::string htmlToText(std::string_view html) {
    std::string safe = HtmlSanitizer::sanitize(html).html;
    static const std::optional<Regex> kBreaks =
        Regex::compile(R"(<(br|/p|/div|/tr|/li|/h[1-6]|/blockquote|/pre|/table)\b[^>]*>)", Regex::CaseInsensitive);
    static const std::optional<Regex> kTags = Regex::compile(R"(<style>[^<]*</style>|<[^>]*>)");
    if (kBreaks) safe = kBreaks->replaceAll(safe, "\n");
    if (kTags) safe = kTags->replaceAll(safe, "");
    static constexpr std::pair<std::string_view, std::string_view> kReferences[] = {
        {"&nbsp;", " "}, {"&lt;", "<"}, {"&gt;", ">"}, {"&quot;", "\""}, {"&#39;", "'"}, {"&amp;", "&"}};
    for (const auto& [reference, replacement] : kReferences) {
        std::string out;
        std::size_t from = 0;
        for (std::size_t at; (at = safe.find(reference, from)) != std::string::npos; from = at + reference.size())
            out.append(safe, from, at - from).append(replacement);
        out.append(safe, from, std::string::npos);
        safe = std::move(out);
    }
    static const std::optional<Regex> kBlankLines = Regex::compile(R"(\n[ \t\x{A0}]*(\n[ \t\x{A0}]*){2,})");
    if (kBlankLines) safe = kBlankLines->replaceAll(safe, "\n\n");
    return TextEncoding::trimWhitespaceAndNewlines(safe);
}

std::string plainAddresses(const Value* value) {
    std::vector<std::string> out;
    if (!value) return {};
    auto one = [&](const Value& entry) {
        if (const std::string* text = entry.string()) {
            out.push_back(*text);
        } else if (const Dict* record = entry.dict()) {
            const std::string* name = record->findString(keys::kName);
            const std::string* address = record->findString(keys::kAddress);
            std::string n = name ? TextEncoding::trimWhitespaceAndNewlines(*name) : "";
            std::string a = address ? TextEncoding::trimWhitespaceAndNewlines(*address) : "";
            if (!n.empty() && !a.empty() && n != a) out.push_back(n + " <" + a + ">");
            else if (!n.empty() || !a.empty()) out.push_back(n.empty() ? a : n);
        }
    };
    if (const Array* list = value->array()) {
        for (const Value& entry : *list) one(entry);
    } else {
        one(*value);
    }
    return joined(out, ", ");
}

// Control characters (escape sequences among them) never reach the terminal.
std::string terminalSafe(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (char c : TextEncoding::sanitizeUTF8(text)) {
        unsigned char u = static_cast<unsigned char>(c);
        if ((u < 0x20 && c != '\n' && c != '\t') || u == 0x7F) continue;
        if (c == '\r') continue;
        out += c;
    }
    return out;
}

}  // namespace

std::string HtmlView::formatSize(std::size_t bytes) {
    if (bytes < 1024) return std::to_string(bytes) + (bytes == 1 ? " byte" : " bytes");
    static constexpr std::array<const char*, 3> kUnits = {"KB", "MB", "GB"};
    double value = static_cast<double>(bytes) / 1024.0;
    std::size_t unit = 0;
    while (value >= 1024.0 && unit + 1 < kUnits.size()) {
        value /= 1024.0;
        ++unit;
    }
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, value < 10 ? "%.1f %s" : "%.0f %s", value, kUnits[unit]);
    return buffer;
}

std::string HtmlView::linkify(std::string_view text) {
    static const std::optional<Regex> kLink =
        Regex::compile(R"((?:https?://|mailto:|www\.)[^\s<>"'\x{00A0}]+)", Regex::CaseInsensitive);
    std::string safe = TextEncoding::sanitizeUTF8(text);
    std::string out;
    out.reserve(safe.size() + safe.size() / 8);
    std::size_t from = 0;
    if (kLink) {
        for (const Regex::Match& match : kLink->findAll(safe)) {
            std::string_view link = match.text(safe);
            // Sentence punctuation after a link is not part of it.
            while (!link.empty() && std::string_view(".,;:!?)]}").find(link.back()) != std::string_view::npos)
                link.remove_suffix(1);
            if (link.size() <= 7) continue;
            out += escape(std::string_view(safe).substr(from, match.range.location - from));
            std::string target(link);
            if (TextEncoding::equalsIgnoringCase(target.substr(0, 4), "www.")) target = "http://" + target;
            out += "<a href=\"" + escape(target) + "\" rel=\"noopener noreferrer\" target=\"_blank\">" + escape(link) + "</a>";
            from = match.range.location + link.size();
        }
    }
    out += escape(std::string_view(safe).substr(from));
    return out;
}

std::string HtmlView::page(const Dict& message, const Options& options) {
    std::string subject;
    if (const std::string* text = message.findString(keys::kSubject))
        subject = TextEncoding::trimWhitespaceAndNewlines(TextEncoding::sanitizeUTF8(*text));
    std::string out;
    out += "<!DOCTYPE html>\n<html>\n<head>\n<meta charset=\"utf-8\">\n";
    out += "<meta http-equiv=\"Content-Security-Policy\" content=\"" + std::string(kPolicy) + "\">\n";
    out += "<meta name=\"referrer\" content=\"no-referrer\">\n";
    out += "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n";
    out += "<title>" + (subject.empty() ? std::string("(no subject)") : escape(subject)) + "</title>\n";
    out += "<style>" + std::string(kStyle) + "</style>\n</head>\n<body>\n";
    PageWriter writer(options);
    writer.message(out, message, 0);
    out += "</body>\n</html>\n";
    return out;
}

std::string HtmlView::text(const Dict& message) {
    std::string out;
    auto line = [&](std::string_view label, const std::string& value) {
        if (!value.empty()) out += std::string(label) + ": " + terminalSafe(value) + "\n";
    };
    const std::string* subject = message.findString(keys::kSubject);
    line("Subject", subject ? TextEncoding::trimWhitespaceAndNewlines(*subject) : std::string());
    std::string from = plainAddresses(message.find(keys::kFrom));
    line("From", from.empty() ? plainAddresses(message.find(keys::kHeaderFrom)) : from);
    std::string to = plainAddresses(message.find(keys::kTo));
    line("To", to.empty() ? plainAddresses(message.find(keys::kHeaderTo)) : to);
    line("Cc", plainAddresses(message.find(keys::kCC)));
    line("Date", dateText(message, keys::kTimeStamp, keys::kDate).value_or(""));
    if (const Array* list = message.findArray(keys::kAttachmentList); list && !list->empty()) {
        std::vector<std::string> names;
        for (std::size_t i = 0; i < list->size(); ++i)
            if (const Dict* item = (*list)[i].dict()) {
                std::optional<ByteView> data = items::itemData(*item);
                names.push_back(itemName(*item, i) + (data ? " (" + formatSize(data->size()) + ")" : ""));
            }
        line("Attachments", joined(names, ", "));
    }
    out += "\n";
    std::string body;
    if (const Blob* rtf = message.findBytes(keys::kRTF); rtf && !isEncapsulatedHtml(rtf->view()))
        body = RTFReader::stringFromRTFData(rtf->view()).value_or("");
    if (TextEncoding::trimWhitespaceAndNewlines(body).empty()) body = textOf(message.find(keys::kBody), false).value_or("");
    if (TextEncoding::trimWhitespaceAndNewlines(body).empty()) {
        std::optional<std::string> html = textOf(message.find(keys::kHTML), true);
        if ((!html || html->empty()))
            if (const Blob* rtf = message.findBytes(keys::kRTF)) html = RTFReader::htmlFromRTFData(rtf->view());
        if (html) body = htmlToText(*html);
    }
    body = terminalSafe(TextEncoding::trimWhitespaceAndNewlines(body));
    out += body.empty() ? "(no text)" : body;
    out += "\n";
    return out;
}

}  // namespace qh
