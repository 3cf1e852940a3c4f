#include "adapters/quickfix/engine_log.h"

#include <utility>

namespace tabulo {
namespace quickfix {

namespace {

// What another log throws would end the engine's thread.
template <typename Operation>
void handOn(FIX::Log* others, const Operation& operation) {
    if (others == nullptr) {
        return;
    }
    try {
        operation();
    } catch (...) {
        return;  // there is nobody to tell but this log
    }
}

}  // namespace

EngineLog::EngineLog(std::shared_ptr<SessionStore> tables, FIX::Log* others)
    : tables_(std::move(tables)), others_(others) {
}

void EngineLog::clear() {
    handOn(others_, [&] { others_->clear(); });
}

void EngineLog::backup() {
    handOn(others_, [&] { others_->backup(); });
}

void EngineLog::tell(const char* what, const std::string& failure) {
    if (!failure.empty()) {
        handOn(others_, [&] { others_->onEvent(what + failure); });
    }
}

void EngineLog::onIncoming(const std::string& wire) {
    if (tables_ != nullptr) {
        tell("a received message could not be stored: ", tables_->received(wire));
    }
    handOn(others_, [&] { others_->onIncoming(wire); });
}

void EngineLog::onOutgoing(const std::string& wire) {
    if (tables_ != nullptr) {
        tell("a message that is sent again could not be stored: ", tables_->sent(wire));
    }
    handOn(others_, [&] { others_->onOutgoing(wire); });
}

void EngineLog::onEvent(const std::string& text) {
    handOn(others_, [&] { others_->onEvent(text); });
}

}  // namespace quickfix
}  // namespace tabulo
