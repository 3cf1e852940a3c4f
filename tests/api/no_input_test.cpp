// A process without a standard input, as services are: the next file that it opens has the descriptor 0.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "tabulo/damage.h"
#include "tabulo/follower.h"
#include "tabulo/index.h"
#include "tabulo/reader.h"
#include "tabulo/session_info.h"
#include "tabulo/writer.h"
#include "tests/api/api_test.h"

namespace tabulo::test {
namespace {

// While one lives, the process has none.
class NoInput {
  public:
    NoInput() : input_(::dup(STDIN_FILENO)) { ::close(STDIN_FILENO); }
    ~NoInput() {
        EXPECT_LT(::fcntl(STDIN_FILENO, F_GETFD), 0) << "what was opened is closed again";
        if (input_ >= 0) {
            ::dup2(input_, STDIN_FILENO);
            ::close(input_);
        }
    }
    NoInput(const NoInput&) = delete;
    NoInput& operator=(const NoInput&) = delete;

  private:
    int input_;
};

using ApiWithoutStandardInput = TableTest;

TEST_F(ApiWithoutStandardInput, TablesAreWrittenAndRead) {
    {
        const NoInput input;
        Writer writer = Writer::create(path(), layout);
        writer.appendFrames(simpleFrames(layout, 1, 7));
        writer.commit();
        writer.close();
    }
    {
        const NoInput input;
        Writer writer = Writer::open(path());
        writer.appendFrames(simpleFrames(layout, 8, 9));
        writer.close();
    }
    {
        const NoInput input;
        Reader reader(path());
        Messages messages = reader.messages();
        std::int32_t count = 0;
        while (const MessageView* message = messages.next()) {
            count += 1;
            EXPECT_EQ(message->uniformId(), count);
        }
        EXPECT_EQ(count, 9);
    }
    const NoInput input;
    const Writer writer = Writer::open(path());
    EXPECT_NE(isOpenForWriting(path()), OpenForWriting::no);
}

TEST_F(ApiWithoutStandardInput, TablesAreLookedThrough) {
    Writer::create(path(), layout).appendFrames(simpleFrames(layout, 1, 9));
    {
        const NoInput input;
        EXPECT_EQ(inspect(path()).messageCount, 9);
        EXPECT_NE(isOpenForWriting(path()), OpenForWriting::yes);
    }
    {
        const NoInput input;
        EXPECT_TRUE(verify(path(), {}).complete);
    }
    {
        const NoInput input;
        EXPECT_EQ(salvage(path(), {}).messages, 9);
    }
    {
        const NoInput input;
        EXPECT_EQ(Indexer(path()).complete().messages, 9);
    }
    const NoInput input;
    Reader reader(path());
    EXPECT_TRUE(reader.positionOfUniformId(8) < reader.end());
}

TEST_F(ApiWithoutStandardInput, TablesAreFollowed) {
    Writer writer = Writer::create(path(), layout);
    writer.appendFrames(simpleFrames(layout, 1, 1));
    const NoInput input;
    Follower follower;
    follower.add(path());
    EXPECT_EQ(follower.next(std::chrono::seconds(20)).kind, FollowEventKind::message);
    EXPECT_EQ(follower.next(std::chrono::milliseconds(0)).kind, FollowEventKind::timedOut);
    writer.appendFrames(simpleFrames(layout, 2, 2));
    EXPECT_EQ(follower.next(std::chrono::seconds(20)).kind, FollowEventKind::message);
}

TEST_F(ApiWithoutStandardInput, SessionInfosAreWrittenAndRead) {
    const std::vector<std::int32_t> tags{34, 36};
    {
        const NoInput input;
        SessionInfo session = SessionInfo::create(path(), tags);
        session.write(34, 77);
    }
    const NoInput input;
    EXPECT_EQ(SessionInfo::open(path()).read(34), 77);
}

}  // namespace
}  // namespace tabulo::test
