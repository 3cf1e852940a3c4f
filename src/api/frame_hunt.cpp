#include "api/frame_hunt.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "messagetable/frame.h"
#include "messagetable/numeric_value.h"

namespace tabulo::api {

namespace {

constexpr std::int64_t WORD = internal::FRAME_LENGTH_SIZE;
constexpr std::int64_t ALL = std::numeric_limits<std::int64_t>::max();

// Puts runs without whole frames that touch each other together.
void addRun(std::vector<FrameRun>* runs, const FrameRun& run) {
    if (runs->empty() || runs->back().whole || run.whole) {
        runs->push_back(run);
        return;
    }
    FrameRun& last = runs->back();
    last.end = run.end;
    last.frames = last.frames < 0 || run.frames < 0 ? -1 : last.frames + run.frames;
}

}  // namespace

bool FrameHunt::isLength(std::uint32_t length, std::int64_t room) const {
    return length >= static_cast<std::uint32_t>(table_.smallestFrame()) && length <= room &&
           length <= static_cast<std::uint32_t>(std::numeric_limits<std::int32_t>::max());
}

// Where the frame at `start` ends by its fields; nothing when they do not fit before `end`.
std::optional<std::int64_t> FrameHunt::fieldsEnd(std::int64_t start, std::int64_t end) {
    std::int64_t position = start + internal::FRAME_FIXED_SIZE;
    for (std::int32_t i = 0; i < table_.layout.numericFieldCount; ++i) {
        std::uint8_t type = 0;
        if (position >= end || !bytes_.get(position, &type) || !internal::numericValue_isType(type)) {
            return std::nullopt;
        }
        const bool absent = static_cast<internal::NumericType>(type) == internal::NumericType::absent;
        position += absent ? 1 : internal::FIXED_NUMERIC_SIZE;
    }
    for (std::int32_t i = 0; i < table_.layout.stringFieldCount; ++i) {
        std::uint32_t length = 0;
        if (end - position < WORD || !bytes_.get(position, &length)) {
            return std::nullopt;
        }
        position += WORD + std::int64_t{length};
    }
    return position + WORD <= end ? std::optional(position + WORD) : std::nullopt;
}

std::int64_t FrameHunt::frameAt(std::int64_t offset, std::int64_t end) {
    std::uint32_t length = 0;
    std::uint32_t trailing = 0;
    if (end - offset < table_.smallestFrame() || !bytes_.get(offset, &length) || !isLength(length, end - offset)) {
        return 0;
    }
    const bool agree = bytes_.get(offset + length - WORD, &trailing) && trailing == length;
    return agree && fieldsEnd(offset, offset + length) == offset + length ? length : 0;
}

std::int64_t FrameHunt::follow(std::int64_t begin, std::int64_t end, std::int64_t most, std::int64_t* count) {
    std::int64_t position = begin;
    *count = 0;
    while (*count < most) {
        const std::int64_t length = frameAt(position, end);
        if (length == 0) {
            break;
        }
        position += length;
        *count += 1;
        if (*count % 1000 == 0) {
            meter_.checkStop();
        }
    }
    return position;
}

// Where the damaged frame at `start` ends, when enough of it tells; else 0.
std::int64_t FrameHunt::damagedFrameEnd(std::int64_t start, std::int64_t end, bool endIsKnown) {
    const auto isConfirmed = [&](std::int64_t place) { return place == end ? endIsKnown : frameAt(place, end) != 0; };
    std::uint32_t leading = 0;
    std::uint32_t trailing = 0;
    const std::optional<std::int64_t> byFields = fieldsEnd(start, end);
    if (bytes_.get(start, &leading) && isLength(leading, end - start)) {
        const std::int64_t byLength = start + leading;
        const bool agree = bytes_.get(byLength - WORD, &trailing) && trailing == leading;
        if (agree || byFields == byLength || isConfirmed(byLength)) {
            return byLength;
        }
    }
    if (byFields.has_value()) {
        const bool agree = bytes_.get(*byFields - WORD, &trailing) && trailing == *byFields - start;
        if (agree || isConfirmed(*byFields)) {
            return *byFields;
        }
    }
    const bool endTells = endIsKnown && bytes_.get(end - WORD, &trailing) && trailing == end - start;
    return endTells && isLength(trailing, end - start) ? end : 0;
}

// The end of the text of the damaged frame at `start` in which [place, placeEnd) lies, by that frame's fields and its
// leading length; else 0.
std::int64_t FrameHunt::textAround(std::int64_t start, std::int64_t end, std::int64_t place, std::int64_t placeEnd) {
    std::uint32_t leading = 0;
    if (!bytes_.get(start, &leading) || !isLength(leading, end - start)) {
        return 0;
    }
    const std::int64_t frameEnd = start + leading;
    std::int64_t position = start + internal::FRAME_FIXED_SIZE;
    for (std::int32_t i = 0; i < table_.layout.numericFieldCount; ++i) {
        std::uint8_t type = 0;
        if (!bytes_.get(position, &type) || !internal::numericValue_isType(type)) {
            return 0;
        }
        const bool absent = static_cast<internal::NumericType>(type) == internal::NumericType::absent;
        position += absent ? 1 : internal::FIXED_NUMERIC_SIZE;
    }
    for (std::int32_t i = 0; i < table_.layout.stringFieldCount && position <= place; ++i) {
        std::uint32_t length = 0;
        if (!bytes_.get(position, &length) || position + WORD + std::int64_t{length} + WORD > frameEnd) {
            return 0;
        }
        position += WORD + std::int64_t{length};
        if (position - length <= place && placeEnd <= position) {
            return position;
        }
    }
    return 0;
}

// The first place from `from` on at which a whole frame stands; `end` when none does.
std::int64_t FrameHunt::nextFrame(std::int64_t from, std::int64_t end) {
    std::int64_t position = from;
    while (end - position >= table_.smallestFrame()) {
        meter_.checkStop();
        const std::span<const std::uint8_t> piece = bytes_.from(position, end, static_cast<std::size_t>(WORD));
        std::int64_t i = 0;
        const auto lengths = static_cast<std::int64_t>(piece.size()) - WORD + 1;
        for (std::uint32_t length = 0; i < lengths; ++i) {
            std::memcpy(&length, piece.data() + i, sizeof(length));
            if (!isLength(length, end - position - i)) {
                continue;
            }
            if (frameAt(position + i, end) != 0) {
                return position + i;
            }
            i += 1;
            break;  // what was asked meanwhile may have moved the piece
        }
        if (lengths <= 0) {
            break;
        }
        position += i;
    }
    return end;
}

// As nextFrame behind a damaged frame, without what its own texts hold.
std::int64_t FrameHunt::nextRun(std::int64_t damaged, std::int64_t end) {
    std::int64_t place = nextFrame(damaged + 1, end);
    while (place < end) {
        std::int64_t count = 0;
        const std::int64_t runEnd = follow(place, end, ALL, &count);
        const std::int64_t textEnd = textAround(damaged, end, place, runEnd);
        if (textEnd == 0) {
            break;
        }
        place = nextFrame(textEnd, end);
    }
    return place;
}

// Takes back runs that a trailing length behind them reaches over: they stand inside another message.
void FrameHunt::dropQuoted(std::vector<FrameRun>* runs, bool endIsKnown) {
    const std::int64_t begin = runs->front().begin;
    std::vector<bool> quoted(runs->size(), false);
    for (std::size_t j = runs->size(); j > 0; --j) {
        // The damaged bytes j - 1 end in front of whole frames, or at the known end.
        const FrameRun& gap = (*runs)[j - 1];
        const bool endsAtFrame = j == runs->size() ? endIsKnown : (*runs)[j].whole && !quoted[j];
        std::uint32_t trailing = 0;
        if (gap.whole || gap.frames >= 0 || !endsAtFrame || !bytes_.get(gap.end - WORD, &trailing) ||
            !isLength(trailing, gap.end - begin)) {
            continue;
        }
        const std::int64_t start = gap.end - trailing;
        const bool cutsFrame =
            std::any_of(runs->begin(), runs->begin() + static_cast<std::ptrdiff_t>(j) - 1, [&](const FrameRun& run) {
                std::int64_t count = 0;
                return run.whole && run.begin < start && start < run.end &&
                       follow(run.begin, start, ALL, &count) != start;
            });
        for (std::size_t i = 0; i + 1 < j && !cutsFrame; ++i) {
            quoted[i] = quoted[i] || ((*runs)[i].whole && (*runs)[i].begin >= start);
        }
    }
    std::vector<FrameRun> kept;
    for (std::size_t i = 0; i < runs->size(); ++i) {
        FrameRun run = (*runs)[i];
        run.whole = run.whole && !quoted[i];  // joins the damage behind it, which holds it
        addRun(&kept, run);
    }
    *runs = std::move(kept);
}

std::vector<FrameRun> FrameHunt::search(std::int64_t begin, std::int64_t end, bool endIsKnown) {
    std::vector<FrameRun> runs;
    std::int64_t position = begin;
    while (position < end) {
        meter_.checkStop();
        FrameRun run{.begin = position};
        run.end = follow(position, end, ALL, &run.frames);
        run.whole = run.frames > 0;
        if (!run.whole) {
            run.end = damagedFrameEnd(position, end, endIsKnown);
            run.frames = run.end == 0 ? -1 : 1;
            run.end = run.end == 0 ? nextRun(position, end) : run.end;
        }
        addRun(&runs, run);
        position = run.end;
    }
    if (!runs.empty()) {
        dropQuoted(&runs, endIsKnown);
    }
    return runs;
}

}  // namespace tabulo::api
