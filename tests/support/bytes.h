// Bytes of tests: written in hexadecimal, shown in hexadecimal, patterned, kept in files.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tabulo::internal::test {

using Bytes = std::vector<std::uint8_t>;

// "01 0a ff": what a failed comparison of two buffers should show.
std::string toHex(std::span<const std::uint8_t> bytes);
// The bytes of a text like "01 0a ff"; blanks and line ends between digits do not count. Throws for anything else.
Bytes fromHex(std::string_view text);
// The characters of a text as bytes.
Bytes fromText(std::string_view text);
// `count` bytes that differ from their neighbours: (first + i * 7) mod 251.
Bytes pattern(std::size_t count, std::uint8_t first = 0);

// The whole content of a file; throws when it cannot be read.
Bytes readFile(const std::string& path);
// Replaces a file's content, creating the file where needed; throws when it cannot be written.
void writeFile(const std::string& path, std::span<const std::uint8_t> bytes);
void appendFile(const std::string& path, std::span<const std::uint8_t> bytes);
// Overwrites bytes in place; the file's length stays unless they reach beyond its end.
void patchFile(const std::string& path, std::size_t offset, std::span<const std::uint8_t> bytes);
// The content as text; empty when the file is missing.
std::string readText(const std::string& path);

// Empty for equal contents of files; else where they differ first, and what stands there.
std::string difference(const Bytes& actual, const Bytes& expected);

}  // namespace tabulo::internal::test
