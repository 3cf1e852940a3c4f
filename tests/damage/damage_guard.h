// Limits for looking at a damaged file: processor time, memory, and a name for whatever goes wrong.
#pragma once

#include <cstdint>
#include <string>

namespace tabulo::internal::test {

// True in a build with a sanitizer, where everything takes several times as long.
bool underSanitizer();

// While the object lives, looking at one damage may take a few seconds of processor time and 64 MiB more than there is
// now; a crash, a report of a sanitizer or too much time ends the process with the name of the damage on standard
// error. One at a time.
class DamageGuard {
  public:
    DamageGuard();
    ~DamageGuard();
    DamageGuard(const DamageGuard&) = delete;
    DamageGuard& operator=(const DamageGuard&) = delete;

    // The damage that is looked at from now on; the time limit starts anew.
    void begin(const std::string& damage);
    // What the memory limit has to say about the time since begin(): a sentence, or "" when it was kept. Without a
    // sanitizer the limit is the system's, and reaching it is an OUT_OF_MEMORY_ERROR of the library.
    std::string memory() const;

  private:
    std::uint64_t previousLimit_ = 0;
};

}  // namespace tabulo::internal::test
