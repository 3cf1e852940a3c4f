#include "storage/lock_list.h"

#include <array>
#include <charconv>

namespace tabulo::internal {

namespace {

// Takes the next word off the front of a line; empty when there is none.
std::string_view takeWord(std::string_view* line) {
    const std::size_t begin = line->find_first_not_of(' ');
    if (begin == std::string_view::npos) {
        *line = {};
        return {};
    }
    const std::size_t end = line->find(' ', begin);
    const std::string_view word = line->substr(begin, end == std::string_view::npos ? end : end - begin);
    line->remove_prefix(end == std::string_view::npos ? line->size() : end);
    return word;
}

template <typename Number>
bool parse(std::string_view text, int base, Number* number) {
    const auto result = std::from_chars(text.data(), text.data() + text.size(), *number, base);
    return result.ec == std::errc() && result.ptr == text.data() + text.size();
}

// "fe:00:10953393"
bool parseFile(std::string_view text, LockedFile* file) {
    const std::size_t first = text.find(':');
    const std::size_t second = first == std::string_view::npos ? first : text.find(':', first + 1);
    return second != std::string_view::npos && parse(text.substr(0, first), 16, &file->deviceMajor) &&
           parse(text.substr(first + 1, second - first - 1), 16, &file->deviceMinor) &&
           parse(text.substr(second + 1), 10, &file->number);
}

bool parseLine(std::string_view line, LockedFile* file, WriterLock* lock) {
    std::array<std::string_view, 6> words;
    for (std::string_view& word : words) {
        word = takeWord(&line);
    }
    // A lock that is waited for has its kind one word later.
    return words[1] == "FLOCK" && words[3] == "WRITE" && parse(words[4], 10, &lock->process) &&
           parseFile(words[5], file);
}

}  // namespace

std::vector<WriterLock> lockList_writers(std::string_view list, const LockedFile& file) {
    std::vector<WriterLock> writers;
    while (!list.empty()) {
        const std::size_t end = list.find('\n');
        const std::string_view line = list.substr(0, end);
        list.remove_prefix(end == std::string_view::npos ? list.size() : end + 1);
        LockedFile locked;
        WriterLock lock;
        if (parseLine(line, &locked, &lock) && locked.number == file.number) {
            lock.sameDevice = locked.deviceMajor == file.deviceMajor && locked.deviceMinor == file.deviceMinor;
            writers.push_back(lock);
        }
    }
    return writers;
}

}  // namespace tabulo::internal
