#include "core/Messages.h"

#include <array>
#include <utility>

namespace qh {

std::string Messages::localizedString(std::string_view key) {
    static constexpr std::array<std::pair<std::string_view, std::string_view>, 2> kTable{{
        {"VoiceNote", "This message holds a voice note; play the attached sound to hear it."},
        {"unnamedName", "Unnamed Attachment"},
    }};
    for (const auto& [k, text] : kTable) {
        if (k == key) return std::string(text);
    }
    return std::string(key);
}

}  // namespace qh
