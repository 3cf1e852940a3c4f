// Building and asking a side index when the system refuses a call, and without memory: nothing is kept that should have
// been given back, queries answer as without an index, and the next builder goes on.
#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <filesystem>
#include <new>
#include <optional>

#include "core/log.h"
#include "index/index_builder.h"
#include "index/side_index.h"
#include "index/uniform_lookup.h"
#include "query/message_read.h"
#include "query/message_table_iterator.h"
#include "tests/faults/resources.h"
#include "tests/messagetable/table_image.h"
#include "tests/support/allocation_failure.h"
#include "tests/support/test_run.h"

namespace tabulo::internal::test {
namespace {

constexpr std::int32_t MESSAGES = 90;  // 22 closed blocks and an open one
constexpr int MOST_FAULTS = 5000;

// While it lives, the n-th call to the system fails, or with `goesOn` all from it on; of all calls, or of those that
// concern the file of an index alone. A close that fails still closes.
class RefusedCall {
  public:
    RefusedCall(int n, bool goesOn, bool indexAlone, int error) {
        left_ = n;
        goesOn_ = goesOn;
        indexAlone_ = indexAlone;
        error_ = error;
        met_ = false;
        platform_ = filePlatform_system();
        platform_.open = [](const char* path, FileAccess access, int* descriptor) {
            const bool isIndex = std::string_view(path).find(INDEX_SUFFIX) != std::string_view::npos;
            const SystemError result =
                refuses(isIndex) ? failure() : filePlatform_system().open(path, access, descriptor);
            if (!result.failed()) {
                ofIndex_.at(static_cast<std::size_t>(*descriptor)) = isIndex;
            }
            return result;
        };
        platform_.lock = [](int d) { return refuses(isIndex(d)) ? failure() : filePlatform_system().lock(d); };
        platform_.readAt = [](int d, void* buffer, std::size_t length, std::int64_t offset, std::size_t* count) {
            *count = 0;
            return refuses(isIndex(d)) ? failure() : filePlatform_system().readAt(d, buffer, length, offset, count);
        };
        platform_.writeAt = [](int d, const void* bytes, std::size_t length, std::int64_t offset, std::size_t* count) {
            *count = 0;
            return refuses(isIndex(d)) ? failure() : filePlatform_system().writeAt(d, bytes, length, offset, count);
        };
        platform_.truncate = [](int d, std::int64_t length) {
            return refuses(isIndex(d)) ? failure() : filePlatform_system().truncate(d, length);
        };
        platform_.size = [](int d, std::int64_t* size) {
            return refuses(isIndex(d)) ? failure() : filePlatform_system().size(d, size);
        };
        platform_.isAt = [](int d, const char* path, bool* same) {
            return refuses(isIndex(d)) ? failure() : filePlatform_system().isAt(d, path, same);
        };
        platform_.rename = [](const char* from, const char* to) {
            return refuses(true) ? failure() : filePlatform_system().rename(from, to);
        };
        platform_.close = [](int d) {
            const bool refused = refuses(isIndex(d));
            const SystemError closed = filePlatform_system().close(d);
            return refused ? failure() : closed;
        };
        previous_ = filePlatform_install(&platform_);
    }
    ~RefusedCall() { filePlatform_install(previous_); }
    RefusedCall(const RefusedCall&) = delete;
    RefusedCall& operator=(const RefusedCall&) = delete;

    static bool isMet() { return met_; }

  private:
    static bool isIndex(int descriptor) { return ofIndex_.at(static_cast<std::size_t>(descriptor)); }
    static bool refuses(bool isIndex) {
        if (indexAlone_ && !isIndex) {
            return false;
        }
        left_ -= 1;
        const bool refused = left_ == 0 || (goesOn_ && left_ < 0);
        met_ = met_ || refused;
        return refused;
    }
    static SystemError failure() {
        errno = error_;
        return error_;
    }

