// What every operation of this library throws when it fails.
#pragma once

#include <cstdint>
#include <exception>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tabulo {

// What went wrong. The numbers are stable and the same in every binding; name() of an Error gives the long names.
enum class Code : std::int32_t {
    outOfMemory = 1,
    nullPointer = 2,
    tableClosed = 3,  // the object was closed or moved from
    systemFile = 4,
    signature = 5,
    fileSize = 6,
    unrecoverable = 7,
    wrongParameter = 8,
    tableType = 9,
    fileOpen = 10,
    fileSeek = 11,
    fileRead = 12,
    fileWrite = 13,
    fileTruncate = 14,
    byteOrder = 15,
    fileFlush = 16,
    vseek = 17,
    consistency = 18,
    readOnly = 19,
    indexOutOfBounds = 20,
    jni = 21,
    noData = 22,
    version = 23,
    headerCorrupted = 24,
    notImplemented = 25,
    streamNotEnoughData = 26,
    streamExtension = 27,
    streamReadReset = 28,
    streamWriteReset = 29,
    iteratorClosed = 30,
    masterInactive = 31,
    stringFieldsLimit = 32,
    numericFieldsLimit = 33,
    stringFieldsCountMismatch = 34,
    numericFieldsCountMismatch = 35,
    stringFieldsNamesMismatch = 36,
    numericFieldsNamesMismatch = 37,
    configMismatch = 38,
};

// "FILE_OPEN_ERROR" and so on; "UNKNOWN_ERROR" for a number that names no code. So with the other two.
std::string_view codeName(Code code) noexcept;
// One sentence that says what has failed.
std::string_view codeText(Code code) noexcept;
// What to do about it.
std::string_view codeAdvice(Code code) noexcept;

// The only exception of this library, apart from what callbacks of the caller throw and std::bad_alloc for objects that
// the caller makes. Copies are cheap and share what they say.
//
// The codes that can come from any operation that opens or reads a table are not repeated in the other headers:
// fileOpen, fileRead, fileSize, signature, byteOrder, version, tableType, headerCorrupted, streamNotEnoughData,
// streamReadReset for files that are missing, refused, foreign or cut; consistency, headerCorrupted, noData for damage,
// with the offset; systemFile, fileSeek, vseek when the system fails or the file becomes shorter while it is read;
// outOfMemory; wrongParameter for an empty path or one with a zero byte; tableClosed for an object that was closed or
// moved from.
class Error : public std::exception {
  public:
    struct Details {
        Code code = Code::wrongParameter;
        std::filesystem::path path{};          // of the table's file; empty when no file was concerned
        std::optional<std::int64_t> offset{};  // in that file, where it is known
        std::string detail{};                  // what exactly; empty when the code says all
        std::string systemText{};              // the system's own words, when a call to it failed
        std::vector<std::string> warnings{};   // lines that the library wrote to its log during the failing call
        std::int64_t stored = 0;
    };

    explicit Error(Details details);
    Error(const Error& other) noexcept = default;  // moving copies
    Error& operator=(const Error& other) noexcept = default;
    ~Error() override = default;

    // One line: name, detail or text, path, offset, the system's words, advice.
    const char* what() const noexcept override;

    Code code() const noexcept;
    std::string_view name() const noexcept;
    const std::filesystem::path& path() const noexcept;
    // The table's name, which is the file's.
    const std::string& table() const noexcept;
    std::optional<std::int64_t> offset() const noexcept;
    const std::string& detail() const noexcept;
    const std::string& systemText() const noexcept;
    std::string_view advice() const noexcept;
    const std::vector<std::string>& warnings() const noexcept;
    // Of a failed Writer::append or Writer::appendFrames: how many messages of that call are in the file nevertheless.
    // They must not be appended again.
    std::int64_t stored() const noexcept;

  private:
    struct State;
    std::shared_ptr<const State> state_;
};

}  // namespace tabulo
