#include "tool/serve/connection_stream.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>

#include "tool/serve/limits.h"

namespace tabulo::tool::serve {

namespace {

constexpr std::string_view END_OF_HEADERS = "\r\n\r\n";
// How often a wait looks whether the server ends.
constexpr std::chrono::milliseconds LOOK_TIME(200);
// A chunked body has more bytes than it holds.
constexpr std::size_t LARGEST_RAW_BODY = 2 * LARGEST_BODY;

}  // namespace

ConnectionStream::ConnectionStream(int socket, SSL_CTX* context, const std::atomic<bool>& ending)
    : socket_(socket), ending_(ending), deadline_(Clock::now() + ARRIVAL_TIME) {
    if (context != nullptr) {
        tls_.reset(SSL_new(context));
        (void)::fcntl(socket_, F_SETFL, O_NONBLOCK);  // TLS waits by await alone, as the others do
    }
}

ConnectionStream::~ConnectionStream() {
    if (tls_ != nullptr && trouble_ == Trouble::none) {
        SSL_shutdown(tls_.get());
    }
}

bool ConnectionStream::await(short events, Clock::time_point deadline) {
    while (!ending_) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        if (left <= std::chrono::milliseconds(0)) {
            trouble_ = Trouble::tooSlow;
            return false;
        }
        struct pollfd polled {
            socket_, events, 0
        };
        const int count = ::poll(&polled, 1, static_cast<int>(std::min(left, LOOK_TIME).count()));
        if (count > 0) {
            return true;  // a connection that is gone is told by the call that follows
        }
        if (count < 0 && errno != EINTR) {
            break;
        }
    }
    trouble_ = Trouble::closed;
    return false;
}

short ConnectionStream::wantedBy(int result) const {
    switch (SSL_get_error(tls_.get(), result)) {
        case SSL_ERROR_NONE:
            return POLLOUT;  // for the rest of it
        case SSL_ERROR_WANT_READ:
            return POLLIN;
        case SSL_ERROR_WANT_WRITE:
            return POLLOUT;
        default:
            return 0;
    }
}

bool ConnectionStream::open() {
    if (tls_ == nullptr) {
        return true;
    }
    if (SSL_set_fd(tls_.get(), socket_) != 1) {
        return false;
    }
    while (true) {
        const int result = SSL_accept(tls_.get());
        if (result == 1) {
            return true;
        }
        const short wanted = wantedBy(result);
        if (wanted == 0 || !await(wanted, deadline_)) {
            trouble_ = trouble_ == Trouble::none ? Trouble::closed : trouble_;
            return false;
        }
    }
}

// Reads what has come; waits for something first. False at the end.
bool ConnectionStream::fill(Clock::time_point deadline) {
    while (true) {
        ssize_t count = 0;
        short wanted = POLLIN;
        if (tls_ != nullptr) {
            const int taken = SSL_read(tls_.get(), buffer_.data(), static_cast<int>(buffer_.size()));
            wanted = taken > 0 ? wanted : wantedBy(taken);
            count = taken;
        } else {
            count = ::recv(socket_, buffer_.data(), buffer_.size(), MSG_DONTWAIT);
            wanted = count < 0 && (errno == EAGAIN || errno == EINTR) ? wanted : short{0};
        }
        if (count > 0) {
            begin_ = 0;
            end_ = static_cast<std::size_t>(count);
            return true;
        }
        if (wanted == 0) {
            trouble_ = Trouble::closed;
            return false;
        }
        if (!await(wanted, deadline)) {
            return false;
        }
    }
}

bool ConnectionStream::beginRequest() {
    headerBytes_ = 0;
    bodyBytes_ = 0;
    endOfHeaders_ = 0;
    const bool has = begin_ < end_ || fill(Clock::now() + IDLE_TIME);
    deadline_ = Clock::now() + ARRIVAL_TIME;
    return has;
}

