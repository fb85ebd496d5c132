#pragma once
// What the message fuzz targets do with every dictionary they read: write it
// with both writers, and check the MIME writer's text: every line CR LF and
// within 998 characters, only header fields the writer itself writes, every
// boundary closed (tests/support/MimeShape.h), and it reads back with the
// complete .eml reader. A failed check aborts, so that libFuzzer keeps the input.
#include <cstdio>
#include <cstdlib>

#include "../tests/support/MimeShape.h"
#include <quillhaven/Reading.h>
#include <quillhaven/MessageReader.h>
#include <quillhaven/MimeWriter.h>
#include <quillhaven/WriteEML.h>

namespace qhfuzz {

inline void writeBoth(const qh::Dict& message) {
    if (auto classic = qh::WriteEML::initWithDictionary(&message)) (void)classic->formatOutputFile();
    const std::string text = qh::MimeWriter::write(message, {});
    const qhtest::MimeShape shape =
        qhtest::MimeShape::read(text, [](std::string_view name) { return qh::MimeWriter::isOwnField(name); });
    if (!shape.problem.empty()) {
        std::fprintf(stderr, "MIME writer: %s\n", shape.problem.c_str());
        std::abort();
    }
    (void)qh::MessageReader::read(qh::asBytes(text), qh::MessageKind::eml, qh::ReadOptions::complete());
}

}  // namespace qhfuzz
