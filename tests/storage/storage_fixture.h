// A storage with a fake owner over files in a directory of its own.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "core/handle.h"
#include "storage/table_storage.h"
#include "tests/storage/fake_owner.h"
#include "tests/support/bytes.h"
#include "tests/support/debug_log.h"
#include "tests/support/log_capture.h"
#include "tests/support/temporary_directory.h"

namespace tabulo::internal::test {

using StoragePtr = Handle<TableStorage, tableStorage_destroy>;

// A pointer as %p prints it.
inline std::string pointerText(const void* pointer) {
    char text[32];
    std::snprintf(text, sizeof text, "%p", pointer);
    return text;
}

class StorageFixture : public ::testing::Test {
  protected:
    StorageFixture() : storage(makeStorage(1)) { log.clear(); }

    // A storage over the path and `pathCount - 1` replica paths, which share its root.
    StoragePtr makeStorage(std::int32_t pathCount) {
        KSVTboTableConfig* config = tableConfig_create("orders", pathCount);
        for (std::int32_t i = 0; i < pathCount; ++i) {
            const std::string root = i == 0 ? directory.root() : directory.file("replica" + std::to_string(i)) + "/";
            EXPECT_EQ(tableConfig_setPath(config, i, root.c_str()), NO_ERROR);
        }
        return StoragePtr(tableStorage_create(fakeOwnerOps(), &owner, config));
    }
    ErrorCode init(OpenMode mode) { return tableStorage_init(storage.get(), mode); }
    // Whether a writer can have the file: nobody else holds it.
    bool isFree() const {
        TableFile* file = nullptr;
        if (tableFileOpen(&file, path.c_str(), OpenMode::write, nullptr) != NO_ERROR) {
            return false;
        }
        EXPECT_EQ(tableFileClose(file), NO_ERROR);
        return true;
    }

    const TemporaryDirectory directory;
    const std::string path = directory.file("orders");
    LogCapture log;
    FakeOwner owner;
    StoragePtr storage;
};

}  // namespace tabulo::internal::test
