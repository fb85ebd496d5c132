#pragma once
// Regular expressions through ICU, with a time limit so that no input can make
// a match run away (a match that hits the limit counts as no match). A compiled
// Regex is immutable and may be used from any thread at once.
//
// Offsets and lengths are byte offsets into the UTF-8 text that was searched.
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qh {

class Regex {
public:
    enum Option : std::uint32_t {
        None = 0,
        CaseInsensitive = 1u << 0,
        DotMatchesLineEnds = 1u << 1,
        Multiline = 1u << 2,  // ^ and $ at line ends
    };

    struct Range {
        static constexpr std::size_t npos = std::string_view::npos;
        std::size_t location = npos;
        std::size_t length = 0;
        bool found() const { return location != npos; }
        friend bool operator==(const Range&, const Range&) = default;
    };
    struct Match {
        Range range;                // the whole match
        std::vector<Range> groups;  // capture groups 1..n; not found() where a group did not take part
        std::string_view text(std::string_view searched) const { return searched.substr(range.location, range.length); }
        std::string_view group(std::string_view searched, std::size_t n) const;  // n = 1.. ; "" when absent
    };

    // None when the pattern does not compile.
    static std::optional<Regex> compile(std::string_view pattern, std::uint32_t options = None);

    // Every non-overlapping match, left to right.
    std::vector<Match> findAll(std::string_view text) const;
    std::optional<Match> firstMatch(std::string_view text, std::size_t from = 0) const;
    // Whether the pattern matches the whole text.
    bool matchesWhole(std::string_view text) const;
    // Every match replaced by `replacement` (taken literally, no group references).
    std::string replaceAll(std::string_view text, std::string_view replacement) const;

    // Convenience for one-off uses (compiles each time; none / empty / false
    // when the pattern does not compile).
    static std::vector<Match> findAll(std::string_view pattern, std::string_view text, std::uint32_t options);
    static bool matchesWhole(std::string_view pattern, std::string_view text, std::uint32_t options);
    static std::string replaceAll(std::string_view pattern, std::string_view text, std::string_view replacement,
                                  std::uint32_t options = None);

    // The time limit of every match operation, in ICU's match-time units (each
    // some ten thousand engine steps, a millisecond or less): far above what any
    // real header needs, low enough that a message full of hostile headers
    // still finishes.
    static constexpr std::int32_t kTimeLimit = 300;

    Regex(const Regex&) = default;
    Regex& operator=(const Regex&) = default;
    Regex(Regex&&) noexcept = default;
    Regex& operator=(Regex&&) noexcept = default;
    ~Regex();

    struct Compiled;

private:
    explicit Regex(std::shared_ptr<const Compiled> compiled) : compiled_(std::move(compiled)) {}
    std::shared_ptr<const Compiled> compiled_;
};

}  // namespace qh
