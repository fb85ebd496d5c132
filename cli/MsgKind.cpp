// The "msg" input kind: Outlook message files through ReadMSG. The command
// reads exact streams unless --whole-sectors asks for the system's own buffers.
#include <memory>

#include "MessageKinds.h"
#include "readers/msg/ReadMSG.h"

namespace qhcli {

namespace {

class MsgKind final : public MessageKind {
public:
    std::optional<qh::Value> read(qh::ByteView data, const ReadOptions& options) const override {
        auto reader = qh::ReadMSG::initWithData(data, !options.wholeSectors);
        if (!reader) return std::nullopt;
        const qh::Dict* dictionary = reader->returnFullDictionary();
        if (dictionary == nullptr) return std::nullopt;
        return qh::Value(*dictionary);
    }
    std::optional<qh::Value> summary(qh::ByteView data, const ReadOptions& options) const override {
        auto summary = qh::ReadMSG::getSummaryForMessage(data, !options.wholeSectors);
        if (!summary) return std::nullopt;
        return qh::Value(std::move(*summary));
    }
};

const bool registered = MessageKinds::add("msg", std::make_unique<MsgKind>());

}  // namespace

}  // namespace qhcli
