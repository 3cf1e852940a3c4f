// Values that random tables hold and random queries ask for.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tabulo::internal::test {

const std::vector<double>& oddDoubles();
const std::vector<std::int64_t>& oddLongs();
// Stored texts, with their NULs or without.
const std::vector<std::string>& oddTexts();
const std::vector<std::string>& msgTypes();

}  // namespace tabulo::internal::test
