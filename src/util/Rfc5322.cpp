#include "util/Rfc5322.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <iterator>

#include "util/Ascii.h"
#include "util/MimeCharset.h"
#include "util/Rfc2047.h"

namespace qh::rfc5322 {

namespace {

// Comments nest; deeper than this the rest of the comment is read as text.
constexpr int kMaxCommentDepth = 32;

bool isWsp(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

// atext, and (RFC 6532) any 8-bit byte: names in UTF-8 or a local code page.
bool isAtext(char c) {
    unsigned char u = static_cast<unsigned char>(c);
    if (u >= 0x80) return true;
    if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) return true;
    switch (c) {
        case '!': case '#': case '$': case '%': case '&': case '\'': case '*': case '+': case '-': case '/':
        case '=': case '?': case '^': case '_': case '`': case '{': case '|': case '}': case '~':
            return true;
        default:
            return false;
    }
}

void skipWsp(std::string_view& cursor) {
    while (!cursor.empty() && isWsp(cursor.front())) cursor.remove_prefix(1);
}

std::string trimmed(std::string_view text) {
    skipWsp(text);
    while (!text.empty() && isWsp(text.back())) text.remove_suffix(1);
    return std::string(text);
}

// comment = "(" *([FWS] ccontent) [FWS] ")"; ccontent = ctext / quoted-pair / comment.
// An unclosed comment runs to the end.
bool parseComment(std::string_view& cursor, std::string& text) {
    if (cursor.empty() || cursor.front() != '(') return false;
    int depth = 0;
    std::size_t i = 0;
    for (; i < cursor.size(); ++i) {
        char c = cursor[i];
        if (c == '\\' && i + 1 < cursor.size()) {
            text.push_back(cursor[++i]);
            continue;
        }
        if (c == '(' && depth < kMaxCommentDepth) {
            if (depth++ > 0) text.push_back(c);
            continue;
        }
        if (c == ')') {
            if (--depth == 0) break;
            text.push_back(c);
            continue;
        }
        if (c == '\r' || c == '\n') continue;
        text.push_back(c);
    }
    cursor.remove_prefix(i < cursor.size() ? i + 1 : cursor.size());
    return true;
}

std::string asciiLower(std::string_view text) {
    std::string out(text);
    for (char& c : out) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return out;
}

// The offset of the next "," outside quotes, comments and angle brackets (npos when none).
std::size_t nextTopLevelComma(std::string_view text) {
    bool quoted = false, angle = false;
    int comment = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        if (c == '\\') {
            ++i;
        } else if (quoted) {
            quoted = c != '"';
        } else if (comment > 0) {
            if (c == '(') ++comment;
            if (c == ')') --comment;
        } else if (c == '"') {
            quoted = true;
        } else if (c == '(') {
            comment = 1;
        } else if (c == '<') {
            angle = true;
        } else if (c == '>') {
            angle = false;
        } else if (c == ',' && !angle) {
            return i;
        }
    }
    return std::string_view::npos;
}

// What does not parse as an address: "<...>" in it is the address and the text
// before it the name; else the text (comments removed) is the address.
Mailbox salvage(std::string_view text) {
    Mailbox mailbox;
    std::size_t open = text.rfind('<');
    std::size_t close = open == std::string_view::npos ? open : text.find('>', open);
    if (close != std::string_view::npos) {
        mailbox.address = trimmed(text.substr(open + 1, close - open - 1));
        std::string name = trimmed(text.substr(0, open));
        if (name.size() >= 2 && name.front() == '"' && name.back() == '"') name = name.substr(1, name.size() - 2);
        mailbox.name = rfc2047::decodeText(name);
        return mailbox;
    }
    std::string bare;
    std::string_view rest = text;
    while (!rest.empty()) {
        std::string comment;
        if (parseComment(rest, comment)) continue;
        bare.push_back(rest.front());
        rest.remove_prefix(1);
    }
    mailbox.address = MimeCharset::utf8OrWindows1252(trimmed(bare));
    return mailbox;
}

}  // namespace

