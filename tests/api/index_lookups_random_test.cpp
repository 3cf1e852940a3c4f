// Whatever stands in the file of a table's side index, look-ups of single messages answer as without one, and so do
// queries of a table that was recovered since.
#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>

#include "api/open_table.h"
#include "index/side_index.h"
#include "index/uniform_lookup.h"
#include "query/message_read.h"
#include "tabulo/index.h"
#include "tests/api/indexed_table.h"
#include "tests/support/test_run.h"

namespace tabulo::test {
namespace {

using internal::test::testEffort;
using internal::test::testSeed;

constexpr int tablesPerRun = 80;
constexpr int lookupsPerContent = 8;

// The uniform ids and numbers in sequence that a reading by id delivers.
using Delivered = std::vector<std::pair<std::int32_t, std::int32_t>>;

class IndexRandomLookups : public ::testing::Test {
  protected:
    void begin(std::uint32_t seed, int number) {
        trace = "table " + std::to_string(number) + " of a run with " + internal::test::TEST_SEED_VARIABLE + "=" +
                std::to_string(seed);
        random.emplace(seed + static_cast<std::uint32_t>(number) * 7919U);
        indexed.reset();
        indexed = std::make_unique<IndexedTable>(*random, directory, number);
    }
    const StoredTable& table() const { return indexed->table; }
    const StoredMessage& someMessage() { return random->of(table().messages); }

    void openTable() {
        const api::Call call(indexed->path());
        api::StoredHeader header;
        open = api::openTable_asStored(call, indexed->path().string(), &header);
        reader.emplace(indexed->path());
    }

    void findUniformId() {
        const std::int64_t near = std::int64_t{someMessage().uniformId} + random->between(-1, 1);
        const auto id =
            static_cast<std::int32_t>(random->percent(95) ? std::clamp<std::int64_t>(near, INT32_MIN, INT32_MAX)
                                                          : random->between(-1'000'000'000, 1'000'000'000));
        SCOPED_TRACE("uniform id " + std::to_string(id));
        const auto found = std::ranges::find_if(table().messages, [=](const auto& m) { return m.uniformId >= id; });
        const auto number = static_cast<std::size_t>(found - table().messages.begin());
        internal::UniformPlace place;
        ASSERT_EQ(internal::mt_findUniformId(open.get(), id, &place), internal::NO_ERROR);
        EXPECT_EQ(place.ordinal, static_cast<std::int64_t>(number));
        EXPECT_EQ(place.frame.block, table().place(number).block);
        EXPECT_EQ(place.frame.frame, table().place(number).offset);
        EXPECT_EQ(reader->positionOfUniformId(id), table().place(number));
    }

    void readMessages() {
        std::vector<std::int32_t> ids;
        for (std::int32_t n = random->between(1, 4); n > 0; --n) {
            ids.push_back(someMessage().id + (random->percent(80) ? 0 : random->between(-1, 1)));
        }
        const bool backward = random->percent(30);
        Delivered expected;
        for (const StoredMessage& message : table().messages) {
            if (classOf(message.id).has_value() && std::ranges::count(ids, message.id) > 0) {
                expected.emplace_back(message.uniformId, message.seqNum);
            }
        }
        if (backward) {
            std::ranges::reverse(expected);
        }
        Delivered delivered;
        const internal::MessageListener listener{
            &delivered,
            [](void* owner, const internal::MessageView& message, internal::Visit*) {
                static_cast<Delivered*>(owner)->emplace_back(message.metadata.uniformId, message.metadata.seqNum);
                return internal::NO_ERROR;
            },
            [](void*, internal::ErrorCode code) { return code; }};
        ASSERT_EQ(internal::mt_readMessages(open.get(), ids.data(), static_cast<std::int32_t>(ids.size()), &listener,
                                            backward),
                  internal::NO_ERROR);
        EXPECT_EQ(delivered, expected) << "the messages with id " << ids[0] << (backward ? " backward" : " forward");
    }

    void findNumber() {
        const auto count = static_cast<std::int32_t>(table().count());
        const std::int32_t number = random->between(0, count + 2);
        const std::optional<Position> found = reader->positionOf(number);
        const auto index = static_cast<std::size_t>(number);
        EXPECT_EQ(found, number < count ? std::optional(table().place(index)) : std::nullopt) << "message " << number;
    }

    void lookUp(IndexContent content) {
        SCOPED_TRACE(indexContentName(content));
        placeIndex(*random, indexed->path(), indexBytes(*random, content, indexed->images));
        for (int i = 0; i < lookupsPerContent && !HasFailure(); ++i) {
            findUniformId();
            readMessages();
            findNumber();
            lookups += 3;
        }
        const auto used = internal::sideIndex_of(open.get(), api::openTable_file(open.get()));
        pagesRead += used == nullptr ? 0 : used->pagesRead();
        if (random->percent(20)) {
            indexed->store(*random, random->between(1, 9));
        }
    }

