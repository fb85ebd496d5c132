#include "Input.h"

#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>

namespace qhcli {

std::optional<qh::Bytes> Input::readFile(const std::string& path) {
    if (path == "-") {
        qh::Bytes data;
        char chunk[65536];
        std::size_t got;
        while ((got = std::fread(chunk, 1, sizeof chunk, stdin)) > 0) data.insert(data.end(), chunk, chunk + got);
        if (std::ferror(stdin)) return std::nullopt;
        return data;
    }
    std::ifstream in(path, std::ios::binary | std::ios::ate);
    if (!in) return std::nullopt;
    std::streamsize size = in.tellg();
    if (size < 0) return std::nullopt;
    qh::Bytes data(static_cast<std::size_t>(size));
    in.seekg(0);
    if (size > 0 && !in.read(reinterpret_cast<char*>(data.data()), size)) return std::nullopt;
    return data;
}

std::string Input::detectKind(qh::ByteView data) {
    static constexpr std::uint8_t kCompound[] = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};
    static constexpr std::uint8_t kTnef[] = {0x78, 0x9F, 0x3E, 0x22};
    auto startsWith = [&](const auto& magic) {
        return data.size() >= sizeof magic && std::equal(std::begin(magic), std::end(magic), data.begin());
    };
    if (startsWith(kCompound)) return "msg";
    if (startsWith(kTnef)) return "tnef";
    return "eml";
}

}  // namespace qhcli
