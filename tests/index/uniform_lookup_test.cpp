// Where the lookup of a uniform id says that reading goes on.
#include "index/uniform_lookup.h"

#include <cerrno>
#include <filesystem>
#include <functional>
#include <limits>
#include <utility>

#include "tests/messagetable/table_image.h"
#include "tests/support/fault_platform.h"

namespace tabulo::internal::test {
namespace {

// What a lookup answered.
struct Place : UniformPlace {
    Place() : UniformPlace{-1, -1, -1} {}

    ErrorCode code = NO_ERROR;
};

class UniformLookup : public MessageTableTest {
  protected:
    // Creates the table with bare messages of these ids, and leaves a reader open.
    void fill(const std::vector<std::int32_t>& ids) {
        writer = openTable(directory.root(), OpenMode::create, shape);
        store(ids);
        open(OpenMode::read);
    }
    void store(const std::vector<std::int32_t>& ids) {
        for (const std::int32_t id : ids) {
            ASSERT_EQ(writeMessage(writer.get(), bareMessage(id, shape)), NO_ERROR);
            messages.push_back(bareMessage(id, shape));
        }
    }
    Place find(std::int32_t id) {
        Place place;
        place.code = mt_findUniformId(table.get(), id, &place);
        if (place.code != NO_ERROR) {
            EXPECT_TRUE(place.offset == -1 && place.ordinal == -1 && place.skip == -1) << "a failure answers no place";
        }
        return place;
    }
    // The lookup of `id` leads to the n-th message, counted from 1.
    void expectMessage(std::int32_t id, std::size_t n) {
        const TableMap map = mapOf(shape, messages);
        const Place place = find(id);
        ASSERT_EQ(place.code, NO_ERROR) << "looking for " << id << ": " << getErrorMessage(place.code);
        EXPECT_EQ(place.ordinal, static_cast<std::int64_t>(n) - 1) << "looking for " << id;
        EXPECT_EQ(place.offset + place.skip, static_cast<std::int64_t>(map.frame(n).start)) << "looking for " << id;
        const bool first = (n - 1) % static_cast<std::size_t>(shape.messagesPerBlock) == 0;
        EXPECT_TRUE(first ? place.skip == 8 || place.skip == footerSize() + 8 : place.skip == 0)
            << "looking for " << id << ": " << place.skip << " bytes separate message " << n << " from the one before";
    }
    std::int32_t footerSize() const { return mt_storage(table.get())->footerSize; }

