#pragma once
// Standard base64 (RFC 4648 alphabet, padded, one line). The mail encoders with
// their line layouts live in util; this one serves the JSON encoding.
#include <string>

#include "core/Bytes.h"

namespace qh {

class Base64 {
public:
    static std::string encode(ByteView bytes);
};

}  // namespace qh
