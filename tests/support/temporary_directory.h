// A directory of its own for one test, removed with everything in it.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace tabulo::internal::test {

class TemporaryDirectory {
  public:
    TemporaryDirectory();
    ~TemporaryDirectory();
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    // Absolute, without a separator at its end.
    const std::string& path() const { return path_; }
    // The path as a database root: it ends with "/".
    std::string root() const { return path_ + "/"; }
    // Absolute path of an entry, which need not exist.
    std::string file(std::string_view name) const { return path_ + "/" + std::string(name); }

  private:
    std::string path_;
};

}  // namespace tabulo::internal::test
