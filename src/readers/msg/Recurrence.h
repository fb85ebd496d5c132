#pragma once
// An appointment's recurrence blob (MS-OXOCAL RecurrencePattern) as the value
// of an RFC 5545 RRULE.
#include <optional>
#include <string>

#include <quillhaven/Bytes.h>

namespace qh {

class MsgRecurrence {
public:
    // "FREQ=WEEKLY;INTERVAL=1;BYDAY=MO;COUNT=10" and the like; none when the
    // blob is short or describes no pattern this writer can express.
    static std::optional<std::string> ruleFromPattern(ByteView blob);
};

}  // namespace qh
