// The things that an application has counted, one a line in a file, so that it still knows them when it comes back.
// C++14.
#pragma once

#include <fstream>
#include <stdexcept>
#include <string>
#include <unordered_set>

// A line is in the file when add returns: a process that is killed then has it. One thread at a time.
class Book {
  public:
    // Goes on with the file, or makes it. std::runtime_error when it cannot be written.
    explicit Book(const std::string& path) : path_(path) {
        std::ifstream before(path);
        for (std::string line; std::getline(before, line);) {
            lines_.insert(line);
            last_ = line;
        }
        file_.open(path, std::ios::app);
        check();
    }

    // False, and nothing happens, when the line has been there before. std::runtime_error when it cannot be written.
    bool add(const std::string& line) {
        if (!lines_.insert(line).second) {
            return false;
        }
        file_ << line + '\n' << std::flush;
        check();
        last_ = line;
        return true;
    }

    std::size_t size() const { return lines_.size(); }
    // The newest line; empty when there is none.
    const std::string& last() const { return last_; }

  private:
    void check() const {
        if (!file_) {
            throw std::runtime_error("cannot write to " + path_);
        }
    }

    std::string path_;
    std::string last_;
    std::unordered_set<std::string> lines_;
    std::ofstream file_;
};
