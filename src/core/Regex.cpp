#include "core/Regex.h"

#include <unicode/regex.h>
#include <unicode/utext.h>

namespace qh {

struct Regex::Compiled {
    std::unique_ptr<icu::RegexPattern> pattern;
};

Regex::~Regex() = default;

namespace {

struct UTextCloser {
    void operator()(UText* t) const { utext_close(t); }
};

// A matcher over UTF-8 text: native indices are byte offsets into `text`.
class Matching {
public:
    Matching(const icu::RegexPattern& pattern, std::string_view text) {
        UErrorCode status = U_ZERO_ERROR;
        utext_.reset(utext_openUTF8(nullptr, text.data(), static_cast<std::int64_t>(text.size()), &status));
        if (U_FAILURE(status)) return;
        matcher_.reset(pattern.matcher(status));
        if (U_FAILURE(status)) {
            matcher_.reset();
            return;
        }
        matcher_->reset(utext_.get());
        matcher_->setTimeLimit(Regex::kTimeLimit, status);
        if (U_FAILURE(status)) matcher_.reset();
    }
    icu::RegexMatcher* matcher() { return matcher_.get(); }

private:
    std::unique_ptr<UText, UTextCloser> utext_;
    std::unique_ptr<icu::RegexMatcher> matcher_;
};

Regex::Match currentMatch(icu::RegexMatcher& matcher) {
    UErrorCode status = U_ZERO_ERROR;
    Regex::Match match;
    std::int64_t start = matcher.start64(status), end = matcher.end64(status);
    match.range = {std::size_t(start), std::size_t(end - start)};
    const std::int32_t groups = matcher.groupCount();
    match.groups.resize(std::size_t(groups));
    for (std::int32_t g = 1; g <= groups; ++g) {
        status = U_ZERO_ERROR;
        std::int64_t s = matcher.start64(g, status), e = matcher.end64(g, status);
        if (U_SUCCESS(status) && s >= 0) match.groups[std::size_t(g - 1)] = {std::size_t(s), std::size_t(e - s)};
    }
    return match;
}

}  // namespace

std::string_view Regex::Match::group(std::string_view searched, std::size_t n) const {
    if (n == 0) return text(searched);
    if (n > groups.size() || !groups[n - 1].found()) return {};
    return searched.substr(groups[n - 1].location, groups[n - 1].length);
}

std::optional<Regex> Regex::compile(std::string_view pattern, std::uint32_t options) {
    std::uint32_t flags = 0;
    if (options & CaseInsensitive) flags |= UREGEX_CASE_INSENSITIVE;
    if (options & DotMatchesLineEnds) flags |= UREGEX_DOTALL;
    if (options & Multiline) flags |= UREGEX_MULTILINE;
    UErrorCode status = U_ZERO_ERROR;
    UParseError parseError;
    icu::UnicodeString source =
        icu::UnicodeString::fromUTF8(icu::StringPiece(pattern.data(), static_cast<std::int32_t>(pattern.size())));
    auto compiled = std::make_shared<Compiled>();
    compiled->pattern.reset(icu::RegexPattern::compile(source, flags, parseError, status));
    if (U_FAILURE(status) || !compiled->pattern) return std::nullopt;
    return Regex(std::move(compiled));
}

std::vector<Regex::Match> Regex::findAll(std::string_view text) const {
    std::vector<Match> matches;
    Matching matching(*compiled_->pattern, text);
    icu::RegexMatcher* matcher = matching.matcher();
    if (!matcher) return matches;
    UErrorCode status = U_ZERO_ERROR;
    // A match that runs out of time ends the search: what was found stands.
    while (matcher->find(status) && U_SUCCESS(status)) matches.push_back(currentMatch(*matcher));
    return matches;
}

std::optional<Regex::Match> Regex::firstMatch(std::string_view text, std::size_t from) const {
    if (from > text.size()) return std::nullopt;
    Matching matching(*compiled_->pattern, text);
    icu::RegexMatcher* matcher = matching.matcher();
    if (!matcher) return std::nullopt;
    UErrorCode status = U_ZERO_ERROR;
    if (!matcher->find(static_cast<std::int64_t>(from), status) || U_FAILURE(status)) return std::nullopt;
    return currentMatch(*matcher);
}

bool Regex::matchesWhole(std::string_view text) const {
    Matching matching(*compiled_->pattern, text);
    icu::RegexMatcher* matcher = matching.matcher();
    if (!matcher) return false;
    UErrorCode status = U_ZERO_ERROR;
    bool matched = matcher->matches(status);
    return matched && U_SUCCESS(status);
}

std::string Regex::replaceAll(std::string_view text, std::string_view replacement) const {
    std::vector<Match> matches = findAll(text);
    if (matches.empty()) return std::string(text);
    std::string out;
    out.reserve(text.size());
    std::size_t position = 0;
    for (const Match& m : matches) {
        out.append(text.substr(position, m.range.location - position));
        out.append(replacement);
        position = m.range.location + m.range.length;
    }
    out.append(text.substr(position));
    return out;
}

std::vector<Regex::Match> Regex::findAll(std::string_view pattern, std::string_view text, std::uint32_t options) {
    auto regex = compile(pattern, options);
    return regex ? regex->findAll(text) : std::vector<Match>{};
}

bool Regex::matchesWhole(std::string_view pattern, std::string_view text, std::uint32_t options) {
    auto regex = compile(pattern, options);
    return regex && regex->matchesWhole(text);
}

std::string Regex::replaceAll(std::string_view pattern, std::string_view text, std::string_view replacement,
                              std::uint32_t options) {
    auto regex = compile(pattern, options);
    return regex ? regex->replaceAll(text, replacement) : std::string(text);
}

}  // namespace qh
