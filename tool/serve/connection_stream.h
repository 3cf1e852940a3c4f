// One connection, as the HTTP library reads and writes it: a socket or TLS over one, whose requests may be so large and
// take so long. The library bounds neither headers nor chunked bodies nor who sends a byte now and then; this does.
#pragma once

#include <openssl/ssl.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "tool/serve/http_library.h"

namespace tabulo::tool::serve {

class ConnectionStream : public httplib::Stream {
  public:
    enum class Trouble { none, tooLarge, tooSlow, closed };

    // The socket is borrowed. Without a context it is not encrypted. Once `ending` is true it gives and takes no more.
    ConnectionStream(int socket, SSL_CTX* context, const std::atomic<bool>& ending);
    ~ConnectionStream() override;
    ConnectionStream(const ConnectionStream&) = delete;
    ConnectionStream& operator=(const ConnectionStream&) = delete;

    // Makes the connection's encryption, if there is one. False for a peer with which that cannot be done in time.
    bool open();
    // Waits for the first byte of the next request, and begins to count. False when there is none in time.
    bool beginRequest();
    // Why the request could not be read, or the answer not be written.
    Trouble trouble() const noexcept { return trouble_; }
    // How much of the request's body has been read.
    std::size_t bodyBytes() const noexcept { return bodyBytes_; }
    // Writes what the HTTP library could not answer, and lets the peer read it before the connection is closed.
    void refuse(std::string_view statusLine, std::string_view why);

    bool is_readable() const override { return trouble_ == Trouble::none; }
    bool is_writable() const override;
    ssize_t read(char* data, std::size_t size) override;
    ssize_t write(const char* data, std::size_t size) override;
    void get_remote_ip_and_port(std::string& ip, int& port) const override;
    void get_local_ip_and_port(std::string& ip, int& port) const override;
    socket_t socket() const override { return socket_; }

  private:
    using Clock = std::chrono::steady_clock;
    struct Closer {
        void operator()(SSL* tls) const noexcept { SSL_free(tls); }
    };

    bool fill(Clock::time_point deadline);
    bool await(short events, Clock::time_point deadline);
    // What a call of TLS waits for; 0 when it has failed.
    short wantedBy(int result) const;
    void count(char byte);

    int socket_;
    const std::atomic<bool>& ending_;
    std::unique_ptr<SSL, Closer> tls_;
    Trouble trouble_ = Trouble::none;
    Clock::time_point deadline_;
    std::array<char, 4096> buffer_{};
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
    std::size_t headerBytes_ = 0;
    std::size_t bodyBytes_ = 0;
    std::size_t endOfHeaders_ = 0;  // how much of "\r\n\r\n" the last bytes are; all of it behind the headers
};

}  // namespace tabulo::tool::serve
