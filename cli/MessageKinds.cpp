#include "MessageKinds.h"

#include <map>

namespace qhcli {

namespace {
std::map<std::string, std::unique_ptr<MessageKind>, std::less<>>& registry() {
    static std::map<std::string, std::unique_ptr<MessageKind>, std::less<>> kinds;
    return kinds;
}
}  // namespace

bool MessageKinds::add(std::string name, std::unique_ptr<MessageKind> kind) {
    registry()[std::move(name)] = std::move(kind);
    return true;
}

const MessageKind* MessageKinds::find(std::string_view name) {
    auto it = registry().find(name);
    return it == registry().end() ? nullptr : it->second.get();
}

}  // namespace qhcli
