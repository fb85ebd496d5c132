#pragma once
// The appointment keys (quillhaven/ItemKeys.h) of an "IPM.Appointment" item, from
// the named properties of the appointment, common and meeting property sets.
#include <quillhaven/Value.h>
#include "readers/msg/MsgText.h"

namespace qh {

class MsgAppointments {
public:
    // `embedded`: the root is an embedded message (24-byte property header).
    static Dict buildAppointmentForMessage(const Dict& root, bool embedded,
                                           const MsgText& text = MsgText(MsgRules::classic()));
};

}  // namespace qh
