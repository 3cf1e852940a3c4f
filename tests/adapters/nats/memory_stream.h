// A log in memory, in the place of a cluster: with what can go wrong there.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "adapters/nats/log_stream.h"

namespace tabulo::shipping::test {

// What the cluster holds, shared by those who reach it.
struct MemoryLog {
    // A record on its way, and the sequence that it expects; none where any will do.
    struct Sent {
        Stored record;
        std::optional<std::uint64_t> expected{};
    };

    std::vector<Stored> records{};  // sequence 1 first; one without a subject was deleted
    std::deque<Sent> late{};        // of shippers that do not hear of it any more, the oldest first
    std::uint64_t first = 1;        // those in front of it are gone
    std::int64_t made = 1;
    std::set<std::uint64_t> leftOutOnce{};  // sequences that a cursor does not give the first time
    std::multimap<std::string, std::function<std::string()>> answers{};
    std::function<void(std::uint64_t)> beforeRead{};  // called with the sequence that a cursor is about to give
    std::function<void()> beforePublish{};
    std::function<void(std::uint64_t)> beforeAppended{};  // called with the number, from 0 on, of one of several

    // As the cluster does it: taken only where it expects the newest sequence.
    bool take(Sent sent);
    void takeLate(std::size_t count);
    // How many records have a subject that begins so.
    std::size_t countOf(const std::string& subjectStart) const;
};

class MemoryStream : public LogStream {
  public:
    explicit MemoryStream(MemoryLog& log, std::string name = "ENG1") : log_(log), name_(std::move(name)) {}
    ~MemoryStream() override { forget(); }
    MemoryStream(const MemoryStream&) = delete;
    MemoryStream& operator=(const MemoryStream&) = delete;

    // Each publish fails with this chance in a hundred: what is in flight then comes to the log at any later time.
    void failNowAndThen(std::uint32_t seed, int percent);
    // What is in flight comes to the log at any later time, of which this stream hears no more.
    void forget();
    std::size_t limit = 1 << 20;

    const std::string& name() const noexcept override { return name_; }
    std::size_t payloadLimit() const noexcept override { return limit; }
    Ends ends() override;
    std::optional<Stored> last(const std::string& subjects) override;
    std::optional<Stored> at(std::uint64_t sequence) override;
    std::optional<Stored> from(std::uint64_t sequence, const std::string& subjects) override;
    std::vector<std::string> subjects(const std::string& matching) override;
    std::unique_ptr<LogCursor> read(std::uint64_t from) override;
    Ends append(const Envelope& envelope, std::uint64_t times) override;
    void publish(const Envelope& envelope, std::uint64_t expected) override;
    void settle() override;
    void remove(std::uint64_t sequence) override;
    void answer(const std::string& subject, std::function<std::string()> answer) override;
    std::vector<std::string> ask(const std::string& subject, std::chrono::milliseconds time, bool one) override;

  private:
    void mayFail();
    void someComeLate();
    [[noreturn]] void doubt(const std::string& why);

    MemoryLog& log_;
    std::string name_;
    std::vector<MemoryLog::Sent> inFlight_;
    std::mt19937 chance_;
    int percent_ = 0;
};

// Whether a subject matches a filter, in which "*" stands for one part and a ">" at the end for all that come.
bool matches(const std::string& subject, const std::string& filter);

}  // namespace tabulo::shipping::test
