#pragma once
// The recipient storages of a message ("__recip..." in any letter case) as
// address records.
#include <string_view>

#include <quillhaven/Value.h>
#include "readers/msg/MsgText.h"

namespace qh {

class MsgRecipients {
public:
    struct Lists {
        Array to, cc, bcc;
    };

    // Every recipient, in storage order, as the classic reading lists them
    // under "To"; never none (empty without recipient storages).
    static Array getRecipientsForMessage(const Dict& root);
    // The recipients as `text`'s rules read them: all under `to`, or sorted
    // by their recipient type.
    static Lists recipientsForMessage(const Dict& root, const MsgText& text);
    // Does `name` begin with `prefix`, ignoring ASCII letter case?
    static bool hasPrefixIgnoringCase(std::string_view name, std::string_view prefix);
};

}  // namespace qh
