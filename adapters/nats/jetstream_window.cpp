#include "adapters/nats/jetstream_window.h"

#include <algorithm>
#include <chrono>
#include <string_view>
#include <utility>

#include "adapters/nats/log_stream.h"
#include "adapters/nats/nats_message.h"
#include "adapters/nats/nats_status.h"
#include "adapters/nats/owner.h"

namespace tabulo::shipping {

namespace {

constexpr std::size_t MOST_RECORDS = 4096;
constexpr std::size_t MOST_BYTES = 8 << 20;
constexpr std::size_t ASKED_EVERY = 64;
constexpr std::chrono::milliseconds ASKED_WITHIN{5};
// Longer than a cluster takes to find a new leader, mostly. A lost acknowledgement never comes: none at all in such a
// time is what tells it.
constexpr std::chrono::milliseconds ACKNOWLEDGED_WITHIN{5000};

std::string_view contentOf(natsMsg* message) {
    return {natsMsg_GetData(message), static_cast<std::size_t>(natsMsg_GetDataLength(message))};
}

// The words of a refusal: {"error":{"code":400,"err_code":10071,"description":"wrong last sequence: 7"},...
std::string wordsOf(std::string_view content) {
    constexpr std::string_view name = R"("description":")";
    const std::size_t at = content.find(name);
    if (at == std::string_view::npos) {
        return "the acknowledgement is none: " + std::string(content);
    }
    const std::string_view words = content.substr(at + name.size());
    return std::string(words.substr(0, words.find('"')));
}

}  // namespace

JetStreamWindow::JetStreamWindow(std::string stream)
    : stream_(std::move(stream)), acknowledged_(R"({"stream":")" + stream_ + '"'), id_(randomId() + '-') {
}

void JetStreamWindow::begin(natsConnection* connection) {
    natsInbox* inbox = nullptr;
    check(natsInbox_Create(&inbox), "publishing");
    inbox_ = inbox;
    natsInbox_Destroy(inbox);
    natsSubscription* made = nullptr;
    check(natsConnection_SubscribeSync(&made, connection, inbox_.c_str()), "publishing");
    subscription_.reset(made);
    check(natsSubscription_SetPendingLimits(made, -1, -1), "publishing");  // bounded by what is in flight
}

void JetStreamWindow::giveUp() noexcept {
    subscription_.reset();
    asked_.clear();
    unasked_ = inFlight_ = {};
}

void JetStreamWindow::doubt(const std::string& why) {
    giveUp();
    throw Unreachable("publishing to " + stream_ + ": " + why);
}

bool JetStreamWindow::isFull(std::size_t bytes) const noexcept {
    return inFlight_.records >= MOST_RECORDS || inFlight_.bytes + bytes > MOST_BYTES;
}

// They come in the order of the records, as the stream takes these in their order alone.
void JetStreamWindow::take(natsMsg* acknowledgement) {
    const MessageHandle handle(acknowledgement);
    if (natsMsg_IsNoResponders(acknowledgement)) {
        doubt("the stream has no leader");
    }
    const std::string_view content = contentOf(acknowledgement);
    if (!content.starts_with(acknowledged_) || asked_.empty()) {
        doubt(wordsOf(content));
    }
    inFlight_.records -= asked_.front().records;
    inFlight_.bytes -= asked_.front().bytes;
    asked_.pop_front();
}

void JetStreamWindow::takeWhatHasCome() {
    int messages = 0;
    int bytes = 0;
    check(natsSubscription_GetPending(subscription_.get(), &messages, &bytes), "publishing to " + stream_);
    for (; messages > 0; --messages) {
        natsMsg* message = nullptr;
        check(natsSubscription_NextMsg(&message, subscription_.get(), ACKNOWLEDGED_WITHIN.count()),
              "publishing to " + stream_);
        take(message);
    }
}

// Until no more than so many are in flight, or only those that nobody was asked for.
void JetStreamWindow::wait(std::size_t records, std::size_t bytes) {
    while (!asked_.empty() && (inFlight_.records > records || inFlight_.bytes > bytes)) {
        natsMsg* message = nullptr;
        const natsStatus status = natsSubscription_NextMsg(&message, subscription_.get(), ACKNOWLEDGED_WITHIN.count());
        if (status == NATS_TIMEOUT) {
            doubt("no acknowledgement has come for " + std::to_string(ACKNOWLEDGED_WITHIN.count() / 1000) + " s");
        }
        if (status != NATS_OK) {
            giveUp();
            check(status, "publishing to " + stream_);
        }
        take(message);
    }
}

// Whether the acknowledgement of the record that is published next is to be asked for.
bool JetStreamWindow::isTimeToAsk() {
    const auto now = std::chrono::steady_clock::now();
    if (unasked_.records + 1 < ASKED_EVERY && unasked_.bytes < MOST_BYTES / 8 && now - askedAt_ < ASKED_WITHIN) {
        return false;
    }
    askedAt_ = now;
    return true;
}

MessageHandle JetStreamWindow::messageWith(const Envelope& envelope, std::uint64_t expected, bool isAsked) {
    MessageHandle message = messageOf(envelope, isAsked ? inbox_ : std::string());
    const auto set = [&](const char* name, const std::string& value) {
        check(natsMsgHeader_Set(message.get(), name, value.c_str()), "publishing to " + stream_);
    };
    // The sequence alone would let the rest of a window in behind records that others have put in front of it. Where
    // nothing is in flight no id is asked for: a server that has started again may have forgotten it.
    set("Nats-Expected-Last-Sequence", std::to_string(expected));
    if (inFlight_.records > 0) {
        set("Nats-Expected-Last-Msg-Id", newestId_);
    }
    published_ += 1;
    newestId_ = id_ + std::to_string(published_);
    set("Nats-Msg-Id", newestId_);
    return message;
}

void JetStreamWindow::publish(natsConnection* connection, const Envelope& envelope, std::uint64_t expected) {
    if (subscription_ == nullptr) {
        begin(connection);
    }
    const std::size_t bytes = envelope.payload.size();
    if (isFull(bytes)) {
        wait(MOST_RECORDS / 2, MOST_BYTES / 2);
    }
    const bool isAsked = isTimeToAsk();
    if (isAsked) {
        takeWhatHasCome();
        sent_.clear();
    }
    sent_.push_back(messageWith(envelope, expected, isAsked));
    const natsStatus status = natsConnection_PublishMsg(connection, sent_.back().get());
    if (status != NATS_OK) {
        giveUp();
        check(status, "publishing to " + stream_);
    }
    newest_ = expected + 1;
    for (Group* group : {&unasked_, &inFlight_}) {
        group->records += 1;
        group->bytes += bytes;
    }
    if (isAsked) {
        asked_.push_back(std::exchange(unasked_, {}));
    }
}

void JetStreamWindow::settle() {
    wait(0, 0);
}

}  // namespace tabulo::shipping
