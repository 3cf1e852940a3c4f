// From where a receiver need not read its stream again: a small text file beside the tables, replaced as a whole.
//
//   stream ENG1
//   sequence 81234            all records up to this one are applied
//   fenced                    what comes is left out until an owner record does (publisher.h); else no such line
//   table orders 2            a table, escaped, and the incarnation of what stands in its file
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>

namespace tabulo::shipping {

struct ReceiveNote {
    std::string stream{};
    std::uint64_t sequence = 0;
    bool isFenced = false;
    std::map<std::string, std::int64_t> incarnations{};  // by table
};

inline constexpr const char* NOTE_NAME = ".tabulo-receive";

// None when there is none, or none that can be understood: the tables then tell all.
std::optional<ReceiveNote> readNote(const std::filesystem::path& folder);
// Refused (log_stream.h), with the system's words.
void writeNote(const std::filesystem::path& folder, const ReceiveNote& note);

}  // namespace tabulo::shipping
