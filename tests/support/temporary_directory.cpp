#include "tests/support/temporary_directory.h"

#include <stdlib.h>

#include <system_error>

namespace tabulo::internal::test {

TemporaryDirectory::TemporaryDirectory()
    : path_((std::filesystem::temp_directory_path() / "tabulo-test-XXXXXX").string()) {
    if (::mkdtemp(path_.data()) == nullptr) {
        throw std::system_error(errno, std::generic_category(), path_);
    }
}

TemporaryDirectory::~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

}  // namespace tabulo::internal::test
