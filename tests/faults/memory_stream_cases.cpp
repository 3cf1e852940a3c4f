// Byte streams, Bloom filters, configurations, table files and the log without memory.
#include <cstring>

#include "core/log.h"
#include "storage/byte_stream_file.h"
#include "tests/faults/memory_case.h"

namespace tabulo::internal::test {

namespace {

constexpr const char* LONG_TEXT = "a text that no short string can hold in itself";

ErrorCode madeOrNot(const void* object) {
    return object == nullptr ? OUT_OF_MEMORY_ERROR : NO_ERROR;
}

void nothing(MemoryStage&) {
}

void smallStream(MemoryStage& stage) {
    stage.stream.reset(byteStream_create(16));
    stage.bytes = pattern(9000);
}

void addContent(Digests* answer, const KSVByteStream* stream) {
    answer->add(std::string_view(reinterpret_cast<const char*>(byteStream_buffer(stream)),
                                 static_cast<std::size_t>(byteStream_writeMark(stream))));
}

ErrorCode growStream(MemoryStage& stage, Digests* answer) {
    KSVByteStream* stream = stage.stream.get();
    byteStream_clear(stream);
    for (std::int32_t offset = 0; offset < 9000; offset += 100) {
        byteStream_putBytes(stream, stage.bytes.data() + offset, 100);
    }
    if (byteStream_error(stream) == NO_ERROR) {
        addContent(answer, stream);
    }
    return byteStream_error(stream);
}

// Opens the stage's bytes as a file for reading.
void openedFile(MemoryStage& stage) {
    smallStream(stage);
    stage.path = stage.run.directory.file("file");
    writeFile(stage.path, stage.bytes);
    EXPECT_EQ(tableFileOpen(&stage.file, stage.path.c_str(), OpenMode::read, nullptr), NO_ERROR);
}

ErrorCode readIntoStream(MemoryStage& stage, Digests* answer) {
    ErrorCode code = tableFileSeekSet(stage.file, 0);
    if (code == NO_ERROR) {
        code = byteStream_readFromFile(stage.stream.get(), stage.file, 9000);
    }
    if (code == NO_ERROR) {
        addContent(answer, stage.stream.get());
    }
    return code;
}

ErrorCode readIntoStreamAt(MemoryStage& stage, Digests* answer) {
    const ErrorCode code = byteStream_readFromFileAt(stage.stream.get(), stage.file, 100, 8000);
    if (code == NO_ERROR) {
        addContent(answer, stage.stream.get());
    }
    return code;
}

void filterAndSmallStream(MemoryStage& stage) {
    smallStream(stage);
    stage.filter.reset(bloomFilter_create());
    bloomFilter_add(stage.filter.get(), "ACME");
}

ErrorCode writeFilter(MemoryStage& stage, Digests* answer) {
    byteStream_clear(stage.stream.get());
    const ErrorCode code = bloomFilter_write(stage.filter.get(), stage.stream.get());
    if (code == NO_ERROR) {
        addContent(answer, stage.stream.get());
    }
    return code;
}

// A stored filter of 64000 bits.
void storedLargeFilter(MemoryStage& stage) {
    filterAndSmallStream(stage);
    byteStream_put(stage.stream.get(), std::uint32_t{64000});
    byteStream_putBytes(stage.stream.get(), stage.bytes.data(), 8000);
}

ErrorCode readFilter(MemoryStage& stage, Digests* answer) {
    const auto* before = stage.filter->words.data();
    byteStream_rewind(stage.stream.get(), BYTE_STREAM_FORWARD);
    const ErrorCode code = bloomFilter_read(stage.filter.get(), stage.stream.get());
    if (code == NO_ERROR) {
        answer->add(static_cast<std::int64_t>(stage.filter->bitCount));
        answer->add(bloomFilter_mayContain(stage.filter.get(), "ACME"));
    }
    stage.halfChanged =
        code != NO_ERROR && (stage.filter->bitCount != BLOOM_FILTER_BITS || stage.filter->words.data() != before);
    return code;
}

void anyConfiguration(MemoryStage& stage) {
    stage.configs[0] = tableConfig_create("orders", 1);
}

void addConfiguration(Digests* answer, const KSVTboTableConfig* config) {
    const char* path = tableConfig_getMasterPath(config);
    answer->add(path == nullptr ? "" : path);
    for (std::int32_t i = 0; i < 2; ++i) {
        const char* string = tableConfig_getStringFieldName(config, i);
        const char* number = tableConfig_getNumericFieldName(config, i);
        answer->add(string == nullptr ? "" : string);
        answer->add(number == nullptr ? "" : number);
    }
    answer->add(tableConfig_getLayout(config)->stringFieldCount);
    answer->add(tableConfig_getLayout(config)->numericFieldCount);
}

// One change of the configuration; a failed one has changed nothing.
template <typename Change>
ErrorCode changeConfiguration(MemoryStage& stage, Digests* answer, Change change) {
    Digests before;
    addConfiguration(&before, stage.configs[0]);
    const ErrorCode code = change(stage.configs[0]);
    Digests after;
    addConfiguration(&after, stage.configs[0]);
    if (code == NO_ERROR) {
        *answer = after;
    }
    stage.halfChanged = code != NO_ERROR && !(after == before);
    return code;
}

template <OpenMode mode>
ErrorCode openFile(MemoryStage& stage, Digests* answer) {
    bool created = false;
    const ErrorCode code = tableFileOpen(&stage.file, stage.path.c_str(), mode, &created);
    if (code == NO_ERROR) {
        answer->add(created ? 1 : 0);
        answer->add(tableFileCachedSize(stage.file));
    }
    return code;
}

void closedFile(MemoryStage& stage) {
    stage.path = stage.run.directory.file("file");
    writeFile(stage.path, pattern(9000));
}

void missingFile(MemoryStage& stage) {
    stage.path = stage.run.directory.file("file");
}

void writableFile(MemoryStage& stage) {
    closedFile(stage);
    EXPECT_EQ(tableFileOpen(&stage.file, stage.path.c_str(), OpenMode::write, nullptr), NO_ERROR);
}

// Everything else that a table file does.
ErrorCode useFile(MemoryStage& stage, Digests* answer) {
    std::array<char, 6000> buffer{};
    std::int64_t count = 0;
    for (const ErrorCode code :
         {tableFileSeekEnd(stage.file, -100), tableFileWrite(stage.file, buffer.data(), 5000),
          tableFileWrite(stage.file, LONG_TEXT, 20), tableFileFlush(stage.file), tableFileSeekSet(stage.file, 8000),
          tableFileReadExact(stage.file, buffer.data(), 5000), tableFileReadBackward(stage.file, buffer.data(), 100),
          tableFileReadAt(stage.file, 10, buffer.data(), 200, &count), tableFileTruncate(stage.file, 9000),
          tableFileRefreshSize(stage.file, &count)}) {
        answer->add(code);
    }
    answer->add(std::string_view(buffer.data(), buffer.size()));
    answer->add(count);
    return NO_ERROR;
}

ErrorCode logLines(MemoryStage&, Digests*) {
    log_debug("logLines", "%s\n", LONG_TEXT);
    log_note("logLines", "%s\n", LONG_TEXT);
    log_warning("logLines", "%s\n", LONG_TEXT);
    log_warningWrite("%s\n", getErrorMessage(OUT_OF_MEMORY_ERROR));
    return NO_ERROR;
}

}  // namespace

std::vector<MemoryCase> streamAndFileCases() {
    return {
        {"CreateAByteStream", nothing,
         [](MemoryStage& stage, Digests*) {
             stage.stream.reset(byteStream_create(5000));
             return madeOrNot(stage.stream.get());
         }},
        {"GrowAByteStream", smallStream, growStream, STREAM_EXTENSION_ERROR},
        {"MakeRoomInAByteStream", smallStream,
         [](MemoryStage& stage, Digests*) {
             return byteStream_makeRoom(stage.stream.get(), 9000).bytes == 0 ? NO_ERROR
                                                                             : byteStream_error(stage.stream.get());
         }},
        {"ReadAFileIntoAByteStream", openedFile, readIntoStream},
        {"ReadPartOfAFileIntoAByteStream", openedFile, readIntoStreamAt},
        {"CreateABloomFilter", nothing,
         [](MemoryStage& stage, Digests*) {
             stage.filter.reset(bloomFilter_create());
             return madeOrNot(stage.filter.get());
         }},
        {"WriteABloomFilter", filterAndSmallStream, writeFilter, STREAM_EXTENSION_ERROR},
        {"ReadABloomFilterOfAnotherSize", storedLargeFilter, readFilter},
        {"CreateAConfiguration", nothing,
         [](MemoryStage& stage, Digests*) {
             stage.configs[0] = tableConfig_create(LONG_TEXT, 3);
             return madeOrNot(stage.configs[0]);
         }},
        {"SetAPathOfAConfiguration", anyConfiguration,
         [](MemoryStage& stage, Digests* answer) {
             return changeConfiguration(
                 stage, answer, [](KSVTboTableConfig* config) { return tableConfig_setPath(config, 0, LONG_TEXT); });
         }},
        {"AddAStringFieldName", anyConfiguration,
         [](MemoryStage& stage, Digests* answer) {
             return changeConfiguration(
                 stage, answer, [](KSVTboTableConfig* c) { return tableConfig_addStringFieldName(c, LONG_TEXT); });
         }},
        {"AddANumericFieldName", anyConfiguration,
         [](MemoryStage& stage, Digests* answer) {
             return changeConfiguration(
                 stage, answer, [](KSVTboTableConfig* c) { return tableConfig_addNumericFieldName(c, LONG_TEXT); });
         }},
        {"OpenATableFileForReading", closedFile, openFile<OpenMode::read>},
        {"OpenATableFileForWriting", closedFile, openFile<OpenMode::write>},
        {"OpenAMissingTableFile", missingFile, openFile<OpenMode::write>},
        {"CreateATableFile", closedFile, openFile<OpenMode::create>},
        {"UseATableFile", writableFile, useFile},
        {"Log", nothing, logLines},
    };
}

}  // namespace tabulo::internal::test
