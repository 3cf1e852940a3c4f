// Who publishes a stream: the payload of an owner record, and what an owner answers when another one asks. Lines of a
// name and a value:
//
//   host db7
//   pid 4711
//   started 1763850000
//   id 5f1d0a9c2b7e4468
//   ended 1763936400           when it has ended well: nothing of it is on its way any more
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tabulo::shipping {

struct Owner {
    std::string host{};
    std::int64_t pid = 0;
    std::int64_t started = 0;  // seconds since 1970
    std::string id{};          // random, of 16 hexadecimal digits
    std::int64_t ended = 0;    // as `started`; 0 while it is not known to have

    // This process, with an id that no other call has given.
    static Owner here();

    std::string text() const;
    // "process 4711 on db7, since 2025-11-22T22:20:00Z"
    std::string sentence() const;
    // Where it answers, outside of the stream.
    std::string subject(std::string_view stream) const;
};

// None for a text that Owner::text cannot have made.
std::optional<Owner> ownerOf(std::string_view text);

// 16 hexadecimal digits that no other call has given.
std::string randomId();

// Where all shippers and receivers of a stream answer how far behind they are.
std::string lagSubject(std::string_view stream);

}  // namespace tabulo::shipping
