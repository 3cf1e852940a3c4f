// The store that the engine sees.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <quickfix/MessageStore.h>

#include "adapters/quickfix/session_store.h"

namespace tabulo {
namespace quickfix {

// FIX::IOException, with the path and the reason, is all that leaves it.
class EngineStore : public FIX::MessageStore {
  public:
    explicit EngineStore(std::shared_ptr<SessionStore> tables);

    bool set(int number, const std::string& wire) throw(FIX::IOException) override;
    void get(int first, int last, std::vector<std::string>& messages) const throw(FIX::IOException) override;

    int getNextSenderMsgSeqNum() const throw(FIX::IOException) override;
    int getNextTargetMsgSeqNum() const throw(FIX::IOException) override;
    void setNextSenderMsgSeqNum(int number) throw(FIX::IOException) override;
    void setNextTargetMsgSeqNum(int number) throw(FIX::IOException) override;
    void incrNextSenderMsgSeqNum() throw(FIX::IOException) override;
    void incrNextTargetMsgSeqNum() throw(FIX::IOException) override;

    FIX::UtcTimeStamp getCreationTime() const throw(FIX::IOException) override;

    void reset() throw(FIX::IOException) override;
    void refresh() throw(FIX::IOException) override;

  private:
    std::shared_ptr<SessionStore> tables_;
};

}  // namespace quickfix
}  // namespace tabulo
