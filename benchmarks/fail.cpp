#include "benchmarks/fail.h"

#include <cstdio>
#include <cstdlib>

namespace tabulo::internal::bench {

void fail(const std::string& what) {
    std::fprintf(stderr, "benchmark: %s\n", what.c_str());
    std::exit(1);
}

}  // namespace tabulo::internal::bench
