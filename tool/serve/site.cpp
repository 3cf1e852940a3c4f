#include "tool/serve/site.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <string_view>
#include <utility>

#include "tabulo/error.h"
#include "tool/serve/answers.h"
#include "tool/serve/gate.h"
#include "tool/serve/http_library.h"
#include "tool/serve/limits.h"
#include "tool/serve/page_files.h"

namespace tabulo::tool::serve {

namespace {

constexpr std::string_view JSON = "application/json";

std::string contentType(std::string_view name) {
    static const std::map<std::string_view, std::string> TYPES = {{"html", "text/html; charset=utf-8"},
                                                                  {"css", "text/css; charset=utf-8"},
                                                                  {"js", "text/javascript; charset=utf-8"},
                                                                  {"svg", "image/svg+xml"},
                                                                  {"png", "image/png"}};
    const std::size_t dot = name.rfind('.');
    const auto found = TYPES.find(dot == std::string_view::npos ? "" : name.substr(dot + 1));
    return found == TYPES.end() ? "application/octet-stream" : found->second;
}

}  // namespace

bool Site::answerFile(const httplib::Request& request, httplib::Response& response) {
    const std::string_view name = request.path == "/" ? "index.html" : std::string_view(request.path).substr(1);
    const auto files = pageFiles();
    const auto found =
        std::find_if(files.begin(), files.end(), [&](const PageFile& file) { return file.name == name; });
    if (found == files.end()) {
        return false;
    }
    response.status = 200;
    response.set_content(found->bytes.data(), found->bytes.size(), contentType(found->name));
    return true;
}

// Questions read tables, so that few of them are answered at a time; the others wait for their turn.
void Site::beginQuestion() {
    std::unique_lock lock(mutex_);
    if (!ended_.wait_for(lock, QUESTION_TIME, [this] { return running_ < MOST_QUESTIONS || ending_; }) || ending_) {
        throw Refusal(503, "too many questions at the same time: ask again in a while");
    }
    running_ += 1;
}

void Site::endQuestion() {
    const std::lock_guard lock(mutex_);
    running_ -= 1;
    ended_.notify_one();
}

std::string Site::answerTo(const httplib::Request& request, Question& question) {
    using Answer = std::string (*)(Question&);
    static const std::map<std::string_view, Answer> ANSWERS = {{"/api/messages", answerMessages},
                                                               {"/api/message", answerMessage},
                                                               {"/api/timeline", answerTimeline},
                                                               {"/api/order", answerOrder},
                                                               {"/api/blocks", answerBlocks}};
    if (request.path == "/api/tables") {
        return tablesJson(streams_.board.all());
    }
    if (request.path == "/api/sql") {
        return answerSql(question, request.body);
    }
    const auto found = ANSWERS.find(request.path);
    if (found == ANSWERS.end()) {
        throw Refusal(404, fmt::format("there is nothing at {}", request.path));
    }
    return found->second(question);
}

void Site::answerQuestion(const httplib::Request& request, httplib::Response& response) {
    Question question(request.params, streams_.board, ending_, QUESTION_TIME);
    if (request.path == "/api/events") {
        streamTables(streams_, response);
        response.status = 200;
        return;
    }
    if (request.path == "/api/verify") {
        streamVerify(streams_, question, response);
        response.status = 200;
        return;
    }
    beginQuestion();
    std::string body;
    try {
        body = answerTo(request, question);
    } catch (...) {
        endQuestion();
        throw;
    }
    endQuestion();
    response.status = 200;
    response.body = std::move(body);
    response.set_header("Content-Type", std::string(JSON));
}

void Site::answer(const httplib::Request& request, httplib::Response& response) {
    if (!request.path.starts_with("/api/")) {
        if (!answerFile(request, response)) {
            setError(response, 404, fmt::format("there is nothing at {}", request.path));
        }
        return;
    }
    try {
        answerQuestion(request, response);
    } catch (const Refusal& refusal) {
        setError(response, refusal.status, refusal.what());
    } catch (const TimeIsUp&) {
        setError(response, 408,
                 fmt::format("this took more than {} s, and was ended: ask for less", QUESTION_TIME.count()));
    } catch (const Interrupted&) {
        setError(response, 503, "the server ends");
    } catch (const Error& error) {
        setError(response, 400, error.what());
    } catch (const UsageError& error) {
        setError(response, 400, error.what());
    } catch (const Failure& failure) {
        setError(response, 400, failure.what());
    }
}

}  // namespace tabulo::tool::serve
