#include "tests/index/indexed_table.h"

#include <algorithm>
#include <filesystem>
#include <stdexcept>

namespace tabulo::internal::test {

namespace {

constexpr std::int32_t SYMBOLS = 7;
constexpr std::size_t CL_ORD_ID = 2;  // behind the two built-in texts that lead
constexpr std::size_t SYMBOL = 3;

std::string clOrdIdOf(char mark, std::int32_t n) {
    const std::string digits = std::to_string(n);
    return mark + std::string(6 - digits.size(), '0') + digits;
}

}  // namespace

std::size_t openDescriptors() {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

std::vector<Bytes> runContents(const Bytes& index, const IndexSlot& slot) {
    std::vector<Bytes> contents;
    for (const IndexRun& run : slot.runs) {
        for (std::uint32_t page = 0; page < run.pages; ++page) {
            const std::size_t start = (std::size_t{run.firstPage} + page) * INDEX_PAGE_SIZE;
            contents.push_back(slice(index, start + INDEX_PAGE_CONTENT, start + INDEX_PAGE_SIZE));
        }
    }
    return contents;
}

IndexedTableTest::IndexedTableTest() {
    shape.messagesPerBlock = 4;
    shape.stringNames = {"ClOrdID", "Symbol"};
    begin("orders");
}

void IndexedTableTest::begin(const std::string& name) {
    shape.name = name;
    written = 0;
    writer = openTable(directory.root(), OpenMode::create, shape);
}

Message IndexedTableTest::messageOf(std::int32_t n) const {
    Message message = simpleMessage(n, shape);
    message.strings[CL_ORD_ID] = clOrdIdOf(mark, n) + '\0';
    message.strings[SYMBOL] = std::string("SYM") + static_cast<char>('0' + n % SYMBOLS) + '\0';
    return message;
}

void IndexedTableTest::write(std::int32_t first, std::int32_t last) {
    for (std::int32_t n = first; n <= last; ++n) {
        ASSERT_EQ(writeMessage(writer.get(), messageOf(n)), NO_ERROR);
    }
    written = last;
}

void IndexedTableTest::writeBlocks(std::int32_t count) {
    write(written + 1, written + count * shape.messagesPerBlock);
}

std::unique_ptr<IndexBuilder> IndexedTableTest::newBuilder() const {
    return std::make_unique<IndexBuilder>(path(), mt_layout(writer.get()));
}

std::unique_ptr<IndexBuilder> IndexedTableTest::openBuilder() const {
    auto builder = newBuilder();
    const ErrorCode code = builder->open();
    if (code != NO_ERROR) {
        throw std::runtime_error(std::string("no builder: ") + getErrorMessage(code));
    }
    return builder;
}

ErrorCode IndexedTableTest::update(IndexBuilder* builder, std::uint32_t fewest) const {
    const MessageTablePtr table = openReader();
    return builder->update(table.get(), fewest, {});
}

void IndexedTableTest::build(bool isBlockByBlock) {
    const auto builder = openBuilder();
    const MessageTablePtr table = openReader();
    std::uint32_t blocks = 0;
    do {
        blocks = builder->slot().coveredBlocks;
        std::int64_t start = -1;  // of the first block that is not covered
        struct Stop {
            std::int64_t* start;
            bool single;
        } stop{&start, isBlockByBlock};
        const IndexProgress progress{&stop, [](void* owner, std::int64_t offset, std::int64_t) {
                                         const auto* asked = static_cast<Stop*>(owner);
                                         *asked->start = *asked->start < 0 ? offset : *asked->start;
                                         return !asked->single || *asked->start == offset;
                                     }};
        ASSERT_EQ(builder->update(table.get(), 1, progress), NO_ERROR);
    } while (builder->slot().coveredBlocks > blocks);
}

std::shared_ptr<SideIndex> IndexedTableTest::index(MessageTable* table) const {
    return sideIndex_of(table, tableStorage_master(mt_storage(table)));
}

std::uint32_t IndexedTableTest::covered() const {
    const MessageTablePtr table = openReader();
    const auto found = index(table.get());
    return found == nullptr ? 0 : found->blocks();
}

std::string IndexedTableTest::indexFault(std::int32_t last, bool maySayNothing) const {
    const MessageTablePtr table = openReader();
    const auto found = index(table.get());
    if (found == nullptr) {
        return maySayNothing ? "" : "no index is used";
    }
    const std::int32_t messages = std::min(last, static_cast<std::int32_t>(found->messages()));
    std::vector<std::uint32_t> numbers;
    // The messages with one key; the texts of these tests have keys of their own.
    const auto fault = [&](std::uint32_t part, std::uint32_t key, std::int32_t first, std::int32_t step) {
        if (!found->collect(part, std::vector<KeyRange>{{key, key}}, 1'000'000, &numbers)) {
            return std::string(maySayNothing ? "" : "part " + std::to_string(part) + " tells nothing");
        }
        std::vector<std::uint32_t> expected;
        for (std::int32_t n = first; n <= messages && first > 0; n += step) {
            expected.push_back(static_cast<std::uint32_t>(n - 1));
        }
        return numbers == expected
                   ? std::string()
                   : "part " + std::to_string(part) + " tells " + std::to_string(numbers.size()) +
                         " messages for number " + std::to_string(first) + ", not " + std::to_string(expected.size());
    };
    std::string wrong;
    for (std::int32_t n = 1; n <= messages && wrong.empty(); ++n) {
        wrong += fault(UNIFORM_ID_PART, keyOf(n), n, last);
        wrong += fault(CONN_MSG_ID_PART, keyOf(n), n, last);
        wrong += fault(FIRST_TEXT_PART + CL_ORD_ID, keyOf(clOrdIdOf(mark, n)), n, last);
    }
    for (std::int32_t n = 1; n <= SYMBOLS && wrong.empty(); ++n) {
        wrong += fault(FIRST_TEXT_PART + SYMBOL, keyOf("SYM" + std::to_string(n % SYMBOLS)), n, SYMBOLS);
    }
    wrong += fault(UNIFORM_ID_PART, keyOf(last + 1), 0, 1);
    wrong += fault(FIRST_TEXT_PART + CL_ORD_ID, keyOf(clOrdIdOf('?', 1)), 0, 1);
    const Bytes file = readFile(path());
    for (std::uint32_t i = 0; i < found->blocks() && wrong.empty(); ++i) {
        IndexedBlock block;
        if (!found->read(i, &block)) {
            wrong = maySayNothing ? "" : "block " + std::to_string(i) + " is not told";
            continue;
        }
        const auto firstId = static_cast<std::int32_t>(i) * shape.messagesPerBlock + 1;
        const bool isRight =
            u64At(file, static_cast<std::size_t>(block.start)) == static_cast<std::uint64_t>(block.length) &&
            block.minimum.uniformId == firstId && block.maximum.uniformId == firstId + shape.messagesPerBlock - 1 &&
            block.uniformIdsAscend;
        wrong = isRight ? "" : "block " + std::to_string(i) + " is told wrongly";
    }
    return wrong;
}

}  // namespace tabulo::internal::test
