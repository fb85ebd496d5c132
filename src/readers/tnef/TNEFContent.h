#pragma once
// The message dictionary of the complete reading, built from a decoded TNEF
// message: subject, sender, recipients by type, dates, the three bodies, the
// message id, and attachments grouped by their attachment record with their
// data, name, MIME type and content id (an attached message converted to MIME).
#include <quillhaven/Reading.h>
#include <quillhaven/Value.h>
#include "readers/msg/ReadBudget.h"
#include "readers/tnef/TNEFRecords.h"

namespace qh {

// What one read of a stream carries down to the messages attached inside it.
struct TnefReadContext {
    const TnefRules* rules = &TnefRules::of(Reading::classic);
    ReadOptions options;
    MsgReadBudget* budget = nullptr;  // shared by every level; null: attached messages are not read
};

class TNEFContent {
public:
    static Dict build(const TNEFMessage& message, TnefReadContext& context);
};

}  // namespace qh