void ConnectionStream::count(char byte) {
    if (endOfHeaders_ == END_OF_HEADERS.size()) {
        bodyBytes_ += 1;
    } else {
        headerBytes_ += 1;
        endOfHeaders_ = byte == END_OF_HEADERS[endOfHeaders_] ? endOfHeaders_ + 1 : (byte == '\r' ? 1 : 0);
    }
    if (headerBytes_ > LARGEST_HEADERS || bodyBytes_ > LARGEST_RAW_BODY) {
        trouble_ = Trouble::tooLarge;
    }
}

ssize_t ConnectionStream::read(char* data, std::size_t size) {
    if (trouble_ != Trouble::none || size == 0) {
        return trouble_ == Trouble::none ? 0 : -1;
    }
    if (Clock::now() > deadline_) {
        trouble_ = Trouble::tooSlow;
        return -1;
    }
    if (begin_ == end_ && !fill(deadline_)) {
        return trouble_ == Trouble::closed ? 0 : -1;
    }
    const std::size_t given = std::min(size, end_ - begin_);
    for (std::size_t i = 0; i < given; ++i) {
        data[i] = buffer_[begin_ + i];
        count(data[i]);
    }
    if (trouble_ != Trouble::none) {
        return -1;
    }
    begin_ += given;
    return static_cast<ssize_t>(given);
}

// False once the peer has gone, also where nothing is written for a while.
bool ConnectionStream::is_writable() const {
    struct pollfd polled {
        socket_, POLLRDHUP, 0
    };
    const bool isGone = ::poll(&polled, 1, 0) > 0 && (polled.revents & (POLLERR | POLLHUP | POLLRDHUP | POLLNVAL)) != 0;
    return !isGone && !ending_ && trouble_ != Trouble::closed;
}

ssize_t ConnectionStream::write(const char* data, std::size_t size) {
    if (trouble_ != Trouble::none) {
        return -1;  // what is wrong with the request is told by refuse
    }
    std::size_t done = 0;
    const auto deadline = Clock::now() + TAKING_TIME;
    while (done < size) {
        short wanted = POLLOUT;
        if (tls_ != nullptr) {
            constexpr std::size_t RECORD = 16384;  // the largest of TLS
            const int count = SSL_write(tls_.get(), data + done, static_cast<int>(std::min(size - done, RECORD)));
            done += count > 0 ? static_cast<std::size_t>(count) : 0;
            wanted = wantedBy(count);
        } else {
            const ssize_t count = ::send(socket_, data + done, size - done, MSG_DONTWAIT | MSG_NOSIGNAL);
            done += count > 0 ? static_cast<std::size_t>(count) : 0;
            if (count <= 0 && errno != EAGAIN && errno != EINTR) {
                wanted = 0;
            }
        }
        if (wanted == 0) {
            trouble_ = Trouble::closed;
            return -1;
        }
        if (done < size && !await(wanted, deadline)) {
            return -1;
        }
    }
    return static_cast<ssize_t>(done);
}

void ConnectionStream::refuse(std::string_view statusLine, std::string_view why) {
    const std::string body = "{\"error\": \"" + std::string(why) + "\"}\n";
    const std::string answer =
        "HTTP/1.1 " + std::string(statusLine) +
        "\r\nContent-Type: application/json\r\nConnection: close\r\nContent-Length: " + std::to_string(body.size()) +
        "\r\n\r\n" + body;
    trouble_ = Trouble::none;
    static_cast<void>(write(answer.data(), answer.size()));  // who does not take it is not told
    // What was sent and is not read would have the answer thrown away.
    ::shutdown(socket_, SHUT_WR);
    const auto end = Clock::now() + std::chrono::seconds(1);
    std::array<char, 4096> rest{};
    for (int pieces = 0; pieces < 64 && await(POLLIN, end); ++pieces) {
        if (::recv(socket_, rest.data(), rest.size(), MSG_DONTWAIT) <= 0) {
            break;
        }
    }
    trouble_ = Trouble::closed;
}

void ConnectionStream::get_remote_ip_and_port(std::string& ip, int& port) const {
    ip.clear();  // nobody asks for it
    port = 0;
}

void ConnectionStream::get_local_ip_and_port(std::string& ip, int& port) const {
    ip.clear();
    port = 0;
}

}  // namespace tabulo::tool::serve
