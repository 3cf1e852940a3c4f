#include "tests/adapters/nats/memory_stream.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <set>

#include "adapters/nats/text_lines.h"

namespace tabulo::shipping::test {

namespace {

constexpr std::size_t WINDOW = 16;

Stored storedOf(const Envelope& envelope) {
    Stored stored{.sequence = 0, .subject = envelope.subject, .headers = {}, .payload = {}};
    for (const Header& header : envelope.headers) {
        stored.headers.emplace_back(header.name, header.value);
    }
    stored.payload.assign(envelope.payload.begin(), envelope.payload.end());
    return stored;
}

class MemoryCursor : public LogCursor {
  public:
    MemoryCursor(MemoryLog& log, std::uint64_t from) : log_(log), next_(from) {}

    std::optional<Stored> next(std::chrono::milliseconds) override {
        next_ = std::max({next_, log_.first, std::uint64_t{1}});
        while (next_ <= log_.records.size() &&
               (log_.records[next_ - 1].subject.empty() || log_.leftOutOnce.erase(next_) > 0)) {
            next_ += 1;
        }
        if (next_ > log_.records.size()) {
            return std::nullopt;
        }
        if (log_.beforeRead) {
            log_.beforeRead(next_);
        }
        next_ += 1;
        return log_.records[next_ - 2];
    }
    std::uint64_t pending() const noexcept override { return log_.records.size() + 1 - next_; }

  private:
    MemoryLog& log_;
    std::uint64_t next_;
};

}  // namespace

bool matches(const std::string& subject, const std::string& filter) {
    const auto parts = splitAt('.', subject);
    const auto wanted = splitAt('.', filter);
    for (std::size_t i = 0; i < wanted.size(); ++i) {
        if (wanted[i] == ">") {
            return parts.size() > i;
        }
        if (i >= parts.size() || (wanted[i] != "*" && wanted[i] != parts[i])) {
            return false;
        }
    }
    return parts.size() == wanted.size();
}

std::size_t MemoryLog::countOf(const std::string& subjectStart) const {
    return static_cast<std::size_t>(std::count_if(records.begin(), records.end(), [&](const Stored& stored) {
        return stored.subject.starts_with(subjectStart);
    }));
}

void MemoryStream::failNowAndThen(std::uint32_t seed, int percent) {
    chance_.seed(seed);
    percent_ = percent;
}

bool MemoryLog::take(Sent sent) {
    if (sent.expected.has_value() && *sent.expected != records.size()) {
        return false;
    }
    sent.record.sequence = records.size() + 1;
    records.push_back(std::move(sent.record));
    return true;
}

void MemoryLog::takeLate(std::size_t count) {
    for (; count > 0 && !late.empty(); --count) {
        (void)take(std::move(late.front()));  // nobody hears whether it was
        late.pop_front();
    }
}

void MemoryStream::forget() {
    std::move(inFlight_.begin(), inFlight_.end(), std::back_inserter(log_.late));
    inFlight_.clear();
}

void MemoryStream::doubt(const std::string& why) {
    forget();
    throw Unreachable(why);
}

void MemoryStream::mayFail() {
    if (percent_ > 0 && chance_() % 100 < static_cast<unsigned>(percent_)) {
        doubt("the cluster of the test is away");
    }
}

void MemoryStream::someComeLate() {
    if (percent_ > 0) {
        log_.takeLate(chance_() % 3);
    }
}

LogStream::Ends MemoryStream::ends() {
    return {log_.first, log_.records.size(), log_.made};
}

std::optional<Stored> MemoryStream::last(const std::string& subjects) {
    for (std::uint64_t sequence = log_.records.size(); sequence >= log_.first && sequence > 0; --sequence) {
        if (matches(log_.records[sequence - 1].subject, subjects)) {
            return log_.records[sequence - 1];
        }
    }
    return std::nullopt;
}

std::optional<Stored> MemoryStream::at(std::uint64_t sequence) {
    const bool isThere = sequence >= log_.first && sequence > 0 && sequence <= log_.records.size();
    return isThere && !log_.records[sequence - 1].subject.empty() ? std::optional(log_.records[sequence - 1])
                                                                  : std::nullopt;
}

std::optional<Stored> MemoryStream::from(std::uint64_t sequence, const std::string& subjects) {
    for (std::uint64_t at = std::max(sequence, log_.first); at <= log_.records.size(); ++at) {
        if (matches(log_.records[at - 1].subject, subjects)) {
            return log_.records[at - 1];
        }
    }
    return std::nullopt;
}

std::vector<std::string> MemoryStream::subjects(const std::string& matching) {
    std::set<std::string> found;
    for (std::uint64_t sequence = log_.first; sequence <= log_.records.size(); ++sequence) {
        const std::string& subject = log_.records[sequence - 1].subject;
        if (matches(subject, matching)) {
            found.insert(subject);
        }
    }
    return {found.begin(), found.end()};
}

std::unique_ptr<LogCursor> MemoryStream::read(std::uint64_t from) {
    return std::make_unique<MemoryCursor>(log_, from);
}

LogStream::Ends MemoryStream::append(const Envelope& envelope, std::uint64_t times) {
    settle();
    const std::uint64_t failing =
        percent_ > 0 && chance_() % 100 < static_cast<unsigned>(percent_) ? chance_() % times : times;
    Ends ends;
    for (std::uint64_t i = 0; i < times; ++i) {
        if (i == failing) {
            doubt("the cluster of the test is away");
        }
        someComeLate();
        if (log_.beforeAppended) {
            log_.beforeAppended(i);
        }
        (void)log_.take({storedOf(envelope), std::nullopt});
        ends.last = log_.records.size();
        ends.first = i == 0 ? ends.last : ends.first;
    }
    return ends;
}

void MemoryStream::publish(const Envelope& envelope, std::uint64_t expected) {
    mayFail();
    if (log_.beforePublish) {
        log_.beforePublish();
    }
    inFlight_.push_back({storedOf(envelope), expected});
    if (inFlight_.size() >= WINDOW) {
        settle();
    }
}

// What was refused is told when the rest of the window has come, too, as it may be.
void MemoryStream::settle() {
    bool isRefused = false;
    for (std::size_t i = 0; i < inFlight_.size(); ++i) {
        if (percent_ > 0 && chance_() % 100 < static_cast<unsigned>(percent_)) {
            inFlight_.erase(inFlight_.begin(), inFlight_.begin() + static_cast<std::ptrdiff_t>(i));
            doubt("the cluster of the test is away");
        }
        someComeLate();
        isRefused |= !log_.take(std::move(inFlight_[i]));
    }
    inFlight_.clear();
    if (isRefused) {
        throw Unreachable("wrong last sequence");
    }
}

void MemoryStream::remove(std::uint64_t sequence) {
    mayFail();
    ASSERT_TRUE(sequence > 0 && sequence <= log_.records.size()) << "there is no record " << sequence;
    log_.records[sequence - 1].subject.clear();
}

void MemoryStream::answer(const std::string& subject, std::function<std::string()> answer) {
    log_.answers.emplace(subject, std::move(answer));
}

std::vector<std::string> MemoryStream::ask(const std::string& subject, std::chrono::milliseconds, bool) {
    std::vector<std::string> answers;
    const auto [begin, end] = log_.answers.equal_range(subject);
    for (auto found = begin; found != end; ++found) {
        answers.push_back(found->second());
    }
    return answers;
}

}  // namespace tabulo::shipping::test
