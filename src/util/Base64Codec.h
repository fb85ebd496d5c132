#pragma once
// The named base64 front ends of the mail writers and readers, over the one
// codec (core/Base64.h). The decoder skips every byte outside the alphabet
// (padding, line ends, junk) and goes on past padding; the encoder writes
// 64-character lines joined by CR LF when asked to separate lines.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include <quillhaven/Bytes.h>

namespace qh {

// Pass as `length` to decode a NUL-terminated input.
inline constexpr std::size_t kBase64NulTerminated = static_cast<std::size_t>(-1);

// Decodes `length` bytes at `input` (or up to its NUL); the decoded length also
// goes to `*outputLength` when given. A trailing group of three values gives two
// bytes, of two values one byte; a single leftover value is dropped.
Bytes NewBase64Decode(const void* input, std::size_t length, std::size_t* outputLength = nullptr);
Bytes NewBase64Decode(ByteView input);

// Encodes `length` bytes; with `separateLines`, 64-character lines joined by CR LF
// (none after the last). `*outputLength` gets the number of characters.
std::string NewBase64Encode(const void* buffer, std::size_t length, bool separateLines,
                            std::size_t* outputLength = nullptr);
std::string NewBase64Encode(ByteView buffer, bool separateLines);

// The byte-buffer front ends: the ASCII bytes of `text` decoded (text holding
// anything but ASCII decodes as nothing), and the bytes encoded in 64-character
// lines joined by CR LF.
Bytes dataFromBase64String(std::string_view text);
std::string base64EncodedString(ByteView data);

}  // namespace qh
