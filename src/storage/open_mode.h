// How a table's files are opened.
#pragma once

#include <cstdint>

namespace tabulo::internal {

// The numbers are part of the interface: Java gives them, and log lines show them. A number from outside that is none
// of them is refused by tableFileOpen, where every mode arrives.
enum class OpenMode : std::int32_t {
    read = 0,    // existing file, read-only, no lock
    write = 1,   // existing file for reading and writing, created when missing
    create = 2,  // created, or emptied, for reading and writing
};

// What must stand at a path that is opened in OpenMode::write.
enum class FilePresence {
    any,       // the file is created when it is missing
    existing,  // it is not created
    missing,   // an existing one is refused, and stays as it is
};

constexpr bool openMode_isKnown(OpenMode mode) noexcept {
    return mode == OpenMode::read || mode == OpenMode::write || mode == OpenMode::create;
}

// The number that log lines show.
constexpr std::int32_t openMode_number(OpenMode mode) noexcept {
    return static_cast<std::int32_t>(mode);
}

}  // namespace tabulo::internal
