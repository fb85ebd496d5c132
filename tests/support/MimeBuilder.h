#pragma once
// Builds MIME messages for tests from a few readable lines: headers in the
// order given (values as they stand, so a fixture can put anything in them),
// a body, or parts under a boundary of the fixture's choosing. Lines end in
// CRLF.
//
//   std::string text = MimeBuilder()
//       .header("Subject", "Hello")
//       .multipart("mixed", "b1", {MimeBuilder().header("Content-Type", "text/plain").body("hi")})
//       .str();
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qhtest {

class MimeBuilder {
public:
    MimeBuilder& header(std::string_view name, std::string_view value) {
        headers_.emplace_back(std::string(name), std::string(value));
        return *this;
    }
    MimeBuilder& body(std::string_view text) {
        body_ = text;
        return *this;
    }
    // A "multipart/<subtype>" with the given boundary parameter (written as it
    // stands after "boundary=", quotes included when wanted) and the parts
    // delimited by "--<delimiter>", closed by "--<delimiter>--". An empty
    // boundary writes no parameter at all.
    MimeBuilder& multipart(std::string_view subtype, std::string_view boundary, std::vector<MimeBuilder> parts,
                           std::string_view delimiter = {}) {
        std::string type = "multipart/" + std::string(subtype);
        if (!boundary.empty()) type += "; boundary=" + std::string(boundary);
        header("Content-Type", type);
        const std::string line = "--" + std::string(delimiter.empty() ? boundary : delimiter);
        std::string text;
        for (const MimeBuilder& part : parts) text += line + "\r\n" + part.str() + "\r\n";
        text += line + "--\r\n";
        return body(text);
    }
    std::string str() const {
        std::string out;
        for (const auto& [name, value] : headers_) out += name + ": " + value + "\r\n";
        out += "\r\n";
        out += body_;
        return out;
    }

private:
    std::vector<std::pair<std::string, std::string>> headers_;
    std::string body_;
};

}  // namespace qhtest
