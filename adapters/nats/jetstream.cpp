#include "adapters/nats/jetstream.h"

#include <charconv>
#include <chrono>
#include <utility>

#include "adapters/nats/jetstream_cursor.h"
#include "adapters/nats/nats_message.h"
#include "adapters/nats/nats_status.h"
#include "adapters/nats/text_lines.h"

namespace tabulo::shipping {

namespace {

constexpr std::int64_t ANSWERED_WITHIN_MS = 2000;
// What the server counts beside a payload: the headers, whose longest is the table's name, escaped.
constexpr std::size_t HEADERS = 4096;

// A message that was asked for directly tells in headers of the server what it is.
std::string headerOf(natsMsg* message, const char* name) {
    const char* value = nullptr;
    return natsMsgHeader_Get(message, name, &value) == NATS_OK && value != nullptr ? value : "";
}

}  // namespace

JetStream::JetStream(NatsOptions options, std::string stream, std::string client)
    : name_(std::move(stream)), connection_(std::move(options), std::move(client)), window_(name_) {
}

JetStream::~JetStream() = default;

jsCtx* JetStream::context() {
    natsConnection* connection = connection_.get();
    if (context_ == nullptr || of_ != connection) {
        window_.change();
        jsOptions options;
        jsOptions_Init(&options);
        options.Wait = ANSWERED_WITHIN_MS;
        jsCtx* made = nullptr;
        check(natsConnection_JetStream(&made, connection, &options), "connecting");
        context_.reset(made);
        of_ = connection;
        const std::size_t most = connection_.maxPayload();
        payloadLimit_ = most > 2 * HEADERS ? most - HEADERS : HEADERS / 2;
    }
    return context_.get();
}

void JetStream::make(int replicas) {
    jsStreamInfo* made = nullptr;
    jsErrCode code{};
    natsStatus status = js_GetStreamInfo(&made, context(), name_.c_str(), nullptr, &code);
    const std::string subjects = name_ + ".>";
    if (status != NATS_OK && code == JSStreamNotFoundErr) {
        jsStreamConfig config;
        jsStreamConfig_Init(&config);
        const char* const subject = subjects.c_str();
        const char* list[] = {subject};
        config.Name = name_.c_str();
        config.Description = "Message tables, shipped by tabulo";
        config.Subjects = list;
        config.SubjectsLen = 1;
        config.Storage = js_FileStorage;
        config.Discard = js_DiscardNew;
        config.Replicas = replicas;
        config.AllowDirect = true;
        status = js_AddStream(&made, context(), &config, nullptr, &code);
        if (status != NATS_OK && code != 0) {
            const char* words = nats_GetLastError(nullptr);
            throw Unreachable("making the stream " + name_ + " with " + std::to_string(replicas) +
                              " copies: " + (words == nullptr ? natsStatus_GetText(status) : words) +
                              "; --replicas tells how many servers are to keep it");
        }
    }
    check(status, "looking for the stream " + name_);
    const StreamInfoHandle info(made);
    const jsStreamConfig& config = *info->Config;
    if (config.SubjectsLen != 1 || config.Subjects[0] != subjects) {
        throw Refused("the stream " + name_ + " is there and keeps other subjects than " + subjects +
                      ": choose another name with --stream");
    }
    if (!config.AllowDirect) {
        throw Refused("the stream " + name_ + " is there and does not allow its records to be read directly " +
                      "(allow_direct), by which the beginning of a table is found");
    }
}

StreamInfoHandle JetStream::info(const char* subjects) {
    jsOptions options;
    jsOptions_Init(&options);
    options.Wait = ANSWERED_WITHIN_MS;
    options.Stream.Info.SubjectsFilter = subjects;
    jsStreamInfo* made = nullptr;
    jsErrCode code{};
    const natsStatus status = js_GetStreamInfo(&made, context(), name_.c_str(), &options, &code);
    if (status != NATS_OK && code == JSStreamNotFoundErr) {
        throw Unreachable("there is no stream " + name_ + " yet");
    }
    check(status, "looking at the stream " + name_);
    return StreamInfoHandle(made);
}

LogStream::Ends JetStream::ends() {
    const StreamInfoHandle info = this->info(nullptr);
    return {info->State.FirstSeq, info->State.LastSeq, info->Created};
}

std::vector<std::string> JetStream::subjects(const std::string& matching) {
    const StreamInfoHandle info = this->info(matching.c_str());
    std::vector<std::string> found;
    if (const jsStreamStateSubjects* subjects = info->State.Subjects; subjects != nullptr) {
        for (int i = 0; i < subjects->Count; ++i) {
            found.emplace_back(subjects->List[i].Subject);
        }
    }
    return found;
}

std::optional<Stored> JetStream::found(natsStatus status, jsErrCode code, natsMsg* message) {
    const MessageHandle handle(message);
    if (status == NATS_NOT_FOUND || code == JSNoMessageFoundErr) {
        return std::nullopt;
    }
    check(status, "reading the stream " + name_);
    const std::string subject = headerOf(message, "Nats-Subject");
    if (subject.empty()) {
        return storedOf(message, natsMsg_GetSubject(message), natsMsg_GetSequence(message));
    }
    return storedOf(message, subject, integerOf<std::uint64_t>(headerOf(message, "Nats-Sequence")).value_or(0));
}

std::optional<Stored> JetStream::last(const std::string& subjects) {
    natsMsg* message = nullptr;
    jsErrCode code{};
    const natsStatus status = js_GetLastMsg(&message, context(), name_.c_str(), subjects.c_str(), nullptr, &code);
    return found(status, code, message);
}

std::optional<Stored> JetStream::at(std::uint64_t sequence) {
    natsMsg* message = nullptr;
    jsErrCode code{};
    const natsStatus status = js_GetMsg(&message, context(), name_.c_str(), sequence, nullptr, &code);
    return found(status, code, message);
}

std::optional<Stored> JetStream::from(std::uint64_t sequence, const std::string& subjects) {
    jsDirectGetMsgOptions options;
    jsDirectGetMsgOptions_Init(&options);
    options.Sequence = sequence;
    options.NextBySubject = subjects.c_str();
    natsMsg* message = nullptr;
    const natsStatus status = js_DirectGetMsg(&message, context(), name_.c_str(), nullptr, &options);
    return found(status, jsErrCode{}, message);
}

std::unique_ptr<LogCursor> JetStream::read(std::uint64_t from) {
    info(nullptr);
    return std::make_unique<JetStreamCursor>(connection_.get(), name_, from);
}

LogStream::Ends JetStream::append(const Envelope& envelope, std::uint64_t times) {
    context();
    window_.settle();
    window_.giveUp();
    for (std::uint64_t i = 0; i < times; ++i) {
        window_.publish(of_, envelope, std::nullopt);
    }
    window_.settle();
    return window_.acknowledged();
}

void JetStream::publish(const Envelope& envelope, std::uint64_t expected) {
    context();
    window_.publish(of_, envelope, expected);
}

void JetStream::settle() {
    window_.settle();
}

void JetStream::remove(std::uint64_t sequence) {
    jsErrCode code{};
    const natsStatus status = js_DeleteMsg(context(), name_.c_str(), sequence, nullptr, &code);
    if (code != JSNoMessageFoundErr && code != JSSequenceNotFoundErr) {
        check(status, "deleting the record " + std::to_string(sequence) + " of " + name_);
    }
}

void JetStream::answer(const std::string& subject, std::function<std::string()> answer) {
    connection_.answer(subject, std::move(answer));
}

std::vector<std::string> JetStream::ask(const std::string& subject, std::chrono::milliseconds time, bool one) {
    return connection_.ask(subject, time, one);
}

}  // namespace tabulo::shipping
