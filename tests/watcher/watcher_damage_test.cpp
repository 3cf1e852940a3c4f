// Where a watch of a damaged table begins: at its starting id, or not at all.
#include <algorithm>

#include "tests/support/log_capture.h"
#include "tests/watcher/table_reader_fixture.h"

namespace tabulo::internal::test {
namespace {

constexpr std::int32_t LAST = 11;  // three closed blocks of three messages and two messages of the open one

class WatchOfADamagedTable : public TableReaderTest {
  protected:
    void SetUp() override { whole = written(LAST); }

    std::size_t blockStart(std::size_t number) const {
        return headerSize + (number - 1) * (LENGTH_WORD + 3 * FRAME + footerSize);
    }
    std::size_t frameStart(std::int32_t id) const {
        const auto index = static_cast<std::size_t>(id) - 1;
        return blockStart(index / 3 + 1) + LENGTH_WORD + index % 3 * FRAME;
    }
    static void zero(Bytes* bytes, std::size_t start, std::size_t length) {
        std::fill_n(bytes->begin() + static_cast<std::ptrdiff_t>(start), length, 0);
    }
    // The result of a watch from an id until nothing more comes.
    ErrorCode watchFrom(std::int32_t id) {
        record.clear();
        watcher = watch({reader.get()});
        return record.run(watcher.get(), {id});
    }
    void place(const Bytes& bytes) {
        reader.reset();
        writeFile(path(), bytes);
        openReader();
    }

    LogCapture log;
    Bytes whole;
};

TEST_F(WatchOfADamagedTable, BehindABlockWithAZeroedStartIsRefused) {
    Bytes bytes = whole;
    zero(&bytes, blockStart(2), LENGTH_WORD + FRAME);
    place(bytes);
    for (const std::int32_t id : {4, 5, 7, 10, LAST + 1}) {
        SCOPED_TRACE(id);
        EXPECT_EQ(watchFrom(id), HEADER_CORRUPTED_ERROR);
        EXPECT_EQ(record.events, Events{});
        EXPECT_EQ(log.warnings().back(), "Tabulo/C: Watcher stopped due to error " +
                                             std::to_string(HEADER_CORRUPTED_ERROR) + ". Last sent uniformId = -1");
    }
}

TEST_F(WatchOfADamagedTable, BehindAZeroedFrameOfItsBlockIsRefused) {
    Bytes bytes = whole;
    zero(&bytes, frameStart(5), FRAME);
    place(bytes);
    EXPECT_EQ(watchFrom(5), CONSISTENCY_ERROR);
    EXPECT_EQ(watchFrom(6), CONSISTENCY_ERROR);
    EXPECT_EQ(record.events, Events{});
    EXPECT_EQ(watchFrom(7), NO_ERROR) << "the footer says that it is not in that block";
    EXPECT_EQ(record.deliveries(), numbered(7, LAST));
}

TEST_F(WatchOfADamagedTable, BehindAFullBlockWithALengthWordOf0BeginsAtItsStartingId) {
    for (const std::size_t block : {1U, 2U, 3U}) {
        Bytes bytes = whole;
        zero(&bytes, blockStart(block), LENGTH_WORD);
        place(bytes);
        for (std::int32_t id = 1; id <= LAST; ++id) {
            EXPECT_EQ(watchFrom(id), NO_ERROR) << "from " << id << " with block " << block;
            EXPECT_EQ(record.deliveries(), numbered(id, LAST)) << "from " << id << " with block " << block;
        }
    }
}

}  // namespace
}  // namespace tabulo::internal::test
