#pragma once
// The "messages" string table: the localised texts the readers put into
// dictionaries. A key the table lacks is its own text.
#include <string>
#include <string_view>

namespace qh {

class Messages {
public:
    static std::string localizedString(std::string_view key);
};

}  // namespace qh
