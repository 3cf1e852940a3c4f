// Random selections against a plain filter over the messages that were stored: given as the user gives them, asked of
// several tables at once.
#include "tests/tool/random_selection.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/temporary_directory.h"
#include "tests/support/test_run.h"
#include "tool/message_source.h"
#include "tool/status.h"
#include "tool/verb.h"

namespace tabulo::tool::test {

namespace {

// The uniform ids that a selection finds; none when it is refused.
std::optional<std::vector<std::int32_t>> found(const Words& files, const Words& selection, bool backward) {
    CLI::App app;
    SourceOptions options;
    declareSource(app, &options);
    Words words = files;
    words.insert(words.end(), selection.begin(), selection.end());
    words.insert(words.end(), {"--time-unit", "ms"});
    std::reverse(words.begin(), words.end());
    app.parse(words);
    Console console;
    std::vector<std::int32_t> ids;
    try {
        MessageSource source(console, options, {});
        source.begin("", backward);
        while (const MessageView* message = source.next()) {
            ids.push_back(message->uniformId());
        }
    } catch (const UsageError&) {
        return std::nullopt;
    }
    return ids;
}

std::vector<std::int32_t> expected(const std::vector<Row>& rows, const Asked& asked, bool backward) {
    std::vector<std::int32_t> ids;
    for (const Row& row : rows) {
        if (std::all_of(asked.all.begin(), asked.all.end(), [&](const Plain& plain) { return plain(row); })) {
            ids.push_back(row.uid);
        }
    }
    if (backward) {
        std::reverse(ids.begin(), ids.end());
    }
    return ids;
}

TEST(RandomSelectionTest, TwoThousandSelectionsFindWhatAPlainFilterFinds) {
    constexpr std::int32_t MESSAGES = 600;
    constexpr int SELECTIONS = 2000;
    const std::uint32_t seed = internal::test::testSeed();
    Random random(seed);
    const internal::test::TemporaryDirectory directory;
    const Words files = {directory.file("one"), directory.file("two"), directory.file("three")};
    std::vector<Row> rows;
    {
        std::vector<Writer> writers;
        for (const std::string& file : files) {
            writers.push_back(Writer::create(file, rowLayout()));
        }
        for (std::int32_t uid = 1; uid <= MESSAGES; ++uid) {
            rows.push_back(randomRow(random, uid));
            append(&writers[static_cast<std::size_t>(uid / 50) % writers.size()], rows.back());
        }
    }
    int empty = 0;
    int refused = 0;
    for (int i = 0; i < SELECTIONS && !testing::Test::HasFailure(); ++i) {
        const Asked asked = randomSelection(random);
        const bool backward = chance(random, 30);
        const std::vector<std::int32_t> wanted = expected(rows, asked, backward);
        const auto ids = found(files, asked.words, backward);
        if (ids.has_value()) {
            EXPECT_EQ(*ids, wanted) << fmt::format("{}", fmt::join(asked.words, " ")) << " of seed " << seed;
        } else {
            EXPECT_TRUE(asked.mayBeRefused && wanted.empty()) << fmt::format("{}", fmt::join(asked.words, " "));
        }
        refused += ids.has_value() ? 0 : 1;
        empty += wanted.empty() ? 1 : 0;
    }
    EXPECT_LT(refused, SELECTIONS / 4) << "too few of the selections say anything";
    EXPECT_LT(empty, SELECTIONS / 2) << "too few of the selections say anything";
}

}  // namespace

}  // namespace tabulo::tool::test
