// Memory that a process and the children it forks share; what a killed child has put there stays.
#pragma once

#include <sys/mman.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <new>
#include <string>
#include <system_error>

namespace tabulo::internal::test {

// A State made before the fork. Its members that change are atomics.
template <typename State>
class SharedPage {
  public:
    SharedPage() {
        memory_ = ::mmap(nullptr, sizeof(State), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (memory_ == MAP_FAILED) {
            throw std::system_error(errno, std::generic_category(), "mmap");
        }
        new (memory_) State;
    }
    ~SharedPage() { ::munmap(memory_, sizeof(State)); }
    SharedPage(const SharedPage&) = delete;
    SharedPage& operator=(const SharedPage&) = delete;

    State* operator->() const { return static_cast<State*>(memory_); }

  private:
    void* memory_;
};

static_assert(std::atomic<std::uint64_t>::is_always_lock_free && std::atomic<std::int32_t>::is_always_lock_free);

// The first thing that one of several children has to complain about.
class SharedProblem {
  public:
    // Keeps the sentence unless there is one already; 1, as the result of the child.
    int report(const std::string& sentence) {
        if (!taken_.exchange(true)) {
            std::snprintf(text_, sizeof text_, "%s", sentence.c_str());
            written_.store(true);
        }
        return 1;
    }
    bool isThere() const { return taken_.load(); }
    std::string sentence() const { return written_.load() ? text_ : ""; }

  private:
    std::atomic<bool> taken_ = false;
    std::atomic<bool> written_ = false;
    char text_[1000] = {};
};

}  // namespace tabulo::internal::test
