#include "tests/query/random_table.h"

#include <algorithm>
#include <limits>

#include "tests/query/random_values.h"

namespace tabulo::internal::test {

namespace {

// What one field of a block looks like; the theme changes from block to block.
enum class NumberTheme { absent, longs, doubles, mixed, odd };

NumericValue randomNumber(Random* random, NumberTheme theme, std::int32_t center) {
    if (random->percent(theme == NumberTheme::absent ? 95 : 15)) {
        return {};
    }
    const std::int32_t whole = random->between(center - 5, center + 5);
    const NumericValue real = numericValue_ofDouble(whole + 0.25 * random->below(4));
    switch (theme) {
        case NumberTheme::absent:
        case NumberTheme::longs:
            return numericValue_ofLong(whole);
        case NumberTheme::doubles:
            return real;
        case NumberTheme::mixed:
            return random->percent(50) ? numericValue_ofLong(whole) : real;
        case NumberTheme::odd:
            return random->percent(50) ? numericValue_ofDouble(random->of(oddDoubles()))
                                       : numericValue_ofLong(random->of(oddLongs()));
    }
    return {};
}

// An id of a random class, or of none, near one of its ends or in the middle.
std::int32_t randomId(Random* random, std::int32_t center) {
    static const std::vector<std::int32_t> firsts = {536870911, 0, 1342177279, 1073741823, 1610612735};
    if (random->percent(4)) {
        return -random->between(1, 20);
    }
    if (random->percent(4)) {
        return random->percent(50) ? std::numeric_limits<std::int32_t>::max() : random->of(firsts);
    }
    return random->of(firsts) + std::max(0, center + random->between(-6, 6));
}

class Writer {
  public:
    Writer(Random* random, const MessageTableLayout& layout) : random_(random), layout_(layout) {}

    void startBlock(std::int32_t block) {
        center_ = 20 * block + random_->between(-30, 30);
        time_ += random_->between(0, 5);
        themes_.clear();
        texts_.clear();
        for (std::int32_t i = 0; i < layout_.numericFieldCount; ++i) {
            themes_.push_back(static_cast<NumberTheme>(random_->below(random_->percent(25) ? 5 : 3)));
        }
        for (std::int32_t i = 0; i < layout_.stringFieldCount; ++i) {
            std::vector<std::optional<std::string>> few = {std::nullopt};
            for (std::int32_t k = random_->between(0, 5); k > 0; --k) {
                few.emplace_back(random_->of(oddTexts()));
            }
            texts_.push_back(few);
        }
        oneClass_ = random_->percent(30) ? random_->below(5) : -1;
    }

    Message message() {
        Message message;
        MessageMetadata& metadata = message.metadata;
        time_ += random_->between(-1, 3);
        metadata.uniformId = static_cast<std::int32_t>(time_) + random_->between(-2, 2);
        metadata.seqNum = center_ + random_->between(-8, 8);
        metadata.prevSeqNum = random_->between(-3, 3);
        metadata.connMsgId = randomId(random_, center_);
        while (oneClass_ >= 0 && classifyConnMsgId(metadata.connMsgId) != oneClass_) {
            metadata.connMsgId = randomId(random_, center_);
        }
        metadata.timestamp = time_;
        setMsgType(&metadata, random_->of(msgTypes()));
        metadata.isPossDupFlag = static_cast<std::uint8_t>(random_->percent(30) ? 1 << random_->below(8) : 0);
        metadata.isOutOfSequence = static_cast<std::uint8_t>(random_->percent(30) ? 1 << random_->below(8) : 0);
        for (const auto& few : texts_) {
            message.strings.push_back(random_->of(few));
        }
        for (const NumberTheme theme : themes_) {
            message.numbers.push_back(randomNumber(random_, theme, center_));
        }
        return message;
    }

  private:
    Random* random_;
    MessageTableLayout layout_;
    std::int32_t center_ = 0;
    std::int32_t oneClass_ = -1;
    std::int64_t time_ = -40;  // runs through 0
    std::vector<NumberTheme> themes_;
    std::vector<std::vector<std::optional<std::string>>> texts_;
};

}  // namespace

RandomMessages randomMessages(Random* random, bool blocksOfAThousand) {
    RandomMessages all;
    std::int32_t perBlock = random->between(4, random->percent(70) ? 16 : 50);
    std::int32_t blocks = random->between(2, 7);
    if (blocksOfAThousand) {
        perBlock = 1000;
        blocks = 2;
    }
    const std::int32_t widest = random->percent(10) ? 12 : 3;
    all.layout = layoutOf(perBlock, random->between(0, widest), random->between(0, random->percent(10) ? 16 : 4));
    if (random->percent(25)) {
        all.layout.summarisedStringFieldCount = random->between(0, 14);
    }
    all.closed = static_cast<std::size_t>(blocks * perBlock);
    const std::int32_t count = blocks * perBlock + random->below(std::min(perBlock, 200));
    Writer writer(random, all.layout);
    for (std::int32_t n = 0; n < count; ++n) {
        if (n % perBlock == 0) {
            writer.startBlock(n / perBlock);
        }
        all.messages.push_back(writer.message());
    }
    return all;
}

}  // namespace tabulo::internal::test
