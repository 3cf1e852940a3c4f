// Table files of tests: opened in one line, closed at the end of their scope.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "core/handle.h"
#include "storage/table_file.h"
#include "tests/support/bytes.h"

namespace tabulo::internal::test {

inline void closeTableFile(TableFile* file) noexcept {
    if (tableFileClose(file) != NO_ERROR) {
        (void)tableFileClose(file);  // the second close frees the record whatever comes of it
    }
}
using TableFilePtr = Handle<TableFile, closeTableFile>;

// The open file, or null with a failed expectation.
inline TableFilePtr openTableFile(const std::string& path, OpenMode mode) {
    TableFile* file = nullptr;
    EXPECT_EQ(tableFileOpen(&file, path.c_str(), mode, nullptr), NO_ERROR)
        << path << " in mode " << openMode_number(mode);
    return TableFilePtr(file);
}

inline std::int64_t positionOf(const TableFilePtr& file) {
    std::int64_t position = -1;
    EXPECT_EQ(tableFileTell(file.get(), &position), NO_ERROR);
    return position;
}

// Up to `length` bytes from the virtual position, in hexadecimal; "error <code>" when the read fails.
inline std::string readHex(const TableFilePtr& file, std::size_t length) {
    Bytes bytes(length);
    std::int64_t count = -1;
    const ErrorCode code = tableFileRead(file.get(), bytes.data(), static_cast<std::int64_t>(length), &count);
    if (code != NO_ERROR) {
        return "error " + std::to_string(code);
    }
    bytes.resize(static_cast<std::size_t>(count));
    return toHex(bytes);
}

inline ErrorCode writeBytes(const TableFilePtr& file, const Bytes& bytes) {
    return tableFileWrite(file.get(), bytes.data(), static_cast<std::int64_t>(bytes.size()));
}

// Part of a pattern, in hexadecimal.
inline std::string hexOf(const Bytes& bytes, std::size_t start, std::size_t length) {
    return toHex(std::span(bytes).subspan(start, length));
}

}  // namespace tabulo::internal::test
