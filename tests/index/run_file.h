// A file of its own for the runs of a test, without a table.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "index/index_pages.h"
#include "index/index_run.h"
#include "tests/support/bytes.h"
#include "tests/support/temporary_directory.h"

namespace tabulo::internal::test {

class RunFileTest : public ::testing::Test {
  protected:
    RunFileTest() {
        slot.fileKey = 0x1234'5678'9ABC'DEF0;
        EXPECT_FALSE(fileStream_open(&file, path.c_str(), FileAccess::createOrOpen, false).failed());
    }
    ~RunFileTest() override { EXPECT_FALSE(fileStream_close(&file).failed()); }

    // Appends a run of so many blocks from block 0 on; `fill` gets its writer and gives its parts.
    template <typename Fill>
    IndexRun writeRun(std::uint32_t blocks, Fill fill) {
        RunWriter writer(&file, slot, end, 0, blocks);
        const std::vector<IndexPart> parts = fill(&writer);
        EXPECT_FALSE(writer.finish(parts).failed());
        end += writer.run().pages;
        return writer.run();
    }
    IndexPages open() const {
        SideFile opened;
        EXPECT_TRUE(opened.open(path.c_str()));
        return IndexPages(std::move(opened), slot);
    }
    // Changes one byte of a page of a run.
    void flip(const IndexRun& run, std::uint32_t page, std::size_t offset) const {
        const std::size_t at = (std::size_t{run.firstPage} + page) * INDEX_PAGE_SIZE + offset;
        const Bytes bytes = readFile(path);
        patchFile(path, at, Bytes{static_cast<std::uint8_t>(bytes.at(at) ^ 0x10U)});
    }

    TemporaryDirectory directory;
    std::string path = directory.file("runs");
    FileStream file;
    IndexSlot slot;
    std::uint32_t end = INDEX_SLOTS;
};

}  // namespace tabulo::internal::test
