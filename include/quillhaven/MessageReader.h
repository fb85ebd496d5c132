#pragma once
// The one front door to the three readers: a message of any kind, read in the
// reading the caller chooses. The reader classes (ReadMSG, ReadEML, ReadTNEF)
// stay usable on their own; this is what the command, the Python package and
// other whole-file callers use.
#include <optional>
#include <string_view>

#include <quillhaven/Bytes.h>
#include <quillhaven/Reading.h>
#include <quillhaven/Value.h>

namespace qh {

enum class MessageKind { msg, eml, tnef };

class MessageReader {
public:
    // A reader in the reading `options` chooses (classic unless told).
    explicit MessageReader(const ReadOptions& options = ReadOptions{}) : options_(options) {}
    // The message dictionary of `data`, of the kind its first bytes tell, or
    // none; its short summary, or none.
    std::optional<Dict> read(ByteView data) const { return read(data, detectKind(data), options_); }
    std::optional<Dict> summary(ByteView data) const { return summary(data, detectKind(data), options_); }
    const ReadOptions& options() const { return options_; }

    // The kind told by the first bytes: a compound document is "msg", the
    // TNEF signature "tnef", anything else "eml".
    static MessageKind detectKind(ByteView data);
    // "msg", "eml", "tnef"; none for any other name.
    static std::optional<MessageKind> kindFromName(std::string_view name);
    static std::string_view kindName(MessageKind kind);

    // The message dictionary, or none when the bytes hold no message of the kind.
    static std::optional<Dict> read(ByteView data, MessageKind kind, const ReadOptions& options);
    static std::optional<Dict> read(ByteView data, const ReadOptions& options) {
        return read(data, detectKind(data), options);
    }
    // The reader's short summary ({"Subject", "Body", "From"}), or none.
    static std::optional<Dict> summary(ByteView data, MessageKind kind, const ReadOptions& options);

private:
    ReadOptions options_;
};

}  // namespace qh
