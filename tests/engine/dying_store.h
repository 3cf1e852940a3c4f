// Stores that kill their process at a chosen moment of storing or counting a message. C++14.
#pragma once

#include <csignal>
#include <memory>
#include <string>
#include <vector>

#include <quickfix/MessageStore.h>

// When the process is killed; the counts are of all sessions together, and 0 is never.
struct Death {
    int afterSets = 0;      // behind the n-th stored message, before its number is counted
    int beforeTargets = 0;  // before the n-th received message is counted, when the application has had it
};

// Hands everything on to another store.
class DyingStore : public FIX::MessageStore {
  public:
    DyingStore(FIX::MessageStore& store, Death& death) : store_(store), death_(death) {}

    bool set(int number, const std::string& message) throw(FIX::IOException) override {
        const bool result = store_.set(number, message);
        dieAt(death_.afterSets);
        return result;
    }
    void incrNextTargetMsgSeqNum() throw(FIX::IOException) override {
        dieAt(death_.beforeTargets);
        store_.incrNextTargetMsgSeqNum();
    }
    void get(int first, int last, std::vector<std::string>& messages) const throw(FIX::IOException) override {
        store_.get(first, last, messages);
    }
    int getNextSenderMsgSeqNum() const throw(FIX::IOException) override { return store_.getNextSenderMsgSeqNum(); }
    int getNextTargetMsgSeqNum() const throw(FIX::IOException) override { return store_.getNextTargetMsgSeqNum(); }
    void setNextSenderMsgSeqNum(int number) throw(FIX::IOException) override { store_.setNextSenderMsgSeqNum(number); }
    void setNextTargetMsgSeqNum(int number) throw(FIX::IOException) override { store_.setNextTargetMsgSeqNum(number); }
    void incrNextSenderMsgSeqNum() throw(FIX::IOException) override { store_.incrNextSenderMsgSeqNum(); }
    FIX::UtcTimeStamp getCreationTime() const throw(FIX::IOException) override { return store_.getCreationTime(); }
    void reset() throw(FIX::IOException) override { store_.reset(); }
    void refresh() throw(FIX::IOException) override { store_.refresh(); }

    FIX::MessageStore& store() { return store_; }

  private:
    static void dieAt(int& left) {
        if (left > 0 && --left == 0) {
            std::raise(SIGKILL);
        }
    }

    FIX::MessageStore& store_;
    Death& death_;
};

class DyingStoreFactory : public FIX::MessageStoreFactory {
  public:
    DyingStoreFactory(FIX::MessageStoreFactory& stores, const Death& death) : stores_(stores), death_(death) {}

    FIX::MessageStore* create(const FIX::SessionID& session) override {
        return new DyingStore(*stores_.create(session), death_);
    }
    void destroy(FIX::MessageStore* store) override {
        const std::unique_ptr<DyingStore> dying(static_cast<DyingStore*>(store));
        stores_.destroy(&dying->store());
    }

  private:
    FIX::MessageStoreFactory& stores_;
    Death death_;
};
