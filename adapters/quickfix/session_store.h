// The two tables of one session: what its store and its log do with them. C++14, as the engine's side of this adapter;
// what is behind it is not.
//
// The message table has what was sent and received, in the order in which it was stored. The session info table has,
// each change with one write:
//
//   tag 1   number of the next message that is sent
//   tag 2   number of the next message that is expected
//   tag 3   when the present series of numbers began, nanoseconds since 1970
//   tag 4   block, and
//   tag 5   file offset of where the message table ended when tag 1 was written
//   tag 6   block, and
//   tag 7   file offset of where it ended when the series began
//
// A process that is killed between storing a message and counting it leaves the message behind the place of tags 4 and
// 5: opened again, the next number is at least the one behind it. What was lowered on purpose, or reset, has nothing
// behind that place, and stays as it was put.
#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "adapters/quickfix/session_name.h"
#include "adapters/quickfix/store_settings.h"

namespace tabulo {
namespace quickfix {

// What the tables could not do; the text names the file and the reason.
struct StoreFailure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Any number of threads. Every operation but the last two throws StoreFailure. After a failure of the disk the tables
// are opened again by the next operation.
class SessionStore {
  public:
    // Makes the folder and the tables where they are missing. A table that another store has open is refused.
    SessionStore(StoreSettings settings, const SessionName& session);
    ~SessionStore();
    SessionStore(const SessionStore&) = delete;
    SessionStore& operator=(const SessionStore&) = delete;

    // Stores a message that is about to be sent.
    void set(int number, const std::string& wire);
    // Gives the messages of the present series that were `set` with these numbers, both included, in their order; the
    // last one of several with the same number, and nothing for a number that has none.
    void get(int first, int last, std::vector<std::string>* messages);

    int nextSender();
    int nextTarget();
    void setNextSender(int number);
    void setNextTarget(int number);
    void incrementNextSender();
    void incrementNextTarget();
    // Nanoseconds since 1970, UTC.
    std::int64_t creationTime();
    // Begins a new series: both numbers are 1. What was stored stays in the table.
    void reset();
    // Opens the tables again.
    void refresh();

    // Stores what was received. Gives the reason when it could not: the next operation that stores or counts throws it
    // then, and those behind it store the message first, or throw why that fails.
    std::string received(const std::string& wire) noexcept;
    // Stores what is sent and was not `set` right before: a message that is sent again, or one that fills a gap. Gives
    // the reason when it could not.
    std::string sent(const std::string& wire) noexcept;

  private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace quickfix
}  // namespace tabulo
