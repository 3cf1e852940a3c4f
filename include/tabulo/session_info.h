// A session info table: up to 32 numbers of a session's state, each with an integer tag.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "tabulo/error.h"

namespace tabulo {

namespace api {
struct SessionInfoState;
}  // namespace api

struct SessionValue {
    std::int32_t tag = 0;
    std::int64_t value = 0;

    bool operator==(const SessionValue& other) const noexcept = default;
};

// One thread at a time uses a SessionInfo. Any number of processes may read a table while one writes it.
class SessionInfo {
  public:
    // Makes a table, all of whose values are 0. An existing file is refused with fileOpen and stays as it is.
    // wrongParameter for no tags, more than 32, or one given twice.
    static SessionInfo create(const std::filesystem::path& path, std::span<const std::int32_t> tags);
    // Opens a table for reading, or for reading and writing, with the tags that it has. A second writer is refused with
    // fileOpen.
    static SessionInfo open(const std::filesystem::path& path);
    static SessionInfo openForWriting(const std::filesystem::path& path);
    // Opens a table for writing that must have at least these tags (configMismatch), or makes it.
    static SessionInfo openOrCreate(const std::filesystem::path& path, std::span<const std::int32_t> tags);

    SessionInfo(SessionInfo&&) noexcept;
    SessionInfo& operator=(SessionInfo&&) noexcept;
    ~SessionInfo();

    const std::filesystem::path& path() const;
    const std::string& table() const;
    // In the file's order.
    const std::vector<std::int32_t>& tags() const;
    bool isWritable() const;

    // The value of a tag, or of several of them in their order; noData for a tag that the table lacks. Those of a table
    // that is open for reading are those that the last refresh, or opening, has found.
    std::int64_t read(std::int32_t tag) const;
    std::vector<std::int64_t> read(std::span<const std::int32_t> tags) const;
    // All of them, in the file's order.
    std::vector<SessionValue> values() const;

    // Reads the values of a table that is open for reading again. They are of one moment: values that another process
    // replaces meanwhile are read until they come back the same. Does nothing in a table that is open for writing.
    void refresh();

    // Replaces some values, and writes all of them with one call to the system: a process that is killed leaves those
    // of before or those of after it. Of a tag given twice the last one counts. readOnly; wrongParameter for a tag that
    // the table lacks (nothing changes). When the file fails the values here are the new ones.
    void write(std::int32_t tag, std::int64_t value);
    void write(std::span<const SessionValue> values);
    // Sets every value to 0.
    void drop();

    // Closes the file; a second call does nothing.
    void close();

  private:
    explicit SessionInfo(std::unique_ptr<api::SessionInfoState> state) noexcept;
    std::unique_ptr<api::SessionInfoState> state_;
};

}  // namespace tabulo
