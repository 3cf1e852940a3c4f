// Dropping a session info table with a tag that stands more than once.
#include <gtest/gtest.h>

#include "tests/sessioninfo/session_info_fixture.h"

namespace tabulo::internal::test {
namespace {

class SessionInfoDrop : public SessionInfoTest {};

TEST_F(SessionInfoDrop, SetsEverySlotOfATagThatStandsTwiceToZero) {
    for (const Tags& tags : {Tags{5, 5}, Tags{1, 5, 2, 5}, Tags{7, 7, 7, 3}}) {
        Values values;
        for (std::size_t i = 0; i < tags.size(); ++i) {
            values.push_back(static_cast<std::int64_t>(i) + 11);
        }
        table.reset();
        place(sessionFile(tags, values));
        open(OpenMode::write, tags);
        ASSERT_EQ(si_drop(table.get()), NO_ERROR);
        EXPECT_EQ(fileValues(), Values(tags.size(), 0));
        EXPECT_EQ(readValues(table.get(), tags), Values(tags.size(), 0));
        open(OpenMode::read, tags);
        EXPECT_EQ(readValues(table.get(), tags), Values(tags.size(), 0)) << "opened anew";
    }
}

TEST_F(SessionInfoDrop, LeavesAWriteOfSuchATagAsItWas) {
    const Tags tags{5, 1, 5};
    place(sessionFile(tags, {10, 20, 30}));
    open(OpenMode::write, tags);
    ASSERT_EQ(writeValues(table.get(), {5}, {11}), NO_ERROR);
    EXPECT_EQ(fileValues(), (Values{11, 20, 30})) << "the first slot is the tag's";
    ASSERT_EQ(si_drop(table.get()), NO_ERROR);
    EXPECT_EQ(fileValues(), (Values{0, 0, 0}));
}

}  // namespace
}  // namespace tabulo::internal::test
