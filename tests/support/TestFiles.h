#pragma once

#include <cstddef>
#include <fstream>
#include <iterator>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

namespace qelmo {

[[nodiscard]] inline std::span<const std::byte> bytesOf(std::string_view text) {
    return std::as_bytes(std::span(text));
}

inline void writeTestFile(const std::string& path, std::string_view bytes) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    file.close();
    if (!file) throw std::runtime_error("The test cannot write " + path);
}

[[nodiscard]] inline std::string readTestFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw std::runtime_error("The test cannot read " + path);
    return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace qelmo
