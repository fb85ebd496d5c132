#pragma once
// The attachment storages of a message ("__attach..." in any letter case) as
// attachment items; embedded messages are read recursively and converted to
// text by the writers. Also the voice-note item.
#include <optional>

#include <quillhaven/Value.h>
#include "readers/msg/MsgText.h"
#include "readers/msg/ReadBudget.h"

namespace qh {

class MsgAttachments {
public:
    // Never none: empty when there is nothing to list. `text` is the reading
    // and the code pages of the message that holds them.
    static Array getAttachmentsForMessage(const Dict& root, MsgReadBudget& budget, const MsgText& text);
    static Array getAttachmentsForMessage(const Dict& root, MsgReadBudget& budget) {
        return getAttachmentsForMessage(root, budget, MsgText(MsgRules::classic()));
    }
    // The MIME, vCard or iCalendar text of a message dictionary, or none when empty.
    static std::optional<Blob> generateAttachedMessageData(const Dict& message) {
        return generateAttachedMessageData(message, MsgRules::classic());
    }
    // The same with the writer `rules` choose for a message.
    static std::optional<Blob> generateAttachedMessageData(const Dict& message, const MsgRules& rules);
    // Zero or one "Windows CE VoiceNote.wav" item from the root's 0x6803 stream.
    static Array retrieveVoiceNotesForMessage(const Dict& root);
    // Has the last path component of `name` an extension?
    static bool hasPathExtension(std::string_view name);
};

}  // namespace qh
