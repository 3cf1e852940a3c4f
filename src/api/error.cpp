#include "tabulo/error.h"

#include <array>
#include <utility>

#include "core/error_codes.h"

namespace tabulo {

namespace {

struct CodeWords {
    Code code;
    std::string_view name;
    std::string_view advice;
};

constexpr std::string_view ANOTHER_LAYOUT = "open the table with its own layout, or give none";

constexpr std::array<CodeWords, 38> WORDS = {{
    {Code::outOfMemory, "OUT_OF_MEMORY_ERROR", "free memory and try again"},
    {Code::nullPointer, "NULL_POINTER_ERROR", "correct the call"},
    {Code::tableClosed, "TABLE_CLOSED_ERROR", "open the table, or correct the order of the calls"},
    {Code::systemFile, "SYSTEM_FILE_ERROR", "look at the system's log, then open the table again"},
    {Code::signature, "SIGNATURE_ERROR", "check the path; if this was a table, restore it from a copy"},
    {Code::fileSize, "FILE_SIZE_ERROR", "it is no table, or one whose making was cut short: only that may be removed"},
    {Code::unrecoverable, "UNRECOVERABLE_ERROR", "keep the file and open it for reading, or restore it from a copy"},
    {Code::wrongParameter, "WRONG_PARAMETER_ERROR", "correct the call"},
    {Code::tableType, "TABLE_TYPE_ERROR", "check the path: this is a table of the other kind"},
    {Code::fileOpen, "FILE_OPEN_ERROR", "check path and permissions, and whether another process writes the table"},
    {Code::fileSeek, "FILE_SEEK_ERROR", "look at the disk, then open the table again and ask for its last message"},
    {Code::fileRead, "FILE_READ_ERROR", "try again; if it stays, look at the disk and restore the file from a copy"},
    {Code::fileWrite, "FILE_WRITE_ERROR", "make space, then open the table again and ask for its last message"},
    {Code::fileTruncate, "FILE_TRUNCATE_ERROR", "look at permissions and disk, then try again"},
    {Code::byteOrder, "BYTE_ORDER_ERROR", "read the table on a machine of the byte order that it was made on"},
    {Code::fileFlush, "FILE_FLUSH_ERROR", "look at the disk, then open the table again and ask for its last message"},
    {Code::vseek, "VSEEK_ERROR", "open the table again: it may have become shorter"},
    {Code::consistency, "CONSISTENCY_ERROR", "verify the table, and salvage what stands behind the damage"},
    {Code::readOnly, "READ_ONLY_ERROR", "open the table for writing"},
    {Code::indexOutOfBounds, "INDEX_OUT_OF_BOUNDS_ERROR", "correct the call"},
    {Code::jni, "JNI_ERROR", "check that classes and library are of one build"},
    {Code::noData, "NO_DATA_ERROR", "correct the call, or verify the table"},
    {Code::version, "VERSION_ERROR", "use the library of the version that made the table"},
    {Code::headerCorrupted, "HEADER_CORRUPTED_ERROR", "verify the table, and salvage what is whole"},
    {Code::notImplemented, "NOT_IMPLEMENTED_ERROR", "do without"},
    {Code::streamNotEnoughData, "STREAM_NOT_ENOUGH_DATA_ERROR", "open the table for writing, which recovers it"},
    {Code::streamExtension, "STREAM_EXTENSION_ERROR", "make the message smaller"},
    {Code::streamReadReset, "STREAM_READ_RESET_ERROR", "if nothing was ever stored there, remove the file"},
    {Code::streamWriteReset, "STREAM_WRITE_RESET_ERROR", "correct the call"},
    {Code::iteratorClosed, "ITERATOR_CLOSED_ERROR", "ask anew"},
    {Code::masterInactive, "MASTER_INACTIVE_ERROR", "close the table and open it again"},
    {Code::stringFieldsLimit, "STRING_FIELDS_LIMIT_ERROR", "configure at most 12 texts"},
    {Code::numericFieldsLimit, "NUMERIC_FIELDS_LIMIT_ERROR", "configure at most 16 numbers"},
    {Code::stringFieldsCountMismatch, "STRING_FIELDS_COUNT_MISMATCH_ERROR", ANOTHER_LAYOUT},
    {Code::numericFieldsCountMismatch, "NUMERIC_FIELDS_COUNT_MISMATCH_ERROR", ANOTHER_LAYOUT},
    {Code::stringFieldsNamesMismatch, "STRING_FIELDS_NAMES_MISMATCH_ERROR", ANOTHER_LAYOUT},
    {Code::numericFieldsNamesMismatch, "NUMERIC_FIELDS_NAMES_MISMATCH_ERROR", ANOTHER_LAYOUT},
    {Code::configMismatch, "CONFIG_MISMATCH_ERROR", ANOTHER_LAYOUT},
}};

constexpr bool isInOrder() {
    for (std::size_t i = 0; i < WORDS.size(); ++i) {
        if (WORDS[i].code != static_cast<Code>(i + 1)) {
            return false;
        }
    }
    return true;
}
static_assert(isInOrder());
static_assert(static_cast<std::int32_t>(Code::configMismatch) == internal::CONFIG_MISMATCH_ERROR);

const CodeWords* wordsOf(Code code) {
    const auto number = static_cast<std::int32_t>(code);
    return number < 1 || number > static_cast<std::int32_t>(WORDS.size())
               ? nullptr
               : &WORDS[static_cast<std::size_t>(number - 1)];
}

}  // namespace

std::string_view codeName(Code code) noexcept {
    const CodeWords* words = wordsOf(code);
    return words == nullptr ? "UNKNOWN_ERROR" : words->name;
}

std::string_view codeText(Code code) noexcept {
    return internal::getErrorMessage(static_cast<internal::ErrorCode>(code));
}

std::string_view codeAdvice(Code code) noexcept {
    const CodeWords* words = wordsOf(code);
    return words == nullptr ? "" : words->advice;
}

struct Error::State {
    Details details;
    std::string table;
    std::string what;
};

namespace {

std::string whatOf(const Error::Details& details) {
    std::string what(codeName(details.code));
    what += ": ";
    what += details.detail.empty() ? std::string(codeText(details.code)) : details.detail;
    if (!details.path.empty()) {
        what += ": " + details.path.string();
    }
    if (details.offset.has_value()) {
        what += ", at offset " + std::to_string(*details.offset);
    }
    if (!details.systemText.empty()) {
        what += ": " + details.systemText;
    }
    what += " (";
    what += codeAdvice(details.code);
    what += ")";
    return what;
}

}  // namespace

Error::Error(Details details) {
    std::string what = whatOf(details);
    std::string table = details.path.filename().string();
    state_ = std::make_shared<const State>(State{std::move(details), std::move(table), std::move(what)});
}

const char* Error::what() const noexcept {
    return state_->what.c_str();
}

Code Error::code() const noexcept {
    return state_->details.code;
}

std::string_view Error::name() const noexcept {
    return codeName(state_->details.code);
}

const std::filesystem::path& Error::path() const noexcept {
    return state_->details.path;
}

const std::string& Error::table() const noexcept {
    return state_->table;
}

std::optional<std::int64_t> Error::offset() const noexcept {
    return state_->details.offset;
}

const std::string& Error::detail() const noexcept {
    return state_->details.detail;
}

const std::string& Error::systemText() const noexcept {
    return state_->details.systemText;
}

std::string_view Error::advice() const noexcept {
    return codeAdvice(state_->details.code);
}

const std::vector<std::string>& Error::warnings() const noexcept {
    return state_->details.warnings;
}

std::int64_t Error::stored() const noexcept {
    return state_->details.stored;
}

}  // namespace tabulo
