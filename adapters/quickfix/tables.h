// The tables of an engine's sessions: each is opened once, for the store and the log of its session.
#pragma once

#include <map>
#include <memory>
#include <mutex>

#include <quickfix/SessionID.h>
#include <quickfix/SessionSettings.h>

#include "adapters/quickfix/session_store.h"

namespace tabulo {
namespace quickfix {

// Any number of threads.
class Tables {
  public:
    explicit Tables(const FIX::SessionSettings& settings) : settings_(settings) {}

    // The tables of a session, which are opened when neither its store nor its log has them yet. FIX::ConfigError.
    std::shared_ptr<SessionStore> of(const FIX::SessionID& session);

  private:
    const FIX::SessionSettings settings_;
    std::mutex mutex_;
    std::map<FIX::SessionID, std::weak_ptr<SessionStore>> open_;
};

}  // namespace quickfix
}  // namespace tabulo
