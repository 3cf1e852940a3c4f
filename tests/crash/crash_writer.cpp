#include "tests/crash/crash_writer.h"

#include <random>
#include <utility>

namespace tabulo::internal::test {

namespace {

class Writer {
  public:
    Writer(const std::string& root, const CrashTraffic& traffic, WriterState* state, std::uint64_t random)
        : root_(root), traffic_(traffic), state_(state), random_(random), dropsOften_(random_() % 6 == 0) {}

    int run() {
        while (open() && write()) {
            session_.reset();
            table_.reset();
        }
        return 1;
    }

  private:
    bool oneIn(unsigned count) { return random_() % count == 0; }
    bool failed(const char* what, ErrorCode code) {
        state_->problem.report(std::string(what) + " gives " + getErrorMessage(code) + " behind " +
                               TableContent::unpacked(state_->content.load()).text());
        return false;
    }
    TableContent content() const { return TableContent::unpacked(state_->content.load()); }
    void begin(WriterStep step, TableContent next) {
        state_->step.store(step);
        state_->nextContent.store(next.packed());
    }
    void acknowledge() {
        state_->content.store(state_->nextContent.load());
        state_->operations += 1;
    }

    bool open() {
        const bool anew = oneIn(30);
        begin(anew ? WriterStep::creating : WriterStep::opening,
              anew ? TableContent{content().generation + 1, 0} : content());
        table_ = createTable(root_, traffic_.shape);
        ErrorCode code = mt_open(table_.get(), anew ? OpenMode::create : OpenMode::write);
        if (code != NO_ERROR) {
            return failed("opening the message table", code);
        }
        acknowledge();
        session_ = createSession(root_);
        code = si_init(session_.get(), OpenMode::write);
        return code == NO_ERROR || failed("opening the session table", code);
    }
    // Operations until the tables are to be opened again.
    bool write() {
        for (;;) {
            const std::uint64_t chosen = random_() % 20;
            if (chosen < 14) {
                if (!burst()) {
                    return false;
                }
            } else if (chosen < 16) {
                if (!close()) {
                    return false;
                }
            } else if (chosen == 16) {
                return close();
            } else if (chosen == 17) {
                return true;  // as a crash leaves it
            } else if (dropsOften_ || content().messages >= traffic_.longest || oneIn(10)) {
                if (!drop()) {
                    return false;
                }
            }
        }
    }
    bool burst() {
        const auto count = 1 + static_cast<std::int32_t>(random_() % static_cast<unsigned>(traffic_.burst));
        for (std::int32_t i = 0; i < count; ++i) {
            const TableContent now = content();
            const Message message = traffic_.message(now.generation, now.messages + 1);
            begin(WriterStep::writing, {now.generation, now.messages + 1});
            const ErrorCode code = storeInAnyForm(table_.get(), message, random_());
            if (code != NO_ERROR) {
                return failed("writing a message", code);
            }
            acknowledge();
            state_->written += 1;
            if (oneIn(3) && !writeSession()) {
                return false;
            }
        }
        return true;
    }
    bool writeSession() {
        state_->step.store(WriterStep::writingSession);
        state_->nextSession.store(state_->session.load() + 1);
        const ErrorCode code = storeSession(session_.get(), state_->nextSession.load());
        if (code != NO_ERROR) {
            return failed("writing the session values", code);
        }
        state_->session.store(state_->nextSession.load());
        return true;
    }
    bool close() {
        begin(WriterStep::closing, content());
        const ErrorCode code = mt_close(table_.get());
        acknowledge();
        return code == NO_ERROR || failed("closing", code);
    }
    bool drop() {
        begin(WriterStep::dropping, {content().generation + 1, 0});
        const ErrorCode code = mt_drop(table_.get());
        if (code != NO_ERROR) {
            return failed("dropping", code);
        }
        acknowledge();
        return true;
    }

    const std::string root_;
    const CrashTraffic& traffic_;
    WriterState* state_;
    std::mt19937_64 random_;
    const bool dropsOften_;
    MessageTablePtr table_;
    SessionTablePtr session_;
};

}  // namespace

int writeUntilKilled(const std::string& root, const CrashTraffic& traffic, WriterState* state, std::uint64_t random) {
    return Writer(root, traffic, state, random).run();
}

}  // namespace tabulo::internal::test
