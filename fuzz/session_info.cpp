// Fuzz target: a session info file of any content, opened for reading and for writing.
//
//   1     configured tags, 1 to 32 of them
//   1     how many values a reader asks for
//   rest  the file
//
// Reading changes nothing; a repaired file keeps its whole values; what is written comes back.
#include <array>

#include "core/handle.h"
#include "fuzz/harness.h"
#include "fuzz/table_image.h"
#include "fuzz/tables.h"
#include "sessioninfo/session_info_table.h"
#include "tests/support/memory_platform.h"

namespace tabulo::internal::fuzz {

namespace {

constexpr std::size_t VALUE_SIZE = 8;

using SessionInfoTablePtr = Handle<SessionInfoTable, si_destroy>;

struct Run {
    SessionInfoTags tags;
    std::int32_t asked = 0;
    Bytes file;
    test::MemoryPlatform platform;
};

using Values = std::array<std::int64_t, MAX_SESSION_INFO_TAGS>;

SessionInfoTablePtr createTable(const SessionInfoTags& tags) {
    KSVTboTableConfig* config = tableConfig_create(TABLE_NAME, 1);
    requireSuccess(tableConfig_setPath(config, 0, ROOT), "a path");
    requireSuccess(tableConfig_setParams(config, nullptr, &tags), "session tags");
    SessionInfoTablePtr table(si_create(config));
    require(table != nullptr, "a session table is not created");
    return table;
}

// The tags 1, 2, 3 and so on.
SessionInfoTags tagsFrom(Input* input) {
    SessionInfoTags tags;
    tags.count = 1 + input->below(MAX_SESSION_INFO_TAGS);
    for (std::int32_t i = 0; i < tags.count; ++i) {
        tags.tags[static_cast<std::size_t>(i)] = i + 1;
    }
    return tags;
}

// The stored values are the last bytes of the file, in the table's order.
std::int64_t valueIn(const Bytes& file, const SessionInfoTable& table, std::int32_t index) {
    const std::size_t offset =
        static_cast<std::size_t>(table.storage->headerSize) + VALUE_SIZE * static_cast<std::size_t>(index);
    if (offset + VALUE_SIZE > file.size()) {
        return 0;
    }
    Input input(std::span(file).subspan(offset));
    return input.number<std::int64_t>();
}

void checkValues(SessionInfoTable* table, const Bytes& file) {
    for (std::int32_t i = 0; i < table->fieldCount; ++i) {
        require(table->values[static_cast<std::size_t>(i)] == valueIn(file, *table, i),
                "a value is not the one that stands in the file");
    }
}

void readOnly(Run* run) {
    const SessionInfoTablePtr table = createTable(run->tags);
    if (si_init(table.get(), OpenMode::read) == NO_ERROR) {
        checkValues(table.get(), run->file);
        Values values{};
        // Tags that are not there, or a count that is none: any code is an answer.
        (void)si_read(table.get(), run->asked, run->tags.tags.data(), values.data());
        (void)si_read(table.get(), -1, run->tags.tags.data(), values.data());
    }
    require(run->platform.bytes(TABLE_PATH) == run->file, "reading changed the file");
}

void forWriting(Run* run) {
    SessionInfoTablePtr table = createTable(run->tags);
    if (si_init(table.get(), OpenMode::write) != NO_ERROR) {
        require(run->platform.bytes(TABLE_PATH) == run->file, "a refused open changed the file");
        return;
    }
    if (!run->file.empty()) {
        checkValues(table.get(), run->file);
    }
    const std::int32_t count = run->tags.count;
    Values values{};
    for (std::size_t i = 0; i < values.size(); ++i) {
        values[i] = static_cast<std::int64_t>(i) - 7;
    }
    requireSuccess(si_write(table.get(), count, run->tags.tags.data(), values.data()), "writing a session");
    table = createTable(run->tags);
    requireSuccess(si_init(table.get(), OpenMode::read), "opening a session that was written");
    Values read{};
    requireSuccess(si_read(table.get(), count, run->tags.tags.data(), read.data()), "reading a session");
    for (std::int32_t i = 0; i < count; ++i) {
        require(read[static_cast<std::size_t>(i)] == i - 7, "a value that was written does not come back");
    }
    table = createTable(run->tags);
    requireSuccess(si_init(table.get(), OpenMode::write), "opening a session again");
    requireSuccess(si_drop(table.get()), "dropping a session");
}

}  // namespace

}  // namespace tabulo::internal::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace tabulo::internal::fuzz;
    Input input({data, size});
    Run run;
    run.tags = tagsFrom(&input);
    run.asked = input.below(tabulo::internal::MAX_SESSION_INFO_TAGS + 1);
    run.file.assign(input.rest().begin(), input.rest().end());
    run.platform.put(TABLE_PATH, run.file);
    readOnly(&run);
    forWriting(&run);
    require(run.platform.openCount() == 0, "a file was left open");
    require(run.platform.refusedSizes() == 0, "a file was to become huge");
    return 0;
}