    static inline int left_ = 0;
    static inline int error_ = 0;
    static inline bool goesOn_ = false;
    static inline bool indexAlone_ = false;
    static inline bool met_ = false;
    static inline std::array<bool, 4096> ofIndex_{};
    FilePlatform platform_{};
    const FilePlatform* previous_ = nullptr;
};

// Room is made before: while allocations fail nothing but the library may allocate.
using Ids = std::vector<std::int32_t>;

ErrorCode addIds(MessageTable* table, QueryConditionsPtr conditions, Ids* ids) {
    const MessageTableIteratorPtr iterator(mtIterator_open(table, conditions.release()));
    bool end = false;
    ErrorCode code = iterator == nullptr ? OUT_OF_MEMORY_ERROR : NO_ERROR;
    while (code == NO_ERROR && !end) {
        code = mtIterator_next(iterator.get(), &end);
        if (code == NO_ERROR && !end) {
            ids->push_back(mtIterator_getMetadata(iterator.get()).uniformId);
        }
    }
    return code;
}

ErrorCode askText(MessageTable* table, bool backward, Ids* ids) {
    QueryConditionsPtr conditions(conditions_create());
    if (conditions == nullptr) {
        return OUT_OF_MEMORY_ERROR;
    }
    ErrorCode code = conditions_setIterateBackward(conditions.get(), backward);
    code = code == NO_ERROR ? conditions_addStringFilter(conditions.get(), 0, false, false) : code;
    code = code == NO_ERROR ? conditions_setStringFilterValueCount(conditions.get(), 2) : code;
    code = code == NO_ERROR ? conditions_setStringFilterValue(conditions.get(), "f0-17", 0) : code;
    code = code == NO_ERROR ? conditions_setStringFilterValue(conditions.get(), "f0-61", 1) : code;
    return code == NO_ERROR ? addIds(table, std::move(conditions), ids) : code;
}

ErrorCode askRange(MessageTable* table, bool backward, Ids* ids) {
    QueryConditionsPtr conditions(conditions_create());
    if (conditions == nullptr) {
        return OUT_OF_MEMORY_ERROR;
    }
    ErrorCode code = conditions_setIterateBackward(conditions.get(), backward);
    code = code == NO_ERROR ? conditions_setSeqNumRange(conditions.get(), 30, 35) : code;
    return code == NO_ERROR ? addIds(table, std::move(conditions), ids) : code;
}

ErrorCode readIds(MessageTable* table, Ids* ids) {
    constexpr std::array<std::int32_t, 3> wanted = {5, 44, 89};
    const MessageListener listener{ids,
                                   [](void* owner, const MessageView& message, Visit*) {
                                       static_cast<Ids*>(owner)->push_back(message.metadata.uniformId);
                                       return NO_ERROR;
                                   },
                                   [](void*, ErrorCode code) { return code; }};
    return mt_readMessages(table, wanted.data(), 3, &listener, false);
}

ErrorCode findIds(MessageTable* table, Ids* ids) {
    for (const std::int32_t id : {3, 52, 90, 91}) {
        UniformPlace place;
        const ErrorCode code = mt_findUniformId(table, id, &place);
        if (code != NO_ERROR) {
            return code;
        }
        ids->push_back(static_cast<std::int32_t>(place.ordinal));
    }
    return NO_ERROR;
}

// All that an index can answer.
ErrorCode ask(MessageTable* table, Ids* ids) {
    ErrorCode code = NO_ERROR;
    for (const bool backward : {false, true}) {
        code = code == NO_ERROR ? askText(table, backward, ids) : code;
        code = code == NO_ERROR ? askRange(table, backward, ids) : code;
    }
    code = code == NO_ERROR ? readIds(table, ids) : code;
    return code == NO_ERROR ? findIds(table, ids) : code;
}

const Ids ANSWERS = {17, 61, 30, 31, 32, 33, 34, 35, 61, 17, 35, 34, 33, 32, 31, 30, 5, 44, 89, 2, 51, 89, 90};

ErrorCode build(const std::string& path, MessageTable* table) {
    try {
        IndexBuilder builder(path, mt_layout(table));
        ErrorCode code = builder.open();
        code = code == NO_ERROR ? builder.update(table, 1, {}) : code;
        return code == NO_ERROR ? builder.merge() : code;
    } catch (const std::bad_alloc&) {
        return OUT_OF_MEMORY_ERROR;
    }
}

// What a builder finds.
enum class Before { nothing, fewBlocks, manyRuns, garbage };

class IndexFaults : public TableImageTest, public ::testing::WithParamInterface<Before> {
  protected:
    void SetUp() override {
        shape.stringNames = {"Symbol"};
        open(OpenMode::create);
        makeIndex();
        index = GetParam() == Before::nothing ? Bytes{} : readFile(indexPath());
        ASSERT_EQ(mt_close(table.get()), NO_ERROR);
        table.reset();
        log_setFacility(nullptr);  // what it would keep is no memory that is lost
    }
    // Runs of two blocks; the same twice leaves one of them as garbage when they are merged in between.
    void makeIndex() {
        std::optional<IndexBuilder> builder;
        builder.emplace(path(), mt_layout(table.get()));
        const std::int32_t last = GetParam() == Before::fewBlocks ? 20 : MESSAGES - 10;
        for (std::int32_t n = 1; n <= MESSAGES; ++n) {
            ASSERT_EQ(writeSimple(n, n), NO_ERROR);
            if (n % (2 * shape.messagesPerBlock) == 1 && n > 8 && n <= last && GetParam() != Before::nothing) {
                ASSERT_EQ(builder->open(), NO_ERROR);
                ASSERT_EQ(builder->update(table.get(), 1, {}), NO_ERROR);
                if (GetParam() == Before::garbage && n < MESSAGES / 2) {
                    ASSERT_EQ(builder->merge(), NO_ERROR);
                }
                builder.emplace(path(), mt_layout(table.get()));
            }
        }
    }
    std::string indexPath() const { return path() + std::string(INDEX_SUFFIX); }
    void placeIndex() const {
        std::filesystem::remove(path() + std::string(INDEX_NEW_SUFFIX));
        std::filesystem::remove(indexPath());
        if (!index.empty()) {
            writeFile(indexPath(), index);
        }
    }
    MessageTablePtr openReader() const { return openTable(directory.root(), OpenMode::read, shape); }

