#include "writers/MailFormatters.h"

#include <quillhaven/MessageKeys.h>
#include "core/SystemInfo.h"
#include "core/TextEncoding.h"
#include "richtext/RTFReader.h"
#include "util/DataWangers.h"
#include "util/StringWangers.h"
#include "util/WebWangers.h"

namespace qh {
namespace {

constexpr std::string_view kQuotedPrintableHTMLHeader =
    "Content-transfer-encoding: quoted-printable\nContent-type: text/html; charset=us-ascii\n";
constexpr std::string_view kPlainTextHeader = "Content-transfer-encoding: text\nContent-type: text/plain; charset=utf-8\n";

std::string partBoundary(std::string_view boundary) {
    std::string line("\n\n--");
    line.append(boundary).append("\n");
    return line;
}

std::string trimmed(std::string_view text) { return TextEncoding::trimWhitespaceAndNewlines(text); }

std::string withSingleNewlines(std::optional<std::string_view> text) {
    return StringWangers::replaceDoubleNewline(text).value_or(std::string());
}

// A text value, or the bytes of a byte value read as they stand.
std::optional<std::string_view> textOf(const Value* value) {
    if (!value) return std::nullopt;
    if (const std::string* text = value->string()) return std::string_view(*text);
    if (const Blob* bytes = value->bytes()) return bytes->text();
    return std::nullopt;
}

}  // namespace

std::string MailFormatters::singleLine(std::string_view value) {
    // A subject, name or file name is the sender's text: a line break in it
    // would end the header there and start one of the sender's choosing.
    std::string line;
    line.reserve(value.size());
    for (std::size_t i = 0; i < value.size(); ++i) {
        if (value[i] != '\r' && value[i] != '\n') {
            line.push_back(value[i]);
            continue;
        }
        line.push_back(' ');
        while (i + 1 < value.size() && (value[i + 1] == '\r' || value[i + 1] == '\n')) ++i;
    }
    return line;
}

std::string MailFormatters::boundaryTagWithBoundary(std::string_view boundary) {
    std::string tag("\n--");
    tag.append(boundary).append("\n");
    return tag;
}

std::string MailFormatters::mailContentTagWithBoundary(std::string_view boundary) {
    std::string tag("Content-Type: multipart/alternative;\n\tboundary=\"");
    tag.append(boundary).append("\"\n");
    return tag;
}

std::string MailFormatters::contentTagWithBoundary(std::string_view boundary) {
    // Systems up to 10.8 could not show inline parts of multipart/related mail.
    std::string tag(SystemInfo::systemVersionNumber() > 10.8 ? "Content-type: multipart/related;\n\tboundary=\""
                                                             : "Content-type: multipart/mixed;\n\tboundary=\"");
    tag.append(boundary).append("\"");
    return tag;
}

std::string MailFormatters::formatMailingList(const Array& addresses) {
    std::string list;
    for (const Value& entry : addresses) {
        const Dict* record = entry.dict();
        if (!record) continue;
        const std::string* rawAddress = record->findString(keys::kAddress);
        std::optional<std::string> address =
            StringWangers::zapGremlins(rawAddress ? std::optional<std::string_view>(*rawAddress) : std::nullopt);
        if (!address || !WebWangers::validateEmailAddress(*address)) continue;
        std::optional<std::string> name;
        if (const std::string* rawName = record->findString(keys::kName)) name = StringWangers::zapGremlins(*rawName);
        if (!name) name = address;
        list.append("\"").append(singleLine(*name)).append("\" ");
        list.append("<").append(singleLine(*address)).append(">,\n ");
    }
    // The last entry keeps its comma: only the line end and blank after it go.
    if (TextEncoding::utf16Length(list) >= 3) list.resize(list.size() - 2);
    list.append("\n");
    return list;
}

std::string MailFormatters::messageContent(const Dict& message, std::string_view boundary) {
    const std::string separator = partBoundary(boundary);
    std::string content;

    const Blob* rtf = message.findBytes(keys::kRTF);
    std::optional<std::string> rtfText;

    if (auto rawMail = textOf(message.find(keys::kRawMail))) {
        content.append(separator).append(kQuotedPrintableHTMLHeader).append("\n").append(*rawMail);
    } else if (auto html = textOf(message.find(keys::kHTML))) {
        // The header announces quoted-printable, but this HTML goes out as it is: mail readers cope.
        content.append(separator).append(kQuotedPrintableHTMLHeader).append("\n");
        content.append(withSingleNewlines(trimmed(*html)));
    } else if (rtf && (rtfText = RTFReader::rtfStringFromData(rtf->view()))) {
        std::optional<std::string> rtfHTML = RTFReader::htmlFromRTFData(rtf->view());
        std::string html = withSingleNewlines(rtfHTML ? std::optional<std::string_view>(*rtfHTML) : std::nullopt);
        content.append(separator);
        if (!trimmed(html).empty()) {
            content.append(kQuotedPrintableHTMLHeader).append("\n");
            content.append(trimmed(WebWangers::createQuotedPrintableFromString(html)));
        } else {
            content.append(kPlainTextHeader).append("\n");
            if (auto plain = RTFReader::stringFromRTFData(rtf->view())) content.append(withSingleNewlines(*plain));
        }
        content.append("\n\n").append(separator);
        content.append("Content-type: text/rtf\n");
        content.append("Content-Disposition: attachment; filename=EmailContent.rtf\n");
        content.append("Content-length: ").append(std::to_string(TextEncoding::utf16Length(*rtfText))).append("\n\n");
        content.append(withSingleNewlines(*rtfText));
    } else {
        // classic: the plain part's header stands before its boundary line;
        // every .eml the classic writer (`convert --classic`, embedded
        // messages) has made looks so, and its readers get it byte for byte.
        content.append(kPlainTextHeader).append("\n");
        if (const std::string* body = message.findString(keys::kBody)) content.append(separator).append(trimmed(*body));
    }
    content.append("\n\n");
    return content;
}

std::string MailFormatters::attachmentContents(const Dict& message, std::string_view boundary, bool /*convertType*/) {
    std::string content;
    const Array* attachments = message.findArray(keys::kAttachmentList);
    if (!attachments) return content;
    for (const Value& entry : *attachments) {
        const Dict* attachment = entry.dict();
        if (!attachment) continue;
        const Value* data = attachment->find(keys::kAttachData);
        std::string encoded;
        if (data && data->bytes()) encoded = DataWangers::b64EncodeData(data->bytes()->view());
        else if (data && data->string()) encoded = DataWangers::b64EncodeData(std::string_view(*data->string()));
        if (encoded.empty()) continue;

        std::optional<std::string> name;
        if (const std::string* rawName = attachment->findString(keys::kAttachName)) name = StringWangers::zapGremlins(*rawName);
        if (!name || name->empty()) name = "Unnamed";

        content.append("\n").append(boundaryTagWithBoundary(boundary));
        content.append("Content-Transfer-Encoding: base64").append("\n");
        content.append("Content-Disposition: attachment;\n\tfilename=\"").append(singleLine(*name)).append("\"\n\n");
        content.append(withSingleNewlines(encoded));
        content.append("\n\n");
    }
    return content;
}

}  // namespace qh
