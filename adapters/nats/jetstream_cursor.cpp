#include "adapters/nats/jetstream_cursor.h"

#include <thread>

#include "adapters/nats/nats_message.h"
#include "adapters/nats/nats_status.h"

namespace tabulo::shipping {

namespace {

constexpr std::int64_t NANOSECONDS = 1'000'000'000;
// After so much of it the consumer is asked for.
constexpr std::chrono::seconds SILENCE{2};
// Before another consumer is made, which another server may keep.
constexpr std::chrono::milliseconds ANOTHER_PAUSE{50};

}  // namespace

JetStreamCursor::JetStreamCursor(natsConnection* connection, const std::string& stream, std::uint64_t from)
    : connection_(connection), stream_(stream), next_(from) {
    subscribe();
}

JetStreamCursor::~JetStreamCursor() = default;

void JetStreamCursor::subscribe() {
    subscription_.reset();
    if (context_ == nullptr) {
        jsCtx* made = nullptr;
        check(natsConnection_JetStream(&made, connection_, nullptr), "reading " + stream_);
        context_.reset(made);
    }
    jsSubOptions options;
    jsSubOptions_Init(&options);
    options.Stream = stream_.c_str();
    options.Config.DeliverPolicy = js_DeliverByStartSequence;
    options.Config.OptStartSeq = next_;
    options.Config.AckPolicy = js_AckNone;
    options.Config.MaxDeliver = 1;
    // The server stops sending until what it has sent was taken, so that no backlog fills the memory.
    options.Config.FlowControl = true;
    options.Config.Heartbeat = NANOSECONDS;
    options.Config.MemoryStorage = true;
    options.Config.Replicas = 1;
    natsSubscription* made = nullptr;
    jsErrCode code{};
    const std::string subjects = stream_ + ".>";
    check(js_SubscribeSync(&made, context_.get(), subjects.c_str(), nullptr, &options, &code), "reading " + stream_);
    subscription_.reset(made);
    check(natsSubscription_SetPendingLimits(made, -1, 32 << 20), "reading " + stream_);
    delivered_ = 0;
    heardAt_ = std::chrono::steady_clock::now();
}

// Whether all that the stream holds has come, and the consumer is still there. One may be gone with its server, or be
// kept by a server that has fallen behind and stays so; the library tells neither.
bool JetStreamCursor::isComplete() {
    const std::uint64_t last = lastAtLeader();
    jsErrCode code{};
    jsConsumerInfo* consumer = nullptr;
    const bool isThere = natsSubscription_GetConsumerInfo(&consumer, subscription_.get(), nullptr, &code) == NATS_OK;
    jsConsumerInfo_Destroy(consumer);
    return isThere && last < next_;
}

std::uint64_t JetStreamCursor::lastAtLeader() {
    jsStreamInfo* found = nullptr;
    jsErrCode code{};
    check(js_GetStreamInfo(&found, context_.get(), stream_.c_str(), nullptr, &code), "reading " + stream_);
    return StreamInfoHandle(found)->State.LastSeq;
}

// Whether the stream's leader has a record, or may have it: a new one may not have caught up with what came behind it.
bool JetStreamCursor::mayBeAtLeader(std::uint64_t sequence, std::uint64_t behind) {
    if (lastAtLeader() < behind) {
        return true;
    }
    natsMsg* found = nullptr;
    jsErrCode code{};
    const natsStatus status = js_GetMsg(&found, context_.get(), stream_.c_str(), sequence, nullptr, &code);
    const MessageHandle message(found);
    if (status == NATS_NOT_FOUND || code == JSNoMessageFoundErr) {
        return false;
    }
    check(status, "reading " + stream_);
    return true;
}

std::optional<Stored> JetStreamCursor::next(std::chrono::milliseconds timeout) {
    if (subscription_ == nullptr) {
        subscribe();
    }
    natsMsg* message = nullptr;
    // A wait of 0 is none that libnats takes.
    const natsStatus status =
        natsSubscription_NextMsg(&message, subscription_.get(), std::max<std::int64_t>(timeout.count(), 1));
    if (status == NATS_TIMEOUT) {
        const auto now = std::chrono::steady_clock::now();
        if (now - heardAt_ > SILENCE) {
            heardAt_ = now;
            if (!isComplete()) {
                subscription_.reset();
            }
        }
        return std::nullopt;
    }
    heardAt_ = std::chrono::steady_clock::now();
    if (status != NATS_OK) {
        subscription_.reset();
        if (status == NATS_MISSED_HEARTBEAT || status == NATS_MISMATCH) {
            return std::nullopt;  // the consumer is gone, with its server perhaps
        }
        check(status, "reading " + stream_);
    }
    const MessageHandle handle(message);
    jsMsgMetaData* found = nullptr;
    check(natsMsg_GetMetaData(&found, message), "reading " + stream_);
    const MetaDataHandle meta(found);
    delivered_ += 1;
    if (meta->Sequence.Consumer != delivered_ || meta->Sequence.Stream < next_) {
        subscription_.reset();  // something was lost on the way
        return std::nullopt;
    }
    if (meta->Sequence.Stream > next_ && mayBeAtLeader(next_, meta->Sequence.Stream)) {
        subscription_.reset();  // the server that keeps the consumer lacks what the stream has
        std::this_thread::sleep_for(ANOTHER_PAUSE);
        return std::nullopt;
    }
    next_ = meta->Sequence.Stream + 1;
    pending_ = meta->NumPending;
    return storedOf(message, natsMsg_GetSubject(message), meta->Sequence.Stream);
}

}  // namespace tabulo::shipping
