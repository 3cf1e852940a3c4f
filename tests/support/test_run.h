// How much a test that could go on for ever does in this run, how it is repeated, and what it has to show.
#pragma once

#include <cstdint>
#include <string_view>

namespace tabulo::internal::test {

// The name of the environment variable that testSeed reads, for the sentence of a failure.
inline constexpr const char* TEST_SEED_VARIABLE = "TABULO_TEST_SEED";

// How often the ordinary amount of work: the environment's TABULO_TEST_EFFORT, a whole number from 1 on; 1 without it.
int testEffort();

// What a random test starts from: TABULO_TEST_SEED from the environment, or a number that is new in every run. It is
// printed, and a run with the printed number does the same again.
std::uint32_t testSeed();

// Prints "figure: <family>: <what>: <count>" for the table of what was tested, which ./check long renews in
// docs/test_figures.md. Figures of the same family and name, of several tests, are added up there.
void reportFigure(std::string_view family, std::string_view what, std::int64_t count);

}  // namespace tabulo::internal::test
