// A log for QuickFIX that keeps received and resent messages in the tables of the store. C++11 to C++14.
#pragma once

#include <memory>

#include <quickfix/Log.h>

#include "tabulo/quickfix/store_factory.h"

namespace tabulo {
namespace quickfix {

// Makes logs that store what is received, and what is sent without having been given to the store (resent messages, gap
// fills), in the table of the same session of `store`. Everything goes on to the logs of another factory as well, when
// one is given; events, clear, backup and the global log go there alone.
//
// A log never throws. When a received message cannot be stored, the session's next store operation throws
// FIX::IOException, so that the engine disconnects before it has counted that message.
//
// `store` and `others` outlive this factory, this factory its logs. Any number of threads.
class TabuloLogFactory : public FIX::LogFactory {
  public:
    explicit TabuloLogFactory(TabuloStoreFactory& store, FIX::LogFactory* others = nullptr);

    FIX::Log* create() override;
    FIX::Log* create(const FIX::SessionID& session) override;
    void destroy(FIX::Log* log) override;

  private:
    std::shared_ptr<Tables> tables_;
    FIX::LogFactory* others_;
};

}  // namespace quickfix
}  // namespace tabulo
