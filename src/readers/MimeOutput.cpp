#include "readers/MimeOutput.h"

#include <quillhaven/MessageReader.h>
#include <quillhaven/MimeWriter.h>
#include <quillhaven/WriteEML.h>

namespace qh {

namespace {

// Attached messages are read and written again, so that what is embedded is
// as well-formed as the message around it. Real mail nests forwards a few
// levels deep; past this depth the bytes are embedded as they are.
constexpr int kAttachedMessageDepth = 8;

std::string mimeText(const Dict& message, int depth) {
    MimeWriter::Options options;
    if (depth < kAttachedMessageDepth) {
        options.attachedMessage = [depth](ByteView bytes) -> std::optional<std::string> {
            std::optional<Dict> attached = MessageReader::read(bytes, ReadOptions::complete());
            if (!attached) return std::nullopt;
            return mimeText(*attached, depth + 1);
        };
    }
    return MimeWriter(message, std::move(options)).write();
}

}  // namespace

std::optional<std::string> MimeOutput::write(const Dict* message, const ReadOptions& options) {
    if (!message) return std::nullopt;
    if (options.isComplete()) return mimeText(*message, 0);
    return WriteEML(*message).formatOutputFile();
}

}  // namespace qh