bool skipCFWS(std::string_view& cursor, std::string* comments) {
    std::string_view in = cursor;
    bool any = false;
    while (!in.empty()) {
        if (isWsp(in.front())) {
            in.remove_prefix(1);
            any = true;
            continue;
        }
        if (in.front() != '(') break;  // neither white space nor a comment
        std::string text;
        parseComment(in, text);
        if (comments) {
            if (!comments->empty()) comments->push_back(' ');
            comments->append(text);
        }
        any = true;
    }
    if (any) cursor = in;
    return any;
}

bool parseQuotedString(std::string_view& cursor, std::string& out) {
    std::string_view in = cursor;
    skipCFWS(in);
    if (in.empty() || in.front() != '"') return false;
    std::string value;
    std::size_t i = 1;
    for (; i < in.size(); ++i) {
        char c = in[i];
        if (c == '"') break;
        if (c == '\\' && i + 1 < in.size()) c = in[++i];
        if (c == '\r' || c == '\n') continue;  // FWS: the line break goes, the blank stays
        value.push_back(c);
    }
    in.remove_prefix(i < in.size() ? i + 1 : in.size());
    skipCFWS(in);
    out = std::move(value);
    cursor = in;
    return true;
}

bool parseAtom(std::string_view& cursor, std::string& out) {
    std::string_view in = cursor;
    skipCFWS(in);
    std::size_t end = 0;
    while (end < in.size() && isAtext(in[end])) ++end;
    if (end == 0) return false;
    out.assign(in.substr(0, end));
    in.remove_prefix(end);
    skipCFWS(in);
    cursor = in;
    return true;
}

bool parsePhrase(std::string_view& cursor, std::string& out) {
    std::string_view in = cursor;
    std::string text;
    bool any = false;
    while (true) {
        std::string word;
        const bool spaced = !in.empty() && (isWsp(in.front()) || in.front() == '(');
        if (parseQuotedString(in, word) || parseAtom(in, word)) {
            if (any && !text.empty() && (text.back() != '.' || spaced)) text.push_back(' ');
            text += word;
            any = true;
            continue;
        }
        // obs-phrase: "John Q. Public"
        std::string_view dot = in;
        skipCFWS(dot);
        if (any && !dot.empty() && dot.front() == '.') {
            text.push_back('.');
            in = dot.substr(1);
            continue;
        }
        break;
    }
    if (!any) return false;
    out = rfc2047::decodeText(text);
    cursor = in;
    return true;
}

namespace {
// addr-spec, the text of the comments met on the way going to `comments`.
bool addrSpec(std::string_view& cursor, std::string& out, std::string* comments) {
    std::string_view in = cursor;
    std::string address;
    // local-part = dot-atom / quoted-string / obs-local-part
    auto word = [&](std::string_view& at) {
        std::string piece;
        std::string_view probe = at;
        skipCFWS(probe);
        if (!probe.empty() && probe.front() == '"') {
            if (!parseQuotedString(at, piece)) return false;
            address += '"';
            for (char c : piece) {
                if (c == '"' || c == '\\') address += '\\';
                address += c;
            }
            address += '"';
            return true;
        }
        std::size_t end = 0;
        while (end < probe.size() && isAtext(probe[end])) ++end;
        if (end == 0) return false;
        address.append(probe.substr(0, end));
        probe.remove_prefix(end);
        skipCFWS(probe, comments);
        at = probe;
        return true;
    };
    // word *("." word); a dot not followed by a word stays in the address.
    auto dottedWords = [&](std::string_view& at) {
        if (!word(at)) return false;
        while (!at.empty() && at.front() == '.') {
            std::string_view next = at.substr(1);
            address.push_back('.');
            if (!word(next)) break;
            at = next;
        }
        return true;
    };
    if (!dottedWords(in)) return false;
    skipCFWS(in);
    if (in.empty() || in.front() != '@') return false;
    address.push_back('@');
    in.remove_prefix(1);
    skipCFWS(in);
    // domain = dot-atom / domain-literal / obs-domain
    if (!in.empty() && in.front() == '[') {
        std::size_t close = in.find(']');
        if (close == std::string_view::npos) return false;
        address.append(in.substr(0, close + 1));
        in.remove_prefix(close + 1);
    } else {
        std::size_t before = address.size();
        if (!dottedWords(in)) return false;
        if (address.size() == before) return false;
    }
    skipCFWS(in, comments);
    out = MimeCharset::utf8OrWindows1252(address);
    cursor = in;
    return true;
}
}  // namespace

