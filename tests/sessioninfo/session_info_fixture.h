// Session info tables of tests: made from their tags in one line, and their files built by hand, byte by byte.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/handle.h"
#include "sessioninfo/session_info_table.h"
#include "tests/support/bytes.h"
#include "tests/support/log_capture.h"
#include "tests/support/temporary_directory.h"

namespace tabulo::internal::test {

using Tags = std::vector<std::int32_t>;
using Values = std::vector<std::int64_t>;

// Tags of a table whose configuration names none, in their order.
extern const Tags defaultTags;
// 1 to `count`.
Tags tagsUpTo(std::int32_t count);

using SessionInfoTablePtr = Handle<SessionInfoTable, si_destroy>;

// The configuration of the table "session" under a root, with the default tags unless others are given. Its second and
// third path are those of replicas in directories beside the master. The caller hands it to si_create.
KSVTboTableConfig* makeSessionConfig(const std::string& root, const std::optional<Tags>& tags = std::nullopt);
// A table that is not open yet.
SessionInfoTablePtr createSessionTable(const std::string& root, const std::optional<Tags>& tags = std::nullopt);
// An open table, or null with a failed expectation.
SessionInfoTablePtr openSessionTable(const std::string& root, OpenMode mode,
                                     const std::optional<Tags>& tags = std::nullopt);

// The file of a table, little-endian, put together here and not by the library. Values may be fewer than tags.
Bytes sessionFile(const Tags& tags, const Values& values);
// Where its values begin.
std::size_t headerSizeFor(std::size_t tagCount);
// The values in such a file, as many as are there as a whole; throws for a file that ends in the midst of one.
Values valuesIn(const Bytes& file);
Bytes cutTo(Bytes bytes, std::size_t length);

ErrorCode writeValues(SessionInfoTable* table, const Tags& tags, const Values& values);
// The values of the tags, with a failed expectation when they cannot be read.
Values readValues(SessionInfoTable* table, const Tags& tags);
// The code of reading the tags; fails the test when a failed read has touched the caller's array.
ErrorCode readCode(SessionInfoTable* table, const Tags& tags);
Tags tagsOf(const SessionInfoTable* table);

// The text of the WARNING for a file that a write has closed.
std::string closedWarning(int position, ErrorCode code);

// One table in a directory of its own.
class SessionInfoTest : public ::testing::Test {
  protected:
    // Opens `table` anew; fails the test when that is refused.
    void open(OpenMode mode, const std::optional<Tags>& tags = std::nullopt) {
        table.reset();
        table = openSessionTable(directory.root(), mode, tags);
        ASSERT_NE(table, nullptr);
    }
    // Makes `table` anew and gives the code of opening it.
    ErrorCode init(OpenMode mode, const std::optional<Tags>& tags = std::nullopt) {
        table.reset();
        table = createSessionTable(directory.root(), tags);
        return si_init(table.get(), mode);
    }
    // Makes the file, over a table that is open or not.
    void place(const Bytes& bytes) const { writeFile(path, bytes); }
    Bytes fileBytes() const { return readFile(path); }
    Values fileValues() const { return valuesIn(fileBytes()); }
    // The WARNING of a file that was repaired.
    std::string recoveredWarning(std::size_t oldSize, std::size_t newSize) const;

    const TemporaryDirectory directory;
    const std::string path = directory.file("session");
    LogCapture log;
    SessionInfoTablePtr table;
};

}  // namespace tabulo::internal::test
