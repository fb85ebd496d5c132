#include "core/DateFormatting.h"

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <unordered_map>

#include <unicode/calendar.h>
#include <unicode/datefmt.h>
#include <unicode/gregocal.h>
#include <unicode/smpdtfmt.h>
#include <unicode/timezone.h>

namespace qh {

namespace {

constexpr const char* kFixedLocale = "en_US_POSIX";

icu::UnicodeString unicode(std::string_view text) {
    return icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<std::int32_t>(text.size())));
}

std::string utf8(const icu::UnicodeString& text) {
    std::string out;
    text.toUTF8String(out);
    return out;
}

const char* firstSetVariable(std::initializer_list<const char*> names) {
    for (const char* name : names) {
        const char* value = std::getenv(name);
        if (value && *value) return value;
    }
    return nullptr;
}

std::unique_ptr<icu::TimeZone> makeZone(std::string_view id) {
    std::string zoneId = id.empty() ? DateFormatting::userTimeZoneId() : std::string(id);
    return std::unique_ptr<icu::TimeZone>(icu::TimeZone::createTimeZone(unicode(zoneId)));
}

double toUDate(Date date) { return date.unixSeconds * 1000.0; }

// Formatters are costly to build; each thread keeps the few it has used, keyed
// by what they were built from (locale, zone and pattern or style).
class FormatterCache {
public:
    template <class Make>
    icu::DateFormat* get(const std::string& key, Make make) {
        auto it = formatters_.find(key);
        if (it != formatters_.end()) return it->second.get();
        if (formatters_.size() >= 32) formatters_.clear();
        std::unique_ptr<icu::DateFormat> made = make();
        icu::DateFormat* raw = made.get();
        if (made) formatters_.emplace(key, std::move(made));
        return raw;
    }

private:
    std::unordered_map<std::string, std::unique_ptr<icu::DateFormat>> formatters_;
};

thread_local FormatterCache formatterCache;

// The display style of the fixed locale, as ICU 72 builds it (a test checks).
constexpr std::string_view kFixedDisplayPattern = "MMM d, y, h:mm\u202Fa";

bool isUtcZone(std::string_view id) {
    if (id.starts_with("Etc/")) id.remove_prefix(4);
    for (std::string_view name : {"UTC", "UCT", "GMT", "GMT0", "GMT+0", "GMT-0", "Universal", "Zulu", "Greenwich"})
        if (id == name) return true;
    return false;
}

// A pattern of the fixed locale in UTC with plain code: building an ICU
// formatter costs a quarter of converting a whole message, and a command run
// without a locale or zone (scripts, servers, containers) asks for exactly
// this. The letters E, EEE, d, dd, MMM, MM, y, yyyy, HH, h, mm, ss, a and Z,
// years 1600 to 9999 (past ICU's switch from the Julian calendar); none for
// anything else, which ICU formats.
std::optional<std::string> formatFixedInUtc(Date date, std::string_view pattern) {
    if (!std::isfinite(date.unixSeconds) || date.unixSeconds < -11676096000.0 || date.unixSeconds >= 253402300800.0)
        return std::nullopt;
    using namespace std::chrono;
    const auto seconds = static_cast<std::int64_t>(std::floor(date.unixSeconds));
    const auto dayNumber = static_cast<int>(seconds >= 0 ? seconds / 86400 : -((-seconds + 86399) / 86400));
    const sys_days day{days{dayNumber}};
    const std::int64_t inDay = seconds - std::int64_t(dayNumber) * 86400;
    const year_month_day ymd{day};
    const int hour = static_cast<int>(inDay / 3600), minute = static_cast<int>(inDay / 60 % 60),
              second = static_cast<int>(inDay % 60);
    static constexpr const char* kDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    static constexpr const char* kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                              "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    std::string out;
    char number[16];
    for (std::size_t i = 0; i < pattern.size();) {
        const char letter = pattern[i];
        if (letter == '\'') return std::nullopt;
        if (!((letter >= 'a' && letter <= 'z') || (letter >= 'A' && letter <= 'Z'))) {
            out += letter;
            ++i;
            continue;
        }
        std::size_t run = pattern.find_first_not_of(letter, i);
        run = (run == std::string_view::npos ? pattern.size() : run) - i;
        i += run;
        auto digits = [&](int value, int width) {
            std::snprintf(number, sizeof number, "%0*d", width, value);
            out += number;
        };
        switch (letter) {
            case 'E':
                if (run > 3) return std::nullopt;
                out += kDays[weekday{day}.c_encoding()];
                break;
            case 'M':
                if (run == 3)
                    out += kMonths[static_cast<unsigned>(ymd.month()) - 1];
                else if (run <= 2)
                    digits(static_cast<int>(static_cast<unsigned>(ymd.month())), int(run));
                else
                    return std::nullopt;
                break;
            case 'd':
                if (run > 2) return std::nullopt;
                digits(static_cast<int>(static_cast<unsigned>(ymd.day())), int(run));
                break;
            case 'y':
                if (run == 2) return std::nullopt;
                digits(static_cast<int>(ymd.year()), int(run));
                break;
            case 'H':
                if (run > 2) return std::nullopt;
                digits(hour, int(run));
                break;
            case 'h':
                if (run > 2) return std::nullopt;
                digits(hour % 12 == 0 ? 12 : hour % 12, int(run));
                break;
            case 'm':
                if (run > 2) return std::nullopt;
                digits(minute, int(run));
                break;
            case 's':
                if (run > 2) return std::nullopt;
                digits(second, int(run));
                break;
            case 'a':
                if (run > 3) return std::nullopt;
                out += hour < 12 ? "AM" : "PM";
                break;
            case 'Z':
                if (run > 3) return std::nullopt;
                out += "+0000";
                break;
            default:
                return std::nullopt;
        }
    }
    return out;
}

