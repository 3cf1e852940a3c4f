// A small file system that is really full, and then has space again. It is mounted where only a child of the test sees
// it; without the right to do that the tests are skipped.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <functional>
#include <random>
#include <stdexcept>

#include "messagetable/message_lookup.h"
#include "tests/crash/crash_traffic.h"
#include "tests/crash/shared_page.h"
#include "tests/messagetable/table_image.h"
#include "tests/support/child_process.h"
#include "tests/support/test_run.h"

namespace tabulo::internal::test {
namespace {

constexpr int NOT_PERMITTED = 77;
#if defined(__SANITIZE_ADDRESS__)
constexpr int ROUNDS = 20;
#else
constexpr int ROUNDS = 60;
#endif
constexpr std::int64_t PAGE = 4096;

struct DiskState {
    std::atomic<std::int64_t> refusals = 0;
    std::atomic<std::int64_t> acknowledged = 0;
    std::atomic<std::int64_t> failedOpenings = 0;
    SharedProblem problem;
};

// Ends the child with a sentence unless a condition holds.
void require(bool condition, const std::string& sentence) {
    if (!condition) {
        throw std::runtime_error(sentence);
    }
}

void requireCode(ErrorCode code, ErrorCode expected, const std::string& what) {
    require(code == expected, what + " gives " + getErrorMessage(code));
}

class FullDisk : public TableImageTest {
  protected:
    // Runs a body in a child with a file system of its own at the test's directory; skips the test where that is not
    // permitted.
    void runOnSmallDisk(const std::function<void()>& body) {
        ChildProcess child([&] {
            if (::unshare(CLONE_NEWNS) != 0 || ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
                ::mount("none", directory.path().c_str(), "tmpfs", 0, "size=400k") != 0) {
                return NOT_PERMITTED;
            }
            try {
                body();
            } catch (const std::exception& failure) {
                return state->problem.report(failure.what());
            }
            return 0;
        });
        const int result = child.wait();
        if (result == NOT_PERMITTED) {
            GTEST_SKIP() << "mounting a small file system is not permitted to this process (it takes root)";
        }
        EXPECT_EQ(result, 0) << state->problem.sentence();
    }
    // Takes all space but so many pages.
    void fill(std::int64_t pagesLeft) const {
        const std::string ballast = directory.file("ballast");
        const int file = ::open(ballast.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
        require(file >= 0, "no ballast");
        const std::string page(PAGE, 'b');
        while (::write(file, page.data(), page.size()) == PAGE) {
        }
        ::close(file);
        const auto size = static_cast<std::int64_t>(std::filesystem::file_size(ballast));
        std::filesystem::resize_file(ballast,
                                     static_cast<std::uintmax_t>(std::max<std::int64_t>(0, size - pagesLeft * PAGE)));
    }
    void giveSpace() const { std::filesystem::remove(directory.file("ballast")); }

    SharedPage<DiskState> state;
};

// An engine on the small disk, and what it was told to be stored.
class Engine {
  public:
    Engine(const std::string& root, const TableShape& shape, std::uint32_t seed, DiskState* state)
        : root_(root), random_(seed), state_(state) {
        traffic_.shape = shape;
        traffic_.seed = seed;
    }

    std::uint64_t random(std::uint64_t end) { return random_() % end; }
    ErrorCode open() {
        table_ = createTable(root_, traffic_.shape);
        return mt_open(table_.get(), OpenMode::write);
    }
    // With space: everything is there, and it opens.
    void requireOpen() {
        requireCode(open(), NO_ERROR, "opening with space again");
        requireContent(table_.get(), "the table with space again");
    }
    // Writes until a message is refused, which must then hold for the next ones too, or `most` are stored.
    void write(int most, bool mayRefuse) {
        for (int i = 0; i < most; ++i) {
            const auto next = static_cast<std::int32_t>(stored_.size()) + 1;
            const Message message = traffic_.message(generation_, next);
            const ErrorCode code = storeInAnyForm(table_.get(), message, random_());
            if (code == NO_ERROR) {
                stored_.push_back(message);
                state_->acknowledged += 1;
                continue;
            }
            require(mayRefuse, "a write on a disk with space gives " + std::string(getErrorMessage(code)));
            require(code == FILE_WRITE_ERROR || code == FILE_FLUSH_ERROR,
                    "a write on a full disk gives " + std::string(getErrorMessage(code)));
            for (int again = 0; again < 2; ++again) {
                requireCode(writeMessage(table_.get(), message), FILE_WRITE_ERROR, "a write behind a refused one");
            }
            state_->refusals += 3;
            return;
        }
    }
    void requireSeenByReader() const {
        const MessageTablePtr reader = createTable(root_, traffic_.shape);
        requireCode(mt_open(reader.get(), OpenMode::read), NO_ERROR, "a reader on a full disk");
        requireContent(reader.get(), "what a reader on a full disk sees");
    }
    void drop() {
        requireCode(mt_drop(table_.get()), NO_ERROR, "dropping");
        stored_.clear();
        generation_ += 1;
    }
    void close() {
        requireCode(mt_close(table_.get()), NO_ERROR, "closing");
        table_.reset();
    }
    std::size_t stored() const { return stored_.size(); }

