// Turns of a benchmark on a machine on which other things may run.
#pragma once

#include <functional>
#include <string>

namespace tabulo::internal::bench {

// Runs a turn, which adds its figures to the results, and adds the share of the machine's processor time that others
// took meanwhile: programs other than this one and its children, and the host of a virtual machine, in percent, as
// "<group> <subject>" of the group "foreign". Time of the system is nobody's: it also writes out what was appended. A
// turn with more than 5 % is repeated, up to three times in all, and what it added to the results before is taken back.
void quietTurn_run(const char* group, const std::string& subject, const std::function<void()>& turn);

}  // namespace tabulo::internal::bench