icu::DateFormat* styleFormatter(const std::string& localeId, const std::string& zoneId) {
    return formatterCache.get("style\x1f" + localeId + "\x1f" + zoneId, [&]() -> std::unique_ptr<icu::DateFormat> {
        std::unique_ptr<icu::DateFormat> formatter(icu::DateFormat::createDateTimeInstance(
            icu::DateFormat::kMedium, icu::DateFormat::kShort, icu::Locale(localeId.c_str())));
        if (!formatter) return nullptr;
        formatter->adoptTimeZone(makeZone(zoneId).release());
        return formatter;
    });
}

icu::DateFormat* patternFormatter(std::string_view pattern, const std::string& zoneId) {
    std::string key = "pattern\x1f" + std::string(pattern) + "\x1f" + zoneId;
    return formatterCache.get(key, [&]() -> std::unique_ptr<icu::DateFormat> {
        UErrorCode status = U_ZERO_ERROR;
        auto formatter = std::make_unique<icu::SimpleDateFormat>(unicode(pattern), icu::Locale(kFixedLocale), status);
        if (U_FAILURE(status)) return nullptr;
        formatter->adoptTimeZone(makeZone(zoneId).release());
        formatter->setLenient(false);
        return formatter;
    });
}

}  // namespace

std::string DateFormatting::userLocaleId() {
    const char* value = firstSetVariable({"LC_ALL", "LC_TIME", "LANG"});
    if (!value) return kFixedLocale;
    std::string id(value);
    id = id.substr(0, id.find_first_of(".@"));
    if (id.empty() || id == "C" || id == "POSIX") return kFixedLocale;
    return id;
}

std::string DateFormatting::userTimeZoneId() {
    const char* tz = std::getenv("TZ");
    if (tz) {
        std::string id(tz);
        // POSIX: a set but empty TZ means UTC.
        if (id.empty()) return "UTC";
        if (id[0] == ':') id.erase(0, 1);
        std::size_t zoneinfo = id.find("zoneinfo/");
        if (zoneinfo != std::string::npos) id.erase(0, zoneinfo + 9);
        std::unique_ptr<icu::TimeZone> zone(icu::TimeZone::createTimeZone(unicode(id)));
        if (zone && *zone != icu::TimeZone::getUnknown()) return id;
    }
    std::unique_ptr<icu::TimeZone> host(icu::TimeZone::detectHostTimeZone());
    icu::UnicodeString hostId;
    if (host) host->getID(hostId);
    std::string id = utf8(hostId);
    return id.empty() || id == "Etc/Unknown" ? "UTC" : id;
}

