#include "tests/faults/memory_case.h"

#include <algorithm>

#include "tests/faults/resources.h"
#include "tests/support/allocation_failure.h"

namespace tabulo::internal::test {

namespace {

constexpr int MOST_FAILURES = 20;  // then a case is given up
constexpr std::uint64_t DIGEST_START = 14695981039346656037ULL;

std::uint64_t digest(std::uint64_t start, const void* bytes, std::size_t count) {
    const auto* byte = static_cast<const std::uint8_t*>(bytes);
    for (std::size_t i = 0; i < count; ++i) {
        start = (start ^ byte[i]) * 1099511628211ULL;
    }
    return start;
}

std::uint64_t digest(std::uint64_t start, std::int64_t number) {
    return digest(start, &number, sizeof(number));
}

using Files = std::map<std::string, Bytes>;

// The files, without copies that a repeated recovery has made of the same bytes again: "<copy>-1" beside "<copy>".
Files filesOf(const MemoryStage& stage) {
    Files files = filesIn(stage.run.directory);
    for (auto file = files.begin(); file != files.end();) {
        const auto first = files.find(file->first.substr(0, file->first.rfind('-')));
        const bool again = first != files.end() && first != file && first->first.find(".cut-") != std::string::npos &&
                           first->second == file->second;
        file = again ? files.erase(file) : std::next(file);
    }
    return files;
}

struct Undisturbed {
    Digests answer;
    Files files;
};

Undisturbed runUndisturbed(const MemoryCase& one) {
    Undisturbed undisturbed;
    MemoryStage stage;
    one.prepare(stage);
    EXPECT_EQ(one.operate(stage, &undisturbed.answer), NO_ERROR) << one.name << " with memory";
    undisturbed.files = filesOf(stage);
    return undisturbed;
}

// False when the operation needs fewer than n allocations.
bool expectSurvives(const MemoryCase& one, const Undisturbed& undisturbed, std::int64_t n, bool goesOn) {
    MemoryStage stage;
    one.prepare(stage);
    const Files before = filesOf(stage);
    Digests answer;
    ErrorCode code = NO_ERROR;
    bool happened = false;
    {
        const AllocationFailure failure = goesOn ? AllocationFailure::fromThenOn(n) : AllocationFailure(n);
        code = one.operate(stage, &answer);
        happened = failure.happened();
    }
    if (code == NO_ERROR) {
        EXPECT_TRUE(answer == undisturbed.answer) << "it succeeds with another answer";
    } else {
        EXPECT_TRUE(happened) << "it fails with memory: " << getErrorMessage(code);
        EXPECT_EQ(code, one.refusal) << getErrorMessage(code);
        EXPECT_FALSE(stage.halfChanged) << "it has changed something and then failed";
        EXPECT_FALSE(stage.misnamed) << "its Error names another file";
        EXPECT_TRUE(answer.startsLike(undisturbed.answer)) << "it delivers something wrong before it fails";
        if (one.leaves == Leaves::filesAsTheyWere) {
            EXPECT_TRUE(filesOf(stage) == before) << "it has changed files and then failed";
        }
        Digests again;
        const ErrorCode repeated = one.operate(stage, &again);
        EXPECT_EQ(repeated, NO_ERROR) << "the next attempt: " << getErrorMessage(repeated);
        EXPECT_TRUE(again == undisturbed.answer) << "the next attempt has another answer";
    }
    EXPECT_TRUE(filesOf(stage) == undisturbed.files) << "the files differ in the end";
    return happened;
}

}  // namespace

void Digests::add(std::string_view bytes) {
    items.at(count++) =
        digest(digest(DIGEST_START, static_cast<std::int64_t>(bytes.size())), bytes.data(), bytes.size());
}

void Digests::add(std::int64_t number) {
    items.at(count++) = digest(DIGEST_START, number);
}

void Digests::addMessage(const MessageView& message) {
    const MessageMetadata& metadata = message.metadata;
    std::uint64_t all = digest(DIGEST_START, metadata.msgType.data(), metadata.msgType.size());
    for (const std::int64_t number :
         {std::int64_t{metadata.uniformId}, std::int64_t{metadata.seqNum}, std::int64_t{metadata.prevSeqNum},
          std::int64_t{metadata.connMsgId}, metadata.timestamp, std::int64_t{metadata.isPossDupFlag},
          std::int64_t{metadata.isOutOfSequence}}) {
        all = digest(all, number);
    }
    for (const StringField& field : message.texts) {
        const std::string_view bytes = stringField_bytes(field);
        all = digest(digest(all, static_cast<std::int64_t>(bytes.size())), bytes.data(), bytes.size());
    }
    for (const NumericValue& number : message.numbers) {
        all = digest(digest(all, static_cast<std::int64_t>(number.type)), number.longValue);
    }
    items.at(count++) = all;
}

bool Digests::operator==(const Digests& other) const {
    return count == other.count && startsLike(other);
}

bool Digests::startsLike(const Digests& whole) const {
    return count <= whole.count &&
           std::equal(items.begin(), items.begin() + static_cast<std::ptrdiff_t>(count), whole.items.begin());
}

MemoryStage::~MemoryStage() {
    std::for_each(configs.begin(), configs.end(), tableConfig_destroy);
    std::for_each(conditions.begin(), conditions.end(), conditions_destroy);
    iterator.reset();
    messageWatcher_destroy(watcher);
    si_destroy(session);
    if (file != nullptr) {
        EXPECT_EQ(tableFileClose(file), NO_ERROR);
    }
}

std::int64_t runWithoutMemory(const MemoryCase& one) {
    const Undisturbed undisturbed = runUndisturbed(one);
    std::int64_t failed = 0;
    for (const bool goesOn : {false, true}) {
        bool happened = true;
        for (std::int64_t n = 1; happened && failureCount() < MOST_FAILURES; ++n) {
            const int failures = failureCount();
            const ::testing::ScopedTrace trace(
                __FILE__, __LINE__,
                one.name + ": allocation " + std::to_string(n) + (goesOn ? " and all behind it fail" : " fails"));
            const std::ptrdiff_t descriptors = openDescriptors();
            const std::int64_t allocations = liveAllocations();
            happened = expectSurvives(one, undisturbed, n, goesOn);
            EXPECT_EQ(openDescriptors(), descriptors) << "descriptors stay open";
            if (failureCount() == failures) {  // the text of a failure stays allocated
                EXPECT_EQ(liveAllocations(), allocations) << "memory is not freed";
            }
            failed += happened ? 1 : 0;
        }
    }
    return failed;
}

}  // namespace tabulo::internal::test
