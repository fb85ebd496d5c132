#include <quillhaven/MimeWriter.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <unordered_set>

#include <quillhaven/MessageKeys.h>
#include "core/TextEncoding.h"
#include "core/Uuid.h"
#include "richtext/RTFReader.h"
#include "util/Base64Codec.h"
#include "util/MediaTypes.h"
#include "util/Rfc5322.h"
#include "writers/Format.h"
#include <quillhaven/ICalendarWriter.h>
#include "writers/MimeEncoding.h"
#include <quillhaven/VCardWriter.h>

namespace qh {

namespace {

using mime::FieldWriter;
using mime::kCRLF;

std::string asciiLower(std::string_view text) {
    std::string out(text);
    for (char& c : out)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return out;
}

bool endsWithIgnoringCase(std::string_view text, std::string_view suffix) {
    return text.size() >= suffix.size() && asciiLower(text.substr(text.size() - suffix.size())) == suffix;
}

// A MIME entity: header fields (each ending in CR LF) and either a body or parts.
struct Part {
    std::vector<std::string> fields;
    std::string body;
    std::string multipart;  // subtype; empty for a leaf
    std::vector<std::string> multipartParameters;
    std::vector<Part> children;
};

std::string field(std::string_view name, std::string_view value) {
    FieldWriter writer(name);
    writer.add(value);
    return writer.finish();
}

// "Content-Type: type; a=b; c=d" folded between parameters.
std::string fieldWithParameters(std::string_view name, std::string_view value, const std::vector<std::string>& parameters) {
    FieldWriter writer(name);
    writer.add(value);
    for (const std::string& parameter : parameters) {
        writer.attach(";");
        writer.add(parameter);
    }
    return writer.finish();
}

// Serialises a part, consuming it so that no body is held twice; multipart
// boundaries are chosen so that no part's text contains them.
// `text` is what goes before the part's own fields (the message header).
std::string serialise(Part&& part, std::string text = {}) {
    for (const std::string& f : part.fields) text += f;
    if (part.multipart.empty()) {
        text.reserve(text.size() + 2 + part.body.size() + 2);
        text.append(kCRLF).append(part.body);
        return text;
    }
    std::vector<std::string> children;
    children.reserve(part.children.size());
    std::size_t total = 0;
    for (Part& child : part.children) {
        children.push_back(serialise(std::move(child)));
        total += children.back().size();
    }
    part.children.clear();
    std::string boundary;
    for (int attempt = 0; attempt < 16; ++attempt) {
        boundary = std::string(mime::kBoundaryPrefix) + "_" + Uuid::randomString();
        bool clash = std::any_of(children.begin(), children.end(),
                                 [&](const std::string& child) { return child.find(boundary) != std::string::npos; });
        if (!clash) break;
    }
    std::vector<std::string> parameters = part.multipartParameters;
    parameters.push_back("boundary=\"" + boundary + "\"");
    text += fieldWithParameters("Content-Type", "multipart/" + part.multipart, parameters);
    text.append(kCRLF);
    text.reserve(text.size() + total + children.size() * (boundary.size() + 8) + boundary.size() + 8);
    for (std::string& child : children) {
        text.append("--").append(boundary).append(kCRLF).append(child).append(kCRLF);
        std::string().swap(child);
    }
    text.append("--").append(boundary).append("--").append(kCRLF);
    return text;
}

// Text under a key as a string: text as it is, bytes taken as UTF-8.
std::optional<std::string> textOf(const Dict& dict, std::string_view key) {
    const Value* value = dict.find(key);
    if (!value) return std::nullopt;
    std::string text;
    if (const std::string* s = value->string()) text = TextEncoding::sanitizeUTF8(*s);
    else if (const Blob* b = value->bytes()) text = TextEncoding::sanitizeUTF8(b->text());
    else return std::nullopt;
    if (TextEncoding::trimWhitespaceAndNewlines(text).empty()) return std::nullopt;
    return text;
}

Part textPart(std::string_view subtype, std::string_view text) {
    std::string crlf = mime::crlfLineEnds(text);
    mime::TransferEncoding encoding = mime::chooseTextEncoding(crlf);
    Part part;
    part.fields.push_back(fieldWithParameters("Content-Type", "text/" + std::string(subtype), {"charset=utf-8"}));
    part.fields.push_back(field("Content-Transfer-Encoding", mime::transferEncodingName(encoding)));
    part.body = mime::encodeText(crlf, encoding);
    return part;
}

// --- headers -------------------------------------------------------------

// The original transport header's trace fields, as they were folded. A field
// with a line that is not printable ASCII, or longer than a line may be, is
// left out whole.
std::string traceFields(std::string_view header) {
    std::string out, current;
    bool keep = false, clean = true;
    auto flush = [&] {
        if (keep && clean && !current.empty()) out += current;
        current.clear();
        keep = false;
        clean = true;
    };
    std::size_t at = 0;
    while (at < header.size()) {
        std::size_t end = header.find_first_of("\r\n", at);
        if (end == std::string_view::npos) end = header.size();
        std::string_view line = header.substr(at, end - at);
        at = end;
        if (at < header.size() && header[at] == '\r') ++at;
        if (at < header.size() && header[at] == '\n') ++at;
        if (line.empty()) break;  // the end of the header block
        if (line.front() == ' ' || line.front() == '\t') {
            // A continuation; one of white space only would read as the end of the header to some parsers.
            if (line.find_first_not_of(" \t") == std::string_view::npos) continue;
        } else {
            flush();
            std::size_t colon = line.find(':');
            std::string_view name = colon == std::string_view::npos ? std::string_view() : line.substr(0, colon);
            bool nameValid = !name.empty() && std::all_of(name.begin(), name.end(), [](char c) { return c > 0x20 && c < 0x7F; });
            keep = nameValid && MimeWriter::isTraceField(asciiLower(name));
        }
        if (!keep) continue;
        for (char c : line) clean = clean && ((c >= 0x20 && c < 0x7F) || c == '\t');
        clean = clean && line.size() <= mime::kMaxLineLength;
        current.append(line).append(kCRLF);
    }
    flush();
    return out;
}

// One address record as words of an address list: "name <addr>", a bare
// addr-spec, or, for an address that is no addr-spec (an X.500 path, a
// name alone), the name as an empty group "name: ;", so that nothing
// unparseable stands in the field.
void addMailbox(FieldWriter& writer, const Dict& record, bool last) {
    std::string name = mime::cleanText(record.findString(keys::kName) ? *record.findString(keys::kName) : "");
    std::string address = mime::cleanText(record.findString(keys::kAddress) ? *record.findString(keys::kAddress) : "");
    if (address.size() > 2 && address.front() == '<' && address.back() == '>') address = address.substr(1, address.size() - 2);
    std::vector<mime::Word> words;
    if (mime::isAddrSpec(address)) {
        if (!name.empty() && name != address) words = mime::phraseWords(name);
        words.push_back({" ", words.empty() ? address : "<" + address + ">"});
    } else {
        std::string shown = name.empty() ? address : name;
        if (shown.empty()) return;
        words = mime::phraseWords(shown);
        words.back().word += ":";
        words.push_back({" ", ";"});
    }
    if (!last) words.back().word += ",";
    std::size_t length = 0;
    for (const mime::Word& word : words) length += word.space.size() + word.word.size();
    writer.keepTogether(length);
    for (const mime::Word& word : words) writer.add(word.word, word.space);
}

std::optional<std::string> addressField(std::string_view name, const Array* records) {
    if (!records) return std::nullopt;
    std::vector<const Dict*> usable;
    for (const Value& value : *records) {
        const Dict* record = value.dict();
        if (!record) continue;
        bool hasText = false;
        for (std::string_view key : {keys::kName, keys::kAddress})
            if (const std::string* s = record->findString(key)) hasText = hasText || !mime::cleanText(*s).empty();
        if (hasText) usable.push_back(record);
    }
    if (usable.empty()) return std::nullopt;
    FieldWriter writer(name);
    for (std::size_t i = 0; i < usable.size(); ++i) addMailbox(writer, *usable[i], i + 1 == usable.size());
    return writer.finish();
}

// The msg-ids in a text ("<a@b> <c@d>"), the valid ones only.
std::vector<std::string> msgIds(std::string_view text) {
    std::vector<std::string> ids;
    std::size_t at = 0;
    while ((at = text.find('<', at)) != std::string_view::npos) {
        std::size_t end = text.find('>', at);
        if (end == std::string_view::npos) break;
        std::string_view inner = text.substr(at + 1, end - at - 1);
        if (mime::isMsgIdContent(inner)) ids.push_back("<" + std::string(inner) + ">");
        at = end + 1;
    }
    // A bare id (no brackets) as some readers give it.
    if (ids.empty()) {
        std::string trimmed = mime::cleanText(text);
        if (mime::isMsgIdContent(trimmed)) ids.push_back("<" + trimmed + ">");
    }
    return ids;
}

std::optional<std::string> msgIdField(std::string_view name, const std::vector<std::string>& ids) {
    if (ids.empty()) return std::nullopt;
    FieldWriter writer(name);
    for (const std::string& id : ids) writer.add(id);
    return writer.finish();
}

// RFC 5322 3.3 date-time, in UTC: the instant is what the dictionary keeps.
std::optional<std::string> dateText(const Dict& message) {
    const Value* stamp = message.find(keys::kTimeStamp);
    std::optional<Date> date;
    if (stamp && stamp->date()) date = *stamp->date();
    else if (const std::string* text = message.findString(keys::kDate))
        date = rfc5322::parseDateTime(mime::cleanText(*text));
    if (!date) return std::nullopt;
    return rfc5322::formatDateTime(*date);
}

// --- attachments ---------------------------------------------------------

// "type/subtype" in lower case when `text` starts with one made of RFC 2045 tokens.
std::optional<std::string> mediaType(std::string_view text) {
    std::string value = asciiLower(mime::cleanText(text.substr(0, text.find(';'))));
    std::size_t slash = value.find('/');
    // RFC 6838 4.2: type and subtype names are at most 127 characters each.
    if (slash == std::string::npos || slash == 0 || slash + 1 == value.size() || value.size() > 255) return std::nullopt;
    auto isToken = [](char c) {
        return c > 0x20 && c < 0x7F && std::string_view("()<>@,;:\\\"/[]?=").find(c) == std::string_view::npos;
    };
    for (std::size_t i = 0; i < value.size(); ++i)
        if (i != slash && !isToken(value[i])) return std::nullopt;
    return value;
}

bool isMessageType(std::string_view type) { return type == "message/rfc822"; }

// A type a leaf part with base64 data may not carry: multiparts need
// boundaries, and message/* parts may not be encoded (RFC 2046 5.2).
bool isStructural(std::string_view type) {
    return type.starts_with("multipart/") || type.starts_with("message/");
}

// A content id as Content-ID and "cid:" URLs carry it: no brackets, printable ASCII, no blanks.
std::optional<std::string> contentId(const Dict& item) {
    for (std::string_view key : {keys::kAttachContentID, keys::kEmlContentID}) {
        const std::string* raw = item.findString(key);
        if (!raw) continue;
        std::string id = mime::cleanText(*raw);
        if (id.size() > 2 && id.front() == '<' && id.back() == '>') id = id.substr(1, id.size() - 2);
        bool valid = !id.empty() && id.size() <= 250 &&
                     std::all_of(id.begin(), id.end(), [](char c) {
                         return c > 0x20 && c < 0x7F && c != '<' && c != '>' && c != '"' && c != '\\';
                     });
        if (valid) return id;
    }
    return std::nullopt;
}

// Every "cid:" reference of the HTML, lower case.
std::unordered_set<std::string> referencedIds(std::string_view html) {
    std::unordered_set<std::string> ids;
    std::size_t at = 0;
    while ((at = TextEncoding::findIgnoringASCIICase(html, "cid:", at)) != std::string_view::npos) {
        at += 4;
        std::size_t end = html.find_first_of("\"' )>\t\r\n", at);
        if (end == std::string_view::npos) end = html.size();
        ids.insert(asciiLower(html.substr(at, end - at)));
        at = end;
    }
    return ids;
}

// The attachment's bytes: the dictionary's own buffer where it holds bytes.
Blob attachmentData(const Dict& item) {
    const Value* data = item.find(keys::kAttachData);
    if (!data) return {};
    if (const Blob* bytes = data->bytes()) return *bytes;
    // Classic .eml items keep some attachments as text: base64 text when the
    // part was base64 (decoded here), else the text itself.
    const std::string* text = data->string();
    if (!text) return {};
    std::size_t letters = 0;
    bool base64 = std::all_of(text->begin(), text->end(), [&](char c) {
        bool letter = std::isalnum(static_cast<unsigned char>(c)) || c == '+' || c == '/';
        letters += letter || c == '=';
        return letter || c == '=' || c == '\r' || c == '\n' || c == ' ' || c == '\t';
    });
    if (base64 && letters % 4 == 0 && letters > 0) return Blob(NewBase64Decode(asBytes(*text)));
    return Blob(toBytes(*text));
}

// Whether bytes can stand as a message/rfc822 body once their line ends are
// CR LF: a header field first, no NUL, no line longer than a line may be.
bool looksLikeMessage(std::string_view text) {
    std::size_t colon = text.find(':');
    std::size_t lineEnd = text.find_first_of("\r\n");
    if (colon == std::string_view::npos || colon == 0 || colon > lineEnd) return false;
    if (!std::all_of(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(colon),
                     [](char c) { return c > 0x20 && c < 0x7F; }))
        return false;
    std::size_t lineLength = 0;
    for (char c : text) {
        if (c == '\0') return false;
        lineLength = (c == '\r' || c == '\n') ? 0 : lineLength + 1;
        if (lineLength > mime::kMaxLineLength) return false;
    }
    return true;
}

struct Attachment {
    std::string name;
    std::string type;
    std::optional<std::string> id;
    Blob data;
};

Part attachmentPart(Attachment attachment, bool inlined, const MimeWriter::Options& options) {
    Part part;
    std::vector<std::string> typeParameters, dispositionParameters;
    if (!attachment.name.empty()) {
        std::string encodedName = mime::encodedWordParameter("name", attachment.name);
        if (!encodedName.empty()) typeParameters.push_back(encodedName);
        else typeParameters = mime::parameter("name", attachment.name);
        dispositionParameters = mime::parameter("filename", attachment.name);
    }
    if (isMessageType(attachment.type)) {
        std::optional<std::string> text;
        if (options.attachedMessage) text = options.attachedMessage(attachment.data.view());
        if (!text && looksLikeMessage(attachment.data.text())) text = std::string(attachment.data.text());
        if (text) {
            std::string body = mime::crlfLineEnds(*text);
            bool eightBit = !mime::isASCII(body);
            part.fields.push_back(fieldWithParameters("Content-Type", "message/rfc822", typeParameters));
            part.fields.push_back(fieldWithParameters("Content-Disposition", "attachment", dispositionParameters));
            part.fields.push_back(field("Content-Transfer-Encoding", eightBit ? "8bit" : "7bit"));
            part.body = std::move(body);
            return part;
        }
        attachment.type = "application/octet-stream";
    }
    part.fields.push_back(fieldWithParameters("Content-Type", attachment.type, typeParameters));
    part.fields.push_back(fieldWithParameters("Content-Disposition", inlined ? "inline" : "attachment", dispositionParameters));
    if (attachment.id) part.fields.push_back(field("Content-ID", "<" + *attachment.id + ">"));
    part.fields.push_back(field("Content-Transfer-Encoding", "base64"));
    part.body = mime::base64Lines(attachment.data.view());
    return part;
}

// Where the RTF came from: Outlook keeps HTML or plain text bodies as RTF
// that says so in its header (\fromhtml1, \fromtext).
enum class RtfOrigin { html, text, rtf };
RtfOrigin rtfOrigin(ByteView rtf) {
    std::string_view head = asText(rtf.first(std::min<std::size_t>(rtf.size(), 1024)));
    if (head.find("\\fromhtml") != std::string_view::npos) return RtfOrigin::html;
    if (head.find("\\fromtext") != std::string_view::npos) return RtfOrigin::text;
    return RtfOrigin::rtf;
}

}  // namespace

bool MimeWriter::isTraceField(std::string_view name) {
    return name == "received" || name == "return-path" || name == "authentication-results" ||
           name == "dkim-signature" || name == "received-spf" || name.starts_with("arc-") || name.starts_with("list-");
}

bool MimeWriter::isOwnField(std::string_view name) {
    static const std::unordered_set<std::string_view> own = {
        "date", "from", "to", "cc", "bcc", "reply-to", "subject", "message-id", "in-reply-to", "references",
        "mime-version", "content-type", "content-transfer-encoding", "content-disposition", "content-id"};
    return own.contains(name) || isTraceField(name);
}

std::string MimeWriter::freshMessageId() {
    return "<" + TextEncoding::lowercase(Uuid::randomString()) + "@" + std::string(mime::kMessageIdDomain) + ">";
}

MimeWriter::MimeWriter(const Dict& message, Options options) : message_(message), options_(std::move(options)) {}

std::string MimeWriter::write() const {
    // Bodies: the message's own, else what its RTF says.
    std::optional<std::string> text = textOf(message_, keys::kBody);
    std::optional<std::string> html = textOf(message_, keys::kHTML);
    bool attachRtf = false;
    const Blob* rtf = message_.findBytes(keys::kRTF);
    // With both bodies at hand the RTF adds nothing to write (and is not read).
    if (rtf && !rtf->empty() && !(text && html)) {
        // RTF whose text is blank says nothing, however it is formatted.
        std::optional<std::string> rtfText = RTFReader::stringFromRTFData(rtf->view());
        bool saysSomething = rtfText && !TextEncoding::trimWhitespaceAndNewlines(*rtfText).empty();
        // RTF made from plain text says nothing the text does not.
        if (!html && saysSomething && rtfOrigin(rtf->view()) != RtfOrigin::text) {
            html = RTFReader::htmlFromRTFData(rtf->view());
            if (html && TextEncoding::trimWhitespaceAndNewlines(*html).empty()) html.reset();
        }
        if (!text && saysSomething) text = std::move(rtfText);
        // Nothing else carries what our reader cannot turn into text: pictures, objects, or RTF it cannot read.
        bool holdsMore = !rtfText || rtf->text().find("\\pict") != std::string_view::npos ||
                         rtf->text().find("\\object") != std::string_view::npos;
        attachRtf = !text && !html && holdsMore;
    }

    // Attachments: the images the HTML shows by content id go beside it.
    std::unordered_set<std::string> shown = html ? referencedIds(*html) : std::unordered_set<std::string>{};
    std::vector<Part> related, attached;
    if (const Array* items = message_.findArray(keys::kAttachmentList)) {
        for (const Value& value : *items) {
            const Dict* item = value.dict();
            if (!item) continue;
            Attachment attachment;
            if (const std::string* name = item->findString(keys::kAttachName)) attachment.name = mime::cleanText(*name);
            std::optional<std::string> type;
            if (const std::string* declared = item->findString(keys::kAttachMimeType)) type = mediaType(*declared);
            if (!type && endsWithIgnoringCase(attachment.name, ".eml")) type = "message/rfc822";
            if (!type && attachment.name.find('.') != std::string::npos) type = MediaTypes::mediaTypeFor(attachment.name);
            if (!type || (isStructural(*type) && !isMessageType(*type))) type = "application/octet-stream";
            attachment.type = *type;
            attachment.id = contentId(*item);
            attachment.data = attachmentData(*item);
            bool inlined = attachment.id && !isMessageType(attachment.type) && shown.contains(asciiLower(*attachment.id));
            (inlined ? related : attached).push_back(attachmentPart(std::move(attachment), inlined, options_));
        }
    }
    // An appointment or a contact keeps its fields as the file every calendar and address book reads.
    if (const std::string* kind = message_.findString(keys::kMessageType)) {
        std::optional<Attachment> item;
        if (*kind == "Calendar") item = Attachment{"appointment.ics", "text/calendar", std::nullopt, {}};
        if (*kind == "Contact") item = Attachment{"contact.vcf", "text/vcard", std::nullopt, {}};
        if (item) {
            std::string itemText = *kind == "Calendar" ? ICalendarWriter::write(message_) : VCardWriter::write(message_);
            item->data = Blob(toBytes(itemText));
            if (!itemText.empty()) attached.push_back(attachmentPart(std::move(*item), false, options_));
        }
    }
    if (attachRtf) {
        Attachment body{"body.rtf", "application/rtf", std::nullopt, *rtf};
        attached.insert(attached.begin(), attachmentPart(std::move(body), false, options_));
    }

    // Structure.
    std::optional<Part> htmlPart;
    if (html) {
        htmlPart = textPart("html", *html);
        if (!related.empty()) {
            Part group;
            group.multipart = "related";
            group.multipartParameters = {"type=\"text/html\""};
            group.children.push_back(std::move(*htmlPart));
            for (Part& image : related) group.children.push_back(std::move(image));
            htmlPart = std::move(group);
        }
    }
    std::optional<Part> body;
    if (text && htmlPart) {
        body.emplace();
        body->multipart = "alternative";
        body->children.push_back(textPart("plain", *text));
        body->children.push_back(std::move(*htmlPart));
    } else if (htmlPart) {
        body = std::move(htmlPart);
    } else if (text) {
        body = textPart("plain", *text);
    }
    Part root;
    if (!attached.empty()) {
        root.multipart = "mixed";
        if (body) root.children.push_back(std::move(*body));
        for (Part& part : attached) root.children.push_back(std::move(part));
    } else if (body) {
        root = std::move(*body);
    } else {
        root = textPart("plain", "");
    }

    // Header.
    std::string out;
    if (const std::string* header = message_.findString(keys::kHeader)) out += traceFields(*header);
    if (auto date = dateText(message_)) out += field("Date", *date);
    const std::pair<std::string_view, std::string_view> addressFields[] = {
        {keys::kFrom, "From"}, {keys::kTo, "To"}, {keys::kCC, "Cc"}, {keys::kBCC, "Bcc"}, {keys::kReplyTo, "Reply-To"}};
    for (auto [key, name] : addressFields)
        if (auto written = addressField(name, message_.findArray(key))) out += *written;
    if (const std::string* subject = message_.findString(keys::kSubject)) {
        FieldWriter writer("Subject");
        mime::unstructuredWords(*subject, [&](std::string_view space, std::string_view word) { writer.add(word, space); });
        if (!writer.empty()) out += writer.finish();
    }
    std::vector<std::string> ownId;
    if (const std::string* id = message_.findString(keys::kMessageID)) ownId = msgIds(*id);
    if (ownId.empty()) ownId.push_back(freshMessageId());
    out += field("Message-ID", ownId.front());
    if (const std::string* inReplyTo = message_.findString(keys::kInReplyTo))
        if (auto written = msgIdField("In-Reply-To", msgIds(*inReplyTo))) out += *written;
    if (const std::string* references = message_.findString(keys::kReferences))
        if (auto written = msgIdField("References", msgIds(*references))) out += *written;
    out += field("MIME-Version", "1.0");
    out = serialise(std::move(root), std::move(out));
    // A single part ends where the text ends; its last line still gets its line end.
    if (!out.ends_with(kCRLF)) out.append(kCRLF);
    return out;
}

}  // namespace qh
