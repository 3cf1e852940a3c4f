#include "adapters/nats/receive_note.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>
#include <vector>

#include "adapters/nats/log_stream.h"
#include "adapters/nats/subject_token.h"
#include "adapters/nats/text_lines.h"

namespace tabulo::shipping {

namespace {

bool takeLine(const std::vector<std::string_view>& words, ReceiveNote* note) {
    if (words.size() == 2 && words[0] == "stream") {
        note->stream = words[1];
        return true;
    }
    if (words.size() == 2 && words[0] == "sequence") {
        const auto sequence = integerOf<std::uint64_t>(words[1]);
        note->sequence = sequence.value_or(0);
        return sequence.has_value();
    }
    if (words.size() == 2 && words[0] == "made") {
        const auto made = integerOf<std::int64_t>(words[1]);
        note->made = made.value_or(0);
        return made.has_value();
    }
    if (words.size() == 2 && words[0] == "fenced") {
        const auto fence = integerOf<std::uint64_t>(words[1]);
        note->fence = fence.value_or(0);
        return note->fence != 0;
    }
    if (words.size() != 4 || words[0] != "table") {
        return false;
    }
    const auto table = unescaped(words[1]);
    const auto incarnation = integerOf<std::int64_t>(words[2]);
    const auto end = integerOf<std::int64_t>(words[3]);
    if (table.has_value() && incarnation.has_value() && *incarnation > 0 && end.has_value()) {
        note->tables[*table] = {*incarnation, *end};
        return true;
    }
    return false;
}

}  // namespace

std::optional<ReceiveNote> readNote(const std::filesystem::path& folder) {
    std::ifstream file(folder / NOTE_NAME, std::ios::binary);
    std::stringstream text;
    text << file.rdbuf();
    ReceiveNote note;
    for (const std::string_view line : splitAt('\n', text.view())) {
        if (!takeLine(splitAt(' ', line), &note)) {
            return std::nullopt;
        }
    }
    return note.stream.empty() ? std::nullopt : std::optional(note);
}

void writeNote(const std::filesystem::path& folder, const ReceiveNote& note) {
    const std::filesystem::path path = folder / NOTE_NAME;
    const std::filesystem::path made = folder / (std::string(NOTE_NAME) + ".new");
    errno = 0;
    {
        std::ofstream file(made, std::ios::binary | std::ios::trunc);
        file << "stream " << note.stream << "\nmade " << note.made << "\nsequence " << note.sequence << '\n';
        if (note.fence != 0) {
            file << "fenced " << note.fence << '\n';
        }
        for (const auto& [table, kept] : note.tables) {
            file << "table " << escaped(table) << ' ' << kept.incarnation << ' ' << kept.end << '\n';
        }
        file.close();
        if (!file) {
            throw Refused(made.string() + " cannot be written: " + std::strerror(errno));
        }
    }
    std::filesystem::rename(made, path);
}

}  // namespace tabulo::shipping
