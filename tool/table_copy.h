// A copy of a message table that is kept up with it: at any time the table as it was up to some message, closed.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "tabulo/message.h"
#include "tabulo/reader.h"
#include "tabulo/writer.h"
#include "tool/console.h"

namespace tabulo::tool {

class TableCopy {
  public:
    // Nothing is opened or made yet. Until a first copy is complete it stands beside the target under another name,
    // always the same one, where a later run finds what a killed one has left.
    TableCopy(std::filesystem::path source, std::filesystem::path target);

    // Fixes the end of what is copied: the table's end as it is now, or without one everything in front of damage.
    void fixEnd();
    // Compares what there is of the copy with the table: its layout, its first and its last message. Failure when the
    // table no longer holds them at their places, so that it was dropped or cut since; the errors of reading what
    // stands at the target. What an earlier run has left unfinished is taken away when it is of no use.
    void compare(Console& console);
    // Appends what is missing, commits it to the disk, closes the copy, and gives it its name. Failure when the table
    // is dropped meanwhile: the copy then ends in front of that; and when another process writes the copy. What fails
    // takes a first copy away.
    void run(Console& console);

    const std::filesystem::path& source() const noexcept { return source_; }
    const std::filesystem::path& target() const noexcept { return target_; }
    // Behind run: messages of the copy, and those that were added; the id of the last; the copy's size.
    std::int64_t messages() const noexcept { return messages_; }
    std::int64_t added() const noexcept { return added_; }
    std::optional<std::int32_t> lastUniformId() const noexcept { return lastUniformId_; }
    std::int64_t size() const noexcept { return size_; }
    // What is wrong with the table, which is copied in front of that only.
    const std::optional<std::string>& damage() const noexcept { return damage_; }

  private:
    void checkSame(Reader& table, Reader& copy) const;
    void append(Console& console, Reader& table);
    bool isSame(Reader& table) const;
    [[noreturn]] void failDropped() const;
    [[noreturn]] void failBusy() const;
    Writer openCopy(const Layout& layout);
    void finish();

    std::filesystem::path source_;
    std::filesystem::path target_;
    std::filesystem::path unfinished_;
    std::vector<std::byte> first_;  // the table's first message
    std::optional<Position> end_;
    std::optional<std::string> damage_;
    std::filesystem::path found_;  // the copy, finished or not; empty when there is none
    std::optional<Position> begin_;
    bool isMade_ = false;  // by this run, and has no name of its own yet
    std::int64_t messages_ = 0;
    std::int64_t added_ = 0;
    std::int64_t size_ = 0;
    std::optional<std::int32_t> lastUniformId_;
};

}  // namespace tabulo::tool
