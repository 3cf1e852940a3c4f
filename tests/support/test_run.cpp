#include "tests/support/test_run.h"

#include <charconv>
#include <cstdlib>
#include <iostream>
#include <random>
#include <stdexcept>
#include <string>

namespace tabulo::internal::test {
namespace {

// The number that an environment variable holds, or `otherwise` without it. Throws when it holds something else.
std::uint32_t environmentNumber(const char* name, std::uint32_t otherwise) {
    const char* text = std::getenv(name);
    if (text == nullptr || *text == '\0') {
        return otherwise;
    }
    const std::string_view view = text;
    std::uint32_t value = 0;
    const auto [end, error] = std::from_chars(view.data(), view.data() + view.size(), value);
    if (error != std::errc() || end != view.data() + view.size()) {
        throw std::runtime_error(std::string(name) + " is no number: " + text);
    }
    return value;
}

}  // namespace

int testEffort() {
    const std::uint32_t effort = environmentNumber("TABULO_TEST_EFFORT", 1);
    if (effort < 1 || effort > 100000) {
        throw std::runtime_error("TABULO_TEST_EFFORT must be 1 to 100000");
    }
    return static_cast<int>(effort);
}

std::uint32_t testSeed() {
    const std::uint32_t seed = environmentNumber(TEST_SEED_VARIABLE, std::random_device()());
    std::cout << "random numbers from " << seed << "; to repeat this run: " << TEST_SEED_VARIABLE << "=" << seed
              << std::endl;
    return seed;
}

void reportFigure(std::string_view family, std::string_view what, std::int64_t count) {
    std::cout << "figure: " << family << ": " << what << ": " << count << std::endl;
}

}  // namespace tabulo::internal::test
