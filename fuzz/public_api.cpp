// Fuzz target: a message table file of any content, read through the public API, which takes its layout from the file.
//
//   1     layout: a number of layouts(), of which the target's mutator makes use alone
//   rest  the file
//
// Any file may be refused with an Error. But reading changes nothing; a walk, the blocks and the backward walk agree;
// what a walk delivers is salvaged at the same place; and a table without a finding is read to its end.
#include <algorithm>
#include <functional>
#include <optional>
#include <span>
#include <vector>

#include "fuzz/harness.h"
#include "fuzz/table_image.h"
#include "fuzz/tables.h"
#include "tabulo/damage.h"
#include "tabulo/error.h"
#include "tabulo/reader.h"
#include "tabulo/table_info.h"
#include "tests/support/memory_platform.h"

namespace tabulo::fuzz {

namespace {

using internal::fuzz::Bytes;
using internal::fuzz::layouts;
using internal::fuzz::require;
using internal::fuzz::TABLE_PATH;

constexpr std::size_t PREFIX_SIZE = 1;

// The places of messages in the order in which they came.
struct Walk {
    bool isWhole = false;  // no Error has ended it
    std::vector<Position> places;
};

// True when the work is done, false when it has ended with an Error, which is an answer.
bool isDone(const std::function<void()>& work) {
    try {
        work();
        return true;
    } catch (const Error&) {
        return false;
    }
}

Walk walk(Reader* reader, bool isBackward, std::size_t most) {
    Walk found;
    found.isWhole = isDone([&] {
        Messages messages = reader->messages(isBackward ? Query().backward() : Query());
        while (const MessageView* message = messages.next()) {
            require(found.places.size() < most, "a walk delivers more messages than the file can hold");
            require(message->frame().size() > message->wire().value_or("").size(), "a text is larger than its frame");
            found.places.push_back(message->position());
        }
    });
    return found;
}

// The number of messages in all blocks; none when they end with an Error.
std::optional<std::size_t> countByBlocks(Reader* reader, std::size_t most) {
    std::size_t count = 0;
    const bool areAll = isDone([&] {
        Blocks blocks = reader->blocks();
        while (const BlockRecord* block = blocks.next()) {
            require(block->messageCount > 0, "a block is given that holds no message");
            count += static_cast<std::size_t>(block->messageCount);
            require(count <= most, "blocks hold more messages than the file can hold");
        }
    });
    return areAll ? std::optional(count) : std::nullopt;
}

// Any value or Error is an answer.
void lookUp(Reader* reader) {
    (void)isDone([&] { (void)reader->lastUniformId(); });
    (void)isDone([&] { (void)reader->positionOfUniformId(2); });
    (void)isDone([&] { (void)reader->positionOf(1); });
    (void)isDone([&] { (void)reader->end(); });
    (void)isDone([&] { (void)countByClass(TABLE_PATH); });
}

Walk readThrough(std::size_t most) {
    Walk forward;
    std::optional<Reader> reader;
    if (!isDone([&] { reader.emplace(TABLE_PATH); })) {
        return forward;
    }
    forward = walk(&*reader, false, most);
    Walk backward = walk(&*reader, true, most);
    const std::optional<std::size_t> counted = countByBlocks(&*reader, most);
    if (forward.isWhole && backward.isWhole) {
        std::reverse(backward.places.begin(), backward.places.end());
        require(forward.places == backward.places, "the two directions deliver different messages");
    }
    if (forward.isWhole && counted.has_value()) {
        require(*counted == forward.places.size(), "the blocks hold another number of messages than a walk delivers");
    }
    lookUp(&*reader);
    return forward;
}

void checkSalvaged(const Walk& walked, std::size_t most) {
    std::vector<Position> salvaged;
    SalvageSink sink;
    sink.message = [&](const MessageView& message, const std::filesystem::path&) {
        require(salvaged.size() < most, "more messages are salvaged than the file can hold");
        salvaged.push_back(message.position());
    };
    SalvageOptions options;
    options.cutFiles.emplace();
    if (isDone([&] { (void)salvage(TABLE_PATH, sink, options); })) {
        require(std::includes(salvaged.begin(), salvaged.end(), walked.places.begin(), walked.places.end()),
                "a message that a walk delivers is not salvaged");
    }
}

void checkVerified(const Walk& walked) {
    VerifyResult result;
    std::int64_t findings = 0;
    const bool isVerified = isDone(
        [&] { result = verify(TABLE_PATH, [&](const Finding& finding) { findings += finding.damage ? 1 : 0; }); });
    if (isVerified) {
        require(result.damages == findings, "verify reports another number of damages than it counts");
        if (result.damages == 0) {
            require(walked.isWhole, "a table without a finding cannot be read to its end");
            require(static_cast<std::size_t>(result.messages) == walked.places.size(),
                    "a table without a finding holds another number of messages than a walk delivers");
        }
    }
}

}  // namespace

}  // namespace tabulo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maxSize,
                                               unsigned int seed);

using namespace tabulo::fuzz;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::span<const std::uint8_t> input(data, size);
    const std::span<const std::uint8_t> rest = input.subspan(std::min(size, PREFIX_SIZE));
    const Bytes file(rest.begin(), rest.end());
    const std::size_t most = file.size() / static_cast<std::size_t>(tabulo::internal::mfr_minimumFrameSize(0, 0));
    tabulo::internal::test::MemoryPlatform platform;
    platform.put(TABLE_PATH, file);
    (void)isDone([&] { (void)tabulo::inspect(TABLE_PATH); });
    const Walk walked = readThrough(most);
    checkSalvaged(walked, most);
    checkVerified(walked);
    require(platform.bytes(TABLE_PATH) == file, "reading changed the file");
    require(platform.paths().size() == 1, "reading made a file");
    require(platform.openCount() == 0, "a file was left open");
    return 0;
}

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maxSize,
                                               unsigned int seed) {
    return tabulo::internal::fuzz::tableFile_mutate({data, maxSize}, size, PREFIX_SIZE,
                                                    layouts()[data[0] % layouts().size()], seed);
}
