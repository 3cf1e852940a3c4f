// One table, its file as the test puts it there, and a reader that follows it.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "tests/watcher/watched_tables.h"

namespace tabulo::internal::test {

inline constexpr std::size_t FRAME = 55;  // of a message without fields
inline constexpr std::size_t LENGTH_WORD = 8;

inline Events numbered(std::int32_t first, std::int32_t last) {
    Events events;
    for (std::int32_t id = first; id <= last; ++id) {
        events.push_back(std::to_string(id) + "@0");
    }
    return events;
}

class TableReaderTest : public WatcherTest {
  protected:
    std::string path() const { return directory.file("orders"); }
    // Watches the table "orders", which `reader` has open, from its beginning.
    ErrorCode watchOrders() {
        watcher = watch({reader.get()});
        return record.run(watcher.get(), {1});
    }
    std::size_t bufferSize() const { return watcher->readers[0]->buffer.size(); }
    void openReader() {
        reader = open("orders", OpenMode::read);
        ASSERT_NE(reader, nullptr);
    }
    // The bytes of a table with messages 1 to `count`, as its writer leaves them without closing it.
    Bytes written(std::int32_t count, const std::vector<std::string>& wires = {}) {
        const WatchedTablePtr writer = open("orders", OpenMode::create);
        for (std::int32_t id = 1; id <= count; ++id) {
            const auto number = static_cast<std::size_t>(id) - 1;
            EXPECT_EQ(storeMessage(writer.get(), id, number < wires.size() ? wires[number] : ""), NO_ERROR);
        }
        headerSize = static_cast<std::size_t>(mt_storage(writer.get())->headerSize);
        footerSize = static_cast<std::size_t>(mt_storage(writer.get())->footerSize);
        return readFile(path());
    }
    static Bytes part(const Bytes& bytes, std::size_t from, std::size_t to) {
        return Bytes(bytes.begin() + static_cast<std::ptrdiff_t>(from),
                     bytes.begin() + static_cast<std::ptrdiff_t>(to));
    }

    WatchedTablePtr reader;
    WatcherPtr watcher;
    std::size_t headerSize = 0;
    std::size_t footerSize = 0;
};

}  // namespace tabulo::internal::test
