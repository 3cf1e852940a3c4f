#include "tests/faults/fault_driver.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <set>

#include "storage/table_file.h"
#include "tests/faults/resources.h"
#include "tests/support/allocation_failure.h"

namespace tabulo::internal::test {

namespace {

constexpr int MOST_BAD_FAULTS = 8;  // then a scenario is given up: more of the same explain nothing

constexpr FileCall ALL_CALLS[] = {FileCall::open,    FileCall::lock,  FileCall::unlock,        FileCall::readAt,
                                  FileCall::writeAt, FileCall::sync,  FileCall::syncDirectory, FileCall::truncate,
                                  FileCall::size,    FileCall::close, FileCall::remove,        FileCall::rename};
constexpr int ERRORS[] = {ENOSPC, EIO, EMFILE};
constexpr TransferPart PARTS[] = {TransferPart::oneByte, TransferPart::half, TransferPart::allButOne};

enum class Way {
    once,
    fromThenOn,
    everythingFromThenOn,
    interrupted,
    shortened,
    allShortened,
    shortenedThenRefused,  // a disk that fills up in the midst of a write, and has space again
    shortenedThenFull      // and has none
};

struct Fault {
    Way way;
    FileCall call = FileCall::open;  // none for everythingFromThenOn
    int n = 0;
    int error = 0;
    TransferPart part = TransferPart::half;

    // Such a fault may change nothing at all.
    bool invisible() const { return way == Way::interrupted || way == Way::shortened || way == Way::allShortened; }
};

std::string textOf(const Fault& fault) {
    constexpr const char* parts[] = {"one byte", "half of it", "all but one byte"};
    const std::string part = parts[static_cast<std::size_t>(fault.part)];
    const std::string call = std::string(fileCallName(fault.call)) + " " + std::to_string(fault.n);
    const std::string error = fault.error == 0 ? "" : std::strerror(fault.error);
    switch (fault.way) {
        case Way::once:
            return call + " fails: " + error;
        case Way::fromThenOn:
            return call + " and all behind it fail: " + error;
        case Way::everythingFromThenOn:
            return "call " + std::to_string(fault.n) + " and everything behind it fail: " + error;
        case Way::interrupted:
            return call + " is interrupted";
        case Way::shortened:
            return call + " transfers only " + part;
        case Way::allShortened:
            return call + " and all behind it transfer only " + part;
        case Way::shortenedThenRefused:
            return call + " transfers only " + part + ", the next one fails: " + error;
        case Way::shortenedThenFull:
            return call + " transfers only " + part + ", all behind it fail: " + error;
    }
    return "?";
}

void arm(FaultPlatform* platform, const Fault& fault) {
    switch (fault.way) {
        case Way::once:
        case Way::interrupted:
            platform->failNth(fault.call, fault.n, fault.error);
            break;
        case Way::fromThenOn:
            platform->failFrom(fault.call, fault.n, fault.error);
            break;
        case Way::everythingFromThenOn:
            platform->failEverythingFrom(fault.n, fault.error);
            break;
        case Way::shortened:
            platform->shortenNth(fault.call, fault.n, fault.part);
            break;
        case Way::allShortened:
            platform->shortenFrom(fault.call, fault.n, fault.part);
            break;
        case Way::shortenedThenRefused:
            platform->shortenNth(fault.call, fault.n, fault.part);
            platform->failNth(fault.call, fault.n + 1, fault.error);
            break;
        case Way::shortenedThenFull:
            platform->shortenNth(fault.call, fault.n, fault.part);
            platform->failFrom(fault.call, fault.n + 1, fault.error);
            break;
    }
}

bool contains(const std::vector<ErrorCode>& codes, ErrorCode code) {
    return std::find(codes.begin(), codes.end(), code) != codes.end();
}

// An undisturbed run, or one under a fault.
struct Outcome {
    std::vector<Step> steps;
    std::vector<FileCall> calls;
    std::map<std::string, Bytes> files;
};

// Compares the runs under faults with the undisturbed one.
class Comparison {
  public:
    explicit Comparison(const FaultScenario& scenario) : scenario_(scenario) {
        run(std::nullopt, &undisturbed_);
        for (const Step& step : undisturbed_.steps) {
            EXPECT_EQ(step.code, NO_ERROR) << step.operation->name << " without a fault";
        }
    }

