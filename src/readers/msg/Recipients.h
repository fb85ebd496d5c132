#pragma once
// The recipient storages of a message ("__recip..." in any letter case) as
// address records, one per storage, whatever its recipient type.
#include "core/Value.h"

namespace qh {

class MsgRecipients {
public:
    // Never none: empty when the message has no recipient storages.
    static Array getRecipientsForMessage(const Dict& root);
    // Does `name` begin with `prefix`, ignoring ASCII letter case?
    static bool hasPrefixIgnoringCase(std::string_view name, std::string_view prefix);
};

}  // namespace qh
