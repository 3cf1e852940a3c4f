// One message table on a disk that loses its power: random work, a stop at a random moment, and what must be left.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tests/power/message_history.h"
#include "tests/power/power_scenarios.h"
#include "tests/power/volatile_disk.h"

namespace tabulo::internal::test {

class MessagePowerRun {
  public:
    static constexpr const char* ROOT = "/disk/";

    MessagePowerRun(const TableShape& shape, const std::vector<Policy>& policies, Random& random, Tally& tally,
                    std::string* trace);
    ~MessagePowerRun();
    MessagePowerRun(const MessagePowerRun&) = delete;
    MessagePowerRun& operator=(const MessagePowerRun&) = delete;

    // Works and stops up to three times, and checks what is left each time. Throws BrokenPromise.
    void run();

  private:
    struct Found {
        const Life* life = nullptr;  // that the messages belong to
        std::size_t count = 0;
        std::size_t torn = 0;       // of them, messages that differ from what was written
        bool tornInFlight = false;  // one of them was being written when the machine stopped
        std::size_t wrong = 0;      // the first one that no loss explains
    };

    void note(const std::string& step);
    void choosePolicy();
    Message nextMessage();

    // Steps of the work. They end at once when the process stops.
    void open();
    void step();
    void write(std::int64_t count);
    void reopen(bool closed);
    void drop();
    void checkReader();

    // What comes after a stop; false when the scenario ends with it.
    bool goOnAfterKill();
    bool goOnAfterLoss();
    // What the file must hold when the machine stops now.
    void rememberCommitted();
    // An operation has ended: what it has committed must be there from now on.
    void countCommits();
    bool recoverOnce(Tearing tearing);
    void checkBeforeRecovery();
    bool openAfterLoss();
    void checkFooters(const Found& found);
    void checkCounts(const Found& found, std::size_t read);
    void checkSaved(const Found& found) const;
    bool workOnAfterLoss(const ReadMessages& before);

    // The life that the messages belong to. Throws when there is none.
    Found match(const std::vector<Message>& messages, const std::string& when);
    bool matches(const Life& life, const std::vector<Message>& messages, Found* found) const;
    std::string describeStranger(const Found& found, const Message& message) const;
    bool isTorn(const KeptMessage& kept, const Message& read) const;
    bool isSaved(const KeptMessage& kept) const;
    Bytes fileNow() const { return disk_.content(path_).value_or(Bytes()); }

    VolatileDisk disk_;
    TableShape shape_;
    std::vector<Policy> policies_;
    Random& random_;
    Tally& tally_;
    std::string path_;
    std::string& trace_;  // what was done so far, for the sentence of a failure
    MessageHistory history_;
    MessageTablePtr table_;
    std::vector<Message> written_;  // all that was ever handed to the table; the uniform id is the place, from 1 on
    bool dropping_ = false;
    std::optional<Message> inFlight_;
    std::int64_t syncs_ = 0;    // of the file when the last operation ended
    Bytes committedAtLastEnd_;  // and what they had put on the disk
    bool everyFlush_;           // the policy promises that what is acknowledged is committed
    bool allCommitted_ = true;  // not so for a message that a killed process has left unacknowledged
    // At the loss that is being looked at.
    std::size_t required_ = 0;   // committed messages of the life
    Bytes atLoss_;               // the file as the process saw it last
    Bytes committed_;            // the file at the last sync
    std::vector<Bytes> images_;  // the file as each loss left it
};

}  // namespace tabulo::internal::test
