#pragma once
// The readers the message commands (read, summary, convert, attachments) can
// use, one per input kind ("msg", "eml", "tnef"). Each reader's adapter
// registers itself from its own cli/<Kind>Kind.cpp.
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "core/Value.h"

namespace qhcli {

struct ReadOptions {
    // Hand the readers whole-sector stream buffers (the system's own
    // behaviour) instead of streams cut to their recorded sizes.
    bool wholeSectors = false;
};

class MessageKind {
public:
    virtual ~MessageKind() = default;
    // The reader's full message dictionary, or std::nullopt when it yields none.
    virtual std::optional<qh::Value> read(qh::ByteView data, const ReadOptions& options) const = 0;
    // The reader class's summary, or std::nullopt when it yields none.
    virtual std::optional<qh::Value> summary(qh::ByteView data, const ReadOptions& options) const = 0;
};

class MessageKinds {
public:
    static bool add(std::string name, std::unique_ptr<MessageKind> kind);
    // The reader for a kind, or null when none is built in.
    static const MessageKind* find(std::string_view name);
};

}  // namespace qhcli