    MessageTablePtr writer;
    std::vector<Message> messages;
};

TEST_F(UniformLookup, EveryIdLeadsToItsMessage) {
    fill({10, 20, 30, 40, 50, 60, 70, 80});
    for (std::int32_t n = 1; n <= 8; ++n) {
        expectMessage(10 * n, static_cast<std::size_t>(n));
    }
}

TEST_F(UniformLookup, AnIdThatNoMessageHasLeadsToTheFirstOneAboveIt) {
    fill({10, 20, 30, 40, 50, 60, 70, 80});
    for (std::int32_t n = 1; n <= 8; ++n) {
        expectMessage(10 * n - 9, static_cast<std::size_t>(n));
        expectMessage(10 * n - 1, static_cast<std::size_t>(n));
    }
}

TEST_F(UniformLookup, TheFirstMessageOfTheTableStandsBehindTheFirstLengthWord) {
    fill({10});
    const Place place = find(std::numeric_limits<std::int32_t>::min());
    EXPECT_EQ(place.offset, table->storage->headerSize);
    EXPECT_EQ(place.ordinal, 0);
    EXPECT_EQ(place.skip, 8);
}

TEST_F(UniformLookup, AnIdAboveAllLeadsToTheEndOfTheData) {
    fill({10, 20, 30, 40, 50});
    const Place place = find(51);
    EXPECT_EQ(place.code, NO_ERROR);
    EXPECT_EQ(place.offset, static_cast<std::int64_t>(fileBytes().size()));
    EXPECT_EQ(place.ordinal, 5);
    EXPECT_EQ(place.skip, 0);
    store({51});
    expectMessage(51, 6);
    EXPECT_EQ(find(51).offset, place.offset) << "the message came where the lookup pointed";
}

TEST_F(UniformLookup, TheEndBehindAClosedBlockIsTheStartOfTheNextOne) {
    fill({10, 20, 30});
    const auto size = static_cast<std::int64_t>(fileBytes().size());
    const Place place = find(31);
    EXPECT_EQ(place.code, NO_ERROR);
    EXPECT_EQ(place.ordinal, 3);
    EXPECT_EQ(place.offset + place.skip, size + 8) << "a length word precedes the next frame";
    store({31});
    expectMessage(31, 4);
}

TEST_F(UniformLookup, BehindAFullBlockWithoutItsFooterTheFooterIsSkipped) {
    messages = simpleMessages(1, 3, shape);
    writeFile(path(), footerlessImage(shape, messages));
    open(OpenMode::read);
    const Place place = find(4);
    EXPECT_EQ(place.code, NO_ERROR);
    EXPECT_EQ(place.ordinal, 3);
    EXPECT_EQ(place.offset, static_cast<std::int64_t>(mapOf(shape, messages).frame(3).end));
    EXPECT_EQ(place.skip, footerSize() + 8);
    const Place last = find(3);
    EXPECT_EQ(last.ordinal, 2);
    EXPECT_EQ(last.skip, 0);
}

TEST_F(UniformLookup, AnEmptyTableEndsWhereItBegins) {
    fill({});
    const Place place = find(1);
    EXPECT_EQ(place.code, NO_ERROR);
    EXPECT_EQ(place.offset, table->storage->headerSize);
    EXPECT_EQ(place.ordinal, 0);
    EXPECT_EQ(place.skip, 8);
}

TEST_F(UniformLookup, IdsThatAreNotSortedAreFoundInTheOrderOfTheFile) {
    fill({50, 10, 20, 15, 60, 5, 1, 2, 3, 70});
    expectMessage(1, 1);
    expectMessage(50, 1);
    expectMessage(51, 5);
    expectMessage(60, 5);
    expectMessage(61, 10);
}

TEST_F(UniformLookup, TheLargestIdOfABlockDecidesAlsoWhenItIsNotItsLast) {
    fill({1, 90, 2, 91, 3, 4, 92});
    expectMessage(5, 2);
    expectMessage(90, 2);
    expectMessage(91, 4);
    expectMessage(92, 7);
}

TEST_F(UniformLookup, IdsAreComparedWithTheirSign) {
    fill({-30, -20, -10, 0, 10});
    expectMessage(std::numeric_limits<std::int32_t>::min(), 1);
    expectMessage(-20, 2);
    expectMessage(-1, 4);
    expectMessage(1, 5);
    EXPECT_EQ(find(std::numeric_limits<std::int32_t>::max()).ordinal, 5);
}

TEST_F(UniformLookup, AHalfFrameIsNotThere) {
    fill({10, 20, 30, 40, 50});
    const Bytes whole = fileBytes();
    const std::size_t start = mapOf(shape, messages).frame(5).start;
    for (std::size_t size = start; size < whole.size(); ++size) {
        writeFile(path(), cutAt(whole, size));
        const Place place = find(50);
        ASSERT_EQ(place.code, NO_ERROR) << "cut at byte " << size;
        EXPECT_EQ(place.offset, static_cast<std::int64_t>(start)) << "cut at byte " << size;
        EXPECT_EQ(place.ordinal, 4) << "cut at byte " << size;
    }
}

TEST_F(UniformLookup, AnyRefusedReadIsAReadError) {
    fill({10, 20, 30, 40, 50});
    writeFile(path(), cutAt(fileBytes(), mapOf(shape, messages).frame(5).end - 1));  // the frames are looked at twice
    ASSERT_EQ(find(60).code, NO_ERROR);
    FaultPlatform platform;
    ASSERT_EQ(find(60).code, NO_ERROR);
    const int reads = platform.count(FileCall::readAt);
    ASSERT_GE(reads, 3);
    for (int n = 1; n <= reads; ++n) {
        platform.clear();
        platform.failNth(FileCall::readAt, n, EIO);
        EXPECT_EQ(find(60).code, FILE_READ_ERROR) << "read " << n << " of " << reads;
    }
}

// Runs something in front of the n-th read.
class ReadHook {
  public:
    ReadHook(int n, std::function<void()> action) {
        left = n;
        inFront = std::move(action);
        record = filePlatform();
        record.readAt = [](int descriptor, void* buffer, std::size_t length, std::int64_t offset, std::size_t* count) {
            if (--left == 0) {
                inFront();
            }
            return under->readAt(descriptor, buffer, length, offset, count);
        };
        under = filePlatform_install(&record);
    }
    ~ReadHook() { filePlatform_install(under); }
    ReadHook(const ReadHook&) = delete;
    ReadHook& operator=(const ReadHook&) = delete;