bool parseAddrSpec(std::string_view& cursor, std::string& out) { return addrSpec(cursor, out, nullptr); }

bool parseAngleAddr(std::string_view& cursor, std::string& out) {
    std::string_view in = cursor;
    skipCFWS(in);
    if (in.empty() || in.front() != '<') return false;
    in.remove_prefix(1);
    skipCFWS(in);
    // obs-route = obs-domain-list ":"
    if (!in.empty() && in.front() == '@') {
        std::size_t colon = in.find(':');
        std::size_t close = in.find('>');
        if (colon != std::string_view::npos && colon < close) in.remove_prefix(colon + 1);
    }
    std::string address;
    std::string_view after = in;
    if (parseAddrSpec(after, address) && !after.empty() && after.front() == '>') {
        in = after;
    } else {
        // Whatever stands between the brackets ("<undisclosed>", "<user>").
        std::size_t close = in.find('>');
        if (close == std::string_view::npos) return false;
        address = MimeCharset::utf8OrWindows1252(trimmed(in.substr(0, close)));
        in.remove_prefix(close);
    }
    in.remove_prefix(1);
    skipCFWS(in);
    out = std::move(address);
    cursor = in;
    return true;
}

bool parseMailbox(std::string_view& cursor, Mailbox& out) {
    std::string_view in = cursor;
    std::string name, address;
    std::string_view angle = in;
    bool hasName = parsePhrase(angle, name);
    if (!hasName) angle = in;
    if (parseAngleAddr(angle, address)) {
        out.name = hasName ? trimmed(name) : std::string();
        out.address = std::move(address);
        cursor = angle;
        return true;
    }
    // "a@b (Name)": the comment after the address is the name.
    std::string_view plain = in;
    skipCFWS(plain);
    std::string comments;
    if (addrSpec(plain, address, &comments)) {
        out.name = rfc2047::decodeText(trimmed(comments));
        out.address = std::move(address);
        cursor = plain;
        return true;
    }
    return false;
}

bool parseGroup(std::string_view& cursor, std::vector<Mailbox>& out) {
    std::string_view in = cursor;
    std::string name;
    if (!parsePhrase(in, name)) return false;
    if (in.empty() || in.front() != ':') return false;
    in.remove_prefix(1);
    std::vector<Mailbox> members;
    while (true) {
        skipCFWS(in);
        if (in.empty()) break;
        if (in.front() == ';') {
            in.remove_prefix(1);
            break;
        }
        if (in.front() == ',') {
            in.remove_prefix(1);
            continue;
        }
        Mailbox member;
        if (parseMailbox(in, member)) {
            members.push_back(std::move(member));
            continue;
        }
        // Skip what does not parse, up to the next member or the group's end.
        std::size_t stop = in.find_first_of(",;");
        in.remove_prefix(stop == std::string_view::npos ? in.size() : stop);
    }
    skipCFWS(in);
    out.insert(out.end(), std::make_move_iterator(members.begin()), std::make_move_iterator(members.end()));
    cursor = in;
    return true;
}

bool parseAddress(std::string_view& cursor, std::vector<Mailbox>& out) {
    Mailbox mailbox;
    std::string_view in = cursor;
    if (parseMailbox(in, mailbox)) {
        std::string_view rest = in;
        skipCFWS(rest);
        if (rest.empty() || rest.front() == ',') {
            out.push_back(std::move(mailbox));
            cursor = in;
            return true;
        }
    }
    in = cursor;
    if (parseGroup(in, out)) {
        cursor = in;
        return true;
    }
    return false;
}

