#include "adapters/nats/jetstream_window.h"

#include <chrono>
#include <cstddef>
#include <string_view>
#include <utility>

#include "adapters/nats/nats_message.h"
#include "adapters/nats/nats_status.h"
#include "adapters/nats/text_lines.h"

namespace tabulo::shipping {

namespace {

constexpr std::size_t MOST_BYTES = 8 << 20;
// How often the acknowledgements that have come are taken.
constexpr std::size_t LOOKED_EVERY = 64;
constexpr std::chrono::milliseconds LOOKED_WITHIN{5};
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

// The sequence of an acknowledgement: {"stream":"ENG1", "seq":8}.
std::optional<std::uint64_t> sequenceOf(std::string_view content) {
    constexpr std::string_view name = R"("seq":)";
    const std::size_t at = content.find(name);
    if (at == std::string_view::npos) {
        return std::nullopt;
    }
    const std::string_view number = content.substr(at + name.size());
    return integerOf<std::uint64_t>(number.substr(0, number.find_first_of(",} ")));
}

}  // namespace

JetStreamWindow::JetStreamWindow(std::string stream)
    : stream_(std::move(stream)), own_(R"({"stream":")" + stream_ + '"') {
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
    acknowledged_ = {};
}

void JetStreamWindow::giveUp() noexcept {
    subscription_.reset();
    inFlight_.clear();
    bytes_ = 0;
}

void JetStreamWindow::change() {
    if (!inFlight_.empty()) {
        doubt("the connection was closed");
    }
    giveUp();
}

void JetStreamWindow::doubt(const std::string& why) {
    giveUp();
    throw Unreachable("publishing to " + stream_ + ": " + why);
}

bool JetStreamWindow::isFull(std::size_t bytes) const noexcept {
    return inFlight_.size() >= LogStream::MOST_IN_FLIGHT || bytes_ + bytes > MOST_BYTES;
}

// They come in the order of the records. One that does not has lost another one on its way.
void JetStreamWindow::take(natsMsg* acknowledgement) {
    const MessageHandle handle(acknowledgement);
    if (natsMsg_IsNoResponders(acknowledgement)) {
        doubt("the stream has no leader");
    }
    const std::string_view content = contentOf(acknowledgement);
    const std::optional<std::uint64_t> sequence = content.starts_with(own_) ? sequenceOf(content) : std::nullopt;
    if (!sequence.has_value() || inFlight_.empty()) {
        doubt(wordsOf(content));
    }
    if (const auto& wanted = inFlight_.front().sequence; wanted.has_value() && *wanted != *sequence) {
        doubt("no acknowledgement has come for the record " + std::to_string(*wanted));
    }
    acknowledged_.last = *sequence;
    acknowledged_.first = acknowledged_.first == 0 ? *sequence : acknowledged_.first;
    bytes_ -= inFlight_.front().bytes;
    inFlight_.pop_front();
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

// Until no more than so many are in flight.
void JetStreamWindow::wait(std::size_t records, std::size_t bytes) {
    while (inFlight_.size() > records || bytes_ > bytes) {
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

bool JetStreamWindow::isTimeToLook() {
    const auto now = std::chrono::steady_clock::now();
    if (sent_.size() < LOOKED_EVERY && now - lookedAt_ < LOOKED_WITHIN) {
        return false;
    }
    lookedAt_ = now;
    return true;
}

void JetStreamWindow::publish(natsConnection* connection, const Envelope& envelope,
                              std::optional<std::uint64_t> expected) {
    if (subscription_ == nullptr) {
        begin(connection);
    }
    const std::size_t bytes = envelope.payload.size();
    if (isFull(bytes)) {
        wait(LogStream::MOST_IN_FLIGHT / 2, MOST_BYTES / 2);
    }
    if (isTimeToLook()) {
        takeWhatHasCome();
        sent_.clear();
    }
    MessageHandle message = messageOf(envelope, inbox_);
    if (expected.has_value()) {
        check(natsMsgHeader_Set(message.get(), "Nats-Expected-Last-Sequence", std::to_string(*expected).c_str()),
              "publishing to " + stream_);
    }
    const natsStatus status = natsConnection_PublishMsg(connection, message.get());
    if (status != NATS_OK) {
        giveUp();
        check(status, "publishing to " + stream_);
    }
    sent_.push_back(std::move(message));
    inFlight_.push_back({expected.has_value() ? std::optional(*expected + 1) : std::nullopt, bytes});
    bytes_ += bytes;
}

void JetStreamWindow::settle() {
    wait(0, 0);
}

}  // namespace tabulo::shipping