  private:
    void requireContent(MessageTable* table, const std::string& what) const {
        requireCode(mt_refresh(table), NO_ERROR, what);
        const ReadMessages read = readAll(table);
        requireCode(read.code, NO_ERROR, what);
        require(read.messages == stored_, what + " are " + std::to_string(read.messages.size()) + " messages, " +
                                              std::to_string(stored_.size()) + " were acknowledged; generation " +
                                              std::to_string(generation_));
        const std::string lookups = lookupProblem(table, stored_);
        require(lookups.empty(), what + ": " + lookups);
    }

    const std::string root_;
    CrashTraffic traffic_;
    std::mt19937_64 random_;
    DiskState* state_;
    MessageTablePtr table_;
    std::vector<Message> stored_;
    std::int32_t generation_ = 0;
};

class FullDiskUnder : public FullDisk, public ::testing::WithParamInterface<std::int32_t> {};

TEST_P(FullDiskUnder, AnEngineRefusesWhatIsNotStoredOpensAgainWithSpaceAndGoesOn) {
    shape.messagesPerBlock = GetParam();
    const std::uint32_t seed = testSeed();
    runOnSmallDisk([&] {
        Engine engine(directory.root(), shape, seed, state.operator->());
        const SessionTablePtr session = createSession(directory.root());
        requireCode(si_init(session.get(), OpenMode::write), NO_ERROR, "opening the session table");
        requireCode(storeSession(session.get(), 1), NO_ERROR, "writing session values");
        engine.requireOpen();
        for (int round = 0; round < ROUNDS * testEffort(); ++round) {
            fill(static_cast<std::int64_t>(engine.random(6)));
            engine.write(400, true);
            // The values' place is there already: they can be stored on a full disk.
            requireCode(storeSession(session.get(), 2 + round), NO_ERROR, "writing session values on a full disk");
            engine.requireSeenByReader();
            if (engine.random(2) == 0) {  // too early; a recovery may need space
                const ErrorCode code = engine.open();
                state->failedOpenings += code == NO_ERROR ? 0 : 1;
                if (code == NO_ERROR) {
                    engine.write(3, true);
                }
                engine.requireSeenByReader();
            }
            giveSpace();
            engine.requireOpen();
            engine.write(static_cast<int>(engine.random(12)), false);
            if (engine.stored() > 150) {
                fill(0);  // a drop frees more than it needs
                engine.drop();
                giveSpace();
            } else if (engine.random(3) == 0) {
                engine.close();
                engine.requireOpen();
            }
        }
        require(others().size() == 1, "a full disk is no damage, and yet something was saved beside the table");
    });
    if (IsSkipped()) {
        return;
    }
    EXPECT_GE(state->refusals.load(), ROUNDS) << "the disk was hardly ever full";
    std::cout << state->acknowledged.load() << " messages stored, " << state->failedOpenings.load()
              << " openings refused\n";
    reportFigure("disk full", "refused writes", state->refusals.load());
}

INSTANTIATE_TEST_SUITE_P(BlocksOf, FullDiskUnder, ::testing::Values(4, 1000));

TEST_F(FullDisk, ADamagedTableIsNotCutWhileThereIsNoSpaceToSaveWhatWouldBeCut) {
    runOnSmallDisk([&] {
        const std::vector<Message> messages = simpleMessages(1, 11, shape);
        Bytes damaged = unclosedImage(shape, messages);
        const TableMap map = mapOf(shape, messages);
        damaged.at(map.frame(10).end - 1) ^= 0xff;  // in the open block
        const Bytes cut = slice(damaged, map.frame(10).start, damaged.size());
        place(damaged);
        fill(0);
        const ErrorCode code = recover();
        require(code != NO_ERROR, "the table was recovered although nothing could be saved");
        require(readFile(path()) == damaged, "the table was changed although nothing could be saved");
        require(others().size() == 1, "an incomplete copy stays beside the table");
        giveSpace();
        requireCode(recover(), NO_ERROR, "recovering with space again");
        require(messagesIn(directory.root(), shape) == simpleMessages(1, 9, shape), "messages before the damage");
        const std::map<std::string, Bytes> beside = others();
        require(beside.size() == 1 && beside.begin()->second == cut, "the cut bytes are not saved beside the table");
    });
}

}  // namespace
}  // namespace tabulo::internal::test
