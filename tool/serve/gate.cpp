#include "tool/serve/gate.h"

#include <fmt/format.h>
#include <openssl/crypto.h>
#include <openssl/rand.h>
#include <rapidjson/stringbuffer.h>

#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "tool/format/json_text.h"
#include "tool/listing.h"
#include "tool/lowered.h"
#include "tool/serve/http_library.h"
#include "tool/serve/limits.h"
#include "tool/serve/request_words.h"
#include "tool/status.h"
#include "tool/text_bytes.h"

namespace tabulo::tool::serve {

namespace {

constexpr std::size_t TOKEN_BYTES = 32;

// Base64 as it may stand in an address.
std::string newToken() {
    std::array<unsigned char, TOKEN_BYTES> bytes{};
    if (RAND_bytes(bytes.data(), static_cast<int>(bytes.size())) != 1) {
        throw Failure("the system has no random numbers to give for a token");
    }
    std::string text;
    appendBase64({reinterpret_cast<const char*>(bytes.data()), bytes.size()}, &text);
    std::replace(text.begin(), text.end(), '+', '-');
    std::replace(text.begin(), text.end(), '/', '_');
    text.erase(text.find_last_not_of('=') + 1);
    return text;
}

}  // namespace

void setError(httplib::Response& response, int status, std::string_view why) {
    rapidjson::StringBuffer body;
    appendJsonString(shownText(why), &body);
    response.status = status;
    response.set_content(fmt::format("{{\"error\":{}}}\n", std::string_view(body.GetString(), body.GetSize())),
                         "application/json");
}

Gate::Gate() : token_(newToken()) {
}

void Gate::know(const std::string& address, int port, bool isEncrypted, const std::vector<std::string>& names) {
    port_ = std::to_string(port);
    cookie_ = "tabulo_" + port_;
    scheme_ = isEncrypted ? "https" : "http";
    const std::string inAddress = address.find(':') == std::string::npos ? address : fmt::format("[{}]", address);
    shownHost_ = names.empty() ? inAddress : names.front();
    hosts_ = {"localhost"};
    std::transform(names.begin(), names.end(), std::inserter(hosts_, hosts_.end()), lowered);
}

std::string Gate::page() const {
    return fmt::format("{}://{}:{}/?token={}", scheme_, shownHost_, port_, token_);
}

bool Gate::isOurHost(std::string_view host) const {
    const HostWords words = hostWords(host);
    const std::string standard = scheme_ == "https" ? "443" : "80";
    return (words.port.empty() ? standard : words.port) == port_ &&
           (hosts_.contains(words.name) || isNumericHost(words.name));
}

bool Gate::isOurOrigin(const httplib::Request& request) const {
    const std::string origin = request.get_header_value("Origin");
    if (!origin.empty() &&
        lowered(origin) != lowered(fmt::format("{}://{}", scheme_, request.get_header_value("Host")))) {
        return false;
    }
    const std::string site = request.get_header_value("Sec-Fetch-Site");
    if (site.empty() || site == "same-origin" || site == "none") {
        return true;
    }
    // A link on another page may lead to ours; what it asks for then is its own business.
    return request.get_header_value("Sec-Fetch-Mode") == "navigate" && request.method == "GET" && request.path == "/";
}

bool Gate::isToken(std::string_view text) const {
    return text.size() == token_.size() && CRYPTO_memcmp(text.data(), token_.data(), token_.size()) == 0;
}

bool Gate::hasToken(const httplib::Request& request) const {
    constexpr std::string_view BEARER = "Bearer ";
    const std::string authorization = request.get_header_value("Authorization");
    if (authorization.starts_with(BEARER)) {
        return isToken(std::string_view(authorization).substr(BEARER.size()));
    }
    for (std::size_t i = 0; i < request.get_header_value_count("Cookie"); ++i) {
        const std::string cookies = request.get_header_value("Cookie", i);
        const std::optional<std::string_view> token = cookieValue(cookies, cookie_);
        if (token.has_value() && isToken(*token)) {
            return true;
        }
    }
    return false;
}

bool Gate::refuses(const httplib::Request& request, httplib::Response& response) const {
    response.set_header("Content-Security-Policy",
                        "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' data:; connect-src "
                        "'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'");
    response.set_header("X-Content-Type-Options", "nosniff");
    response.set_header("Referrer-Policy", "no-referrer");
    response.set_header("Cross-Origin-Resource-Policy", "same-origin");
    response.set_header("Cache-Control", "no-store");
    if (request.get_header_value_count("Host") != 1 || !isOurHost(request.get_header_value("Host"))) {
        setError(response, 403, "this server is not known by that name: use the address that it printed, or --host");
        return true;
    }
    if (!isOurOrigin(request)) {
        setError(response, 403, "another page has asked for this: only the server's own page may");
        return true;
    }
    const bool isStatement = request.path == "/api/sql";
    if (request.method != (isStatement ? "POST" : "GET") && (isStatement || request.method != "HEAD")) {
        response.set_header("Allow", isStatement ? "POST" : "GET, HEAD");
        setError(response, 405, fmt::format("{} is asked for by {}", request.path, isStatement ? "POST" : "GET"));
        return true;
    }
    const std::string length = request.get_header_value("Content-Length");
    if (isMore(length, LARGEST_BODY)) {
        setError(response, 413, fmt::format("the body of a request has at most {} bytes", LARGEST_BODY));
        return true;
    }
    if (request.path == "/" && request.has_param("token")) {
        if (!isToken(request.get_param_value("token"))) {
            setError(response, 401, "this token is not the one that the server printed when it was started last");
            return true;
        }
        response.set_header("Set-Cookie", fmt::format("{}={}; Path=/; HttpOnly; SameSite=Strict{}", cookie_, token_,
                                                      scheme_ == "https" ? "; Secure" : ""));
        response.set_header("Location", "/");
        response.status = 303;
        return true;
    }
    // The page itself holds nothing of the tables, and a link to it that somebody has sent comes without the cookie.
    if (request.path.starts_with("/api/") && !hasToken(request)) {
        setError(response, 401, "open the address that the server printed: it holds the token");
        return true;
    }
    return false;
}

}  // namespace tabulo::tool::serve
