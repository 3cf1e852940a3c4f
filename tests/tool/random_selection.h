// Random messages and random selections of them, each as the user gives it and as a plain filter.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "tabulo/writer.h"

namespace tabulo::tool::test {

using Random = std::mt19937_64;
using Words = std::vector<std::string>;

// A message as it was stored.
struct Row {
    std::int32_t uid = 0, seq = 0, id = 0;
    std::int64_t time = 0;
    std::string type;
    bool possDup = false;
    std::optional<std::string> symbol, account, side, quantity;
    Number price{}, size{};

    // What stands in tags 54 and 38 is also in the wire message.
    std::string wire() const {
        return "8=FIX.4.4\00135=" + type + "\001" + (side ? "54=" + *side + "\001" : "") +
               (quantity ? "38=" + *quantity + "\001" : "") + "10=0\001";
    }
};

// The layout of a table of such messages.
Layout rowLayout();
Row randomRow(Random& random, std::int32_t uid);
void append(Writer* writer, const Row& row);

using Plain = std::function<bool(const Row&)>;

// A selection as it is given, and what it means.
struct Asked {
    Words words;
    std::vector<Plain> all;     // every one must hold
    bool mayBeRefused = false;  // because no message could meet all of it

    void add(Words given, Plain plain) {
        words.insert(words.end(), given.begin(), given.end());
        all.push_back(std::move(plain));
    }
};

// One to three options, each at most once, except --where.
Asked randomSelection(Random& random);

// True so many times in a hundred.
bool chance(Random& random, unsigned percent);

}  // namespace tabulo::tool::test
