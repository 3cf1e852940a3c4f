// What tells that an index belongs to what a table holds now.
#include "index/table_identity.h"

#include "messagetable/message_table.h"
#include "tests/messagetable/table_image.h"
#include "tests/support/fault_platform.h"

namespace tabulo::internal::test {
namespace {

class TableIdentity : public TableImageTest {
  protected:
    // Of a file of these bytes, whose header need not be sound.
    std::optional<std::uint64_t> of(const Bytes& bytes) {
        if (table == nullptr) {
            place(image);
            open(OpenMode::read);
        }
        writeFile(path(), bytes);
        return tableIdentity_read(tableStorage_master(mt_storage(table.get())), headerEnd());
    }
    std::optional<std::uint64_t> footerOf(const Bytes& bytes, std::int64_t end) {
        static_cast<void>(of(bytes));
        return footerChecksum_read(tableStorage_master(mt_storage(table.get())), end, footerSize());
    }
    std::int64_t headerEnd() const { return static_cast<std::int64_t>(map.headerSize); }
    std::int32_t footerSize() const { return static_cast<std::int32_t>(map.footerSize); }
    static Bytes changed(Bytes bytes, std::size_t at) {
        bytes.at(at) ^= 1;
        return bytes;
    }

    const std::vector<Message> messages = simpleMessages(1, 9, shape);
    const Bytes image = closedImage(shape, messages);
    const TableMap map = mapOf(shape, messages);
};

TEST_F(TableIdentity, IsThatOfTheHeaderAndTheFirstFrame) {
    const std::optional<std::uint64_t> identity = of(image);
    ASSERT_TRUE(identity.has_value());
    for (std::size_t at = 0; at < map.frame(2).end; ++at) {
        const bool isHeader = at < map.tail();
        const bool isFirstFrame = at >= map.frame(1).start && at < map.frame(1).end;
        EXPECT_EQ(of(changed(image, at)) != identity, isHeader || isFirstFrame) << "with byte " << at << " changed";
    }
}

TEST_F(TableIdentity, DoesNotChangeWhileTheTableGrows) {
    const std::optional<std::uint64_t> identity = of(image);
    EXPECT_EQ(of(closedImage(shape, simpleMessages(1, 1, shape))), identity);
    EXPECT_EQ(of(unclosedImage(shape, simpleMessages(1, 30, shape))), identity);
}

TEST_F(TableIdentity, OfAFileWithoutAWholeFrameHeadIsNone) {
    for (std::size_t size = 0; size < map.frame(1).start + 4; ++size) {
        EXPECT_FALSE(of(cutAt(image, size)).has_value()) << size << " bytes";
    }
    EXPECT_FALSE(of(closedImage(shape, {})).has_value()) << "a table without a message";
}

TEST_F(TableIdentity, IsReadWithOneCallAndNoneWhenItIsRefused) {
    static_cast<void>(of(image));
    FaultPlatform platform;
    EXPECT_TRUE(of(image).has_value());
    EXPECT_EQ(platform.count(FileCall::readAt), 1);
    platform.failAll(FileCall::readAt, EIO);
    EXPECT_FALSE(of(image).has_value());
    EXPECT_FALSE(footerOf(image, headerEnd() + 5000).has_value());
}

TEST_F(TableIdentity, OfAFrameWhoseLengthIsDamagedReadsNothingBehindTheFile) {
    for (const std::uint32_t length : {0U, 1U, 0x7FFF'FFFFU, 0xFFFF'FFFFU}) {
        Bytes damaged = image;
        putU32(&damaged, map.frame(1).start, length);
        EXPECT_NE(of(damaged), of(image)) << length;
    }
}

TEST_F(TableIdentity, AFootersChecksumIsThatOfAllItsBytesAndOfNoOther) {
    const std::size_t end = map.blockStarts.at(1);
    const std::size_t start = end - map.footerSize;
    const auto at = static_cast<std::int64_t>(end);
    const std::optional<std::uint64_t> sum = footerOf(image, at);
    ASSERT_TRUE(sum.has_value());
    for (std::size_t i = start - 3; i < end + 3; i += i < start + 100 || i + 100 > end ? 1 : 37) {
        EXPECT_EQ(footerOf(changed(image, i), at) != sum, i >= start && i < end) << "with byte " << i << " changed";
    }
}

TEST_F(TableIdentity, AFooterThatIsNotWhollyThereHasNoChecksum) {
    EXPECT_FALSE(footerOf(image, 0).has_value());
    EXPECT_FALSE(footerOf(image, footerSize() - 1).has_value());
    EXPECT_FALSE(footerOf(image, static_cast<std::int64_t>(image.size()) + 1).has_value());
    EXPECT_FALSE(footerOf(image, INT64_MAX).has_value());
}

}  // namespace
}  // namespace tabulo::internal::test
