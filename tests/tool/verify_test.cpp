#include <gtest/gtest.h>

#include <map>
#include <random>

#include "tabulo/writer.h"
#include "tests/api/damaged_table.h"
#include "tests/support/test_run.h"
#include "tests/tool/rescue_test.h"

namespace tabulo::tool::test {
namespace {

using internal::test::patchFile;
using internal::test::writeFile;

class VerifyVerbTest : public RescueTest {};

TEST_F(VerifyVerbTest, SoundTablesOfBothKindsAreSound) {
    makeOrders("orders", 23);
    makeSession("session");
    const auto before = contents();
    const ProgramResult result = run({"verify", "orders", "session"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(result.output,
              "orders: sound; 6 blocks, 23 whole messages, 29.0 KiB\n"
              "session: sound; 3 values, 80 B\n");
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(contents(), before);
}

TEST_F(VerifyVerbTest, DamageIsToldWithItsPlaceAndWhatIsWholeAroundIt) {
    const std::string path = makeOrders("orders", 23);
    Reader reader(path);
    const Position place = *reader.positionOf(5);
    patchFile(path, static_cast<std::size_t>(place.offset), Bytes(4, 0xFF));
    ProgramResult result = run({"verify", "orders"});
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.errors, "tabulo: orders is damaged\n");
    const std::string where = "orders: damage at " + std::to_string(place.offset) + ", message: ";
    EXPECT_TRUE(result.output.starts_with(where)) << result.output;
    const std::string around =
        " (block at " + std::to_string(place.block) + "; whole messages of it: 1 in front, 2 behind)\n";
    EXPECT_NE(result.output.find(around), std::string::npos) << result.output;
    EXPECT_TRUE(result.output.ends_with("orders: 1 damage; 6 blocks, 22 whole messages, 29.0 KiB\n")) << result.output;

    EXPECT_NE(run({"--color", "always", "verify", "orders"}).output.find("orders: \x1b[31mdamage\x1b[0m at "),
              std::string::npos);

    result = run({"verify", "-o", "ndjson", "orders"});
    EXPECT_EQ(result.status, 3);
    const std::string start =
        "{\"record\":\"finding\",\"table\":\"orders\",\"path\":\"orders\",\"kind\":\"message\","
        "\"damage\":true,\"block\":" +
        std::to_string(place.block) + ",\"offset\":" + std::to_string(place.offset) +
        ",\"intactBefore\":1,\"intactBehind\":2,\"text\":\"";
    EXPECT_TRUE(result.output.starts_with(start)) << result.output;
    EXPECT_TRUE(result.output.ends_with(
        "\"}\n{\"record\":\"table\",\"table\":\"orders\",\"path\":\"orders\",\"kind\":\"messages\",\"sound\":false,"
        "\"blocks\":6,\"messages\":22,\"bytes\":29735,\"damages\":1,\"notes\":0}\n"))
        << result.output;
}

TEST_F(VerifyVerbTest, IdsThatFallAreANoteAndNoDamage) {
    const std::string path = file("orders");
    Writer writer = Writer::create(path, ordersLayout());
    for (const std::int32_t n : {1, 2, 7, 3}) {
        writer.append(OrderMessage(n).message);
    }
    writer.close();
    const ProgramResult result = run({"verify", "orders"});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_NE(result.output.find("orders: note at "), std::string::npos) << result.output;
    EXPECT_NE(result.output.find(", order: "), std::string::npos) << result.output;
    EXPECT_NE(result.output.find("orders: sound, 1 note; "), std::string::npos) << result.output;
}

TEST_F(VerifyVerbTest, AnOpenTableBesideItsWriterHasNoFindings) {
    Writer writer = Writer::create(file("orders"), ordersLayout());
    for (std::int32_t n = 1; n <= 10; ++n) {
        writer.append(OrderMessage(n).message);
        const ProgramResult result = run({"verify", "orders"});
        EXPECT_EQ(result.status, 0) << n << ": " << result.output << result.errors;
    }
}

TEST_F(VerifyVerbTest, AFolderGoesOnBehindWhatIsForeignAndANamedFileFailsAtTheEnd) {
    makeOrders("orders", 5);
    makeFile("notes.txt", "no table");
    const std::string sound = "orders: sound; 2 blocks, 5 whole messages, ";
    ProgramResult result = run({"verify", "."});
    EXPECT_EQ(result.status, 3);
    EXPECT_NE(result.output.find(sound), std::string::npos) << result.output;
    EXPECT_NE(result.errors.find("left out: FILE_SIZE_ERROR"), std::string::npos) << result.errors;
    result = run({"verify", "notes.txt", "orders"});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.output.find(sound), std::string::npos) << "the other file was checked all the same";
    EXPECT_NE(result.errors.find("1 of 2 files could not be checked"), std::string::npos) << result.errors;
    EXPECT_EQ(run({"verify", "notes.txt"}).status, 1);
    EXPECT_EQ(run({"verify", "missing"}).status, 1);
    EXPECT_EQ(run({"verify"}).status, 2);
    EXPECT_EQ(run({"verify", "-o", "csv", "orders"}).status, 2);
}

TEST_F(VerifyVerbTest, ATableWhoseHeaderIsLostIsDamagedAndAFileThatBeginsOtherwiseIsNoTable) {
    const std::string path = makeOrders("orders", 5);
    const Bytes sound = readFile(path);
    constexpr std::size_t FIRST_BYTES = 15;  // signature, byte order and version
    constexpr std::size_t GENERIC_HEADER = 19;
    Bytes damaged = sound;
    std::fill(damaged.begin() + GENERIC_HEADER, damaged.begin() + 186, std::uint8_t{0xFF});
    internal::test::writeFile(path, damaged);
    ProgramResult result = run({"verify", "orders"});
    EXPECT_EQ(result.status, 3) << result.errors;
    EXPECT_NE(result.output.find("orders: damage at 0, header: it tells no layout: "), std::string::npos)
        << result.output;
    EXPECT_NE(result.errors.find("orders is damaged"), std::string::npos) << result.errors;
    result = run({"verify", "orders", "-o", "ndjson"});
    EXPECT_NE(result.output.find("\"kind\":null,\"sound\":false,\"blocks\":null,\"messages\":null,\"bytes\":" +
                                 std::to_string(sound.size()) + ",\"damages\":1,"),
              std::string::npos)
        << result.output;
    for (std::size_t place = 0; place < 186; ++place) {
        damaged = sound;
        damaged[place] ^= 0xFFU;
        internal::test::writeFile(path, damaged);
        const int status = run({"verify", "orders"}).status;
        if (place < FIRST_BYTES) {
            EXPECT_EQ(status, 1) << "byte " << place;
        } else {
            EXPECT_TRUE(status == 3 || status == 0) << "byte " << place << ": " << status;  // names are free
        }
    }
}

TEST_F(VerifyVerbTest, ASessionTableOfAnotherSizeIsDamaged) {
    const std::string path = makeSession("session");
    const Bytes sound = readFile(path);
    for (std::size_t size = sound.size() - 23; size <= sound.size() + 3; ++size) {
        Bytes image = sound;
        image.resize(size);
        writeFile(path, image);
        const ProgramResult result = run({"verify", "session"});
        EXPECT_EQ(result.status, size == sound.size() ? 0 : 3) << size << ": " << result.output << result.errors;
    }
}

// Tables that are damaged, many in a folder, so that one run of the command looks at all of them.
class VerifyDamagedTest : public RescueTest {
  protected:
    VerifyDamagedTest() {
        frames = tabulo::test::eachFrame(layout, 20);
        tabulo::test::writeTable(file("sound"), layout, frames);
        sound = readFile(file("sound"));
        std::filesystem::remove(file("sound"));
    }
    void add(const Bytes& image) {
        const std::string name = "t" + std::to_string(images.size());
        writeFile(file(name), image);
        images.emplace(name, image);
        if (images.size() == 1000) {
            judge();
        }
    }
    // Expects every damage to be found that a reader could be misled by.
    void judge() {
        const tabulo::test::TablePlan plan(layout, frames);
        const ProgramResult result = run({"verify", "-o", "ndjson", "."});
        for (const auto& [name, image] : images) {
            const std::string path = "\"path\":\"" + name + "\",\"kind\":\"messages\",\"sound\":";
            const std::size_t place = result.output.find(path);
            const bool isSound =
                place != std::string::npos && result.output.compare(place + path.size(), 4, "true") == 0;
            const bool isLeftOut = result.errors.find("./" + name + " ") != std::string::npos;
            EXPECT_TRUE(place != std::string::npos || isLeftOut) << name << " was not looked at";
            if (tabulo::test::isCheckedDamage(plan, sound, image)) {
                ++checked;
                EXPECT_FALSE(isSound) << name << " differs: " << internal::test::difference(image, sound);
            }
            if (image == sound) {
                EXPECT_TRUE(isSound) << name;
            }
            std::filesystem::remove(file(name));
        }
        images.clear();
    }

