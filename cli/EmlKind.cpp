// The "eml" input kind: Internet messages through ReadEML.
#include <memory>

#include "MessageKinds.h"
#include "readers/mime/ReadEML.h"

namespace qhcli {

namespace {

class EmlKind final : public MessageKind {
public:
    std::optional<qh::Value> read(qh::ByteView data, const ReadOptions&) const override {
        // No bytes, no reader: the command prints null.
        auto reader = qh::ReadEML::initWithData(data);
        if (!reader) return std::nullopt;
        const qh::Dict* dictionary = reader->returnFullDictionary();
        if (dictionary == nullptr) return std::nullopt;
        return qh::Value(*dictionary);
    }
    std::optional<qh::Value> summary(qh::ByteView data, const ReadOptions&) const override {
        auto summary = qh::ReadEML::getSummaryForMessage(data);
        if (!summary) return std::nullopt;
        return qh::Value(std::move(*summary));
    }
};

const bool registered = MessageKinds::add("eml", std::make_unique<EmlKind>());

}  // namespace

}  // namespace qhcli
