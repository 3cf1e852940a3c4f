// From where a receiver need not read its stream again: a small text file beside the tables, replaced as a whole.
//
//   stream ENG1
//   made 1763915400000000000  when the stream was made, as it says
//   sequence 81234            all records up to this one are applied
//   fenced 81230              a fence's last record that was taken: what comes behind it is left out until an owner
//                             record does (publisher.h); else no such line
//   table orders 2 5712       a table, escaped, the incarnation of what stands in its file, and the offset where that
//                             ends; 0 when it is not known
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>

namespace tabulo::shipping {

struct ReceiveNote {
    struct Table {
        std::int64_t incarnation = 0;
        std::int64_t end = 0;
    };

    std::string stream{};
    std::int64_t made = 0;
    std::uint64_t sequence = 0;
    std::uint64_t fence = 0;  // 0: none
    std::map<std::string, Table> tables{};
};

inline constexpr const char* NOTE_NAME = ".tabulo-receive";

// None when there is none, or none that can be understood: the tables then tell all.
std::optional<ReceiveNote> readNote(const std::filesystem::path& folder);
// Refused (log_stream.h), with the system's words.
void writeNote(const std::filesystem::path& folder, const ReceiveNote& note);

}  // namespace tabulo::shipping
