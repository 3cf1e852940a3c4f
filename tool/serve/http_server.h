// The HTTP server: connections, each with a thread of its own, and what each request must be before it is answered.
#pragma once

#include <openssl/ssl.h>

#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "tool/serve/connection_stream.h"

namespace tabulo::tool::serve {

// Answers requests by one function. All its methods but stop() are called by one thread.
class HttpServer : private httplib::Server {
  public:
    // Answers a request whose body has been read. It may throw: what is told by a refusal or as status 500.
    using Answer = std::function<void(const httplib::Request& request, httplib::Response& response)>;
    // Refuses a request before its body is read: true when it has set the response.
    using Gate = std::function<bool(const httplib::Request& request, httplib::Response& response)>;

    HttpServer(Gate gate, Answer answer);
    ~HttpServer() override;

    // Encrypts with a certificate and its key, both in PEM files. Failure for files that cannot be used.
    void encrypt(const std::string& certificate, const std::string& key);
    // Takes an address; port 0 takes a free one. Gives the port. Failure with the system's words.
    int bind(const std::string& address, int port);
    // Serves until it is stopped; all connections have ended then.
    void run();
    // Ends it, also from a signal's thread.
    void stop();
    // True once it ends: those who wait for something to tell look at it.
    const std::atomic<bool>& ending() const noexcept { return ending_; }

  private:
    struct ContextCloser {
        void operator()(SSL_CTX* context) const noexcept { SSL_CTX_free(context); }
    };

    bool process_and_close_socket(socket_t socket) override;
    bool serveRequest(ConnectionStream& stream);

    std::unique_ptr<SSL_CTX, ContextCloser> context_;
    std::atomic<bool> ending_ = false;
};

}  // namespace tabulo::tool::serve
