#include "index/key_map.h"

#include <algorithm>
#include <optional>

namespace tabulo::internal {

namespace {

constexpr std::uint64_t TEXT_SEED = 0x7E87;
constexpr std::size_t FIRST_KEY_OFFSET = 8;
constexpr std::size_t LEAF_END_OFFSET = 12;
constexpr std::size_t ENTRIES_OFFSET = 16;
constexpr std::size_t KEY_COUNT_OFFSET = 8;
constexpr std::size_t KEYS_OFFSET = 16;

std::uint8_t* putNumber(std::uint8_t* at, std::uint64_t number) noexcept {
    while (number >= 0x80) {
        *at++ = static_cast<std::uint8_t>(number | 0x80);
        number >>= 7;
    }
    *at++ = static_cast<std::uint8_t>(number);
    return at;
}

std::uint32_t keyAt(const IndexPage& page, std::uint32_t entry) noexcept {
    return page.get<std::uint32_t>(KEYS_OFFSET + entry * sizeof(std::uint32_t));
}

// The number of the last entry whose key is below `key`; 0 when there is none.
std::uint32_t lastBelow(const IndexPage& page, std::uint32_t count, std::uint32_t key) noexcept {
    std::uint32_t first = 0;
    for (std::uint32_t left = count; left > 0;) {
        const std::uint32_t half = left / 2;
        const bool isBelow = keyAt(page, first + half) < key;
        first += isBelow ? half + 1 : 0;
        left = isBelow ? left - half - 1 : half;
    }
    return first == 0 ? 0 : first - 1;
}

}  // namespace

std::uint32_t keyOf(std::string_view text) noexcept {
    const std::string_view compared = text.substr(0, text.find('\0'));
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(compared.data());
    return static_cast<std::uint32_t>(indexChecksum({bytes, compared.size()}, TEXT_SEED));
}

void KeyMapWriter::add(std::uint32_t key, std::uint32_t message) {
    if (gatheredCount_ == KEY_CHUNK || (gatheredCount_ > 0 && key != key_)) {
        putEntry();
    }
    key_ = key;
    gathered_[gatheredCount_++] = message;
}

// The gathered messages as an entry behind one with `keyBefore`; the result is its length.
std::size_t KeyMapWriter::encodeEntry(std::uint32_t keyBefore, Entry* entry) const noexcept {
    const bool isSeveral = gatheredCount_ > 1;
    std::uint8_t* at = putNumber(entry->data(), 2 * std::uint64_t{key_ - keyBefore} + (isSeveral ? 1 : 0));
    if (isSeveral) {
        at = putNumber(at, gatheredCount_);
    }
    std::uint32_t before = 0;
    for (std::size_t i = 0; i < gatheredCount_; ++i) {
        at = putNumber(at, gathered_[i] - before);
        before = gathered_[i];
    }
    return static_cast<std::size_t>(at - entry->data());
}

void KeyMapWriter::putEntry() {
    Entry entry;
    std::size_t length = encodeEntry(lastKey_, &entry);
    if (used_ > 0 && used_ + length > INDEX_PAGE_SIZE) {
        putPage();
    }
    if (used_ == 0) {
        page_ = {};
        page_.put(FIRST_KEY_OFFSET, key_);
        firstKeys_.push_back(key_);
        used_ = ENTRIES_OFFSET;
        length = encodeEntry(key_, &entry);
    }
    std::copy_n(entry.begin(), length, page_.bytes.begin() + static_cast<std::ptrdiff_t>(used_));
    used_ += length;
    lastKey_ = key_;
    gatheredCount_ = 0;
}

void KeyMapWriter::putPage() {
    page_.put(LEAF_END_OFFSET, static_cast<std::uint16_t>(used_));
    const std::uint32_t number = run_->append(&page_);
    part_.firstPage = part_.leaves == 0 ? number : part_.firstPage;
    part_.leaves += 1;
    used_ = 0;
}

IndexPart KeyMapWriter::finish() {
    if (gatheredCount_ > 0) {
        putEntry();
    }
    if (used_ > 0) {
        putPage();
    }
    while (firstKeys_.size() > 1) {
        std::vector<std::uint32_t> above;
        for (std::size_t first = 0; first < firstKeys_.size(); first += KEYS_PER_PAGE) {
            const std::size_t count = std::min<std::size_t>(KEYS_PER_PAGE, firstKeys_.size() - first);
            IndexPage page;
            page.put(KEY_COUNT_OFFSET, static_cast<std::uint32_t>(count));
            std::memcpy(page.bytes.data() + KEYS_OFFSET, firstKeys_.data() + first, count * sizeof(std::uint32_t));
            (void)run_->append(&page);  // its number follows from those of the leaves
            above.push_back(firstKeys_[first]);
        }
        firstKeys_ = std::move(above);
    }
    return part_;
}

KeyMapCursor::KeyMapCursor(IndexPages* pages, const IndexRun& run, std::uint32_t part, std::uint32_t key) noexcept
    : pages_(pages), run_(run), from_(key) {
    const std::optional<IndexPart> found = indexRun_part(pages, run, part);
    part_ = found.value_or(IndexPart{});
    sound_ = found.has_value() && findLeaf(key);
}

bool KeyMapCursor::findLeaf(std::uint32_t key) noexcept {
    const IndexLevels levels = indexRun_levels(part_, KEYS_PER_PAGE);
    std::uint32_t number = 0;
    for (std::size_t level = levels.count; level-- > 1 && key > 0;) {
        const IndexPage* page =
            number < levels.levels[level].pages ? pages_->page(run_, levels.levels[level].firstPage + number) : nullptr;
        const std::uint32_t count = page == nullptr ? 0 : page->get<std::uint32_t>(KEY_COUNT_OFFSET);
        if (count == 0 || count > KEYS_PER_PAGE) {
            return false;
        }
        number = number * KEYS_PER_PAGE + lastBelow(*page, count, key);
    }
    leaf_ = number;
    return true;
}

bool KeyMapCursor::openLeaf() noexcept {
    if (!sound_ || leaf_ >= part_.leaves) {
        return false;
    }
    const IndexPage* page = pages_->page(run_, part_.firstPage + leaf_);
    const std::size_t end = page == nullptr ? 0 : page->get<std::uint16_t>(LEAF_END_OFFSET);
    sound_ = end > ENTRIES_OFFSET && end <= INDEX_PAGE_SIZE;
    if (!sound_) {
        return false;
    }
    page_ = *page;
    key_ = page_.get<std::uint32_t>(FIRST_KEY_OFFSET);
    at_ = ENTRIES_OFFSET;
    end_ = end;
    leaf_ += 1;
    return true;
}

// A checksum has found the page sound: what is checked here is that nothing leads out of it.
std::uint64_t KeyMapCursor::number() noexcept {
    std::uint64_t value = 0;
    for (std::size_t i = 0; at_ < end_ && i < LONGEST_NUMBER; ++i) {
        const std::uint8_t byte = page_.bytes[at_++];
        value |= std::uint64_t{byte & 0x7FU} << (7 * i);
        if ((byte & 0x80U) == 0) {
            break;
        }
    }
    return value;
}

bool KeyMapCursor::next() noexcept {
    do {
        if (left_ > 0 && at_ == end_) {
            sound_ = false;  // an entry does not reach into another page
            return false;
        }
        if (left_ > 0) {
            if (at_ == end_) {
                sound_ = false;  // an entry does not go on in the next page
                return false;
            }
            left_ -= 1;
            message_ += static_cast<std::uint32_t>(number());
            continue;
        }
        if (at_ == end_ && !openLeaf()) {
            return false;
        }
        const std::uint64_t distance = number();
        key_ += static_cast<std::uint32_t>(distance / 2);
        left_ = distance % 2 == 0 ? 0 : static_cast<std::uint32_t>(number()) - 1;
        message_ = static_cast<std::uint32_t>(number());
    } while (key_ < from_);
    return true;
}

}  // namespace tabulo::internal
