// How much one server of tables gives to those who ask: what docs/serve.md tells. The memory of all of it together
// stays below 128 MiB with twenty viewers.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace tabulo::tool::serve {

inline constexpr std::size_t MOST_CONNECTIONS = 256;
inline constexpr std::size_t MOST_STREAMS = 64;   // of events, of these connections
inline constexpr std::size_t MOST_QUESTIONS = 8;  // answered at a time

inline constexpr std::size_t LARGEST_HEADERS = std::size_t{16} * 1024;  // with the request line
inline constexpr std::size_t LARGEST_BODY = std::size_t{64} * 1024;

// For a request to arrive, from its first byte on, and for each piece of an answer to be taken.
inline constexpr std::chrono::seconds ARRIVAL_TIME(10);
inline constexpr std::chrono::seconds TAKING_TIME(10);
// Between two requests of one connection.
inline constexpr std::chrono::seconds IDLE_TIME(30);
inline constexpr std::size_t MOST_REQUESTS = 1000;  // of one connection
inline constexpr std::chrono::seconds QUESTION_TIME(20);
inline constexpr std::chrono::seconds STATEMENT_TIME(10);

inline constexpr std::int64_t MOST_MESSAGES = 1000;                          // of one answer
inline constexpr std::size_t LARGEST_ANSWER = std::size_t{2} * 1024 * 1024;  // behind which it is cut short
inline constexpr std::int64_t MOST_STEPS = 2000;                             // of an order
inline constexpr std::int64_t MOST_BLOCKS = 20000;                           // of one answer
inline constexpr std::int64_t MOST_ROWS = 1000;                              // of a statement
inline constexpr std::int64_t STATEMENT_MEMORY = std::int64_t{32} * 1024 * 1024;

}  // namespace tabulo::tool::serve
