// Server-sent events: /api/events and /api/verify. Each holds its connection's thread until the reader goes, the server
// ends, or there is no more to tell.
#pragma once

#include <atomic>
#include <string>

#include "tool/serve/question.h"
#include "tool/serve/table_board.h"

namespace httplib {
struct Request;
struct Response;
}  // namespace httplib

namespace tabulo::tool::serve {

// What all streams of a server share. It must outlive them.
struct Streams {
    const TableBoard& board;
    const std::atomic<bool>& ending;
    std::atomic<int> open = 0;
    std::atomic<int> verifying = 0;
};

// Begin a stream as the response to a request. Refusal (503) when there are too many.
void streamTables(Streams& streams, httplib::Response& response);
void streamVerify(Streams& streams, const Question& question, httplib::Response& response);

// All tables, or those of news, as both /api/tables and its events have them.
std::string tablesJson(const TableBoard::News& news);

}  // namespace tabulo::tool::serve
