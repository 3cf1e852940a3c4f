// A folder that a verb makes: whole or not at all.
#pragma once

#include <filesystem>

namespace tabulo::tool {

// A folder that appears under its name when finish() is called; until then it stands beside it under a name of its own,
// and goes, with all that is in it, when the object does. An empty folder gives way to it; Failure for anything else
// that has the name.
class TargetFolder {
  public:
    explicit TargetFolder(const std::filesystem::path& path);
    ~TargetFolder();
    TargetFolder(const TargetFolder&) = delete;
    TargetFolder& operator=(const TargetFolder&) = delete;

    const std::filesystem::path& unfinished() const noexcept { return unfinished_; }
    // The files in it were committed to the disk.
    void finish();

  private:
    std::filesystem::path path_;
    std::filesystem::path unfinished_;
    bool isFinished_ = false;
};

}  // namespace tabulo::tool
