#include <quillhaven/MboxWriter.h>

#include <cmath>
#include <cstdio>

#include "core/DateFormatting.h"
#include <quillhaven/MessageKeys.h>
#include "writers/Format.h"
#include "writers/MimeEncoding.h"

namespace qh {

namespace {

bool isFromLine(std::string_view line) {
    std::size_t quotes = line.find_first_not_of('>');
    return quotes != std::string_view::npos && line.substr(quotes).starts_with("From ");
}

}  // namespace

std::string MboxWriter::separator(const Dict& message) {
    std::string sender(mime::kMboxUnknownSender);
    if (const Array* from = message.findArray(keys::kFrom)) {
        for (const Value& value : *from) {
            const Dict* record = value.dict();
            const std::string* address = record ? record->findString(keys::kAddress) : nullptr;
            // The separator line is split at blanks: an address with one (quoted local part) cannot stand there.
            if (address && mime::isAddrSpec(*address) && address->find(' ') == std::string::npos) {
                sender = *address;
                break;
            }
        }
    }
    Date date = DateFormatting::now();
    if (const Value* stamp = message.find(keys::kTimeStamp); stamp && stamp->date() &&
        std::isfinite(stamp->date()->unixSeconds) && stamp->date()->unixSeconds >= 0 &&
        stamp->date()->unixSeconds < 253402300800.0)
        date = *stamp->date();
    // asctime: "Mon Nov  2 09:05:07 2026", the day padded with a blank.
    DateComponents fields = DateFormatting::components(date, "UTC");
    std::string day = DateFormatting::format(date, "EEE MMM", "UTC");
    char rest[40];
    std::snprintf(rest, sizeof rest, " %2d %02d:%02d:%02d %04d", fields.day, fields.hour, fields.minute, fields.second,
                  fields.year);
    return "From " + sender + " " + day + rest;
}

std::string MboxWriter::entry(std::string_view messageText, const Dict& message) {
    std::string out = separator(message);
    out.push_back('\n');
    out.reserve(out.size() + messageText.size() + 64);
    std::size_t at = 0;
    while (at < messageText.size()) {
        std::size_t end = messageText.find_first_of("\r\n", at);
        if (end == std::string_view::npos) end = messageText.size();
        std::string_view line = messageText.substr(at, end - at);
        if (isFromLine(line)) out.push_back('>');
        out.append(line).push_back('\n');
        // One line end: CR LF, LF or a lone CR.
        at = end + 1;
        if (end < messageText.size() && messageText[end] == '\r' && at < messageText.size() && messageText[at] == '\n')
            ++at;
    }
    out.push_back('\n');
    return out;
}

}  // namespace qh
