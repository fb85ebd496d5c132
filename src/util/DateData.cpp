#include "util/DateData.h"

#include <vector>

#include "core/DateFormatting.h"
#include "core/TextEncoding.h"
#include "util/DataWangers.h"
#include "util/StringWangers.h"

namespace qh {

std::optional<std::string> formatSubmissionIdentifierDate(std::string_view identifier) {
    // The submission identifier looks like "c=US;a= ;p=Org;l=HOST-201231235959Z-123";
    // the fourth field's second-to-last "-" piece is YYMMDDhhmmss.
    const std::u16string units = TextEncoding::toUTF16(identifier);
    std::vector<std::u16string_view> fields = splitAt<char16_t>(units, u';');
    if (fields.size() < 4) return std::nullopt;
    std::vector<std::u16string_view> pieces = splitAt(fields[3], u'-');
    if (pieces.size() < 3) return std::nullopt;
    std::u16string_view stamp = pieces[pieces.size() - 2];
    if (stamp.size() < 12) return std::nullopt;
    auto part = [&](std::size_t at) { return TextEncoding::fromUTF16(stamp.substr(at, 2)); };
    std::string text = "20" + part(0) + "-" + part(2) + "-" + part(4) + " " + part(6) + ":" + part(8) + ":" +
                       part(10) + " +0000";
    // The suffix marks the time as UTC; the pattern itself stops at the seconds.
    std::optional<Date> date = DateFormatting::parse(text, "yyyy-MM-dd HH:mm:ss", "UTC");
    if (!date) return std::nullopt;
    return DateFormatting::displayString(*date);
}

std::optional<std::string> formatDateData(ByteView data) {
    if (data.empty()) return std::nullopt;
    std::optional<std::string> identifier =
        DataWangers::getStringFromData(data, StringEncoding::ASCII, "formatDateData", 0);
    if (!identifier) return std::nullopt;
    return formatSubmissionIdentifierDate(*identifier);
}

std::optional<std::string> formatDateData(const Value* data) {
    const Blob* bytes = data ? data->bytes() : nullptr;
    if (!bytes) return std::nullopt;
    return formatDateData(bytes->view());
}

}  // namespace qh
