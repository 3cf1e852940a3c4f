// A log in memory, in the place of a cluster: with what can go wrong there.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "adapters/nats/log_stream.h"

namespace tabulo::shipping::test {

// What the cluster holds, shared by those who reach it.
struct MemoryLog {
    std::vector<Stored> records{};  // sequence 1 first
    std::uint64_t first = 1;        // those in front of it are gone
    std::multimap<std::string, std::function<std::string()>> answers{};
    std::function<void(std::uint64_t)> beforeRead{};  // called with the sequence that a cursor is about to give
    std::function<void()> beforePublish{};

    // The frames of a table's messages, in their order, parts joined.
    std::size_t countOf(const std::string& subjectStart) const;
};

class MemoryStream : public LogStream {
  public:
    explicit MemoryStream(MemoryLog& log, std::string name = "ENG1") : log_(log), name_(std::move(name)) {}

    // Each publish fails with this chance in a hundred: of what is in flight then, some of the first records are
    // stored.
    void failNowAndThen(std::uint32_t seed, int percent);
    std::size_t limit = 1 << 20;

    const std::string& name() const noexcept override { return name_; }
    std::size_t payloadLimit() const noexcept override { return limit; }
    Ends ends() override;
    std::optional<Stored> last(const std::string& subjects) override;
    std::optional<Stored> at(std::uint64_t sequence) override;
    std::optional<Stored> from(std::uint64_t sequence, const std::string& subjects) override;
    std::vector<std::string> subjects(const std::string& matching) override;
    std::unique_ptr<LogCursor> read(std::uint64_t from) override;
    std::uint64_t append(const Envelope& envelope) override;
    void publish(const Envelope& envelope, std::uint64_t expected) override;
    void settle() override;
    void answer(const std::string& subject, std::function<std::string()> answer) override;
    std::vector<std::string> ask(const std::string& subject, std::chrono::milliseconds time, bool one) override;

  private:
    void store(std::size_t count);
    void mayFail();

    MemoryLog& log_;
    std::string name_;
    std::vector<Stored> inFlight_;
    std::mt19937 chance_;
    int percent_ = 0;
};

// Whether a subject matches a filter, in which "*" stands for one part and a ">" at the end for all that come.
bool matches(const std::string& subject, const std::string& filter);

}  // namespace tabulo::shipping::test
