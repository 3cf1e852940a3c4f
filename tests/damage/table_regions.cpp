#include "tests/damage/table_regions.h"

namespace tabulo::internal::test {

namespace {

constexpr std::size_t GENERIC_HEADER = 19;
constexpr std::size_t TAIL = 88;
constexpr std::size_t WORD = 8;
constexpr std::size_t FRAME_LENGTH = 4;
constexpr std::size_t FILTER = 1256;
constexpr std::size_t STATIC_INDEXES = 60;

class RegionList {
  public:
    void add(std::size_t length, const std::string& name, bool checked, std::size_t message = 0) {
        regions.push_back({position, position + length, name, checked, message});
        position += length;
    }
    void addFooter(const TableShape& shape, const std::string& block) {
        const auto numbers = static_cast<std::size_t>(shape.numericFieldCount());
        const std::size_t filters =
            static_cast<std::size_t>(shape.summarisedStringFieldCount) + shape.stringNames.size();
        add(2 * (36 + 9 * numbers), "the ranges of " + block, false);
        for (std::size_t i = 0; i < filters; ++i) {
            add(4, "the bit count of a filter of " + block, true);
            add(FILTER - 4, "the bits of a filter of " + block, false);
        }
        add(STATIC_INDEXES, "the static indexes of " + block, false);
        add(WORD, "the trailing length of " + block, true);
    }

    std::vector<TableRegion> regions;
    std::size_t position = 0;
};

}  // namespace

std::vector<TableRegion> regionsOf(const TableShape& shape, const std::vector<Message>& messages) {
    const TableMap map = mapOf(shape, messages);
    const auto messagesPerBlock = static_cast<std::size_t>(shape.messagesPerBlock);
    RegionList list;
    list.add(GENERIC_HEADER, "the generic header", true);
    list.add(map.tail() - GENERIC_HEADER, "the header's type name, layout and field names", true);
    list.add(TAIL, "the header's records", false);
    for (std::size_t number = 1; number <= messages.size(); ++number) {
        const std::string block = "block " + std::to_string((number - 1) / messagesPerBlock + 1);
        const std::string message = "message " + std::to_string(number);
        if (number % messagesPerBlock == 1) {
            list.add(WORD, "the leading length of " + block, true);
        }
        const TableMap::Frame& frame = map.frame(number);
        list.add(FRAME_LENGTH, "the leading length of " + message, true, number);
        list.add(frame.end - frame.start - 2 * FRAME_LENGTH, "the contents of " + message, false, number);
        list.add(FRAME_LENGTH, "the trailing length of " + message, true, number);
        if (number % messagesPerBlock == 0) {
            list.addFooter(shape, block);
        }
    }
    return list.regions;
}

namespace {

void addNames(const std::vector<std::string>& names, std::size_t* offset, std::vector<TableNumber>* numbers) {
    for (const std::string& name : names) {
        numbers->push_back({*offset, 4});
        *offset += 4 + (name.empty() ? 0 : name.size() + 1);
    }
}

void addFrame(const Message& message, const TableMap::Frame& frame, std::vector<TableNumber>* numbers) {
    numbers->push_back({frame.start, 4});
    std::size_t offset = frame.start + 35;
    for (const NumericValue& number : message.numbers) {
        numbers->push_back({offset, 1});
        offset += number.type == NumericType::absent ? 1 : 9;
    }
    for (const std::optional<std::string>& text : message.strings) {
        numbers->push_back({offset, 4});
        offset += 4 + text.value_or("").size();
    }
    numbers->push_back({frame.end - 4, 4});
}

}  // namespace

std::vector<TableNumber> numbersOf(const TableShape& shape, const std::vector<Message>& messages) {
    const TableMap map = mapOf(shape, messages);
    std::vector<TableNumber> numbers{{11, 2}, {13, 2}, {15, 4}, {19, 4}, {36, 4}, {40, 4}, {44, 4}, {48, 4}};
    std::size_t offset = 52;
    addNames(shape.stringNames, &offset, &numbers);
    addNames(shape.numericNames, &offset, &numbers);
    numbers.push_back({map.storedLastBlockEnd(), 8});
    numbers.push_back({map.storedDataEnd(), 8});
    numbers.push_back({map.storedMessageCount(), 4});
    for (const std::size_t start : map.blockStarts) {
        numbers.push_back({start, 8});
    }
    for (std::size_t number = 1; number <= messages.size(); ++number) {
        addFrame(messages[number - 1], map.frame(number), &numbers);
    }
    for (const TableRegion& region : regionsOf(shape, messages)) {
        if (region.name.starts_with("the bit count of a filter") ||
            region.name.starts_with("the trailing length of block")) {
            numbers.push_back({region.start, region.end - region.start});
        }
    }
    return numbers;
}

}  // namespace tabulo::internal::test
