#pragma once
// The shape of a MIME message as our writer lays it out, read with nothing
// but the standard library, so that the writer's tests and the fuzz targets
// can check what it wrote without trusting our own readers:
//  - every line ends in CR LF and is at most 998 characters;
//  - every header block holds only fields of names the caller allows, each
//    line either "Name: ..." or a continuation beginning with a blank;
//  - every multipart's parts lie between its boundary lines, and its closing
//    boundary is there.
// A message/rfc822 part's content is not descended into: it is another
// message, whose fields are its own.
#include <algorithm>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace qhtest {

struct MimeShape {
    std::vector<std::pair<std::string, std::string>> fields;  // lower-case name, unfolded value
    std::string body;                                          // leaf content, as written
    std::vector<MimeShape> parts;
    std::string problem;  // empty when the shape is sound

    // "multipart/mixed(text/plain,image/png)": the content types, nested.
    std::string outline() const {
        std::string type = contentType();
        if (parts.empty()) return type;
        std::string out = type + "(";
        for (std::size_t i = 0; i < parts.size(); ++i) out += (i ? "," : "") + parts[i].outline();
        return out + ")";
    }
    // The value of the first field `name` (lower case), or "".
    std::string field(std::string_view name) const {
        for (const auto& [n, v] : fields)
            if (n == name) return v;
        return {};
    }
    std::string contentType() const {
        std::string value = field("content-type");
        std::string type = value.substr(0, value.find(';'));
        while (!type.empty() && type.back() == ' ') type.pop_back();
        return type.empty() ? "text/plain" : type;
    }
    // The parameter of a field's value ("boundary", "charset"), unquoted, or "".
    std::string parameter(std::string_view fieldName, std::string_view name) const {
        std::string value = field(fieldName);
        std::string key = "; " + std::string(name) + "=";
        std::size_t at = value.find(key);
        if (at == std::string::npos) {
            key = ";" + std::string(name) + "=";
            at = value.find(key);
        }
        if (at == std::string::npos) return {};
        at += key.size();
        if (at < value.size() && value[at] == '"') return value.substr(at + 1, value.find('"', at + 1) - at - 1);
        return value.substr(at, value.find(';', at) - at);
    }

    // Reads `text`; `allowed(name)` says which lower-case field names may stand in a header block.
    static MimeShape read(std::string_view text, const std::function<bool(std::string_view)>& allowed, int depth = 0) {
        MimeShape shape;
        // The lines without their CR LF, and where each starts in `text`.
        std::vector<std::string_view> lines;
        std::vector<std::size_t> starts;
        for (std::size_t at = 0; at < text.size();) {
            const std::size_t end = std::min(text.find("\r\n", at), text.size());
            starts.push_back(at);
            lines.push_back(text.substr(at, end - at));
            at = end + 2;
        }
        for (std::string_view line : lines) {
            if (line.find_first_of("\r\n") != std::string_view::npos) return fail("bare CR or LF");
            if (line.size() > 998) return fail("line longer than 998");
        }
        std::size_t i = 0;
        for (; i < lines.size() && !lines[i].empty(); ++i) {
            std::string_view line = lines[i];
            if (line.front() == ' ' || line.front() == '\t') {
                if (shape.fields.empty()) return fail("continuation before any field");
                shape.fields.back().second += std::string(line);
                continue;
            }
            std::size_t colon = line.find(':');
            if (colon == std::string_view::npos || colon == 0) return fail("not a field: " + std::string(line));
            std::string name(line.substr(0, colon));
            for (char& c : name)
                if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
            if (!allowed(name)) return fail("field not ours: " + name);
            std::string_view value = line.substr(colon + 1);
            if (!value.empty() && value.front() == ' ') value.remove_prefix(1);
            shape.fields.emplace_back(name, std::string(value));
        }
        if (i >= lines.size()) return fail("no blank line after the header");
        ++i;
        // Body: from after the blank line to the end.
        std::string_view body = i < lines.size() ? text.substr(starts[i]) : std::string_view();
        if (shape.contentType().starts_with("multipart/")) {
            std::string boundary = shape.parameter("content-type", "boundary");
            if (boundary.empty()) return fail("multipart without boundary");
            if (depth > 8) return fail("too deep");
            const std::string open = "--" + boundary, close = open + "--";
            bool closed = false;
            std::size_t partBegin = std::string_view::npos;
            for (std::size_t k = i; k < lines.size() && !closed; ++k) {
                if (lines[k] != open && lines[k] != close) continue;
                if (partBegin != std::string_view::npos) {
                    // The CR LF before a boundary line belongs to the boundary.
                    std::size_t length = starts[k] >= partBegin + 2 ? starts[k] - 2 - partBegin : 0;
                    MimeShape part = read(text.substr(partBegin, length), allowed, depth + 1);
                    if (!part.problem.empty()) return fail(part.problem);
                    shape.parts.push_back(std::move(part));
                }
                closed = lines[k] == close;
                partBegin = starts[k] + lines[k].size() + 2;
            }
            if (!closed) return fail("boundary never closed: " + boundary);
            if (shape.parts.empty()) return fail("multipart without parts");
        } else {
            shape.body = std::string(body);
        }
        return shape;
    }

private:
    static MimeShape fail(std::string problem) {
        MimeShape shape;
        shape.problem = std::move(problem);
        return shape;
    }
};

}  // namespace qhtest
