#include "tests/query/random_values.h"

#include <cmath>
#include <limits>

namespace tabulo::internal::test {

using namespace std::string_literals;

const std::vector<double>& oddDoubles() {
    static const std::vector<double> odd = {std::nan(""),
                                            std::numeric_limits<double>::infinity(),
                                            -std::numeric_limits<double>::infinity(),
                                            0.0,
                                            -0.0,
                                            1e300,
                                            -1e300,
                                            9223372036854775808.0,
                                            -9223372036854775808.0,
                                            std::numeric_limits<double>::denorm_min(),
                                            0.5,
                                            -0.5};
    return odd;
}

const std::vector<std::int64_t>& oddLongs() {
    static const std::vector<std::int64_t> odd = {std::numeric_limits<std::int64_t>::max(),
                                                  std::numeric_limits<std::int64_t>::min(),
                                                  std::numeric_limits<std::int64_t>::max() - 1,
                                                  (std::int64_t{1} << 53) + 1,
                                                  0,
                                                  -1,
                                                  1};
    return odd;
}

const std::vector<std::string>& oddTexts() {
    static const std::vector<std::string> all = {
        "\0"s,        "a\0"s,       "A\0"s,       "ab\0"s,       "AB\0"s,      "aB\0"s,       "abc\0"s,    "b\0"s,
        "B_\0"s,      "b_\0"s,      "_\0"s,       "Z\0"s,        "\x80\0"s,    "\xff\xfe\0"s, "\xe4\0"s,   "\xc4\0"s,
        "a\x80\0"s,   "noNul"s,     "n"s,         "in\0side\0"s, "\0front\0"s, "\0\0"s,       "EURUSD\0"s, "eurusd\0"s,
        "order-1\0"s, "order-2\0"s, "order-3\0"s, "order-10\0"s, "ORDER-1\0"s, "8=FIX\x01\0"s};
    return all;
}

const std::vector<std::string>& msgTypes() {
    static const std::vector<std::string> all = {"", "0", "8", "D", "d", "AE", "ABCDE", "ABCDF", "\x80", "z"};
    return all;
}

}  // namespace tabulo::internal::test
