// The "tnef" input kind: TNEF streams (winmail.dat) through ReadTNEF.
#include <memory>

#include "MessageKinds.h"
#include "readers/tnef/ReadTNEF.h"

namespace qhcli {

namespace {

class TnefKind final : public MessageKind {
public:
    std::optional<qh::Value> read(qh::ByteView data, const ReadOptions&) const override {
        auto reader = qh::ReadTNEF::initWithData(data);
        const qh::Dict* dictionary = reader->returnFullDictionary();
        if (dictionary == nullptr) return std::nullopt;
        return qh::Value(*dictionary);
    }
    std::optional<qh::Value> summary(qh::ByteView data, const ReadOptions&) const override {
        auto summary = qh::ReadTNEF::getSummaryForMessage(data);
        if (!summary) return std::nullopt;
        return qh::Value(std::move(*summary));
    }
};

const bool registered = MessageKinds::add("tnef", std::make_unique<TnefKind>());

}  // namespace

}  // namespace qhcli