    const Layout layout = tabulo::test::ordersLayout(6);
    std::vector<std::vector<std::byte>> frames;
    Bytes sound;
    std::map<std::string, Bytes> images;
    int checked = 0;
};

TEST_F(VerifyDamagedTest, EveryFlippedByteThatAReaderReliesOnIsFound) {
    const tabulo::test::TablePlan plan(layout, frames);
    const auto flip = [&](std::size_t begin, std::size_t end) {
        for (std::size_t i = begin; i < end; ++i) {
            Bytes image = sound;
            image[i] ^= 0xFF;
            add(image);
        }
    };
    flip(plan.headerEnd - 80, plan.headerEnd);
    for (const std::size_t block : plan.blocks) {
        flip(block, block + 8);
    }
    for (const tabulo::test::Stretch& frame : plan.frames) {
        flip(frame.begin, frame.begin + 4);
        flip(frame.end - 4, frame.end);
    }
    for (const tabulo::test::Stretch& footer : plan.footers) {
        flip(footer.begin, footer.begin + 2 * (36 + 18) + 4);
        flip(footer.end - 68, footer.end);
    }
    judge();
    EXPECT_GT(checked, 700);
}

TEST_F(VerifyDamagedTest, RandomDamageThatAReaderReliesOnIsFound) {
    const std::uint32_t seed = internal::test::testSeed();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const tabulo::test::TablePlan plan(layout, frames);
    const int rounds = 1500 * internal::test::testEffort();
    for (int round = 0; round < rounds && !HasFailure(); ++round) {
        Bytes image = sound;
        for (std::size_t i = random() % 3; i > 0; --i) {
            tabulo::test::damageAtRandom(&image, plan.headerEnd - 80, &random);
        }
        add(image);
    }
    judge();
    EXPECT_GT(checked, rounds / 8);
}

}  // namespace
}  // namespace tabulo::tool::test
