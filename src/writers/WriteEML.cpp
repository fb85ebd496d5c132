#include <quillhaven/WriteEML.h>

#include "core/DateFormatting.h"
#include <quillhaven/MessageKeys.h>
#include "core/TextEncoding.h"
#include "util/StringWangers.h"
#include <quillhaven/ICalendarWriter.h>
#include "writers/MailFormatters.h"
#include <quillhaven/VCardWriter.h>

namespace qh {

std::unique_ptr<WriteEML> WriteEML::initWithDictionary(const Dict* dictionary) {
    if (!dictionary) return nullptr;
    return std::make_unique<WriteEML>(*dictionary);
}

WriteEML::WriteEML(Dict dictionary) : dictionary_(std::move(dictionary)) {}

const Value* WriteEML::checkContent(std::string_view key) const { return dictionary_.find(key); }

const Array* WriteEML::attachmentArray() const { return dictionary_.findArray(keys::kAttachmentList); }

std::string WriteEML::formatOutputFile() const {
    const std::string boundary = StringWangers::generateUUIDString();
    std::string text;
    text.append("Generated-By: Quillhaven 3\n");

    // No header encoding: the subject goes out in UTF-8 as it stands, on one line.
    if (const std::string* subject = dictionary_.findString(keys::kSubject))
        text.append("Subject: ").append(MailFormatters::singleLine(TextEncoding::trimWhitespaceAndNewlines(*subject))).append("\n");

    const std::pair<std::string_view, std::string_view> addressHeaders[] = {
        {keys::kFrom, "From: "}, {keys::kTo, "To: "}, {keys::kCC, "Cc: "}, {keys::kBCC, "Bcc: "}};
    for (auto [key, label] : addressHeaders) {
        if (const Array* addresses = dictionary_.findArray(key))
            text.append(label).append(MailFormatters::formatMailingList(*addresses));
    }

    const Value* timeStamp = dictionary_.find(keys::kTimeStamp);
    if (timeStamp && timeStamp->date()) {
        text.append("Date: ").append(DateFormatting::format(*timeStamp->date(), "E, d MMM yyyy HH:mm:ss Z")).append("\n");
    } else if (const std::string* date = dictionary_.findString(keys::kDate)) {
        text.append("Date: ").append(MailFormatters::singleLine(TextEncoding::trimWhitespaceAndNewlines(*date))).append("\n");
    }

    // One fixed Message-ID for every converted message: the conversion is not a new message.
    text.append("Message-ID: <Quillhaven-Conversion>").append("\n").append("Mime-version: 1.0").append("\n");
    text.append(MailFormatters::contentTagWithBoundary(boundary)).append("\n");
    text.append(MailFormatters::messageContent(dictionary_, boundary));
    text.append(MailFormatters::attachmentContents(dictionary_, boundary, true));
    // No closing boundary is written; readers take the end of the text as the end of the last part.
    text.append("\n");
    return text;
}

std::string WriteEML::exportContacts() const { return VCardWriter::write(dictionary_); }

std::string WriteEML::exportAppointment() const { return ICalendarWriter::write(dictionary_); }

}  // namespace qh
