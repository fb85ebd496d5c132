#pragma once
// What one read of a message file may still spend: embedding depth,
// attachment storages and the text of converted embedded messages. Shared by
// every level of a message and the messages embedded in it.
#include <cstddef>
#include <cstdint>

namespace qh {

struct MsgReadBudget {
    int depth = 0;                          // 0 for the file's own message
    std::size_t attachmentStorages = 0;     // followed so far, all levels
    std::size_t convertedBytes = 0;         // embedded-message text made so far, all levels
    std::size_t convertedLimit = 0;         // stop converting embedded messages beyond this
    bool attachmentLimitLogged = false;
};

}  // namespace qh