    void expectAnswers() const {
        const MessageTablePtr reader = openReader();
        Ids ids;
        EXPECT_EQ(ask(reader.get(), &ids), NO_ERROR);
        EXPECT_EQ(ids, ANSWERS);
    }
    void expectGoesOn() const {
        expectAnswers();
        const MessageTablePtr reader = openReader();
        EXPECT_EQ(build(path(), reader.get()), NO_ERROR) << "the next builder fails";
        const auto built = sideIndex_of(reader.get(), tableStorage_master(mt_storage(reader.get())));
        ASSERT_NE(built, nullptr) << "the next builder leaves nothing";
        EXPECT_EQ(built->blocks(), static_cast<std::uint32_t>(MESSAGES / shape.messagesPerBlock));
        expectAnswers();
    }
    // Something was done under a fault: what must be given back was.
    class Resources {
      public:
        void expectGivenBack(int failures) const {
            EXPECT_EQ(openDescriptors(), descriptors_) << "descriptors stay open";
            if (failureCount() == failures) {
                EXPECT_EQ(liveAllocations(), allocations_) << "memory is not freed";
            }
        }

      private:
        std::ptrdiff_t descriptors_ = openDescriptors();
        std::int64_t allocations_ = liveAllocations();
    };

    // The builder without its n-th call; false when it makes fewer.
    bool buildRefused(int n, bool goesOn, int error) const {
        placeIndex();
        bool met = false;
        {
            const MessageTablePtr reader = openReader();
            const Resources resources;
            const int failures = failureCount();
            {
                const RefusedCall refused(n, goesOn, false, error);
                const ErrorCode code = build(path(), reader.get());
                met = RefusedCall::isMet();
                EXPECT_TRUE(met || code == NO_ERROR) << getErrorMessage(code);
                EXPECT_NE(code, SIGNATURE_ERROR) << "the file is said to be no index";
                EXPECT_NE(code, OUT_OF_MEMORY_ERROR);
            }
            resources.expectGivenBack(failures);
        }
        expectGoesOn();
        return met;
    }
    bool askRefused(int n, bool goesOn) const {
        const Resources resources;
        const int failures = failureCount();
        bool met = false;
        {
            const MessageTablePtr reader = openReader();
            Ids ids;
            const RefusedCall refused(n, goesOn, true, EIO);
            EXPECT_EQ(ask(reader.get(), &ids), NO_ERROR);
            EXPECT_EQ(ids, ANSWERS);
            met = RefusedCall::isMet();
        }
        resources.expectGivenBack(failures);
        return met;
    }
    // Without the n-th allocation.
    bool buildWithoutMemory(int n, bool goesOn) const {
        placeIndex();
        bool happened = false;
        {
            const MessageTablePtr reader = openReader();
            const std::string where = path();
            const Resources resources;
            const int failures = failureCount();
            ErrorCode code = NO_ERROR;
            {
                const AllocationFailure failure(n, goesOn);
                code = build(where, reader.get());
                happened = failure.happened();
            }
            EXPECT_TRUE(code == NO_ERROR || (happened && code == OUT_OF_MEMORY_ERROR)) << getErrorMessage(code);
            resources.expectGivenBack(failures);
        }
        expectGoesOn();
        return happened;
    }
    bool askWithoutMemory(int n, bool goesOn) const {
        const Resources resources;
        const int failures = failureCount();
        bool happened = false;
        {
            const MessageTablePtr reader = openReader();
            Ids ids;
            ids.reserve(100);
            ErrorCode code = NO_ERROR;
            {
                const AllocationFailure failure(n, goesOn);
                code = ask(reader.get(), &ids);
                happened = failure.happened();
            }
            EXPECT_TRUE(code == NO_ERROR || (happened && code == OUT_OF_MEMORY_ERROR)) << getErrorMessage(code);
            const bool isPart = ids.size() <= ANSWERS.size() && std::equal(ids.begin(), ids.end(), ANSWERS.begin());
            EXPECT_TRUE(code == NO_ERROR ? ids == ANSWERS : isPart) << ::testing::PrintToString(ids);
            ids.clear();
            EXPECT_EQ(ask(reader.get(), &ids), NO_ERROR);
            EXPECT_EQ(ids, ANSWERS) << "with memory again";
        }
        resources.expectGivenBack(failures);
        return happened;
    }

