#pragma once
// Writes a dictionary value as the command's JSON text straight into one
// string: the same bytes as qh::Value::toJsonText(), without building a JSON
// tree first and without escaping base64 text a second time. Bulk reads spend
// most of their time here, on attachment bytes.
#include <string>

#include "core/Value.h"

namespace qhcli {

class JsonWriter {
public:
    // Appends the JSON text of `value` to `out` (no line feed).
    static void append(const qh::Value& value, std::string& out);
    static std::string text(const qh::Value& value);
    // Appends `text` as a JSON string; invalid UTF-8 becomes U+FFFD as in toJsonText().
    static void appendString(std::string_view text, std::string& out);
};

}  // namespace qhcli