    const TemporaryDirectory directory;
    std::string trace;
    std::optional<Random> random;
    std::unique_ptr<IndexedTable> indexed;
    internal::MessageTablePtr open;
    std::optional<Reader> reader;
    std::int64_t lookups = 0;
    std::int64_t pagesRead = 0;
};

TEST_F(IndexRandomLookups, AnswerAsWithoutWhateverTheIndexHolds) {
    const std::uint32_t seed = testSeed();
    for (int number = 0; number < tablesPerRun * testEffort() && !HasFailure(); ++number) {
        begin(seed, number);
        SCOPED_TRACE(trace);
        openTable();
        for (int i = 0; i < indexContentCount && !HasFailure(); ++i) {
            lookUp(static_cast<IndexContent>((i * 7 + 1) % indexContentCount));
        }
        indexed->refill(*random);
        lookUp(IndexContent::older);
        lookUp(IndexContent::mixed);
        std::filesystem::remove(indexed->path());
    }
    std::cout << lookups << " look-ups, " << pagesRead << " pages of an index read\n";
    EXPECT_GE(pagesRead, lookups / 20) << "the index is hardly ever used";
}

// What a walk has given, message by message, and how it ended.
std::vector<std::string> walked(Reader& reader, const Query& query) {
    std::vector<std::string> lines;
    try {
        Messages messages = reader.messages(query);
        while (const MessageView* message = messages.next()) {
            const auto frame = message->frame();
            lines.push_back(std::to_string(message->ordinal()) + " at " + std::to_string(message->position().block) +
                            ", " + std::to_string(message->position().offset) + " before " +
                            std::to_string(message->next().offset) + ": " +
                            std::string(reinterpret_cast<const char*>(frame.data()), frame.size()));
        }
        lines.push_back("ending " + std::to_string(static_cast<int>(messages.ending())));
    } catch (const Error& error) {
        lines.emplace_back(error.name());
    }
    return lines;
}

class IndexOfRecoveredTable : public IndexRandomLookups {
  protected:
    // A table as a process leaves it that dies, with an end that is cut or bytes that are lost, beside the index of
    // before; it is recovered, and filled again to where the index ended and beyond. False when it is not whole then.
    bool recover(const std::filesystem::path& path) {
        Bytes file = internal::test::readFile(indexed->path().string());
        const auto header = static_cast<std::size_t>(table().place(0).block);
        const std::size_t hit = header + static_cast<std::size_t>(random->bits()) % (file.size() - header);
        if (random->percent(60)) {
            file.resize(hit);
        } else {
            std::fill(file.begin() + static_cast<std::ptrdiff_t>(hit), file.end(), std::uint8_t{0});
        }
        internal::test::writeFile(path.string(), file);
        try {
            Writer writer = Writer::open(path);
            for (std::int32_t n = random->below(static_cast<std::int32_t>(table().count())); n > 0; --n) {
                writer.append(randomMessage(*random, table()).borrowed());
            }
            Reader plain(path);
            plain.useIndex(false);
            return walked(plain, Query()).back() == "ending 1";
        } catch (const Error&) {
            return false;
        }
    }
    void compareQueries(const std::filesystem::path& path) {
        Reader kept(path);
        Reader plain(path);
        plain.useIndex(false);
        for (int i = 0; i < 20 && !HasFailure(); ++i) {
            std::string fault;
            ModelQuery model;
            do {
                model = selectiveQuery(*random, table(), &fault);
            } while (model.from.has_value() || model.before.has_value());
            EXPECT_EQ(walked(kept, model.query), walked(plain, model.query)) << model.words;
            lookups += 1;
        }
    }
};

TEST_F(IndexOfRecoveredTable, IsNotTakenForTheOneThatItHasNow) {
    const std::uint32_t seed = testSeed();
    int recovered = 0;
    for (int number = 0; number < tablesPerRun * testEffort() && !HasFailure(); ++number) {
        begin(seed, number);
        SCOPED_TRACE(trace);
        for (int i = 0; i < 4 && !HasFailure(); ++i) {
            const std::filesystem::path path = directory.file("r" + std::to_string(number) + "-" + std::to_string(i));
            if (recover(path)) {
                recovered += 1;
                placeIndex(*random, path, indexBytes(*random, IndexContent::older, indexed->images));
                compareQueries(path);
            }
            std::filesystem::remove(path);
        }
    }
    std::cout << recovered << " recovered tables, " << lookups << " queries\n";
    EXPECT_GE(recovered, tablesPerRun) << "hardly any table is whole behind its recovery";
}

}  // namespace
}  // namespace tabulo::test