    // From 1 on until it is not met any more; how many were.
    template <typename Fault>
    void forEach(const char* what, Fault fault) {
        int n = 1;
        for (; n < MOST_FAULTS && !HasFailure(); ++n) {
            SCOPED_TRACE(std::string(what) + " " + std::to_string(n));
            if (!fault(n)) {
                break;
            }
        }
        EXPECT_GT(n, 1) << "no fault was met";
        reportFigure("faults", "fault points covered", n - 1);
    }

    Bytes index;
};

TEST_P(IndexFaults, ABuilderWhoseCallsAreRefusedLeavesAnIndexThatTheNextOneGoesOnWith) {
    for (const int error : {EIO, ENOSPC}) {
        forEach("without call", [&](int n) { return buildRefused(n, false, error); });
        forEach("without any call from", [&](int n) { return buildRefused(n, true, error); });
    }
}

TEST_P(IndexFaults, ABuilderWithoutMemoryLeavesAnIndexThatTheNextOneGoesOnWith) {
    forEach("without allocation", [&](int n) { return buildWithoutMemory(n, false); });
    forEach("without any allocation from", [&](int n) { return buildWithoutMemory(n, true); });
}

TEST_P(IndexFaults, QueriesAnswerWhenTheIndexCannotBeRead) {
    placeIndex();
    forEach("without call", [&](int n) { return askRefused(n, false); });
    forEach("without any call from", [&](int n) { return askRefused(n, true); });
}

TEST_P(IndexFaults, QueriesWithoutMemoryFailOrAnswer) {
    placeIndex();
    forEach("without allocation", [&](int n) { return askWithoutMemory(n, false); });
    forEach("without any allocation from", [&](int n) { return askWithoutMemory(n, true); });
}

std::string nameOf(const ::testing::TestParamInfo<Before>& info) {
    constexpr std::array<const char*, 4> names = {"NoIndex", "AnIndexOfFewBlocks", "AnIndexOfManyRuns",
                                                  "AnIndexWithGarbage"};
    return names.at(static_cast<std::size_t>(info.param));
}

INSTANTIATE_TEST_SUITE_P(Beside, IndexFaults,
                         ::testing::Values(Before::nothing, Before::fewBlocks, Before::manyRuns, Before::garbage),
                         nameOf);

}  // namespace
}  // namespace tabulo::internal::test
