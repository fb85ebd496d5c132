#include "readers/mime/ReadEML.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <unordered_map>
#include <unordered_set>

#include "core/Base64.h"
#include "core/Log.h"
#include <quillhaven/MessageKeys.h>
#include "core/TextEncoding.h"
#include "readers/mime/MIMEReader.h"
#include "readers/mime/MIMEText.h"
#include "util/Base64Codec.h"
#include "util/BitWangers.h"
#include "util/DataWangers.h"
#include "util/MediaTypes.h"
#include "util/MimeCharset.h"
#include "util/Rfc2045.h"
#include "util/Rfc2047.h"
#include "util/Rfc5322.h"
#include "util/StringWangers.h"
#include "util/WebWangers.h"
#include "util/WindowsCodePageWangers.h"

namespace qh {

// What the decoding of one message carries from part to part, so that the
// inline-image pass only runs when it can change something and the duplicate
// check does not walk the attachment list.
struct ReadEML::DecodeState {
    MimeRules rules = MimeRules::of(Reading::classic);
    std::string lineBreak = "\n";  // of the message: text parts' bytes are given back with it
    bool haveBody = false;          // the plain body is chosen
    bool haveHTML = false;          // the HTML body is chosen
    std::unordered_map<std::string, std::size_t> attachmentIndex;  // name -> position in "AttachmentList"
    // File names that cid: references wait for; an attachment of another name
    // cannot change the HTML.
    std::unordered_set<std::string> pendingImageNames;
    bool htmlChanged = false;
    bool addedPendingImage = false;
    bool alwaysEmbed = false;  // a lone decodeContent call knows nothing of earlier parts
    const MIMEReader* parts = nullptr;  // the reader of the records, which keeps their bodies in place
    // Bytes the inline-image pass may still read and write: each reference
    // inserts a whole image, so an HTML naming one image a hundred thousand
    // times must not grow without limit.
    std::uint64_t inlineBudget = 0;
    bool inlineBudgetLogged = false;
};

namespace {

constexpr std::uint64_t kInlineFactor = 8;
constexpr std::uint64_t kInlineAllowance = 1u << 20;

bool stringEquals(const Dict& dict, std::string_view key, std::string_view expected) {
    const std::string* text = dict.findString(key);
    return text && *text == expected;
}

// The encoding of a part from its first Content-Type parameter.
// classic: only these charsets are known; ISO 8859 and all others are read as
// ASCII, so their 8-bit text is lost; dictionaries of the family have it so.
StringEncoding encodingForPart(const Dict& part) {
    if (!stringEquals(part, "metaType", "charset")) return StringEncoding::UTF8;
    const std::string* charset = part.findString(keys::kPartMetaData);
    if (!charset) return StringEncoding::ASCII;
    static const std::pair<std::string_view, StringEncoding> kCharsets[] = {
        {"utf-16", StringEncoding::UTF16},
        {"utf-8", StringEncoding::UTF8},
        {"windows-1250", StringEncoding::Windows1250},
        {"windows-1251", StringEncoding::Windows1251},
        {"windows-1252", StringEncoding::Windows1252},
        {"windows-1253", StringEncoding::Windows1253},
        {"windows-1254", StringEncoding::Windows1254},
        {"windows-1255", StringEncoding::Windows1255},
    };
    for (const auto& [name, encoding] : kCharsets) {
        if (*charset == name) return encoding;
    }
    return StringEncoding::ASCII;
}

std::string asciiLower(std::string_view text) {
    std::string out(text);
    for (char& c : out) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return out;
}

// Offsets of every non-overlapping ASCII-case-insensitive occurrence of
// `needle`, left to right; linear in the text whatever the needle.
std::vector<std::size_t> findAllIgnoringCase(std::string_view text, std::string_view needle) {
    std::vector<std::size_t> found;
    if (needle.empty() || needle.size() > text.size()) return found;
    std::string lowered = asciiLower(text);
    std::string loweredNeedle = asciiLower(needle);
    std::size_t at = MIMEText::find(lowered, loweredNeedle);
    while (at != std::string_view::npos) {
        found.push_back(at);
        at = MIMEText::find(lowered, loweredNeedle, at + needle.size());
    }
    return found;
}

std::string replaceAtOffsets(std::string_view text, const std::vector<std::size_t>& offsets, std::size_t length,
                             std::string_view replacement) {
    std::string out;
    out.reserve(text.size() + offsets.size() * replacement.size());
    std::size_t start = 0;
    for (std::size_t at : offsets) {
        out.append(text.substr(start, at - start));
        out.append(replacement);
        start = at + length;
    }
    out.append(text.substr(start));
    return out;
}

// The name of a part: its "fileName"; else the first Content-Type parameter
// when that is "name"; else from a "Content-Disposition" entry (records that
// other code builds carry one; the parser never stores it under that name).
std::optional<std::string> nameForPart(const Dict& part) {
    if (const std::string* fileName = part.findString(keys::kPartFileName)) return *fileName;
    if (stringEquals(part, "metaType", "name")) {
        if (const std::string* metaData = part.findString(keys::kPartMetaData)) return *metaData;
        return std::nullopt;
    }
    const std::string* disposition = part.findString(keys::kPartDispositionField);
    if (!disposition) return std::nullopt;
    std::string_view parameter;
    if (!MIMEText::secondPiece(*disposition, "\t", parameter)) return std::nullopt;
    std::string_view parameterName = MIMEText::firstPiece(parameter, "=");
    std::string_view parameterValue;
    if (!MIMEText::secondPiece(parameter, "=", parameterValue)) return std::nullopt;
    if (parameterName == "filename") return MIMEText::removeAll(parameterValue, '"');
    if (parameterName == "filename*") {
        // RFC 2231: charset''percent-escaped-value
        std::vector<std::string_view> halves = MIMEText::split(parameterValue, "''");
        if (halves.size() == 2) return ReadEML::trimMIMEStrings(halves[1]);
    }
    return std::nullopt;
}

}  // namespace

std::unique_ptr<ReadEML> ReadEML::initWithData(ByteView data) {
    return initWithData(data, ReadOptions::classic());
}

std::unique_ptr<ReadEML> ReadEML::initWithData(ByteView data, const ReadOptions& options) {
    if (data.empty()) return nullptr;
    const MimeRules rules = MimeRules::of(options.reading);
    auto reader = std::make_unique<ReadEML>();
    Dict& mail = reader->mailContent_;
    mail.reserve(16);  // the message's keys: it is not moved as it fills
    // The bodies stay in the message's bytes until they are decoded: each is
    // copied once, into the value that is kept.
    std::unique_ptr<MIMEReader> mime = MIMEReader::initWithData(data, rules, MIMEReader::BodyStorage::InPlace);
    const Dict& record = mime->getDictionary();

    if (rules.headers == MimeRules::Headers::Rfc5322) {
        readHeaderFields(data, mail);
    } else {
        for (std::string_view key : {keys::kFrom, keys::kTo, keys::kCC, keys::kBCC, keys::kDate}) {
            if (const Value* value = record.find(key)) mail.set(std::string(key), *value);
        }
        // classic: only UTF-8 "B" words are decoded in the subject; summaries
        // of the family were made from this text.
        if (const std::string* subject = record.findString(keys::kSubject)) {
            mail.set(std::string(keys::kSubject), WebWangers::decodeUTF8B(*subject));
        }
    }
    std::string header;
    if (rules.headerText == MimeRules::HeaderText::WholeBlock) {
        // The header block as it stands, up to the empty line that ends it.
        std::string_view text = asText(data);
        const std::size_t end = MIMEText::headerBlockEnd(text);
        header = MimeCharset::utf8OrWindows1252(text.substr(0, end == std::string_view::npos ? text.size() : end));
    } else {
        // classic: only the "X-" headers are kept; the standard ones are not
        // (hosts of the family show "Header" as the extra fields).
        for (const auto& [key, value] : record) {
            if (key.rfind("X-", 0) != 0) continue;
            header.append(key);
            header.append(": ");
            if (const std::string* text = value.string()) header.append(*text);
            header.push_back('\n');
        }
    }
    mail.set(std::string(keys::kHeader), std::move(header));

    DecodeState state;
    state.rules = rules;
    state.parts = mime.get();
    state.inlineBudget = kInlineFactor * data.size() + kInlineAllowance;
    {
        std::string_view text = asText(data);
        std::size_t lf = text.find('\n');
        if (lf != std::string_view::npos && lf > 0 && text[lf - 1] == '\r') state.lineBreak = "\r\n";
    }
    if (const Array* parts = record.findArray(keys::kMailContent)) {
        for (const Value& part : *parts) {
            if (const Dict* partRecord = part.dict()) decodeContent(*partRecord, mail, state);
        }
    } else {
        decodeContent(record, mail, state);
    }
    return reader;
}

// The RFC 5322 fields of the message's own header block, names in any case;
// fields that occur more than once (two "To" lines) are read together.
void ReadEML::readHeaderFields(ByteView data, Dict& dictionary) {
    const std::vector<rfc5322::Field> fields = rfc5322::parseFields(asText(data));
    // The fields read, found in one pass over the block: each name's fields in order.
    enum Name { FromField, ToField, CcField, BccField, ReplyToField, DateField, SubjectField, MessageIdField,
                InReplyToField, ReferencesField, kNames };
    static constexpr std::string_view kNameTexts[kNames] = {"From", "To",         "Cc",          "Bcc",
                                                            "Reply-To", "Date",   "Subject",     "Message-ID",
                                                            "In-Reply-To", "References"};
    std::array<std::vector<const std::string*>, kNames> found;
    for (const rfc5322::Field& field : fields) {
        for (int name = 0; name < kNames; ++name) {
            if (MIMEText::equalsASCIIIgnoringCase(field.name, kNameTexts[name])) {
                found[name].push_back(&field.value);
                break;
            }
        }
    }
    // Fields that occur more than once are read together, joined by ", ".
    std::string joined;
    auto all = [&](Name name) -> std::optional<std::string_view> {
        const std::vector<const std::string*>& values = found[name];
        if (values.empty()) return std::nullopt;
        if (values.size() == 1) return std::string_view(*values.front());
        joined.clear();
        for (std::size_t i = 0; i < values.size(); ++i) {
            if (i > 0) joined += ", ";
            joined += *values[i];
        }
        return std::string_view(joined);
    };
    auto first = [&](Name name) -> const std::string* { return found[name].empty() ? nullptr : found[name].front(); };
    static const std::pair<Name, std::string_view> kAddressFields[] = {
        {FromField, keys::kFrom}, {ToField, keys::kTo},           {CcField, keys::kCC},
        {BccField, keys::kBCC},   {ReplyToField, keys::kReplyTo}};
    for (const auto& [field, key] : kAddressFields) {
        std::optional<std::string_view> value = all(field);
        if (!value) continue;
        std::vector<rfc5322::Mailbox> mailboxes = rfc5322::parseAddressList(*value);
        Array list;
        list.reserve(mailboxes.size());
        for (rfc5322::Mailbox& mailbox : mailboxes) {
            // As every reader of the family does: a mailbox without a name shows its address.
            Dict entry;
            entry.reserve(2);
            entry.set(keys::kName, mailbox.name.empty() ? Value(mailbox.address) : Value(std::move(mailbox.name)));
            entry.set(keys::kAddress, Value(std::move(mailbox.address)));
            list.push_back(Value(std::move(entry)));
        }
        dictionary.set(key, std::move(list));
    }
    if (const std::string* date = first(DateField)) {
        dictionary.set(keys::kDate, rfc2047::decodeText(*date));
        if (std::optional<Date> stamp = rfc5322::parseDateTime(*date)) dictionary.set(keys::kTimeStamp, *stamp);
    }
    if (const std::string* subject = first(SubjectField)) {
        dictionary.set(keys::kSubject, rfc2047::decodeText(*subject));
    }
    if (const std::string* id = first(MessageIdField)) {
        std::string_view cursor = *id;
        std::string parsed;
        dictionary.set(keys::kMessageID,
                       rfc5322::parseMsgId(cursor, parsed) ? std::move(parsed) : MimeCharset::utf8OrWindows1252(*id));
    }
    if (const std::string* ids = first(InReplyToField)) {
        dictionary.set(keys::kInReplyTo, rfc5322::msgIdList(*ids));
    }
    if (std::optional<std::string_view> ids = all(ReferencesField)) {
        dictionary.set(keys::kReferences, rfc5322::msgIdList(*ids));
    }
}

void ReadEML::decodeContent(const Dict& part, Dict& dictionary) {
    DecodeState state;
    state.alwaysEmbed = true;
    if (const Array* list = dictionary.findArray(keys::kAttachmentList)) {
        for (std::size_t i = 0; i < list->size(); ++i) {
            if (const Dict* item = (*list)[i].dict()) {
                if (const std::string* name = item->findString(keys::kAttachName)) state.attachmentIndex.emplace(*name, i);
            }
        }
    }
    std::uint64_t size = 0;
    if (const std::string* html = dictionary.findString(keys::kHTML)) size += html->size();
    if (const std::string* content = part.findString(keys::kPartContent)) size += content->size();
    state.inlineBudget = kInlineFactor * size + kInlineAllowance;
    decodeContent(part, dictionary, state);
}

void ReadEML::decodeContent(const Dict& part, Dict& dictionary, DecodeState& state) {
    if (state.rules.attachments == MimeRules::Attachments::EveryLeaf) {
        decodeLeaf(part, dictionary, state);
        return;
    }
    const bool isBase64 = stringEquals(part, "encodingType", "base64");
    // classic: "quoted-printable" as a content type never occurs; it is accepted all the same.
    bool isText = stringEquals(part, "contentType", "text") || stringEquals(part, "contentType", "quoted-printable");
    const StringEncoding encoding = encodingForPart(part);
    const std::optional<std::string> name = nameForPart(part);
    const std::string* contentId = part.findString(keys::kPartContentId);
    const std::string* content = part.findString(keys::kPartContent);

    std::optional<Value> value;
    if (isBase64) {
        std::optional<Bytes> bytes;
        if (content) bytes = DataWangers::b64DecodeDataString(std::string_view(*content));
        if (bytes) {
            if (isText) {
                if (auto text = TextEncoding::decode(*bytes, encoding)) value = Value(std::move(*text));
            } else {
                value = Value(std::move(*bytes));
            }
        }
    } else {
        if (name && MIMEText::lowercase(MIMEText::pathExtension(*name)) == "xml") isText = true;
        if (content) {
            if (isText) {
                value = Value(*content);
            } else if (TextEncoding::findIgnoringASCIICase(*content, "html") != std::string_view::npos) {
                // Unlabelled content that mentions html is taken as text.
                value = Value(*content);
                isText = true;
            }
        }
    }

    const std::string* format = part.findString(keys::kPartContentFormat);
    auto logUnknownFormat = [&] { Log::line("unknown format type " + (format ? *format : std::string("(null)"))); };

    if (value && !name) {
        const std::string* text = value->string();
        if (!text) {
            // Unnamed binary content (an image known only by its content id)
            // is no body and has no name to file it under.
            logUnknownFormat();
        } else {
            std::string decoded;
            if (encoding == StringEncoding::Windows1255) {
                decoded = WebWangers::decodeQuotedPrintableString(
                    WindowsCodePageWangers::decodeCP1255FromMimeEncodedString(*text), "quoted-printable");
            } else {
                const std::string* transfer = part.findString(keys::kPartEncoding);
                decoded = WebWangers::decodeQuotedPrintableString(*text, transfer ? *transfer : std::string_view());
                // classic: links rewritten to https; previews of the family show them so.
                if (state.rules.bodies == MimeRules::Bodies::Rewritten) {
                    decoded = MIMEText::replaceAll(decoded, "http:", "https:");
                }
            }
            if (!decoded.empty() && format && *format == "html") {
                dictionary.set(std::string(keys::kHTML), std::string(MIMEText::trim(decoded)));
                state.htmlChanged = true;
            } else if (!decoded.empty() && format && *format == "plain") {
                dictionary.set(std::string(keys::kBody), std::string(MIMEText::trim(decoded)));
            } else {
                logUnknownFormat();
            }
            // classic: a quoted-printable body is kept raw and as a "<BR>" page;
            // hosts of the family show "RawMail" and this page.
            if (state.rules.bodies == MimeRules::Bodies::Rewritten &&
                stringEquals(part, "encodingType", "quoted-printable")) {
                dictionary.set(std::string(keys::kRawMail), *text);
                if (!dictionary.contains(keys::kHTML)) {
                    std::string html = WebWangers::decodeQuotedPrintableString(*text, "quoted-printable");
                    if (format && *format == "plain") html = MIMEText::replaceAll(html, "\n", "<BR>\n");
                    if (!html.empty()) {
                        dictionary.set(std::string(keys::kHTML), std::move(html));
                        state.htmlChanged = true;
                    }
                }
            }
        }
    } else if (value && name) {
        std::size_t length = 0;
        if (const std::string* text = value->string()) {
            length = TextEncoding::utf16Length(*text);
        } else if (const Blob* bytes = value->bytes()) {
            length = bytes->size();
        }
        if (length > 0) {
            auto known = state.attachmentIndex.find(*name);
            const Array* list = dictionary.findArray(keys::kAttachmentList);
            if (known != state.attachmentIndex.end() && list && known->second < list->size()) {
                // classic: the first part of a name wins (the part list holds the
                // nested parts twice; this check drops the copies).
                const Dict* item = (*list)[known->second].dict();
                const Value* oldSize = item ? item->find(keys::kAttachSize) : nullptr;
                Log::line("filename " + *name + " oldsize " +
                          (oldSize ? std::to_string(oldSize->integer()) : std::string("(null)")) + " newsize " +
                          std::to_string(length));
            } else {
                Dict item;
                item.set(std::string(keys::kAttachName), *name);
                item.set(std::string(keys::kAttachData), std::move(*value));
                if (contentId && !contentId->empty()) item.set(std::string(keys::kEmlContentID), *contentId);
                item.set(std::string(keys::kAttachSize), static_cast<std::uint64_t>(length));
                item.set(std::string(keys::kAttachSizeString), BitWangers::formatSize(static_cast<double>(length)));
                if (!dictionary.contains(keys::kAttachmentList)) dictionary.set(std::string(keys::kAttachmentList), Array());
                Array* items = dictionary.find(keys::kAttachmentList)->array();
                if (!items) {
                    dictionary.set(std::string(keys::kAttachmentList), Array());
                    items = dictionary.find(keys::kAttachmentList)->array();
                }
                state.attachmentIndex.emplace(*name, items->size());
                items->push_back(Value(std::move(item)));
                if (state.pendingImageNames.count(*name)) state.addedPendingImage = true;
            }
        }
    }

    if (state.rules.inlineImages == MimeRules::InlineImages::DataAddresses && dictionary.contains(keys::kHTML) &&
        (state.alwaysEmbed || state.htmlChanged || state.addedPendingImage)) {
        embedInlineImages(dictionary, state);
    }
    state.htmlChanged = false;
    state.addedPendingImage = false;
}

// One leaf part as the bytes that were sent, then either the chosen plain or
// HTML body or an attachment item.
void ReadEML::decodeLeaf(const Dict& part, Dict& dictionary, DecodeState& state) {
    const MimeRules& rules = state.rules;
    // The fields read here, found in one pass over the record.
    const std::string *type = nullptr, *format = nullptr, *fileName = nullptr, *typeName = nullptr,
                      *disposition = nullptr, *transfer = nullptr, *contentId = nullptr, *uaContent = nullptr,
                      *charset = nullptr;
    for (const auto& [key, value] : part) {
        if (key == keys::kPartExpanded) return;  // a multipart whose parts were read
        const std::string* text = value.string();
        if (key == keys::kPartContentType) {
            type = text;
        } else if (key == keys::kPartContentFormat) {
            format = text;
        } else if (key == keys::kPartFileName) {
            fileName = text;
        } else if (key == keys::kPartTypeName) {
            typeName = text;
        } else if (key == keys::kPartDisposition) {
            disposition = text;
        } else if (key == keys::kPartEncoding) {
            transfer = text;
        } else if (key == keys::kPartContentId) {
            contentId = text;
        } else if (key == keys::kPartRawContent) {
            uaContent = text;
        } else if (key == keys::kPartCharset) {
            charset = text;
        }
    }
    std::string mediaType = "text/plain";  // RFC 2045: what a part without a type is
    if (type && !type->empty()) mediaType = *type + "/" + (format && !format->empty() ? *format : "octet-stream");
    if (!fileName || fileName->empty()) fileName = typeName;
    if (fileName && fileName->empty()) fileName = nullptr;
    // "uaContent" is the line that ended the headers, then LF and each body line;
    // a body kept in place is that text after its first two line feeds, with
    // the message's own line breaks (the decoders read CR LF as LF).
    const std::optional<std::string_view> inPlace =
        !uaContent && state.parts ? state.parts->bodyInPlace(part) : std::nullopt;
    std::string_view body = uaContent ? std::string_view(*uaContent).substr(std::min<std::size_t>(2, uaContent->size()))
                                      : inPlace.value_or(std::string_view());
    auto payload = [&](std::string_view lineBreak) -> Bytes {
        if (transfer && *transfer == "base64") return NewBase64Decode(asBytes(body));
        if (transfer && *transfer == "quoted-printable") return rfc2045::decodeQuotedPrintable(body, lineBreak);
        return rfc2045::withLineBreaks(body, lineBreak);
    };
    // The same held in a string: a body's text is then that string where it
    // needs no conversion.
    auto payloadText = [&](std::string_view lineBreak) -> std::string {
        if (transfer && *transfer == "base64") {
            Bytes decoded = payload(lineBreak);
            return std::string(asText(decoded));
        }
        if (transfer && *transfer == "quoted-printable") return rfc2045::decodeQuotedPrintableText(body, lineBreak);
        return rfc2045::withLineBreaksText(body, lineBreak);
    };

    const bool isPlain = mediaType == "text/plain", isHTML = mediaType == "text/html";
    const bool bodyCandidate = (isPlain || isHTML) && !fileName && !(disposition && *disposition == "attachment");
    if (bodyCandidate && ((isPlain && !state.haveBody) || (isHTML && !state.haveHTML))) {
        (isPlain ? state.haveBody : state.haveHTML) = true;
        std::string bytes = payloadText("\n");
        std::string text;
        if (rules.charsets == MimeRules::Charsets::AnyIcu) {
            text = MimeCharset::decode(std::move(bytes), charset ? *charset : std::string_view());
        } else {
            text = TextEncoding::decode(asBytes(bytes), encodingForPart(part)).value_or(std::string());
        }
        if (rules.bodies == MimeRules::Bodies::Rewritten) {
            text = MIMEText::replaceAll(MIMEText::trim(text), "http:", "https:");
        }
        if (!text.empty()) dictionary.set(std::string(isPlain ? keys::kBody : keys::kHTML), std::move(text));
        return;
    }

    if (!uaContent && !inPlace && !fileName) return;  // an empty part without a name holds nothing
    Bytes data = payload(state.lineBreak);
    std::string name;
    if (fileName) {
        name = *fileName;
    } else if (mediaType == "message/rfc822") {
        // An attached message is named after its subject.
        std::string subject;
        for (const rfc5322::Field& field : rfc5322::parseFields(asText(data), 256)) {
            if (MIMEText::equalsASCIIIgnoringCase(field.name, "Subject")) {
                subject = rfc2047::decodeText(field.value);
                break;
            }
        }
        // Outlook writes the subject on the part itself too.
        for (const auto& [key, value] : part) {
            if (!subject.empty()) break;
            if (MIMEText::equalsASCIIIgnoringCase(key, "Subject") && value.string()) {
                subject = rfc2047::decodeText(*value.string());
            }
        }
        if (!subject.empty()) name = subject + ".eml";
    }
    if (name.empty()) {
        const Array* list = dictionary.findArray(keys::kAttachmentList);
        name = "attachment-" + std::to_string((list ? list->size() : 0) + 1) + "." +
               MediaTypes::extensionFor(mediaType);
    }
    Dict item;
    item.reserve(8);
    const std::size_t length = data.size();
    item.set(std::string(keys::kAttachName), std::move(name));
    item.set(std::string(keys::kAttachData), Value(std::move(data)));
    item.set(std::string(keys::kAttachSize), static_cast<std::uint64_t>(length));
    item.set(std::string(keys::kAttachSizeString), BitWangers::formatSize(static_cast<double>(length)));
    item.set(std::string(keys::kAttachMimeType), mediaType);
    if (contentId && !contentId->empty()) item.set(std::string(keys::kAttachContentID), *contentId);
    std::string shownAs = disposition && (*disposition == "inline" || *disposition == "attachment")
                              ? *disposition
                              : std::string(contentId && !contentId->empty() ? "inline" : "attachment");
    item.set(std::string(keys::kAttachDisposition), std::move(shownAs));
    addAttachment(std::move(item), dictionary, state);
}

void ReadEML::addAttachment(Dict item, Dict& dictionary, DecodeState& state) {
    Value* list = dictionary.find(keys::kAttachmentList);
    if (!list || !list->array()) {
        dictionary.set(std::string(keys::kAttachmentList), Array());
        list = dictionary.find(keys::kAttachmentList);
    }
    if (const std::string* name = item.findString(keys::kAttachName)) {
        state.attachmentIndex.emplace(*name, list->array()->size());
    }
    list->array()->push_back(Value(std::move(item)));
}

// classic: <img src="cid:image001.png@01D2..."> becomes <img src="data:image/png;base64,...">
// when an attachment is named image001.png: references match by the text
// before the "@", the attachment's file name, not by its content id.
void ReadEML::embedInlineImages(Dict& dictionary, DecodeState& state) {
    const std::string* current = dictionary.findString(keys::kHTML);
    if (!current) return;
    auto spend = [&](std::uint64_t cost) {
        if (cost <= state.inlineBudget) {
            state.inlineBudget -= cost;
            return true;
        }
        if (!state.inlineBudgetLogged) {
            state.inlineBudgetLogged = true;
            Log::line("ReadEML - inline images beyond the reader's limit left as references");
        }
        state.inlineBudget = 0;
        return false;
    };
    if (!spend(current->size())) return;

    const std::string original = *current;
    std::string copy = original;
    const std::vector<std::size_t> sources = findAllIgnoringCase(original, "src=\"");
    const Array* list = dictionary.findArray(keys::kAttachmentList);
    std::unordered_set<std::string> replaced;
    state.pendingImageNames.clear();

    for (std::size_t k = 0; k <= sources.size(); ++k) {
        std::size_t begin = k == 0 ? 0 : sources[k - 1] + 5;
        std::size_t end = k < sources.size() ? sources[k] : original.size();
        std::string_view piece = std::string_view(original).substr(begin, end - begin);
        if (piece.rfind("cid:", 0) != 0) continue;
        std::size_t close = piece.find("\">");
        if (close == std::string_view::npos) continue;
        std::string_view reference = piece.substr(4, close - 4);
        std::size_t at = reference.find('@');
        if (at == std::string_view::npos) continue;
        std::string fileName(reference.substr(0, at));

        auto known = state.attachmentIndex.find(fileName);
        if (known == state.attachmentIndex.end() || !list || known->second >= list->size()) {
            state.pendingImageNames.insert(fileName);
            continue;
        }
        const Dict* item = (*list)[known->second].dict();
        const Blob* data = item ? item->findBytes(keys::kAttachData) : nullptr;
        if (!data || data->empty()) continue;

        std::string loweredName = asciiLower(fileName);
        std::string_view imageType;
        for (std::string_view type : {"png", "gif", "jpg", "jpeg"}) {
            if (loweredName.find(type) != std::string::npos) {
                imageType = type;
                break;
            }
        }
        if (imageType.empty()) continue;
        std::string target = "cid:" + std::string(reference);
        // A reference already replaced everywhere finds nothing the second time.
        if (!replaced.insert(asciiLower(target)).second) continue;
        if (!spend(copy.size() + target.size())) break;
        std::vector<std::size_t> hits = findAllIgnoringCase(copy, target);
        if (hits.empty()) continue;
        std::string address = "data:image/" + std::string(imageType) + ";base64," + Base64::encode(data->view());
        std::uint64_t growth = static_cast<std::uint64_t>(hits.size()) * address.size();
        if (!spend(growth)) break;
        copy = replaceAtOffsets(copy, hits, target.size(), address);
        dictionary.set(std::string(keys::kHTML), copy);
    }
}

std::string ReadEML::trimMIMEStrings(std::string_view text) {
    std::string result(text);
    if (result.find('%') != std::string::npos) {
        static const char kHex[] = "0123456789ABCDEF";
        // classic: code by code, one character per byte (a UTF-8 name comes out
        // as one character per byte), as the escapes are replaced one kind after
        // another (an escaped "%" can form a new escape with what follows it);
        // records that other code of the family builds are named so.
        for (int code = 1; code <= 254; ++code) {
            const char escape[3] = {'%', kHex[code >> 4], kHex[code & 15]};
            std::string_view token(escape, 3);
            if (MIMEText::find(result, token) == std::string_view::npos) continue;
            std::string character;
            if (code < 0x80) {
                character.push_back(static_cast<char>(code));
            } else {
                character.push_back(static_cast<char>(0xC0 | (code >> 6)));
                character.push_back(static_cast<char>(0x80 | (code & 0x3F)));
            }
            result = MIMEText::replaceAll(result, token, character);
        }
    }
    return MIMEText::replaceAll(result, "=\n", "");
}

std::optional<Dict> ReadEML::getSummaryForMessage(ByteView data) {
    return getSummaryForMessage(data, ReadOptions::classic());
}

std::optional<Dict> ReadEML::getSummaryForMessage(ByteView data, const ReadOptions& options) {
    std::unique_ptr<ReadEML> reader = initWithData(data, options);
    const Dict* mail = reader ? reader->returnFullDictionary() : nullptr;
    Dict summary;

    std::string subject;
    if (const std::string* text = mail ? mail->findString(keys::kSubject) : nullptr) {
        std::string_view firstLine = *text;
        std::size_t lineEnd = firstLine.find_first_of("\r\n");
        if (lineEnd != std::string_view::npos) firstLine = firstLine.substr(0, lineEnd);
        subject = StringWangers::zapGremlins(firstLine).value_or(std::string());
    }
    summary.set(std::string(keys::kSubject), subject.empty() ? std::string("-") : subject);

    const std::string* body = mail ? mail->findString(keys::kBody) : nullptr;
    summary.set(std::string(keys::kBody), body && !body->empty() ? *body : std::string("-"));

    std::string from;
    if (const Array* senders = mail ? mail->findArray(keys::kFrom) : nullptr) {
        if (!senders->empty()) {
            if (const Dict* sender = senders->front().dict()) {
                if (const std::string* senderName = sender->findString(keys::kName)) from = *senderName;
            }
        }
    }
    summary.set(std::string(keys::kFrom), from.empty() ? std::string("-") : from);
    return summary;
}

}  // namespace qh
