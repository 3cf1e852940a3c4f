// A message store for QuickFIX on message tables. C++11 to C++14, as the engine's own headers.
#pragma once

#include <memory>

#include <quickfix/MessageStore.h>
#include <quickfix/SessionSettings.h>

namespace tabulo {
namespace quickfix {

class Tables;

// Makes the stores of an engine's sessions, one message table and one session info table each, in the folder that the
// setting TabuloStorePath names (it is made when it is missing). A table is opened by one factory at a time, in any
// process: create throws FIX::ConfigError for a session whose table another one has, and for settings that mean
// nothing.
//
// Settings of a session, or of all of them under [DEFAULT]:
//
//   TabuloStorePath      the folder; required
//   TabuloStringFields   tags, by number or name, with commas: texts to index (11,41,37,55,1)
//   TabuloNumericFields  the same for numbers (38,44)
//   TabuloLogHeartbeats  Y or N: received heartbeats are kept too (N)
//   TabuloSync           when writes are committed to the disk; of the process, so that all sessions must say the
//                        same: off, always, every N (messages), every Ns (seconds) (off)
//   TabuloRoll           keep N: at a session reset the table is put aside as "<table>.<when it was begun>", of which
//                        the newest N stay; none (none)
//
// The factory outlives its stores. Any number of threads.
class TabuloStoreFactory : public FIX::MessageStoreFactory {
  public:
    explicit TabuloStoreFactory(const FIX::SessionSettings& settings);
    TabuloStoreFactory(const TabuloStoreFactory&) = delete;
    TabuloStoreFactory& operator=(const TabuloStoreFactory&) = delete;
    ~TabuloStoreFactory() override;

    // The store belongs to the factory's caller, who gives it back with destroy.
    FIX::MessageStore* create(const FIX::SessionID& session) override;
    void destroy(FIX::MessageStore* store) override;

  private:
    friend class TabuloLogFactory;
    std::shared_ptr<Tables> tables_;
};

}  // namespace quickfix
}  // namespace tabulo
