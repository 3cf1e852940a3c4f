#include "tests/sessioninfo/session_info_fixture.h"

#include <algorithm>
#include <numeric>
#include <stdexcept>

#include "tests/support/debug_log.h"

namespace tabulo::internal::test {

namespace {

template <typename Number>
void append(Bytes* bytes, Number number) {
    for (std::size_t i = 0; i < sizeof number; ++i) {
        bytes->push_back(static_cast<std::uint8_t>(static_cast<std::uint64_t>(number) >> (8 * i)));
    }
}

std::uint64_t numberAt(const Bytes& bytes, std::size_t offset, std::size_t width) {
    std::uint64_t number = 0;
    for (std::size_t i = 0; i < width; ++i) {
        number |= static_cast<std::uint64_t>(bytes.at(offset + i)) << (8 * i);
    }
    return number;
}

}  // namespace

const Tags defaultTags = {2, 1, 3, 4, 5, 6};

Tags tagsUpTo(std::int32_t count) {
    Tags tags(static_cast<std::size_t>(count));
    std::iota(tags.begin(), tags.end(), 1);
    return tags;
}

KSVTboTableConfig* makeSessionConfig(const std::string& root, const std::optional<Tags>& tags) {
    KSVTboTableConfig* config = tableConfig_create("session", 3);
    EXPECT_EQ(tableConfig_setPath(config, 0, root.c_str()), NO_ERROR);
    EXPECT_EQ(tableConfig_setPath(config, 1, (root + "replica1/").c_str()), NO_ERROR);
    EXPECT_EQ(tableConfig_setPath(config, 2, (root + "replica2/").c_str()), NO_ERROR);
    if (tags) {
        SessionInfoTags block;
        block.tags.fill(0);
        block.count = static_cast<std::int32_t>(tags->size());
        std::copy(tags->begin(), tags->end(), block.tags.begin());
        EXPECT_EQ(tableConfig_setParams(config, nullptr, &block), NO_ERROR);
    }
    return config;
}

SessionInfoTablePtr createSessionTable(const std::string& root, const std::optional<Tags>& tags) {
    SessionInfoTablePtr table(si_create(makeSessionConfig(root, tags)));
    EXPECT_NE(table, nullptr) << "the table cannot be created";
    return table;
}

SessionInfoTablePtr openSessionTable(const std::string& root, OpenMode mode, const std::optional<Tags>& tags) {
    SessionInfoTablePtr table = createSessionTable(root, tags);
    const ErrorCode code = si_init(table.get(), mode);
    EXPECT_EQ(code, NO_ERROR) << "opening in mode " << openMode_number(mode) << ": " << getErrorMessage(code);
    return code == NO_ERROR ? std::move(table) : nullptr;
}

Bytes sessionFile(const Tags& tags, const Values& values) {
    Bytes bytes = fromHex("4b 65 73 74 72 6f 76 61 44 62 01 05 00 20 03");
    append(&bytes, static_cast<std::uint32_t>(headerSizeFor(tags.size())));
    append(&bytes, std::uint32_t{17});
    const Bytes name = fromText("SessionInfoTable");
    bytes.insert(bytes.end(), name.begin(), name.end());
    bytes.push_back(0);
    append(&bytes, static_cast<std::uint32_t>(tags.size()));
    for (const std::int32_t tag : tags) {
        append(&bytes, static_cast<std::uint32_t>(tag));
    }
    for (const std::int64_t value : values) {
        append(&bytes, value);
    }
    return bytes;
}

std::size_t headerSizeFor(std::size_t tagCount) {
    return 44 + 4 * tagCount;
}

Values valuesIn(const Bytes& file) {
    const std::size_t start = numberAt(file, 15, 4);
    if ((file.size() - start) % 8 != 0) {
        throw std::runtime_error("the file of " + std::to_string(file.size()) + " bytes ends in the midst of a value");
    }
    Values values;
    for (std::size_t offset = start; offset < file.size(); offset += 8) {
        values.push_back(static_cast<std::int64_t>(numberAt(file, offset, 8)));
    }
    return values;
}

Bytes cutTo(Bytes bytes, std::size_t length) {
    bytes.resize(length);
    return bytes;
}

ErrorCode writeValues(SessionInfoTable* table, const Tags& tags, const Values& values) {
    EXPECT_EQ(tags.size(), values.size()) << "the test gives a value for each tag";
    return si_write(table, static_cast<std::int32_t>(tags.size()), tags.data(), values.data());
}

Values readValues(SessionInfoTable* table, const Tags& tags) {
    Values values(tags.size(), 0x5a5a5a5a);
    EXPECT_EQ(si_read(table, static_cast<std::int32_t>(tags.size()), tags.data(), values.data()), NO_ERROR);
    return values;
}

ErrorCode readCode(SessionInfoTable* table, const Tags& tags) {
    const Values before(tags.size(), 0x5a5a5a5a);
    Values values = before;
    const ErrorCode code = si_read(table, static_cast<std::int32_t>(tags.size()), tags.data(), values.data());
    if (code != NO_ERROR) {
        EXPECT_EQ(values, before) << "a failed read has touched the caller's array";
    }
    return code;
}

Tags tagsOf(const SessionInfoTable* table) {
    return Tags(table->tags.begin(), table->tags.begin() + table->fieldCount);
}

std::string closedWarning(int position, ErrorCode code) {
    return warningLine("si_write", "Replica " + std::to_string(position) +
                                       " closed due to file write error: " + getErrorMessage(code));
}

std::string SessionInfoTest::recoveredWarning(std::size_t oldSize, std::size_t newSize) const {
    return warningLine("tsX_openReplica", "Table " + path + " was recovered, old size: " + std::to_string(oldSize) +
                                              ", new size: " + std::to_string(newSize));
}

}  // namespace tabulo::internal::test