std::vector<Mailbox> parseAddressList(std::string_view text, std::size_t limit) {
    std::vector<Mailbox> out;
    std::string_view cursor = text;
    while (out.size() < limit) {
        while (true) {
            skipCFWS(cursor);
            if (cursor.empty() || cursor.front() != ',') break;
            cursor.remove_prefix(1);
        }
        if (cursor.empty()) break;
        std::string_view start = cursor;
        std::vector<Mailbox> found;
        std::string_view in = cursor;
        if (parseAddress(in, found)) {
            std::string_view rest = in;
            skipCFWS(rest);
            if (rest.empty() || rest.front() == ',') {
                out.insert(out.end(), std::make_move_iterator(found.begin()), std::make_move_iterator(found.end()));
                cursor = rest;
                continue;
            }
        }
        std::size_t comma = nextTopLevelComma(start);
        std::string_view piece = start.substr(0, comma);
        Mailbox salvaged = salvage(piece);
        if (!salvaged.address.empty() || !salvaged.name.empty()) out.push_back(std::move(salvaged));
        cursor = comma == std::string_view::npos ? std::string_view() : start.substr(comma + 1);
    }
    if (out.size() > limit) out.resize(limit);
    return out;
}

namespace {

// Days from 1970-01-01 to the civil date (proleptic Gregorian).
std::int64_t daysFromCivil(std::int64_t y, unsigned m, unsigned d) {
    y -= m <= 2;
    const std::int64_t era = (y >= 0 ? y : y - 399) / 400;
    const unsigned yoe = static_cast<unsigned>(y - era * 400);
    const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + static_cast<std::int64_t>(doe) - 719468;
}

bool allDigits(std::string_view text) {
    if (text.empty()) return false;
    for (char c : text) {
        if (c < '0' || c > '9') return false;
    }
    return true;
}

// The number written by at most four digits (allDigits holds).
int digitsValue(std::string_view digits) {
    int value = 0;
    for (char c : digits) value = value * 10 + (c - '0');
    return value;
}

int monthOf(std::string_view token) {
    static const char* kMonths[] = {"jan", "feb", "mar", "apr", "may", "jun",
                                    "jul", "aug", "sep", "oct", "nov", "dec"};
    if (token.size() < 3) return 0;
    for (int i = 0; i < 12; ++i) {
        if (ascii::equalsIgnoringCase(token.substr(0, 3), kMonths[i])) return i + 1;
    }
    return 0;
}

// Minutes east of UTC for a zone token; none when it is no zone.
std::optional<int> zoneOf(std::string_view token) {
    if (token.size() == 5 && (token[0] == '+' || token[0] == '-') && allDigits(token.substr(1))) {
        int hours = (token[1] - '0') * 10 + (token[2] - '0');
        int minutes = (token[3] - '0') * 10 + (token[4] - '0');
        if (minutes > 59) return std::nullopt;
        int offset = hours * 60 + minutes;
        return token[0] == '-' ? -offset : offset;
    }
    std::string lower = asciiLower(token);
    static const std::pair<const char*, int> kZones[] = {
        {"ut", 0}, {"utc", 0}, {"gmt", 0}, {"z", 0}, {"est", -300}, {"edt", -240}, {"cst", -360},
        {"cdt", -300}, {"mst", -420}, {"mdt", -360}, {"pst", -480}, {"pdt", -420}};
    for (const auto& [name, offset] : kZones) {
        if (lower == name) return offset;
    }
    // Military zones: their sign was used both ways, so RFC 5322 reads them as -0000.
    if (lower.size() == 1 && lower[0] >= 'a' && lower[0] <= 'z' && lower[0] != 'j') return 0;
    return std::nullopt;
}

}  // namespace

