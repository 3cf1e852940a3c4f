// What this library asks of its compiler beyond the language.
#pragma once

#include <cstdint>

// Lets the compiler check a function's arguments against its printf format; firstArgument 0 for a va_list.
#define TABULO_PRINTF(formatIndex, firstArgument) __attribute__((format(printf, formatIndex, firstArgument)))

namespace tabulo::internal {

// Sets *sum to left + right, wrapped; true when it does not fit.
inline bool addOverflows(std::int64_t left, std::int64_t right, std::int64_t* sum) noexcept {
    return __builtin_add_overflow(left, right, sum);
}

}  // namespace tabulo::internal
