#include "adapters/nats/jetstream_window.h"

#include <chrono>
#include <utility>

#include "adapters/nats/log_stream.h"
#include "adapters/nats/nats_message.h"
#include "adapters/nats/nats_status.h"
#include "adapters/nats/owner.h"

namespace tabulo::shipping {

namespace {

constexpr std::size_t MOST_RECORDS = 4096;
constexpr std::size_t MOST_BYTES = 8 << 20;
// Longer than a cluster takes to find a new leader, mostly. A lost acknowledgement never comes. The library could watch
// each record for that (jsPubOptions.MaxWait), which halves the rate; here none at all in such a time is what tells it.
constexpr std::chrono::seconds ACKNOWLEDGED_WITHIN{5};

}  // namespace

struct JetStreamWindow::Flight {
    std::mutex mutex;
    std::condition_variable changed;
    std::size_t records = 0;
    std::size_t bytes = 0;
    std::optional<std::string> doubt;
    // What a waiting publisher waits for: it is woken once, not by each acknowledgement.
    bool isAwaited = false;
    std::size_t awaitedRecords = 0;
    std::size_t awaitedBytes = 0;

    bool hasCome() const { return doubt.has_value() || (records <= awaitedRecords && bytes <= awaitedBytes); }
};

JetStreamWindow::JetStreamWindow(std::string stream) : stream_(std::move(stream)), flight_(new Flight) {
}

JetStreamWindow::~JetStreamWindow() {
    giveUp();
}

void JetStreamWindow::acknowledged(jsCtx*, natsMsg* message, jsPubAck* ack, jsPubAckErr* error, void* closure) {
    const MessageHandle handle(message);
    auto& flight = *static_cast<Flight*>(closure);
    const std::scoped_lock lock(flight.mutex);
    flight.records -= 1;
    flight.bytes -= static_cast<std::size_t>(natsMsg_GetDataLength(message));
    if (ack == nullptr && !flight.doubt.has_value()) {
        const bool hasText = error != nullptr && error->ErrText != nullptr;
        flight.doubt = hasText ? error->ErrText : natsStatus_GetText(error == nullptr ? NATS_ERR : error->Err);
    }
    if (flight.isAwaited && flight.hasCome()) {
        flight.isAwaited = false;
        flight.changed.notify_one();
    }
}

void JetStreamWindow::begin(natsConnection* connection) {
    jsOptions options;
    jsOptions_Init(&options);
    options.PublishAsync.MaxPending = 0;  // bounded here, by bytes too
    options.PublishAsync.AckHandler = acknowledged;
    options.PublishAsync.AckHandlerClosure = flight_.get();
    jsCtx* made = nullptr;
    check(natsConnection_JetStream(&made, connection, &options), "publishing");
    context_.reset(made);
}

void JetStreamWindow::giveUp() {
    if (context_ == nullptr) {
        return;
    }
    natsMsgList pending{};
    js_PublishAsyncGetPendingList(&pending, context_.get());
    natsMsgList_Destroy(&pending);
    context_.reset();
    past_.push_back(std::exchange(flight_, std::make_unique<Flight>()));
}

bool JetStreamWindow::isEmpty() const {
    const std::scoped_lock lock(flight_->mutex);
    return flight_->records == 0 && !flight_->doubt.has_value();
}

bool JetStreamWindow::isFull(std::size_t bytes) const {
    const std::scoped_lock lock(flight_->mutex);
    return flight_->doubt.has_value() || flight_->records >= MOST_RECORDS || flight_->bytes + bytes > MOST_BYTES;
}

// Until no more than so many are in flight.
void JetStreamWindow::wait(std::size_t records, std::size_t bytes) {
    std::unique_lock lock(flight_->mutex);
    flight_->awaitedRecords = records;
    flight_->awaitedBytes = bytes;
    while (!flight_->hasCome()) {
        const std::size_t before = flight_->records;
        flight_->isAwaited = true;
        flight_->changed.wait_for(lock, ACKNOWLEDGED_WITHIN, [&] { return flight_->hasCome(); });
        flight_->isAwaited = false;
        if (!flight_->hasCome() && flight_->records == before) {
            flight_->doubt = "no acknowledgement has come for " + std::to_string(ACKNOWLEDGED_WITHIN.count()) + " s";
        }
    }
    if (const std::optional<std::string> doubt = flight_->doubt; doubt.has_value()) {
        lock.unlock();
        giveUp();
        throw Unreachable("publishing to " + stream_ + ": " + *doubt);
    }
}

void JetStreamWindow::publish(natsConnection* connection, const Envelope& envelope, std::uint64_t expected) {
    if (context_ == nullptr) {
        begin(connection);
    }
    const std::size_t bytes = envelope.payload.size();
    if (isFull(bytes)) {
        wait(MOST_RECORDS / 2, MOST_BYTES / 2);
    }
    MessageHandle message = messageOf(envelope);
    jsPubOptions options;
    jsPubOptions_Init(&options);
    options.ExpectStream = stream_.c_str();
    options.ExpectLastSeq = expected;
    // The sequence alone would let the rest of a window in behind records that others have put in front of it. Where
    // nothing is in flight no id is asked for: a server that has started again may have forgotten it.
    if (isEmpty()) {
        chain_ = randomId() + '-';
        published_ = 0;
    }
    const std::string id = chain_ + std::to_string(published_ + 1);
    const std::string before = chain_ + std::to_string(published_);
    options.MsgId = id.c_str();
    options.ExpectLastMsgId = published_ == 0 ? nullptr : before.c_str();
    published_ += 1;
    {
        const std::scoped_lock lock(flight_->mutex);
        flight_->records += 1;
        flight_->bytes += bytes;
    }
    natsMsg* given = message.release();
    const natsStatus status = js_PublishMsgAsync(context_.get(), &given, &options);
    message.reset(given);  // null when it was taken
    if (status != NATS_OK) {
        giveUp();
        check(status, "publishing to " + stream_);
    }
}

void JetStreamWindow::settle() {
    wait(0, 0);
}

}  // namespace tabulo::shipping
