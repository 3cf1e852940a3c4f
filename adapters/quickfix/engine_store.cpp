#include "adapters/quickfix/engine_store.h"

#include <ctime>
#include <exception>
#include <utility>

#include <quickfix/Exceptions.h>

namespace tabulo {
namespace quickfix {

namespace {

constexpr std::int64_t NANOSECONDS = 1000000000;
constexpr int DIGITS = 9;  // of a second's fraction

template <typename Operation>
auto told(const Operation& operation) -> decltype(operation()) {
    try {
        return operation();
    } catch (const std::exception& error) {
        throw FIX::IOException(error.what());
    }
}

}  // namespace

EngineStore::EngineStore(std::shared_ptr<SessionStore> tables) : tables_(std::move(tables)) {
}

bool EngineStore::set(int number, const std::string& wire) throw(FIX::IOException) {
    told([&] { tables_->set(number, wire); });
    return true;
}

void EngineStore::get(int first, int last, std::vector<std::string>& messages) const throw(FIX::IOException) {
    told([&] { tables_->get(first, last, &messages); });
}

int EngineStore::getNextSenderMsgSeqNum() const throw(FIX::IOException) {
    return told([&] { return tables_->nextSender(); });
}

int EngineStore::getNextTargetMsgSeqNum() const throw(FIX::IOException) {
    return told([&] { return tables_->nextTarget(); });
}

void EngineStore::setNextSenderMsgSeqNum(int number) throw(FIX::IOException) {
    told([&] { tables_->setNextSender(number); });
}

void EngineStore::setNextTargetMsgSeqNum(int number) throw(FIX::IOException) {
    told([&] { tables_->setNextTarget(number); });
}

void EngineStore::incrNextSenderMsgSeqNum() throw(FIX::IOException) {
    told([&] { tables_->incrementNextSender(); });
}

void EngineStore::incrNextTargetMsgSeqNum() throw(FIX::IOException) {
    told([&] { tables_->incrementNextTarget(); });
}

FIX::UtcTimeStamp EngineStore::getCreationTime() const throw(FIX::IOException) {
    const std::int64_t time = told([&] { return tables_->creationTime(); });
    return FIX::UtcTimeStamp(static_cast<std::time_t>(time / NANOSECONDS), static_cast<int>(time % NANOSECONDS),
                             DIGITS);
}

void EngineStore::reset() throw(FIX::IOException) {
    told([&] { tables_->reset(); });
}

void EngineStore::refresh() throw(FIX::IOException) {
    told([&] { tables_->refresh(); });
}

}  // namespace quickfix
}  // namespace tabulo