std::optional<std::string> formatDateTime(Date date) {
    // 1900-01-01T00:00:00Z and 9999-12-31T23:59:59Z.
    if (!std::isfinite(date.unixSeconds) || date.unixSeconds < -2208988800.0 || date.unixSeconds > 253402300799.0)
        return std::nullopt;
    using namespace std::chrono;
    const auto seconds = static_cast<std::int64_t>(std::floor(date.unixSeconds));
    const sys_days day{days{static_cast<int>(std::floor(static_cast<double>(seconds) / 86400.0))}};
    const std::int64_t inDay = seconds - static_cast<std::int64_t>(day.time_since_epoch().count()) * 86400;
    const year_month_day ymd{day};
    static constexpr const char* kDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    static constexpr const char* kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                              "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    char text[40];
    std::snprintf(text, sizeof text, "%s, %02u %s %04d %02d:%02d:%02d +0000", kDays[weekday{day}.c_encoding()],
                  static_cast<unsigned>(ymd.day()), kMonths[static_cast<unsigned>(ymd.month()) - 1],
                  static_cast<int>(ymd.year()), static_cast<int>(inDay / 3600), static_cast<int>(inDay / 60 % 60),
                  static_cast<int>(inDay % 60));
    return std::string(text);
}

std::optional<Date> parseDateTime(std::string_view text) {
    // Tokens without comments, split at blanks and commas.
    std::vector<std::string> tokens;
    tokens.reserve(8);  // a date has five or six
    std::string current;
    std::string_view in = text;
    while (!in.empty() && tokens.size() < 16) {
        std::string comment;
        if (in.front() == '(' && parseComment(in, comment)) continue;
        char c = in.front();
        if (isWsp(c) || c == ',') {
            in.remove_prefix(1);
            if (!current.empty()) tokens.push_back(std::move(current));
            current.clear();
        } else {
            // The run up to the next separator or comment, in one piece.
            std::size_t run = 1;
            while (run < in.size() && !isWsp(in[run]) && in[run] != ',' && in[run] != '(') ++run;
            current.append(in.substr(0, run));
            in.remove_prefix(run);
        }
    }
    if (!current.empty() && tokens.size() < 16) tokens.push_back(std::move(current));

    std::size_t i = 0;
    // day-of-week
    if (i < tokens.size() && !tokens[i].empty() && !allDigits(tokens[i]) && monthOf(tokens[i]) == 0) ++i;
    if (i + 3 > tokens.size()) return std::nullopt;
    int day = 0, month = 0;
    if (allDigits(tokens[i]) && tokens[i].size() <= 2) {
        day = digitsValue(tokens[i]);
        month = monthOf(tokens[i + 1]);
    } else {
        // "Mon Jan 5 10:02:03 2024"-like order: month before day.
        month = monthOf(tokens[i]);
        if (allDigits(tokens[i + 1]) && tokens[i + 1].size() <= 2) day = digitsValue(tokens[i + 1]);
    }
    if (day < 1 || day > 31 || month == 0) return std::nullopt;
    i += 2;
    // The rest: year, time and zone, the year also after the time.
    std::int64_t year = -1;
    int hour = 0, minute = 0, second = 0, zone = 0;
    bool haveTime = false;
    for (; i < tokens.size(); ++i) {
        const std::string& token = tokens[i];
        if (year < 0 && allDigits(token) && token.size() >= 2 && token.size() <= 4) {
            year = digitsValue(token);
            if (token.size() == 2) year += year < 50 ? 2000 : 1900;
            else if (token.size() == 3) year += 1900;
            continue;
        }
        if (!haveTime && token.find(':') != std::string::npos) {
            int parts[3] = {0, 0, 0};
            int count = 0;
            std::string_view rest = token;
            bool ok = true;
            while (count < 3) {
                std::size_t colon = rest.find(':');
                std::string_view number = rest.substr(0, colon);
                if (!allDigits(number) || number.size() > 2) {
                    ok = false;
                    break;
                }
                parts[count++] = digitsValue(number);
                if (colon == std::string_view::npos) break;
                rest.remove_prefix(colon + 1);
            }
            if (!ok || count < 2) return std::nullopt;
            hour = parts[0];
            minute = parts[1];
            second = parts[2];
            if (hour > 23 || minute > 59 || second > 60) return std::nullopt;
            haveTime = true;
            continue;
        }
        if (haveTime) {
            if (auto offset = zoneOf(token)) {
                zone = *offset;
                break;
            }
        }
    }
    if (year < 0 || !haveTime) return std::nullopt;
    static const int kDaysIn[] = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    if (day > kDaysIn[month - 1]) return std::nullopt;
    const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    if (month == 2 && day == 29 && !leap) return std::nullopt;
    std::int64_t days = daysFromCivil(year, static_cast<unsigned>(month), static_cast<unsigned>(day));
    std::int64_t seconds = days * 86400 + hour * 3600 + minute * 60 + second - static_cast<std::int64_t>(zone) * 60;
    return Date{static_cast<double>(seconds)};
}

