// A file that a verb makes: whole or not at all, and never over something that is there.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace tabulo::tool {

// A file that appears under its name, committed to the disk, when finish() is called; until then it has no name, where
// the file system can make such a file, so that it goes with the process however that ends. Elsewhere, and when it is
// made by its path, it stands beside its place under a name of its own, and goes when the object does. Failure for a
// target that exists, at the beginning and at the end, and for what the system refuses (a full disk, a folder without
// permission).
class TargetFile {
  public:
    explicit TargetFile(std::filesystem::path path);
    ~TargetFile();
    TargetFile(const TargetFile&) = delete;
    TargetFile& operator=(const TargetFile&) = delete;

    // The first call makes the file.
    void write(std::string_view bytes);
    // Where the file is being made, for who makes it by its path instead.
    const std::filesystem::path& unfinished() const noexcept { return unfinished_; }
    void finish();

  private:
    void make();
    void flush();
    void giveName();

    std::filesystem::path path_;
    std::filesystem::path unfinished_;
    int descriptor_ = -1;
    bool isNameless_ = false;
    bool isFinished_ = false;
    std::string gathered_;
};

// Commits a file to the disk. Failure with the system's words.
void commitFile(const std::filesystem::path& path);

// Gives a finished file or folder its name, and commits that. Failure when something has the name already; an empty
// folder gives way to a folder.
void nameFinished(const std::filesystem::path& unfinished, const std::filesystem::path& path);

// Gives a finished file the name of the one that it replaces, or of none, and commits that.
void replaceByFile(const std::filesystem::path& finished, const std::filesystem::path& path);

// Puts a small file in the place of the one that is there, or of none: after any end of the process or loss of power
// one of the two is there as a whole. Failure for what the system refuses.
void replaceFile(const std::filesystem::path& path, std::string_view bytes);

}  // namespace tabulo::tool