    // False when the scenario ends without meeting the fault.
    bool expectSurvives(const Fault& fault) {
        const int failures = failureCount();
        const ::testing::ScopedTrace trace(__FILE__, __LINE__, scenario_.name + ": " + textOf(fault));
        const std::ptrdiff_t descriptors = openDescriptors();
        const std::int64_t allocations = liveAllocations() - remembered_;
        {
            Outcome faulted;
            run(fault, &faulted);
            met_ = isMet(fault, faulted);
            compare(fault, faulted);
        }
        EXPECT_EQ(openDescriptors(), descriptors) << "descriptors stay open";
        if (failureCount() == failures) {  // the text of a failure stays allocated
            EXPECT_EQ(liveAllocations(), allocations + remembered_) << "memory is not freed";
        }
        return met_;
    }

  private:
    static bool isMet(const Fault& fault, const Outcome& outcome) {
        if (fault.way == Way::everythingFromThenOn) {
            return static_cast<int>(outcome.calls.size()) >= fault.n;
        }
        return std::count(outcome.calls.begin(), outcome.calls.end(), fault.call) >= fault.n;
    }
    void run(const std::optional<Fault>& fault, Outcome* outcome);
    void compare(const Fault& fault, const Outcome& outcome) const;
    void compareInvisible(const Fault& fault, const Outcome& outcome) const;

    // Verifies what the run has left, unless another run has left the same behind the same answers.
    void verifyOnce(ScenarioRun& run, const std::map<std::string, Bytes>& files);

