#pragma once
// Wire constants of the MIME messages the writers produce (RFC 5322, RFC 2045
// to 2049, RFC 2231) and of mbox archives. Nothing but constants lives here.
#include <cstddef>
#include <string_view>

namespace qh::mime {

inline constexpr std::string_view kCRLF = "\r\n";

// RFC 5322 2.1.1: lines SHOULD stay within 78 characters and MUST stay within 998.
inline constexpr std::size_t kFoldWidth = 78;
inline constexpr std::size_t kMaxLineLength = 998;
// A word longer than this cannot be folded onto a line of its own, so it is
// written as encoded words, which can be split anywhere.
inline constexpr std::size_t kLongestPlainWord = 76;
// RFC 2047 2: an encoded word is at most 75 characters; ours are shorter so
// that one always fits after the longest field name we write.
inline constexpr std::size_t kEncodedWordLength = 64;
// A parameter value longer than this is split into RFC 2231 continuations.
inline constexpr std::size_t kParameterSegment = 60;
// RFC 2045 6.7 and 6.8: encoded body lines at most 76 characters.
inline constexpr std::size_t kBodyLineLength = 76;
inline constexpr std::size_t kBase64LineBytes = 57;  // 57 bytes give 76 characters

// Boundaries start with "=_": quoted-printable writes "=" as "=3D" and base64
// never writes "_", so no encoded line can look like one (RFC 2045 6.7 note).
inline constexpr std::string_view kBoundaryPrefix = "=_qh";

// Fresh Message-IDs: a random UUID at a domain that can never resolve (RFC 2606).
inline constexpr std::string_view kMessageIdDomain = "quillhaven.invalid";

// mbox: the separator line's stand-in sender when the message has none usable.
inline constexpr std::string_view kMboxUnknownSender = "MAILER-DAEMON";

}  // namespace qh::mime