    static inline int left = 0;

  private:
    static inline FilePlatform record{};
    static inline const FilePlatform* under = nullptr;
    static inline std::function<void()> inFront;
};

TEST_F(UniformLookup, AnOpenBlockThatIsCutAwayMeanwhileHasNoMessageInFrontOfTheEnd) {
    fill({10, 20, 30, 40, 50});
    const TableMap map = mapOf(shape, messages);
    const Bytes image = cutAt(fileBytes(), map.frame(5).end - 1);
    bool isOver = false;
    for (int n = 1; !isOver; ++n) {
        writeFile(path(), image);
        const ReadHook hook(n, [&] { std::filesystem::resize_file(path(), map.openBlockStart); });
        const Place place = find(60);
        isOver = ReadHook::left > 0;
        const bool isBehindTheClosed = place.offset == static_cast<std::int64_t>(map.openBlockStart);
        EXPECT_TRUE(place.code != NO_ERROR || isBehindTheClosed || isOver) << "cut in front of read " << n;
        EXPECT_EQ(place.ordinal, isBehindTheClosed ? 3 : (isOver ? 4 : -1)) << "cut in front of read " << n;
    }
}

TEST_F(UniformLookup, TheViewIsRefreshedFirst) {
    fill({10});
    EXPECT_EQ(find(20).ordinal, 1);
    store({20, 30, 40, 50, 60, 70});
    expectMessage(20, 2);
    expectMessage(70, 7);
}

TEST_F(UniformLookup, AWritersOwnTableIsSearchedToo) {
    fill({10, 20, 30, 40, 50});
    table = std::move(writer);
    expectMessage(20, 2);
    expectMessage(50, 5);
}

TEST_F(UniformLookup, ADamagedFrameOnTheWayIsReported) {
    fill({10, 20});
    const std::size_t end = mapOf(shape, messages).frame(1).end;
    const Bytes wrong{1};
    patchFile(path(), end - 1, wrong);
    table.reset();
    open(OpenMode::read);
    EXPECT_EQ(find(20).code, CONSISTENCY_ERROR);
}

TEST_F(UniformLookup, ADamagedFooterIsReported) {
    fill({10, 20, 30, 40});
    const TableMap map = mapOf(shape, messages);
    const Bytes wrong{1};
    table.reset();
    patchFile(path(), map.openBlockStart - 1, wrong);
    table = createTable(directory.root(), shape);
    if (mt_open(table.get(), OpenMode::read) == NO_ERROR) {
        EXPECT_EQ(find(40).code, HEADER_CORRUPTED_ERROR);
    }
}

TEST_F(UniformLookup, WithoutAMasterThereIsNothingToSearch) {
    table = createTable(directory.root(), shape);
    EXPECT_EQ(find(1).code, MASTER_INACTIVE_ERROR);
}

TEST_F(UniformLookup, NullArgumentsAreRefused) {
    fill({10});
    UniformPlace place;
    EXPECT_EQ(mt_findUniformId(nullptr, 1, &place), NULL_POINTER_ERROR);
    EXPECT_EQ(mt_findUniformId(table.get(), 1, nullptr), NULL_POINTER_ERROR);
}

}  // namespace
}  // namespace tabulo::internal::test
