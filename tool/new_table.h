// Making a message table of whole frames, and checking that it holds what it was given.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "tabulo/message.h"
#include "tabulo/writer.h"
#include "tool/console.h"

namespace tabulo::tool {

// What a series of messages comes to: two series that differ in number, order or bytes differ here, too, but for an
// accident of one in 2^64.
struct MessageSum {
    std::int64_t messages = 0;
    std::int64_t bytes = 0;
    std::uint64_t hash = 0;
    std::optional<std::int32_t> firstUniformId{};
    std::optional<std::int32_t> lastUniformId{};

    void add(const MessageView& message);
    bool operator==(const MessageSum& other) const noexcept = default;
};

// Appends messages in batches, so that there is one call to the system for many of them.
class BatchWriter {
  public:
    // Batches are written when they reach so many bytes.
    BatchWriter(Writer writer, std::size_t batchBytes) : writer_(std::move(writer)), batchBytes_(batchBytes) {}

    // True when the batch is full: the next thing to call is flush, while the message is there still. One that would
    // fill a batch alone is not copied.
    bool add(const MessageView& message);
    void flush();
    // Writes what is left, and closes the table; it is not committed to the disk.
    void close();
    const Writer& writer() const noexcept { return writer_; }

  private:
    Writer writer_;
    std::size_t batchBytes_;
    std::vector<std::byte> batch_;
    std::span<const std::byte> large_{};  // behind the batch
};

// Opens a closed table again, verifies it, and reads what is in it. Failure unless it is sound and comes to `sum`.
// `name` is the name by which the user knows it.
void checkNewTable(Console& console, const std::filesystem::path& path, const std::string& name, const MessageSum& sum);

}  // namespace tabulo::tool
