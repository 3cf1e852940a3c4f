// The log that the engine sees.
#pragma once

#include <memory>
#include <string>

#include <quickfix/Log.h>

#include "adapters/quickfix/session_store.h"

namespace tabulo {
namespace quickfix {

// Keeps what comes and goes in a session's tables, and hands everything on. Nothing is thrown.
class EngineLog : public FIX::Log {
  public:
    // `tables`: null for the log of no session. `others`: may be null; stays its factory's.
    EngineLog(std::shared_ptr<SessionStore> tables, FIX::Log* others);

    FIX::Log* others() const { return others_; }

    void clear() override;
    void backup() override;
    void onIncoming(const std::string& wire) override;
    void onOutgoing(const std::string& wire) override;
    void onEvent(const std::string& text) override;

  private:
    void tell(const char* what, const std::string& failure);

    std::shared_ptr<SessionStore> tables_;
    FIX::Log* others_;
};

}  // namespace quickfix
}  // namespace tabulo
