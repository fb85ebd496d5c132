#pragma once
// The transport message header of an MSG message, taken apart into the
// header dictionary: "TO", "FROM", "CC", "BCC" (address lists), "Date" (text
// as written) and "Subject" (decoded).
#include <string>
#include <string_view>

#include <quillhaven/Value.h>
#include "readers/msg/MsgRules.h"

namespace qh {

class MsgTransportHeader {
public:
    // The header dictionary of `header`. With LastNeverFiled (classic) the
    // field still pending after the last line is never filed.
    static Dict parse(std::string_view header,
                      MsgRules::HeaderFields fields = MsgRules::HeaderFields::LastNeverFiled);
    // A header "Subject" value whose Q-encoded words (ISO-8859-1 or UTF-8)
    // are joined and decoded; the value unchanged when it has none.
    static std::string decodeSubject(const std::string& value);
};

}  // namespace qh