bool parseMsgId(std::string_view& cursor, std::string& out) {
    std::string_view in = cursor;
    skipCFWS(in);
    if (in.empty() || in.front() != '<') return false;
    std::size_t close = in.find('>');
    if (close == std::string_view::npos) return false;
    // The identifier without its white space, copied run by run.
    std::string id;
    std::string_view rest = in.substr(0, close + 1);
    id.reserve(rest.size());
    while (!rest.empty()) {
        std::size_t run = 0;
        while (run < rest.size() && !isWsp(rest[run])) ++run;
        id.append(rest.substr(0, run));
        while (run < rest.size() && isWsp(rest[run])) ++run;
        rest.remove_prefix(run);
    }
    in.remove_prefix(close + 1);
    skipCFWS(in);
    out = MimeCharset::utf8OrWindows1252(id);
    cursor = in;
    return true;
}

std::string msgIdList(std::string_view text) {
    std::string out;
    std::string_view in = text;
    while (!in.empty()) {
        std::string id;
        if (parseMsgId(in, id)) {
            if (!out.empty()) out.push_back(' ');
            out += id;
            continue;
        }
        in.remove_prefix(1);  // a word or a "," between identifiers (obs-phrase)
    }
    return out.empty() ? MimeCharset::utf8OrWindows1252(trimmed(text)) : out;
}

bool parseField(std::string_view& cursor, Field& out) {
    std::string_view in = cursor;
    while (!in.empty()) {
        std::size_t lineEnd = in.find('\n');
        std::string_view line = in.substr(0, lineEnd);
        if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
        if (line.empty()) return false;  // the end of the header block
        std::size_t colon = line.find(':');
        std::string_view name = colon == std::string_view::npos ? std::string_view() : line.substr(0, colon);
        while (!name.empty() && (name.back() == ' ' || name.back() == '\t')) name.remove_suffix(1);
        bool isField = !name.empty() && line.front() != ' ' && line.front() != '\t' &&
                       name.find_first_of(" \t") == std::string_view::npos;
        in.remove_prefix(lineEnd == std::string_view::npos ? in.size() : lineEnd + 1);
        if (!isField) continue;  // neither a field nor the end: skipped
        std::string_view first = line.substr(colon + 1);
        out.name.assign(name);
        if (in.empty() || (in.front() != ' ' && in.front() != '\t')) {
            // One line (most fields): trimmed as it stands, one copy.
            skipWsp(first);
            while (!first.empty() && isWsp(first.back())) first.remove_suffix(1);
            out.value.assign(first);
            cursor = in;
            return true;
        }
        std::string value(first);
        // Continuation lines: the line break goes, their white space stays.
        while (!in.empty() && (in.front() == ' ' || in.front() == '\t')) {
            std::size_t end = in.find('\n');
            std::string_view more = in.substr(0, end);
            if (!more.empty() && more.back() == '\r') more.remove_suffix(1);
            value.append(more);
            in.remove_prefix(end == std::string_view::npos ? in.size() : end + 1);
        }
        out.value = trimmed(value);
        cursor = in;
        return true;
    }
    cursor = in;
    return false;
}

std::vector<Field> parseFields(std::string_view text, std::size_t limit) {
    std::vector<Field> fields;
    fields.reserve(std::min<std::size_t>(limit, 32));  // a header block of mail has a dozen or two
    Field field;
    while (fields.size() < limit && parseField(text, field)) fields.push_back(std::move(field));
    return fields;
}

}  // namespace qh::rfc5322
