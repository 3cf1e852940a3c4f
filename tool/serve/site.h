// What a server of tables answers: the page's files, and questions about the tables.
#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <string>

#include "tool/serve/event_streams.h"
#include "tool/serve/question.h"
#include "tool/serve/table_board.h"

namespace httplib {
struct Request;
struct Response;
}  // namespace httplib

namespace tabulo::tool::serve {

class Site {
  public:
    // Both must outlive it.
    Site(const TableBoard& board, const std::atomic<bool>& ending) : ending_(ending), streams_{board, ending} {}

    // Sets the response to a request that may be answered. Throws nothing but for want of memory.
    void answer(const httplib::Request& request, httplib::Response& response);

  private:
    void answerQuestion(const httplib::Request& request, httplib::Response& response);
    std::string answerTo(const httplib::Request& request, Question& question);
    static bool answerFile(const httplib::Request& request, httplib::Response& response);
    void beginQuestion();
    void endQuestion();

    const std::atomic<bool>& ending_;
    Streams streams_;
    std::mutex mutex_;
    std::condition_variable ended_;
    std::size_t running_ = 0;
};

}  // namespace tabulo::tool::serve
