// Who may ask: the token, and that a request is for this server and comes from its own page.
#pragma once

#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace httplib {
struct Request;
struct Response;
}  // namespace httplib

namespace tabulo::tool::serve {

class Gate {
  public:
    // With a new token of 256 random bits. Failure when the system has none to give.
    Gate();

    const std::string& token() const noexcept { return token_; }
    // Where it listens, once that is known, and the names by which it may be asked for besides. Addresses in numbers
    // are always taken: no name of somebody else's can stand for them.
    void know(const std::string& address, int port, bool isEncrypted, const std::vector<std::string>& names);
    // The address of the page, with the token: by the first of the names, if there is one.
    std::string page() const;

    // Sets the response and gives true when the request is not to be answered, or is answered: a wrong host or origin
    // (403), no token where one is needed (401), another method than is known (405), and the address with the token,
    // which becomes a cookie.
    bool refuses(const httplib::Request& request, httplib::Response& response) const;

  private:
    bool isOurHost(std::string_view host) const;
    bool isOurOrigin(const httplib::Request& request) const;
    bool hasToken(const httplib::Request& request) const;
    bool isToken(std::string_view text) const;

    std::string token_;
    std::string cookie_;  // its name, which has the port in it: cookies do not tell ports apart
    std::string shownHost_;
    std::string scheme_;
    std::string port_;
    std::set<std::string> hosts_;  // in small letters
};

// Sets an answer that tells what is wrong, in JSON.
void setError(httplib::Response& response, int status, std::string_view why);

}  // namespace tabulo::tool::serve
