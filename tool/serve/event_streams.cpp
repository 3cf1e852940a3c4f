#include "tool/serve/event_streams.h"

#include <fmt/format.h>

#include <chrono>
#include <memory>
#include <string>
#include <utility>

#include "tabulo/damage.h"
#include "tabulo/error.h"
#include "tool/finding_names.h"
#include "tool/serve/http_library.h"
#include "tool/serve/limits.h"

namespace tabulo::tool::serve {

namespace {

// How long a reader that has gone is not noticed while there is nothing to tell.
constexpr std::chrono::seconds QUIET_TIME(5);
constexpr std::chrono::milliseconds WAIT_TIME(500);
constexpr std::chrono::milliseconds NEWS_TIME(100);
constexpr std::chrono::milliseconds PROGRESS_TIME(200);
constexpr int MOST_VERIFYING = 4;

// Counts a stream as long as it lives; Refusal when there would be too many.
class Counted {
  public:
    Counted(std::atomic<int>& count, int most) : count_(count) {
        if (count_.fetch_add(1) >= most) {
            count_.fetch_sub(1);
            throw Refusal(503, "too many pages look at this server at the same time: close some, and try again");
        }
    }
    ~Counted() { count_.fetch_sub(1); }
    Counted(const Counted&) = delete;
    Counted& operator=(const Counted&) = delete;

  private:
    std::atomic<int>& count_;
};

std::string eventText(std::string_view name, std::string_view json) {
    return fmt::format("event: {}\ndata: {}\n\n", name, json);
}

bool send(httplib::DataSink& sink, std::string_view text) {
    return sink.is_writable() && sink.write(text.data(), text.size());
}

// The reader has gone.
struct Gone {};

std::string findingJson(const Finding& finding) {
    Json json;
    json.begin().key("kind").text(findingName(finding.kind)).key("damage").flag(finding.damage).key("block");
    finding.block.has_value() ? json.number(*finding.block) : json.null();
    json.key("offset").number(finding.offset).key("intactBefore").number(finding.intactBefore);
    json.key("intactBehind").number(finding.intactBehind).key("text").text(finding.text).end();
    return json.take();
}

void tellVerdict(const VerifyResult& result, httplib::DataSink& sink) {
    Json json;
    json.begin().key("sound").flag(result.damages == 0).key("blocks").number(result.blocks);
    json.key("messages").number(result.messages).key("bytes").number(result.bytes);
    json.key("damages").number(result.damages).key("notes").number(result.notes).end();
    send(sink, eventText("end", json.take()));
}

void verifyInto(httplib::DataSink& sink, const std::filesystem::path& path, const std::atomic<bool>& ending) {
    constexpr std::int64_t MOST_FINDINGS = 1000;
    auto told = std::chrono::steady_clock::now();
    std::int64_t findings = 0;
    Work work;
    work.progress = [&](const Progress& progress) {
        const auto now = std::chrono::steady_clock::now();
        if (now - told < PROGRESS_TIME && !ending) {
            return;
        }
        told = now;
        const std::string json = fmt::format("{{\"done\":{},\"total\":{}}}", progress.done, progress.total);
        if (ending || !send(sink, eventText("progress", json))) {
            throw Gone();
        }
    };
    try {
        const VerifyResult result = verify(
            path,
            [&](const Finding& finding) {
                findings += 1;
                if (findings <= MOST_FINDINGS && !send(sink, eventText("finding", findingJson(finding)))) {
                    throw Gone();
                }
            },
            work);
        tellVerdict(result, sink);
    } catch (const Error& error) {
        Json json;
        json.begin().key("error").text(error.what()).end();
        send(sink, eventText("failed", json.take()));
    } catch (const Gone&) {
        // Nobody is there to be told.
    }
}

}  // namespace

std::string tablesJson(const TableBoard::News& news) {
    Json json;
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    json.begin().key("version").number(static_cast<std::int64_t>(news.version));
    json.key("now").number(
        static_cast<std::int64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count()));
    json.key("tables").beginList();
    for (const Sight& table : news.tables) {
        appendTable(*table, &json);
    }
    json.endList().key("removed").beginList();
    for (const std::string& id : news.removed) {
        json.text(id);
    }
    json.endList().key("problems").beginList();
    for (const std::string& problem : news.problems) {
        json.text(problem);
    }
    json.endList().end();
    return json.take();
}

void streamTables(Streams& streams, httplib::Response& response) {
    struct State {
        State(Streams& streams) : counted(streams.open, static_cast<int>(MOST_STREAMS)) {}
        Counted counted;
        std::uint64_t version = 0;
        std::chrono::steady_clock::time_point toldLast{};
    };
    const auto state = std::make_shared<State>(streams);
    response.set_chunked_content_provider("text/event-stream", [state, &streams](std::size_t, httplib::DataSink& sink) {
        const TableBoard::News news = streams.board.newsSince(state->version, WAIT_TIME);
        const auto now = std::chrono::steady_clock::now();
        if (streams.ending || !sink.is_writable()) {
            return false;
        }
        if (news.version > state->version) {
            state->version = news.version;
            state->toldLast = now;
            if (!send(sink, eventText("tables", tablesJson(news)))) {
                return false;
            }
            std::this_thread::sleep_for(NEWS_TIME);
            return true;
        }
        if (now - state->toldLast >= QUIET_TIME) {
            state->toldLast = now;
            return send(sink, ": \n\n");
        }
        return true;
    });
}

void streamVerify(Streams& streams, const Question& question, httplib::Response& response) {
    const std::vector<Sight> sights = question.sights();
    if (question.several("table").size() != 1 || sights[0]->info.kind != TableKind::messages) {
        throw Refusal(400, "one message table can be verified at a time: table=ID");
    }
    const auto counted = std::make_shared<Counted>(streams.verifying, MOST_VERIFYING);
    response.set_chunked_content_provider(
        "text/event-stream", [counted, path = sights[0]->path, &streams](std::size_t, httplib::DataSink& sink) {
            verifyInto(sink, path, streams.ending);
            sink.done();
            return true;
        });
}

}  // namespace tabulo::tool::serve
