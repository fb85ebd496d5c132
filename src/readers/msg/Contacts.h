#pragma once
// The contact keys (quillhaven/ItemKeys.h) of an "IPM.Contact" item, from its MAPI
// properties and the named properties of the address property set.
#include <quillhaven/Value.h>
#include "readers/msg/MsgText.h"

namespace qh {

class MsgContacts {
public:
    // `embedded`: the root is an embedded message (24-byte property header).
    static Dict buildContactsForMessage(const Dict& root, bool embedded,
                                        const MsgText& text = MsgText(MsgRules::classic()));
};

}  // namespace qh
