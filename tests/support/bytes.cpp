#include "tests/support/bytes.h"

#include <algorithm>
#include <cctype>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace tabulo::internal::test {

namespace {

constexpr std::string_view digits = "0123456789abcdef";

void write(const std::string& path, std::span<const std::uint8_t> bytes, std::ios::openmode mode, std::size_t offset) {
    std::fstream file(path, mode | std::ios::out | std::ios::binary);
    if (offset != 0) {
        file.seekp(static_cast<std::streamoff>(offset));
    }
    for (const std::uint8_t byte : bytes) {
        file.put(static_cast<char>(byte));
    }
    file.flush();
    if (!file) {
        throw std::runtime_error("cannot write " + path);
    }
}

}  // namespace

std::string toHex(std::span<const std::uint8_t> bytes) {
    std::string text;
    for (const std::uint8_t byte : bytes) {
        if (!text.empty()) {
            text += ' ';
        }
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}

Bytes fromHex(std::string_view text) {
    Bytes bytes;
    int high = -1;
    for (const char character : text) {
        if (high < 0 && std::isspace(static_cast<unsigned char>(character)) != 0) {
            continue;
        }
        const auto digit = digits.find(static_cast<char>(std::tolower(static_cast<unsigned char>(character))));
        if (digit == std::string_view::npos) {
            throw std::invalid_argument("not hexadecimal: " + std::string(text));
        }
        if (high < 0) {
            high = static_cast<int>(digit);
        } else {
            bytes.push_back(static_cast<std::uint8_t>(high * 16 + static_cast<int>(digit)));
            high = -1;
        }
    }
    if (high >= 0) {
        throw std::invalid_argument("odd number of digits: " + std::string(text));
    }
    return bytes;
}

Bytes fromText(std::string_view text) {
    return Bytes(text.begin(), text.end());
}

Bytes pattern(std::size_t count, std::uint8_t first) {
    Bytes bytes(count);
    for (std::size_t i = 0; i < count; ++i) {
        bytes[i] = static_cast<std::uint8_t>((first + i * 7) % 251);
    }
    return bytes;
}

Bytes readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw std::runtime_error("cannot read " + path);
    }
    return Bytes(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

void writeFile(const std::string& path, std::span<const std::uint8_t> bytes) {
    write(path, bytes, std::ios::trunc, 0);
}

void appendFile(const std::string& path, std::span<const std::uint8_t> bytes) {
    write(path, bytes, std::ios::app, 0);
}

void patchFile(const std::string& path, std::size_t offset, std::span<const std::uint8_t> bytes) {
    write(path, bytes, std::ios::in, offset);
}

std::string readText(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

std::string difference(const Bytes& actual, const Bytes& expected) {
    const auto [mine, other] = std::mismatch(actual.begin(), actual.end(), expected.begin(), expected.end());
    if (mine == actual.end() && other == expected.end()) {
        return "";
    }
    const auto offset = static_cast<std::size_t>(mine - actual.begin());
    const auto around = [offset](const Bytes& bytes) {
        return toHex(std::span(bytes).subspan(offset, std::min<std::size_t>(bytes.size() - offset, 16)));
    };
    return "the files of " + std::to_string(actual.size()) + " and " + std::to_string(expected.size()) +
           " bytes (expected) differ from offset " + std::to_string(offset) + " on: [" + around(actual) +
           "] instead of [" + around(expected) + "]";
}

}  // namespace tabulo::internal::test