    const FaultScenario& scenario_;
    Outcome undisturbed_;
    bool met_ = false;
    std::set<std::string> verified_;
    std::int64_t remembered_ = 0;  // allocations of verified_
};

std::string stateOf(const ScenarioRun& run, const std::map<std::string, Bytes>& files) {
    std::string state = run.removalsFail ? "no removals " : "";
    for (const Step& step : run.steps) {
        state += std::to_string(step.code) + " ";
    }
    for (const auto& [name, bytes] : files) {
        state += name + " " + std::to_string(bytes.size()) + ":";
        state.append(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    }
    return state;
}

void Comparison::verifyOnce(ScenarioRun& run, const std::map<std::string, Bytes>& files) {
    const std::int64_t allocations = liveAllocations();
    const bool isNew = verified_.insert(stateOf(run, files)).second;
    remembered_ += liveAllocations() - allocations;
    if (isNew) {
        scenario_.verify(run);
    }
}

void Comparison::run(const std::optional<Fault>& fault, Outcome* outcome) {
    ScenarioRun run;
    run.removalsFail = fault && (fault->way == Way::everythingFromThenOn || fault->call == FileCall::remove);
    run.truncatesFail = fault && fault->way == Way::everythingFromThenOn;
    scenario_.prepare(run);
    {
        FaultPlatform platform;
        platform.skipSyncs();
        tableFileSetSyncPolicy(true, 0, 0);
        if (fault) {
            arm(&platform, *fault);
        }
        scenario_.act(run);
        tableFileSetSyncPolicy(false, 0, 0);
        for (const RecordedCall& call : platform.calls()) {
            outcome->calls.push_back(call.call);
        }
    }
    outcome->steps = run.steps;
    outcome->files = filesIn(run.directory);
    verifyOnce(run, outcome->files);
}

void Comparison::compareInvisible(const Fault& fault, const Outcome& outcome) const {
    for (std::size_t i = 0; i < outcome.steps.size(); ++i) {
        EXPECT_EQ(outcome.steps[i].code, NO_ERROR) << outcome.steps[i].operation->name << ", step " << i;
        EXPECT_TRUE(outcome.steps[i].answer == undisturbed_.steps.at(i).answer)
            << outcome.steps[i].operation->name << ", step " << i << ", has another answer";
    }
    EXPECT_TRUE(outcome.files == undisturbed_.files) << "the files differ";
    if (fault.way == Way::interrupted && met_) {
        std::vector<FileCall> expected = undisturbed_.calls;
        int seen = 0;
        const auto interrupted = std::find_if(expected.begin(), expected.end(), [&](FileCall call) {
            seen += call == fault.call ? 1 : 0;
            return seen == fault.n;
        });
        expected.insert(interrupted, fault.call);
        EXPECT_TRUE(outcome.calls == expected) << "the interrupted call is not repeated";
    }
}

void Comparison::compare(const Fault& fault, const Outcome& outcome) const {
    // A scenario may end early when a table cannot be opened.
    ASSERT_LE(outcome.steps.size(), undisturbed_.steps.size());
    if (fault.invisible()) {
        ASSERT_EQ(outcome.steps.size(), undisturbed_.steps.size()) << "the scenario ended early";
        compareInvisible(fault, outcome);
        return;
    }
    bool refused = false;
    for (std::size_t i = 0; i < outcome.steps.size(); ++i) {
        const Step& step = outcome.steps[i];
        const Answer& whole = undisturbed_.steps[i].answer;
        const std::string name = std::string(step.operation->name) + ", step " + std::to_string(i) + ",";
        if (step.code == NO_ERROR) {
            EXPECT_TRUE(step.answer == whole)
                << name << " answers only a part, or something else, as a success: " << step.answer.size()
                << " instead of " << whole.size();
            continue;
        }
        const bool legitimate = contains(step.operation->refusals, step.code) ||
                                (refused && contains(step.operation->consequences, step.code));
        EXPECT_TRUE(legitimate) << name << " must not answer " << step.code << ", " << getErrorMessage(step.code);
        if (!refused && fault.way != Way::everythingFromThenOn) {
            EXPECT_TRUE(contains(refusalsOf(fault.call, *step.operation), step.code))
                << name << " answers " << step.code << ", " << getErrorMessage(step.code) << ", to this fault";
        }
        if (step.systemText && (!refused || !step.systemText->empty())) {
            EXPECT_EQ(*step.systemText, std::strerror(fault.error)) << name << " tells another cause";
        }
        EXPECT_TRUE(step.answer.size() <= whole.size() &&
                    std::equal(step.answer.begin(), step.answer.end(), whole.begin()))
            << name << " delivers something wrong before it fails";
        refused = true;
    }
    EXPECT_TRUE(refused || outcome.steps.size() == undisturbed_.steps.size());
}

// Tries a fault for n = 1, 2, ... until it is not met any more.
struct Enumeration {
    Comparison comparison;
    std::int64_t met = 0;
    int bad = 0;

    void tryEveryN(Fault fault) {
        for (fault.n = 1; bad < MOST_BAD_FAULTS; ++fault.n) {
            const int failures = failureCount();
            const bool again = comparison.expectSurvives(fault);
            bad += failureCount() > failures ? 1 : 0;
            if (!again) {
                return;
            }
            met += 1;
        }
    }
};

}  // namespace

std::int64_t runUnderEveryFault(const FaultScenario& scenario) {
    Enumeration all{Comparison(scenario)};
    for (const FileCall call : ALL_CALLS) {
        for (const int error : ERRORS) {
            all.tryEveryN({Way::once, call, 0, error});
            all.tryEveryN({Way::fromThenOn, call, 0, error});
        }
        // The system closes a descriptor also when it is interrupted, and the platform's close never says so.
        if (call != FileCall::close) {
            all.tryEveryN({Way::interrupted, call, 0, EINTR});
        }
    }
    all.tryEveryN({Way::everythingFromThenOn, FileCall::open, 0, EIO});
    for (const FileCall call : {FileCall::readAt, FileCall::writeAt}) {
        for (const TransferPart part : PARTS) {
            all.tryEveryN({Way::shortened, call, 0, 0, part});
        }
    }
    all.tryEveryN({Way::allShortened, FileCall::writeAt, 0, 0, TransferPart::half});
    // Never half of it: the watcher, which reads once to see one moment of the file, waits for more than half a buffer.
    all.tryEveryN({Way::allShortened, FileCall::readAt, 0, 0, TransferPart::allButOne});
    for (const TransferPart part : PARTS) {
        all.tryEveryN({Way::shortenedThenRefused, FileCall::writeAt, 0, ENOSPC, part});
        all.tryEveryN({Way::shortenedThenFull, FileCall::writeAt, 0, ENOSPC, part});
    }
    return all.met;
}

}  // namespace tabulo::internal::test
