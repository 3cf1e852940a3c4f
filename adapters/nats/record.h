// What goes over: a record of a stream, which is one message there. This page and docs/shipping.md tell the same.
//
//   kind      subject                              payload
//   message   NAME.<table>.<class>.<MsgType>       the stored frame, or one part of it
//   layout    NAME.<table>.=layout                 the table's layout, before its first message (layout_text.h)
//   drop      NAME.<table>.=drop                   none: the table was emptied
//   rewind    NAME.<table>.=rewind                 the beginning of the last frame that is kept, or none: what stands
//                                                  at that place and behind it is not in the source any more
//   gap       NAME.<table>.=gap                    a sentence: what is missing here is known to be missing
//   session   NAME.<table>.=session                the values of a session info table (session_text.h)
//   owner     NAME.=owner                          the shipper that publishes from here on, goes on, or has ended
//                                                  (owner.h)
//   fence     NAME.=fence                          a shipper that is about to do so (publisher.h). A record of a table
//                                                  counts only if the newest one of these two in front of it is an
//                                                  owner's
//
// The marks begin with '=', as servers lose what stands in front of an '@' on their way between each other.
//
// <table> and <MsgType> are escaped (subject_token.h); <class> is APP_FROM, APP_TO, ADMIN_FROM, ADMIN_TO, RESENT, or
// =none for a message without one. Headers, each in its kinds:
//
//   Tabulo-Table        those of tables   the table's name, escaped as in the subject
//   Tabulo-Place        those of tables   "<incarnation>/<offset>": 1 for the table's first content, one more after
//                                         each drop or replacement, and more than ever before where the stream has
//                                         lost all of them; and in the table's file, where the frame stands, a
//                                         layout's first block begins, or the table goes on behind a rewind; else 0
//   Tabulo-Message      message           "<uniform id>/<MsgSeqNum>/<time>", as stored
//   Tabulo-Part         message in parts  "<first byte>/<bytes of the whole frame>"
//   Tabulo-Kept         rewind            where the frame stands that its payload begins
// Few headers with several numbers each, and not one for each number: the client library takes a fifth of a record's
// time for three of them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "tabulo/message.h"

namespace tabulo::shipping {

enum class RecordKind { message, layout, drop, rewind, gap, session, owner, fence };

// Whether records of a kind are of a table.
constexpr bool isOfTable(RecordKind kind) noexcept {
    return kind != RecordKind::owner && kind != RecordKind::fence;
}

struct Record {
    RecordKind kind = RecordKind::message;
    std::string table{};
    std::int64_t incarnation = 1;
    std::int64_t offset = 0;
    std::int32_t uniformId = 0;
    std::int32_t seqNum = 0;
    std::int64_t time = 0;
    std::int64_t at = 0;  // of a message, the payload's first byte in its frame; of a rewind, the kept frame's offset
    std::int64_t whole = 0;                // bytes of the frame; the payload's where it is not in parts
    std::span<const std::byte> payload{};  // borrowed

    bool isLastPart() const noexcept { return at + static_cast<std::int64_t>(payload.size()) == whole; }
};

struct Header {
    const char* name;
    std::string value;
};

// A text as a payload, which borrows it; and a payload as a text.
inline std::span<const std::byte> bytesOf(const std::string& text) noexcept {
    return std::as_bytes(std::span(text));
}
inline std::string_view textOf(std::span<const std::byte> payload) noexcept {
    return {reinterpret_cast<const char*>(payload.data()), payload.size()};
}

// A record as a transport takes it.
struct Envelope {
    std::string subject;
    std::vector<Header> headers;
    std::span<const std::byte> payload;  // borrowed
};

// A record as a transport has stored it.
struct Stored {
    std::uint64_t sequence = 0;  // in the stream, from 1 on
    std::string subject;
    std::vector<std::pair<std::string, std::string>> headers;
    std::vector<std::byte> payload;
};

// What stands in a stream and is no record of ours, or a damaged one. The text names the sequence and what is wrong.
struct ForeignRecord : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// The record of a message, or the part of it that begins at a byte of its frame and has so many. Borrows the frame.
Record recordOf(const MessageView& message, std::int64_t incarnation, std::int64_t at, std::int64_t length);

// `stream`: the name of the stream. `message`: of a record of the kind message, for its subject; else null.
Envelope envelopeOf(const Record& record, std::string_view stream, const MessageView* message);
// Borrows the payload. ForeignRecord.
Record recordOf(const Stored& stored);

// Whether a table can be called so: it is a file of a receiver's folder, and of no other one.
bool isTableName(std::string_view name);

// The subjects of all records of a table, of its messages, and of one kind of them that is no message.
std::string subjectsOf(std::string_view stream, std::string_view table);
std::string messagesOf(std::string_view stream, std::string_view table);
std::string subjectOf(std::string_view stream, std::string_view table, RecordKind kind);
// Of one kind that is of no table.
std::string subjectOf(std::string_view stream, RecordKind kind);

}  // namespace tabulo::shipping
