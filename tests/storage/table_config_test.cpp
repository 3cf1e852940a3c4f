#include "storage/table_config.h"
#include "core/handle.h"

#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <string>

#include "tests/support/allocation_failure.h"
#include "tests/support/debug_log.h"
#include "tests/support/log_capture.h"

namespace tabulo::internal::test {
namespace {

using ConfigPtr = Handle<KSVTboTableConfig, tableConfig_destroy>;

ConfigPtr makeConfig(const char* name = "orders", std::int32_t pathCount = 1) {
    return ConfigPtr(tableConfig_create(name, pathCount));
}

std::string pathFor(const char* root) {
    const ConfigPtr config = makeConfig();
    EXPECT_EQ(tableConfig_setPath(config.get(), 0, root), NO_ERROR);
    return tableConfig_getMasterPath(config.get());
}

MessageTableLayout layoutOf(std::int32_t strings, std::int32_t summarised, std::int32_t numbers) {
    return {1000, strings, summarised, numbers};
}

TEST(TableConfig, WithoutPathsOrNameThereIsNone) {
    EXPECT_EQ(tableConfig_create("orders", 0), nullptr);
    EXPECT_EQ(tableConfig_create("orders", -1), nullptr);
    EXPECT_EQ(tableConfig_create(nullptr, 1), nullptr);
}

TEST(TableConfig, ANewOneHasTheDefaultsAndEmptyPaths) {
    std::string name = "orders";
    const ConfigPtr config = makeConfig(name.c_str(), 3);
    name = "changed";
    EXPECT_STREQ(tableConfig_getTableName(config.get()), "orders") << "the name is copied";
    EXPECT_EQ(config->pathCount, 3);
    for (std::int32_t i = 0; i < 3; ++i) {
        EXPECT_EQ(tableConfig_getPath(config.get(), i), nullptr);
    }
    EXPECT_EQ(*tableConfig_getLayout(config.get()), layoutOf(4, 2, 0));
    const SessionInfoTags* tags = tableConfig_getSessionInfoTags(config.get());
    EXPECT_EQ(tags->count, 6);
    std::array<std::int32_t, 32> expected = {2, 1, 3, 4, 5, 6};
    EXPECT_EQ(tags->tags, expected);
    for (std::int32_t i = 0; i < 16; ++i) {
        EXPECT_EQ(tableConfig_getStringFieldName(config.get(), i), nullptr);
        EXPECT_EQ(tableConfig_getNumericFieldName(config.get(), i), nullptr);
    }
}

TEST(TableConfig, TheDefaultsAreCopiedAndNotShared) {
    const ConfigPtr first = makeConfig();
    EXPECT_EQ(tableConfig_addStringFieldName(first.get(), "Symbol"), NO_ERROR);
    first->sessionInfoTags.tags[0] = 99;
    const ConfigPtr second = makeConfig();
    EXPECT_EQ(*tableConfig_getLayout(second.get()), layoutOf(4, 2, 0));
    EXPECT_EQ(tableConfig_getSessionInfoTags(second.get())->tags[0], 2);
}

TEST(TableConfig, APathIsTheRootAndTheTableName) {
    EXPECT_EQ(pathFor("D:\\db\\"), "D:\\db\\orders");
    EXPECT_EQ(pathFor("D:\\db"), "D:\\db\\orders");
    EXPECT_EQ(pathFor("/data/"), "/data/orders");
    EXPECT_EQ(pathFor("/data"), "/data\\orders") << "the rule stands on every system";
}

TEST(TableConfig, ARootOfOneCharacterAlwaysGetsTheBackslash) {
    EXPECT_EQ(pathFor("/"), "/\\orders");
    EXPECT_EQ(pathFor("\\"), "\\\\orders");
    EXPECT_EQ(pathFor("x"), "x\\orders");
    EXPECT_EQ(pathFor("//"), "//orders") << "two characters are longer than one";
    EXPECT_EQ(pathFor(""), "\\orders");
}

TEST(TableConfig, SettingAPathAgainReplacesItAndNoneEmptiesTheSlot) {
    const ConfigPtr config = makeConfig("orders", 2);
    EXPECT_EQ(tableConfig_setPath(config.get(), 0, "/a/"), NO_ERROR);
    EXPECT_EQ(tableConfig_setPath(config.get(), 1, "/b/"), NO_ERROR);
    EXPECT_EQ(tableConfig_setPath(config.get(), 0, "/c/"), NO_ERROR);
    EXPECT_STREQ(tableConfig_getPath(config.get(), 0), "/c/orders");
    EXPECT_STREQ(tableConfig_getMasterPath(config.get()), "/c/orders");
    EXPECT_STREQ(tableConfig_getPath(config.get(), 1), "/b/orders");
    EXPECT_EQ(tableConfig_setPath(config.get(), 1, nullptr), NO_ERROR);
    EXPECT_EQ(tableConfig_getPath(config.get(), 1), nullptr);
}

TEST(TableConfig, APathOutsideTheSlotsIsOutOfBounds) {
    const ConfigPtr config = makeConfig("orders", 2);
    EXPECT_EQ(tableConfig_setPath(config.get(), 2, "/a/"), INDEX_OUT_OF_BOUNDS_ERROR);
    EXPECT_EQ(tableConfig_setPath(config.get(), -1, "/a/"), INDEX_OUT_OF_BOUNDS_ERROR);
    EXPECT_EQ(tableConfig_setPath(config.get(), 2, nullptr), INDEX_OUT_OF_BOUNDS_ERROR);
    EXPECT_EQ(tableConfig_getPath(config.get(), 2), nullptr);
    EXPECT_EQ(tableConfig_getPath(config.get(), -1), nullptr);
}

TEST(TableConfig, APathWithoutMemoryLeavesTheSlotEmpty) {
    const ConfigPtr config = makeConfig();
    ASSERT_EQ(tableConfig_setPath(config.get(), 0, "/before/"), NO_ERROR);
    ErrorCode code = NO_ERROR;
    {
        const AllocationFailure failure(1);
        code = tableConfig_setPath(config.get(), 0, "/a/root/that/does/not/fit/into/a/short/string/");
    }
    EXPECT_EQ(code, OUT_OF_MEMORY_ERROR);
    EXPECT_EQ(tableConfig_getPath(config.get(), 0), nullptr);
}

TEST(TableConfig, FieldNamesCountInTheLayout) {
    const ConfigPtr config = makeConfig();
    std::string name = "ClOrdID";
    EXPECT_EQ(tableConfig_addStringFieldName(config.get(), name.c_str()), NO_ERROR);
    name = "changed";
    EXPECT_EQ(tableConfig_addStringFieldName(config.get(), "Symbol"), NO_ERROR);
    EXPECT_EQ(tableConfig_addNumericFieldName(config.get(), "OrderQty"), NO_ERROR);
    EXPECT_EQ(*tableConfig_getLayout(config.get()), layoutOf(6, 4, 1));
    EXPECT_STREQ(tableConfig_getStringFieldName(config.get(), 0), "ClOrdID") << "the name is copied";
    EXPECT_STREQ(tableConfig_getStringFieldName(config.get(), 1), "Symbol");
    EXPECT_EQ(tableConfig_getStringFieldName(config.get(), 2), nullptr);
    EXPECT_STREQ(tableConfig_getNumericFieldName(config.get(), 0), "OrderQty");
    EXPECT_EQ(tableConfig_getNumericFieldName(config.get(), 1), nullptr);
}

TEST(TableConfig, AFieldNameOfNoneTakesUpASlot) {
    const ConfigPtr config = makeConfig();
    EXPECT_EQ(tableConfig_addStringFieldName(config.get(), nullptr), NO_ERROR);
    EXPECT_EQ(tableConfig_addStringFieldName(config.get(), "Symbol"), NO_ERROR);
    EXPECT_EQ(tableConfig_addNumericFieldName(config.get(), nullptr), NO_ERROR);
    EXPECT_EQ(*tableConfig_getLayout(config.get()), layoutOf(6, 4, 1));
    EXPECT_EQ(tableConfig_getStringFieldName(config.get(), 0), nullptr);
    EXPECT_STREQ(tableConfig_getStringFieldName(config.get(), 1), "Symbol");
}

TEST(TableConfig, TheThirteenthStringFieldNameIsRefusedWithAWarning) {
    const ConfigPtr config = makeConfig();
    const LogCapture log;
    for (int i = 0; i < 12; ++i) {
        ASSERT_EQ(tableConfig_addStringFieldName(config.get(), ("field" + std::to_string(i)).c_str()), NO_ERROR);
    }
    EXPECT_TRUE(log.all().empty());
    EXPECT_EQ(tableConfig_addStringFieldName(config.get(), "one more"), STRING_FIELDS_LIMIT_ERROR);
    EXPECT_EQ(log.all(),
              std::vector<std::string>{warningLine("tableConfig_addStringFieldName",
                                                   "Number of configured string fields exceeds limit (12)")});
    EXPECT_EQ(*tableConfig_getLayout(config.get()), layoutOf(16, 14, 0));
    EXPECT_STREQ(tableConfig_getStringFieldName(config.get(), 11), "field11");
}

TEST(TableConfig, TheSeventeenthNumericFieldNameIsRefusedWithAWarning) {
    const ConfigPtr config = makeConfig();
    const LogCapture log;
    for (int i = 0; i < 16; ++i) {
        ASSERT_EQ(tableConfig_addNumericFieldName(config.get(), ("field" + std::to_string(i)).c_str()), NO_ERROR);
    }
    EXPECT_TRUE(log.all().empty());
    EXPECT_EQ(tableConfig_addNumericFieldName(config.get(), "one more"), NUMERIC_FIELDS_LIMIT_ERROR);
    EXPECT_EQ(log.all(),
              std::vector<std::string>{warningLine("tableConfig_addNumericFieldName",
                                                   "Number of configured numeric fields exceeds limit (16)")});
    EXPECT_EQ(*tableConfig_getLayout(config.get()), layoutOf(4, 2, 16));
    EXPECT_STREQ(tableConfig_getNumericFieldName(config.get(), 15), "field15");
}

TEST(TableConfig, AFieldNameWhoseSlotLiesOutsideIsOutOfBounds) {
    const LogCapture log;
    constexpr std::int32_t smallest = std::numeric_limits<std::int32_t>::min();
    for (const std::int32_t count : {3, 0, -1, 17, 1000, smallest}) {
        const ConfigPtr config = makeConfig();
        const MessageTableLayout layout = layoutOf(count, 2, count);
        ASSERT_EQ(tableConfig_setParams(config.get(), &layout, nullptr), NO_ERROR);
        EXPECT_EQ(tableConfig_addStringFieldName(config.get(), "x"), INDEX_OUT_OF_BOUNDS_ERROR) << count;
        EXPECT_EQ(config->layout, layout) << "nothing is counted";
    }
    for (const std::int32_t count : {-1, 17, 1000, smallest}) {
        const ConfigPtr config = makeConfig();
        const MessageTableLayout layout = layoutOf(4, 2, count);
        ASSERT_EQ(tableConfig_setParams(config.get(), &layout, nullptr), NO_ERROR);
        EXPECT_EQ(tableConfig_addNumericFieldName(config.get(), "x"), INDEX_OUT_OF_BOUNDS_ERROR) << count;
        EXPECT_EQ(config->layout, layout) << "nothing is counted";
    }
    EXPECT_TRUE(log.all().empty());
}

TEST(TableConfig, AFieldNameWithoutMemoryIsNotCounted) {
    const ConfigPtr config = makeConfig();
    const char* longName = "a field name that does not fit into a short string";
    ErrorCode strings = NO_ERROR;
    ErrorCode numbers = NO_ERROR;
    {
        const AllocationFailure failure(1);
        strings = tableConfig_addStringFieldName(config.get(), longName);
    }
    {
        const AllocationFailure failure(1);
        numbers = tableConfig_addNumericFieldName(config.get(), longName);
    }
    EXPECT_EQ(strings, OUT_OF_MEMORY_ERROR);
    EXPECT_EQ(numbers, OUT_OF_MEMORY_ERROR);
    EXPECT_EQ(*tableConfig_getLayout(config.get()), layoutOf(4, 2, 0));
}

TEST(TableConfig, ParamsCopyWhicheverBlockIsGiven) {
    const ConfigPtr config = makeConfig();
    MessageTableLayout layout{500, 5, 3, 2};
    SessionInfoTags tags;
    tags.count = 2;
    tags.tags = {7, 8};
    EXPECT_EQ(tableConfig_setParams(config.get(), nullptr, nullptr), NO_ERROR);
    EXPECT_EQ(*tableConfig_getLayout(config.get()), layoutOf(4, 2, 0));
    EXPECT_EQ(tableConfig_setParams(config.get(), &layout, nullptr), NO_ERROR);
    EXPECT_EQ(*tableConfig_getLayout(config.get()), layout);
    EXPECT_EQ(tableConfig_getSessionInfoTags(config.get())->count, 6);
    EXPECT_EQ(tableConfig_setParams(config.get(), nullptr, &tags), NO_ERROR);
    EXPECT_EQ(*tableConfig_getLayout(config.get()), layout);
    EXPECT_EQ(tableConfig_getSessionInfoTags(config.get())->count, 2);
    EXPECT_EQ(tableConfig_getSessionInfoTags(config.get())->tags[1], 8);
    tags.tags[1] = 9;
    EXPECT_EQ(tableConfig_getSessionInfoTags(config.get())->tags[1], 8) << "the block is copied";
}

TEST(TableConfig, ATagCountOutsideZeroTo32IsOutOfBounds) {
    const ConfigPtr config = makeConfig();
    SessionInfoTags tags;
    for (const std::int32_t count : {-1, 33}) {
        tags.count = count;
        EXPECT_EQ(tableConfig_setParams(config.get(), nullptr, &tags), INDEX_OUT_OF_BOUNDS_ERROR) << count;
        EXPECT_EQ(tableConfig_getSessionInfoTags(config.get())->count, 6) << count;
    }
    for (const std::int32_t count : {0, 32}) {
        tags.count = count;
        EXPECT_EQ(tableConfig_setParams(config.get(), nullptr, &tags), NO_ERROR) << count;
        EXPECT_EQ(tableConfig_getSessionInfoTags(config.get())->count, count);
    }
}

TEST(TableConfig, TheFileCountIsOneWhateverTheReplicas) {
    EXPECT_EQ(tableConfig_getFileCount(makeConfig("orders", 1).get()), 1);
    EXPECT_EQ(tableConfig_getFileCount(makeConfig("orders", 5).get()), 1);
    EXPECT_EQ(tableConfig_getFileCount(nullptr), 0);
}

TEST(TableConfig, WithoutAConfigurationGettersAnswerNoneAndSettersRefuse) {
    EXPECT_EQ(tableConfig_getTableName(nullptr), nullptr);
    EXPECT_EQ(tableConfig_getPath(nullptr, 0), nullptr);
    EXPECT_EQ(tableConfig_getMasterPath(nullptr), nullptr);
    EXPECT_EQ(tableConfig_getStringFieldName(nullptr, 0), nullptr);
    EXPECT_EQ(tableConfig_getNumericFieldName(nullptr, 0), nullptr);
    EXPECT_EQ(tableConfig_getLayout(nullptr), nullptr);
    EXPECT_EQ(tableConfig_getSessionInfoTags(nullptr), nullptr);
    EXPECT_EQ(tableConfig_setPath(nullptr, 0, "/a/"), NULL_POINTER_ERROR);
    EXPECT_EQ(tableConfig_addStringFieldName(nullptr, "x"), NULL_POINTER_ERROR);
    EXPECT_EQ(tableConfig_addNumericFieldName(nullptr, "x"), NULL_POINTER_ERROR);
    EXPECT_EQ(tableConfig_setParams(nullptr, nullptr, nullptr), NULL_POINTER_ERROR);
    tableConfig_destroy(nullptr);
}

TEST(TableConfig, FieldNamesOutsideTheSlotsAreNone) {
    const ConfigPtr config = makeConfig();
    EXPECT_EQ(tableConfig_getStringFieldName(config.get(), 12), nullptr);
    EXPECT_EQ(tableConfig_getStringFieldName(config.get(), -1), nullptr);
    EXPECT_EQ(tableConfig_getNumericFieldName(config.get(), 16), nullptr);
    EXPECT_EQ(tableConfig_getNumericFieldName(config.get(), -1), nullptr);
}

TEST(TableConfig, WithoutMemoryThereIsNone) {
    // The record, the name that does not fit into a short string, the paths.
    for (int n = 1; n <= 3; ++n) {
        KSVTboTableConfig* config = nullptr;
        {
            const AllocationFailure failure(n);
            config = tableConfig_create("a table name that does not fit into a short string", 3);
        }
        EXPECT_EQ(config, nullptr) << "allocation " << n << " failed";
        tableConfig_destroy(config);
    }
}

TEST(TableConfig, PrintsItsNameAndPathsToTheLogFile) {
    const ConfigPtr config = makeConfig("t", 2);
    ASSERT_EQ(tableConfig_setPath(config.get(), 0, "a"), NO_ERROR);
    const DebugLog log;
    const LogCapture facility;
    tableConfig_print(config.get());
    EXPECT_EQ(log.text(), "{ tableName='t', , replicas = (2)[ 'a\\t' (null) ] }");
    EXPECT_TRUE(facility.writes().empty());
}

TEST(TableConfig, PrintsNoneAndTextsWithPercentSigns) {
    DebugLog log;
    tableConfig_print(nullptr);
    EXPECT_EQ(log.text(), "(null)");
    log.clear();
    const ConfigPtr config = makeConfig("%s%n", 1);
    ASSERT_EQ(tableConfig_setPath(config.get(), 0, "%d/"), NO_ERROR);
    tableConfig_print(config.get());
    EXPECT_EQ(log.text(), "{ tableName='%s%n', , replicas = (1)[ '%d/%s%n' ] }");
}

}  // namespace
}  // namespace tabulo::internal::test
