#include "tool/serve/http_server.h"

#include <fmt/format.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <thread>
#include <utility>

#include "tool/serve/gate.h"
#include "tool/serve/limits.h"
#include "tool/status.h"

namespace tabulo::tool::serve {

namespace {

// A thread for each connection, so that a stream of events holds up nobody else; those above the limit are refused.
class ConnectionThreads : public httplib::TaskQueue {
  public:
    void enqueue(std::function<void()> connection) override {
        {
            std::unique_lock lock(shared_->mutex);
            // Who is not served yet waits to be accepted; who has been sends a request in time, or goes.
            shared_->ended.wait(lock, [this] { return shared_->running < MOST_CONNECTIONS; });
            shared_->running += 1;
        }
        try {
            std::thread([shared = shared_, connection = std::move(connection)] {
                connection();
                shared->end();
            }).detach();                      // counted: the end waits for all of them
        } catch (const std::system_error&) {  // the system has no thread to give: the connection is lost
            shared_->end();
        }
    }

    void shutdown() override {
        std::unique_lock lock(shared_->mutex);
        shared_->ended.wait(lock, [this] { return shared_->running == 0; });
    }

  private:
    struct Shared {
        void end() {
            const std::lock_guard lock(mutex);
            running -= 1;
            ended.notify_all();
        }

        std::mutex mutex;
        std::condition_variable ended;
        std::size_t running = 0;
    };

    std::shared_ptr<Shared> shared_ = std::make_shared<Shared>();
};

}  // namespace

HttpServer::HttpServer(Gate gate, Answer answer) {
    new_task_queue = [] { return new ConnectionThreads; };  // the library deletes it
    set_payload_max_length(LARGEST_BODY);
    set_tcp_nodelay(true);
    // Not as the library does it: with SO_REUSEPORT another process could take a share of the connections.
    set_socket_options([](socket_t socket) {
        const int yes = 1;
        (void)::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes,
                           sizeof(yes));  // else the port is free a little later
    });
    set_keep_alive_timeout(IDLE_TIME.count());
    set_keep_alive_max_count(MOST_REQUESTS);
    // What the library refuses itself (a line that is too long, what is no request) is told as every other error.
    set_error_handler([](const httplib::Request&, httplib::Response& response) {
        if (response.body.empty()) {
            setError(response, response.status, "this is no request that can be answered: it is malformed or too long");
        }
    });
    const auto guarded = [answer = std::move(answer)](const httplib::Request& request, httplib::Response& response) {
        try {
            answer(request, response);
        } catch (const std::exception& error) {  // of no kind that a question has: a fault of ours, or no memory
            response.status = 500;
            response.set_content(fmt::format("{{\"error\": \"this could not be answered: {}\"}}", error.what()),
                                 "application/json");
        }
    };
    // Everything but a statement is asked for by GET, and is answered here: patterns of paths are never needed.
    set_pre_routing_handler(
        [gate = std::move(gate), guarded](const httplib::Request& request, httplib::Response& response) {
            if (!gate(request, response) && request.method == "POST") {
                return HandlerResponse::Unhandled;
            }
            if (response.status == -1) {
                guarded(request, response);
            }
            return HandlerResponse::Handled;
        });
    Post("/api/sql", guarded);
}

HttpServer::~HttpServer() = default;

void HttpServer::encrypt(const std::string& certificate, const std::string& key) {
    context_.reset(SSL_CTX_new(TLS_server_method()));
    if (context_ == nullptr || SSL_CTX_set_min_proto_version(context_.get(), TLS1_2_VERSION) != 1) {
        throw Failure("TLS cannot be used on this machine");
    }
    if (SSL_CTX_use_certificate_chain_file(context_.get(), certificate.c_str()) != 1) {
        throw Failure(fmt::format("{} holds no certificate that can be used (PEM is what it must be)", certificate));
    }
    if (SSL_CTX_use_PrivateKey_file(context_.get(), key.c_str(), SSL_FILETYPE_PEM) != 1 ||
        SSL_CTX_check_private_key(context_.get()) != 1) {
        throw Failure(fmt::format("{} holds no key that belongs to the certificate in {}", key, certificate));
    }
}

int HttpServer::bind(const std::string& address, int port) {
    errno = 0;
    int bound = port;
    if (port == 0) {
        bound = bind_to_any_port(address);
    } else if (!bind_to_port(address, port)) {
        bound = -1;
    }
    if (bound <= 0) {
        throw Failure(fmt::format("{}:{} cannot be listened at: {}", address, port,
                                  errno != 0 ? std::strerror(errno) : "it is taken, or no address of this machine"));
    }
    return bound;
}

void HttpServer::run() {
    listen_after_bind();
    ending_ = true;
}

void HttpServer::stop() {
    ending_ = true;
    httplib::Server::stop();
}

// Answers one request. False when the connection must end.
bool HttpServer::serveRequest(ConnectionStream& stream) {
    bool isClosed = false;
    bool isBodyLeft = false;
    std::string length = "0";
    const bool isAnswered = process_request(stream, false, isClosed, [&](httplib::Request& request) {
        isBodyLeft = request.has_header("Transfer-Encoding");
        length = request.has_header("Content-Length") ? request.get_header_value("Content-Length") : length;
        request.ranges.clear();                    // a short request must not ask for parts by the thousand
        request.headers.erase("Accept-Encoding");  // on one machine packing costs more than it spares
    });
    switch (stream.trouble()) {
        case ConnectionStream::Trouble::tooLarge:
            stream.refuse("431 Request Header Fields Too Large",
                          fmt::format("a request may have {} bytes of line and headers and {} of body", LARGEST_HEADERS,
                                      LARGEST_BODY));
            return false;
        case ConnectionStream::Trouble::tooSlow:
            stream.refuse("408 Request Timeout",
                          fmt::format("a request must arrive within {} seconds", ARRIVAL_TIME.count()));
            return false;
        case ConnectionStream::Trouble::closed:
            return false;
        case ConnectionStream::Trouble::none:
            break;
    }
    // What was refused without its body, or needs none, leaves it there: it must not be taken for the next request.
    isBodyLeft = isBodyLeft || length != std::to_string(stream.bodyBytes());
    return isAnswered && !isClosed && !isBodyLeft;
}

bool HttpServer::process_and_close_socket(socket_t socket) {
    {
        ConnectionStream stream(socket, context_.get(), ending_);
        if (stream.open()) {
            while (!ending_ && stream.beginRequest() && serveRequest(stream)) {
            }
        }
    }
    ::shutdown(socket, SHUT_RDWR);
    ::close(socket);
    return true;
}

}  // namespace tabulo::tool::serve