std::string DateFormatting::displayString(Date date) {
    return displayString(date, userLocaleId(), userTimeZoneId());
}

std::string DateFormatting::displayString(Date date, std::string_view localeId, std::string_view timeZoneId) {
    if (localeId == kFixedLocale && isUtcZone(timeZoneId))
        if (std::optional<std::string> plain = formatFixedInUtc(date, kFixedDisplayPattern)) return *plain;
    icu::DateFormat* formatter = styleFormatter(std::string(localeId), std::string(timeZoneId));
    if (!formatter) return {};
    icu::UnicodeString out;
    formatter->format(toUDate(date), out);
    return utf8(out);
}

std::string DateFormatting::format(Date date, std::string_view pattern, std::string_view timeZoneId) {
    std::string zoneId = timeZoneId.empty() ? userTimeZoneId() : std::string(timeZoneId);
    if (isUtcZone(zoneId))
        if (std::optional<std::string> plain = formatFixedInUtc(date, pattern)) return *plain;
    icu::DateFormat* formatter = patternFormatter(pattern, zoneId);
    if (!formatter) return {};
    icu::UnicodeString out;
    formatter->format(toUDate(date), out);
    return utf8(out);
}

std::optional<Date> DateFormatting::parse(std::string_view text, std::string_view pattern, std::string_view timeZoneId) {
    std::string zoneId = timeZoneId.empty() ? userTimeZoneId() : std::string(timeZoneId);
    icu::DateFormat* formatter = patternFormatter(pattern, zoneId);
    if (!formatter) return std::nullopt;
    // A zone field in the text changes the formatter's calendar; give it back its zone.
    formatter->adoptTimeZone(makeZone(zoneId).release());
    icu::ParsePosition position(0);
    UDate parsed = formatter->parse(unicode(text), position);
    if (position.getErrorIndex() >= 0 || position.getIndex() == 0) return std::nullopt;
    return Date{parsed / 1000.0};
}

DateComponents DateFormatting::components(Date date, std::string_view timeZoneId) {
    DateComponents fields;
    UErrorCode status = U_ZERO_ERROR;
    icu::GregorianCalendar calendar(makeZone(timeZoneId).release(), icu::Locale(kFixedLocale), status);
    if (U_FAILURE(status)) return fields;
    calendar.setTime(toUDate(date), status);
    fields.year = calendar.get(UCAL_EXTENDED_YEAR, status);
    fields.month = calendar.get(UCAL_MONTH, status) + 1;
    fields.day = calendar.get(UCAL_DATE, status);
    fields.hour = calendar.get(UCAL_HOUR_OF_DAY, status);
    fields.minute = calendar.get(UCAL_MINUTE, status);
    fields.second = calendar.get(UCAL_SECOND, status);
    fields.weekday = calendar.get(UCAL_DAY_OF_WEEK, status);
    fields.utcOffsetSeconds = (calendar.get(UCAL_ZONE_OFFSET, status) + calendar.get(UCAL_DST_OFFSET, status)) / 1000;
    if (U_FAILURE(status)) return DateComponents{};
    return fields;
}

std::optional<Date> DateFormatting::dateFromComponents(const DateComponents& fields, std::string_view timeZoneId) {
    UErrorCode status = U_ZERO_ERROR;
    icu::GregorianCalendar calendar(makeZone(timeZoneId).release(), icu::Locale(kFixedLocale), status);
    if (U_FAILURE(status)) return std::nullopt;
    calendar.setLenient(false);
    calendar.clear();
    calendar.set(UCAL_EXTENDED_YEAR, fields.year);
    calendar.set(UCAL_MONTH, fields.month - 1);
    calendar.set(UCAL_DATE, fields.day);
    calendar.set(UCAL_HOUR_OF_DAY, fields.hour);
    calendar.set(UCAL_MINUTE, fields.minute);
    calendar.set(UCAL_SECOND, fields.second);
    UDate time = calendar.getTime(status);
    if (U_FAILURE(status)) return std::nullopt;
    return Date{time / 1000.0};
}

Date DateFormatting::now() {
    using namespace std::chrono;
    return Date{duration_cast<duration<double>>(system_clock::now().time_since_epoch()).count()};
}

}  // namespace qh
