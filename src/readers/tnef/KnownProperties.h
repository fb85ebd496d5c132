#pragma once
// The MAPI property ids the decoder knows by number (MS-OXPROPS ids in
// 0x0001..0x3F08), in ascending order.
#include <array>
#include <cstdint>

namespace qh {

class KnownProperties {
public:
    static constexpr std::size_t kCount = 419;
    static const std::array<std::uint16_t, kCount>& ids();
    // The id when the table holds it, else 0.
    static std::uint16_t lookup(std::uint16_t id);
};

}  // namespace qh
