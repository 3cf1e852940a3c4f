// A table of simple messages whose file tests damage, and where everything in that file stands.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "tabulo/damage.h"
#include "tests/api/api_test.h"

namespace tabulo::test {

struct Stretch {
    std::size_t begin = 0;
    std::size_t end = 0;
};

// Where frames and blocks of a table stand, computed from the messages and the documented sizes alone.
struct TablePlan {
    TablePlan(const Layout& layout, const std::vector<std::vector<std::byte>>& frames);

    std::size_t headerEnd = 0;
    std::size_t footerSize = 0;
    std::vector<Stretch> frames;
    std::vector<std::size_t> blocks;  // with the open one, if it holds messages
    std::vector<Stretch> footers;
    std::size_t end = 0;
};

// The frames of simple messages 1 to `last`, each on its own.
std::vector<std::vector<std::byte>> eachFrame(const Layout& layout, std::int32_t last);
// Makes a table of such frames; closes it.
void writeTable(const std::filesystem::path& path, const Layout& layout,
                const std::vector<std::vector<std::byte>>& frames);

// Bytes that can be compared with others have changed: lengths, footers but for bits too many in filters, records
// of the header. What a message says may change unseen.
bool isCheckedDamage(const TablePlan& plan, const Bytes& sound, const Bytes& image);

struct Verified {
    VerifyResult result;
    std::vector<Finding> findings;

    // All of it, for messages of failed tests.
    std::string text() const;
    std::vector<Finding> damages() const;
};
Verified verifyAll(const std::filesystem::path& path);

struct Salvaged {
    struct Item {
        Bytes frame;
        std::int32_t uniformId = 0;
        Position position;
        std::int64_t ordinal = 0;
        std::filesystem::path file;
    };
    SalvageResult result;
    std::vector<Item> messages;
    std::vector<Gap> gaps;

    std::vector<std::int32_t> ids() const;
    std::string text() const;
};
Salvaged salvageAll(const std::filesystem::path& path, const SalvageOptions& options = {});

// Overwrites bytes of an image at random, somewhere from `begin` on: a byte, a number, a page or a long stretch, with
// zeros or anything. The stretch; nothing else has changed.
Stretch damageAtRandom(Bytes* image, std::size_t begin, std::mt19937* random);
// " 5-9 20-21", for the words of a failing test.
std::string stretchesText(const std::vector<Stretch>& stretches);

}  // namespace tabulo::test
