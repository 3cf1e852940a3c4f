// A file or a folder that a verb makes: whole or not at all, and never over something that is there.
#pragma once

#include <filesystem>
#include <string_view>

namespace tabulo::tool {

// A file that appears under its name, committed to the disk, when finish() is called; until then it stands beside it
// under a name of its own, and goes when the object does. Failure for a target that exists, and for what the system
// refuses (a full disk, a folder without permission).
class TargetFile {
  public:
    explicit TargetFile(std::filesystem::path path);
    ~TargetFile();
    TargetFile(const TargetFile&) = delete;
    TargetFile& operator=(const TargetFile&) = delete;

    void write(std::string_view bytes);
    // The file as it is being made, for who writes it by its path.
    const std::filesystem::path& unfinished() const noexcept { return unfinished_; }
    void finish();

  private:
    std::filesystem::path path_;
    std::filesystem::path unfinished_;
    int descriptor_ = -1;
    std::string gathered_;
};

}  // namespace tabulo::tool
