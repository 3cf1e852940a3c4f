// A platform under which long runs of zero bytes take no room on the disk and little time: appended ones become holes,
// and holes are not read.
#pragma once

#include <cstdint>
#include <string>

#include "storage/file_platform.h"

namespace tabulo::internal::test {

// Installs itself for its life; one at a time.
class SparsePlatform {
  public:
    SparsePlatform();
    ~SparsePlatform();
    SparsePlatform(const SparsePlatform&) = delete;
    SparsePlatform& operator=(const SparsePlatform&) = delete;

    // False when the file system of this directory stores holes as zero bytes.
    static bool holesAreFree(const std::string& directory);

  private:
    FilePlatform record_;
    const FilePlatform* previous_;
};

}  // namespace tabulo::internal::test
