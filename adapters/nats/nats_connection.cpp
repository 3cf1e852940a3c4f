#include "adapters/nats/nats_connection.h"

#include <algorithm>
#include <utility>

#include "adapters/nats/log_stream.h"
#include "adapters/nats/nats_status.h"
#include "adapters/nats/text_lines.h"

namespace tabulo::shipping {

namespace {

constexpr int CONNECT_MS = 2000;
constexpr int RECONNECT_MS = 250;
constexpr int PING_MS = 2000;  // a server that is gone without a word is noticed after three of them

NatsOptionsHandle optionsOf(const NatsOptions& options, const std::string& client) {
    natsOptions* made = nullptr;
    check(natsOptions_Create(&made), "connecting");
    NatsOptionsHandle handle(made);
    std::vector<std::string> servers;
    for (const std::string_view server : splitAt(',', options.servers)) {
        servers.emplace_back(server);
    }
    std::vector<const char*> urls;
    urls.reserve(servers.size());
    for (const std::string& server : servers) {
        urls.push_back(server.c_str());
    }
    check(natsOptions_SetServers(made, urls.data(), static_cast<int>(urls.size())), "the servers' addresses");
    check(natsOptions_SetName(made, client.c_str()), "connecting");
    check(natsOptions_SetTimeout(made, CONNECT_MS), "connecting");
    check(natsOptions_SetMaxReconnect(made, -1), "connecting");
    check(natsOptions_SetReconnectWait(made, RECONNECT_MS), "connecting");
    check(natsOptions_SetPingInterval(made, PING_MS), "connecting");
    check(natsOptions_SetMaxPingsOut(made, 2), "connecting");
    if (!options.credentials.empty()) {
        check(natsOptions_SetUserCredentialsFromFiles(made, options.credentials.c_str(), nullptr),
              "the credentials in " + options.credentials);
    }
    if (!options.user.empty()) {
        check(natsOptions_SetUserInfo(made, options.user.c_str(), options.password.c_str()), "the user's name");
    }
    if (!options.authority.empty()) {
        check(natsOptions_SetSecure(made, true), "TLS");
        check(natsOptions_LoadCATrustedCertificates(made, options.authority.c_str()),
              "the certificates in " + options.authority);
    }
    if (!options.certificate.empty()) {
        check(natsOptions_SetSecure(made, true), "TLS");
        check(natsOptions_LoadCertificatesChain(made, options.certificate.c_str(), options.key.c_str()),
              "the certificate " + options.certificate + " and its key " + options.key);
    }
    return handle;
}

using Answer = std::function<std::string()>;

void giveAnswer(natsConnection* connection, natsSubscription*, natsMsg* message, void* closure) {
    const MessageHandle handle(message);
    if (const char* reply = natsMsg_GetReply(message); reply != nullptr) {
        const std::string text = (*static_cast<Answer*>(closure))();
        natsConnection_PublishString(connection, reply, text.c_str());
    }
}

// Called when no answer is being given any more.
void forgetAnswer(void* closure) {
    delete static_cast<Answer*>(closure);
}

}  // namespace

NatsConnection::NatsConnection(NatsOptions options, std::string client)
    : options_(std::move(options)), client_(std::move(client)) {
}

NatsConnection::~NatsConnection() = default;

void NatsConnection::connect() {
    const NatsOptionsHandle options = optionsOf(options_, client_);
    natsConnection* made = nullptr;
    const natsStatus status = natsConnection_Connect(&made, options.get());
    const bool isTls = !options_.authority.empty() || !options_.certificate.empty() ||
                       options_.servers.find("tls://") != std::string::npos;
    if (status == NATS_PROTOCOL_ERROR && isTls && !wasConnected_) {
        throw Refused("connecting to " + options_.servers +
                      ": the server has ended the TLS connection, as it does when it asks for a certificate that it " +
                      "trusts: name one with --cert and --key");
    }
    check(status, "connecting to " + options_.servers);
    connection_.reset(made);
    wasConnected_ = true;
}

natsConnection* NatsConnection::get() {
    if (connection_ == nullptr || natsConnection_IsClosed(connection_.get())) {
        connect();
    }
    return connection_.get();
}

std::size_t NatsConnection::maxPayload() {
    return static_cast<std::size_t>(std::max<std::int64_t>(natsConnection_GetMaxPayload(get()), 0));
}

void NatsConnection::answer(const std::string& subject, std::function<std::string()> answer) {
    natsConnection* connection = get();
    auto closure = std::make_unique<Answer>(std::move(answer));
    natsSubscription* made = nullptr;
    check(natsConnection_Subscribe(&made, connection, subject.c_str(), giveAnswer, closure.get()), "answering others");
    subscriptions_.emplace_back(made);
    check(natsSubscription_SetOnCompleteCB(made, forgetAnswer, closure.get()), "answering others");
    (void)closure.release();  // forgetAnswer has it
}

std::vector<std::string> NatsConnection::ask(const std::string& subject, std::chrono::milliseconds time, bool one) {
    natsConnection* connection = get();
    natsInbox* inbox = nullptr;
    check(natsInbox_Create(&inbox), "asking others");
    const std::string reply = inbox;
    natsInbox_Destroy(inbox);
    natsSubscription* made = nullptr;
    check(natsConnection_SubscribeSync(&made, connection, reply.c_str()), "asking others");
    const SubscriptionHandle subscription(made);
    check(natsConnection_PublishRequestString(connection, subject.c_str(), reply.c_str(), ""), "asking others");
    std::vector<std::string> answers;
    const auto end = std::chrono::steady_clock::now() + time;
    for (;;) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now()).count();
        natsMsg* message = nullptr;
        const natsStatus status =
            left <= 0 ? NATS_TIMEOUT : natsSubscription_NextMsg(&message, made, static_cast<std::int64_t>(left));
        if (status == NATS_TIMEOUT || status == NATS_NO_RESPONDERS) {
            return answers;
        }
        check(status, "asking others");
        const MessageHandle handle(message);
        if (natsMsg_IsNoResponders(message)) {
            return answers;
        }
        answers.emplace_back(natsMsg_GetData(message), static_cast<std::size_t>(natsMsg_GetDataLength(message)));
        if (one) {
            return answers;
        }
    }
}

}  // namespace tabulo::shipping
