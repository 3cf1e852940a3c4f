// Fuzz target: a message table file of any content, opened for reading and for writing.
//
//   1     layout: a number of layouts()
//   1     messages to append: its lowest two bits
//   1     n
//   n     query conditions (conditions_input.h)
//   rest  the file
//
// A file may be refused, or cost what is damaged in it. But reading changes nothing, what a reader could see before a
// recovery is there behind it, what recovery cuts is saved or torn, and a recovered file works as any other.
#include <algorithm>
#include <array>
#include <string>

#include "fuzz/conditions_input.h"
#include "fuzz/harness.h"
#include "fuzz/table_image.h"
#include "fuzz/tables.h"
#include "index/uniform_lookup.h"
#include "messagetable/message_lookup.h"
#include "query/message_read.h"
#include "tests/support/memory_platform.h"
#include "tests/support/message_takers.h"
#include "watcher/message_watcher.h"

namespace tabulo::internal::fuzz {

namespace {

constexpr std::size_t PREFIX_SIZE = 3;
constexpr const char* CUT_NAME = "m/t.cut-";

struct Run {
    MessageTableLayout layout;
    std::int32_t appended = 0;
    std::span<const std::uint8_t> conditions;
    Bytes file;
    std::size_t most = 0;  // messages that a file of this size can hold
    test::MemoryPlatform platform;
};

void watchAll(MessageTable* table, std::size_t most) {
    MessageWatcher* watcher = messageWatcher_create(&table, 1);
    require(watcher != nullptr, "a watcher is not created");
    watcher->pause = [](std::int64_t) {};
    const std::int32_t startingId = -2147483647;
    std::size_t count = 0;
    const auto take = [&](const MessageView&, std::int32_t) {
        count += 1;
        require(count <= most, "a watcher delivers more messages than the file can hold");
        return true;
    };
    // Any code is an answer.
    (void)messageWatcher_startWatching(watcher, 1, &startingId, test::watchListenerOf(&take));
    messageWatcher_destroy(watcher);
}

// Any code is an answer to a damaged file.
void lookUp(MessageTable* table) {
    std::int32_t number = 0;
    std::int64_t timestamp = 0;
    UniformPlace place;
    (void)mt_refresh(table);
    (void)mt_getLastMessageId(table, 5, &number);
    (void)mt_getLastGoodMsgSeqNum(table, 0, &number, &timestamp);
    (void)mt_getFirstPendingMsgSeqNum(table, 0, &number);
    (void)mt_getLastPendingMsgSeqNum(table, 0, &number);
    (void)mt_getLastUniformMessageId(table, &number);
    (void)mt_findUniformId(table, 2, &place);
}

// Every way to read the table; the messages of a plain forward walk.
Messages useTable(MessageTable* table, const Run& run) {
    Messages all = readAll(table, false, run.most);
    const Messages walked = readByWalk(table, false, run.most);
    if (all.code == NO_ERROR && walked.code == NO_ERROR) {
        require(all.list == walked.list, "an iterator and a walk read different messages");
    }
    readAll(table, true, run.most);
    readByWalk(table, true, run.most);
    Input conditions(run.conditions);
    readByIterator(table, conditionsFrom(&conditions, run.layout), run.most);
    std::size_t count = 0;
    const auto take = [&](const MessageView&) {
        count += 1;
        return Visit::goOn;
    };
    const MessageListener listener = test::listenerOf(&take);
    constexpr std::array<std::int32_t, 3> ids = {1, 3, 536870911};
    (void)mt_readMessages(table, ids.data(), 3, &listener, false);
    (void)mt_readMessages(table, ids.data(), 3, &listener, true);
    require(count <= 2 * run.most, "readMessages delivers more messages than the file can hold");
    lookUp(table);
    watchAll(table, run.most);
    return all;
}

Messages readOnly(Run* run) {
    Messages all;
    const MessageTablePtr table = createTable(run->layout);
    all.code = mt_open(table.get(), OpenMode::read);
    if (all.code == NO_ERROR) {
        all = useTable(table.get(), *run);
    }
    require(run->platform.bytes(TABLE_PATH) == run->file, "reading changed the file");
    require(run->platform.paths().size() == 1, "reading made a file");
    return all;
}

bool isZero(std::span<const std::uint8_t> bytes) {
    return std::all_of(bytes.begin(), bytes.end(), [](std::uint8_t byte) { return byte == 0; });
}

// What a crash can have left: a few bytes, zero bytes, or a frame that reaches beyond the file's end, behind the zero
// word of a new block or not.
bool isTorn(std::span<const std::uint8_t> tail) {
    if (tail.size() < BLOCK_LENGTH_SIZE || isZero(tail)) {
        return true;
    }
    if (isZero(tail.first(BLOCK_LENGTH_SIZE))) {
        tail = tail.subspan(BLOCK_LENGTH_SIZE);
    }
    Input input(tail);
    return tail.size() < BLOCK_LENGTH_SIZE || input.number<std::uint32_t>() > tail.size();
}

// What a recovery has cut is in a copy, whose name says from where, or was torn.
void checkCut(const Run& run, const Bytes& recovered) {
    bool saved = recovered.size() >= run.file.size();
    for (const std::string& path : run.platform.paths()) {
        if (path == TABLE_PATH) {
            continue;
        }
        const Bytes& copy = run.platform.bytes(path);
        const auto offset = static_cast<std::size_t>(std::stoul(path.substr(std::string(CUT_NAME).size())));
        require(offset <= run.file.size() && copy.size() <= run.file.size() - offset &&
                    std::equal(copy.begin(), copy.end(), run.file.begin() + static_cast<std::ptrdiff_t>(offset)),
                "a saved copy is not what stood in the file");
        saved = saved || (offset <= recovered.size() && offset + copy.size() == run.file.size());
    }
    require(saved || isTorn(std::span(run.file).subspan(recovered.size())), "a recovery cut bytes and saved them not");
}

void openForWriting(const MessageTablePtr& table) {
    requireSuccess(mt_open(table.get(), OpenMode::write), "opening a recovered table for writing");
}

// Opens the file once more, with a tail that no longer fits: everything is recovered again.
Bytes recoverAgain(Run* run, const Messages& before) {
    Bytes bytes = run->platform.bytes(TABLE_PATH);
    Input size(std::span(bytes).subspan(15));
    const auto dataEnd = static_cast<std::size_t>(size.number<std::int32_t>()) - 72;
    bytes[dataEnd] = static_cast<std::uint8_t>(bytes[dataEnd] + 1);
    run->platform.put(TABLE_PATH, bytes);
    const MessageTablePtr table = createTable(run->layout);
    openForWriting(table);
    const Messages after = readAll(table.get(), false, run->most);
    require(beginsWith(after.list, before.list), "a second recovery lost a message");
    return run->platform.bytes(TABLE_PATH);
}

// The messages that were appended come back first when read backward, whatever stands before them.
void checkAppended(MessageTable* table, const Run& run) {
    const Messages backward = readAll(table, true, run.most + 4);
    require(backward.list.size() >= static_cast<std::size_t>(run.appended), "an appended message is lost");
    for (std::int32_t i = 0; i < run.appended; ++i) {
        require(backward.list[static_cast<std::size_t>(i)] == simpleMessage(run.appended - i, run.layout),
                "an appended message comes back changed");
    }
    std::int32_t last = 0;
    requireSuccess(mt_getLastUniformMessageId(table, &last), "a lookup behind an append");
    require(run.appended == 0 || last == run.appended, "a lookup does not know the last message");
}

void append(Run* run, const Messages& before) {
    MessageTablePtr table = createTable(run->layout);
    openForWriting(table);
    for (std::int32_t i = 1; i <= run->appended; ++i) {
        requireSuccess(writeMessage(table.get(), simpleMessage(i, run->layout)), "appending to a recovered table");
    }
    checkAppended(table.get(), *run);
    requireSuccess(mt_close(table.get()), "closing a recovered table");
    table = createTable(run->layout);
    requireSuccess(mt_open(table.get(), OpenMode::read), "opening a closed table for reading");
    checkAppended(table.get(), *run);
    require(beginsWith(readAll(table.get(), false, run->most + 4).list, before.list), "appending lost a message");
}

void forWriting(Run* run, const Messages& before) {
    MessageTablePtr table = createTable(run->layout);
    if (mt_open(table.get(), OpenMode::write) != NO_ERROR) {
        require(run->platform.bytes(TABLE_PATH) == run->file, "a refused open changed the file");
        return;
    }
    const Bytes opened = run->platform.bytes(TABLE_PATH);
    checkCut(*run, opened);
    const Messages after = useTable(table.get(), *run);
    require(beginsWith(after.list, before.list), "opening for writing lost a message");
    table = createTable(run->layout);
    openForWriting(table);
    require(run->platform.bytes(TABLE_PATH) == opened, "opening a recovered table once more changed it");
    table.reset();
    const Bytes again = recoverAgain(run, after);
    require(recoverAgain(run, after) == again, "recovering twice is not recovering once");
    append(run, after);
}

}  // namespace

}  // namespace tabulo::internal::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maxSize,
                                               unsigned int seed);

using namespace tabulo::internal::fuzz;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input({data, size});
    Run run;
    run.layout = layouts()[input.byte() % layouts().size()];
    run.appended = input.below(4);
    run.conditions = input.take(input.byte());
    run.file.assign(input.rest().begin(), input.rest().end());
    run.most = run.file.size() / static_cast<std::size_t>(tabulo::internal::mfr_minimumFrameSize(
                                     run.layout.stringFieldCount, run.layout.numericFieldCount));
    run.platform.put(TABLE_PATH, run.file);
    forWriting(&run, readOnly(&run));
    require(run.platform.openCount() == 0, "a file was left open");
    require(run.platform.refusedSizes() == 0, "a file was to become huge");
    return 0;
}

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maxSize,
                                               unsigned int seed) {
    const std::size_t fileStart = PREFIX_SIZE + (size < PREFIX_SIZE ? 0U : data[PREFIX_SIZE - 1]);
    return tableFile_mutate({data, maxSize}, size, fileStart, layouts()[data[0] % layouts().size()], seed);
}
