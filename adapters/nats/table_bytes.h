// The bytes of a table's file, to be compared with those that went over.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <span>

namespace tabulo::shipping {

class TableBytes {
  public:
    // Opens it for reading; isOpen tells whether that went well.
    explicit TableBytes(const std::filesystem::path& path) noexcept;
    TableBytes() noexcept = default;
    TableBytes(TableBytes&& other) noexcept;
    TableBytes& operator=(TableBytes&& other) noexcept;
    ~TableBytes();

    bool isOpen() const noexcept { return descriptor_ >= 0; }
    // Whether just these bytes stand at the place. False also when the file ends in front of their end, or cannot be
    // read.
    bool holds(std::int64_t offset, std::span<const std::byte> bytes) const noexcept;

  private:
    int descriptor_ = -1;
};

}  // namespace tabulo::shipping
