// Session info tables without memory.
#include "tests/faults/memory_case.h"

namespace tabulo::internal::test {

namespace {

constexpr std::array<std::int32_t, 6> TAGS = {2, 1, 3, 4, 5, 6};
constexpr std::array<std::int64_t, 6> STORED = {11, 12, 13, 14, 15, 16};
constexpr std::array<std::int64_t, 6> LATER = {21, 22, 23, 24, 25, 26};

KSVTboTableConfig* newConfiguration(const MemoryStage& stage) {
    KSVTboTableConfig* config = tableConfig_create("session", 1);
    EXPECT_EQ(tableConfig_setPath(config, 0, stage.run.root().c_str()), NO_ERROR);
    return config;
}

ErrorCode write(SessionInfoTable* table, const std::array<std::int64_t, 6>& values) {
    return si_write(table, 6, TAGS.data(), values.data());
}

void configurations(MemoryStage& stage) {
    stage.configs = {newConfiguration(stage), newConfiguration(stage)};
}

ErrorCode create(MemoryStage& stage, Digests*) {
    KSVTboTableConfig*& config = stage.configs.at(stage.attempts++);
    stage.session = si_create(config);
    config = nullptr;  // the table's in every case
    return stage.session == nullptr ? OUT_OF_MEMORY_ERROR : NO_ERROR;
}

void notOpen(MemoryStage& stage) {
    stage.session = si_create(newConfiguration(stage));
}

// A stored table's file, with so many bytes more (or less), behind a table that is not open.
std::function<void(MemoryStage&)> stored(std::ptrdiff_t bytes) {
    return [bytes](MemoryStage& stage) {
        notOpen(stage);
        EXPECT_EQ(si_init(stage.session, OpenMode::create), NO_ERROR);
        EXPECT_EQ(write(stage.session, STORED), NO_ERROR);
        EXPECT_EQ(si_uninit(stage.session), NO_ERROR);
        const std::string path = stage.run.directory.file("session");
        Bytes file = readFile(path);
        file.resize(static_cast<std::size_t>(static_cast<std::ptrdiff_t>(file.size()) + bytes), 0x55);
        writeFile(path, file);
    };
}

std::function<void(MemoryStage&)> openedIn(OpenMode mode) {
    return [mode](MemoryStage& stage) {
        stored(0)(stage);
        EXPECT_EQ(si_init(stage.session, mode), NO_ERROR);
    };
}

ErrorCode addValues(MemoryStage& stage, Digests* answer) {
    std::array<std::int64_t, 6> values{};
    const ErrorCode code = si_read(stage.session, 6, TAGS.data(), values.data());
    for (const std::int64_t value : values) {
        if (code == NO_ERROR) {
            answer->add(value);
        }
    }
    return code;
}

template <OpenMode mode>
ErrorCode init(MemoryStage& stage, Digests* answer) {
    const ErrorCode code = si_init(stage.session, mode);
    return code == NO_ERROR ? addValues(stage, answer) : code;
}

ErrorCode writeLater(MemoryStage& stage, Digests*) {
    return write(stage.session, LATER);
}

ErrorCode drop(MemoryStage& stage, Digests*) {
    return si_drop(stage.session);
}

}  // namespace

std::vector<MemoryCase> sessionCases() {
    return {
        {"CreateASessionTableObject", configurations, create},
        {"CreateASessionTable", notOpen, init<OpenMode::create>},
        {"OpenASessionTableForReading", stored(0), init<OpenMode::read>},
        {"OpenASessionTableForWriting", stored(0), init<OpenMode::write>},
        {"RecoverCutSessionValues", stored(-28), init<OpenMode::write>, OUT_OF_MEMORY_ERROR,
         Leaves::filesThatTheNextAttemptCompletes},
        {"ReadSessionValuesAsAReader", openedIn(OpenMode::read), addValues},
        {"ReadSessionValuesAsTheWriter", openedIn(OpenMode::write), addValues},
        {"WriteSessionValues", openedIn(OpenMode::write), writeLater},
        {"WriteSessionValuesOfAReader", openedIn(OpenMode::read), writeLater},
        {"DropSessionValues", openedIn(OpenMode::write), drop},
        {"DropSessionValuesOfAReader", openedIn(OpenMode::read), drop},
    };
}

}  // namespace tabulo::internal::test
