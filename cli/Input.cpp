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

}  // namespace qhcli
