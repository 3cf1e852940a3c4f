// A table of the tests behind a table storage: it notes what it is asked and answers as it is told.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "storage/table_storage.h"
#include "tests/support/bytes.h"

namespace tabulo::internal::test {

struct FakeOwner {
    // The table-specific header that a new file gets: with the 19 generic bytes it makes a header of 40.
    Bytes specificHeader = pattern(21, 100);
    ErrorCode writeCode = NO_ERROR;
    ErrorCode verifyCode = NO_ERROR;
    ErrorCode loadCode = NO_ERROR;
    ErrorCode recoverCode = NO_ERROR;
    ErrorCode openedCode = NO_ERROR;
    std::function<void(TableFile*)> onRecover;

    bool silent = false;  // notes nothing
    // "writeHeader", "verifyHeader 19", "loadHeader 19", "recover", "opened <file size> <header size> <offset>"
    std::vector<std::string> calls;
    TableFile* openedFile = nullptr;
    std::int32_t readMark = -1;      // of the stream that verifyHeader got
    std::int32_t streamLength = -1;  // bytes in it

    template <typename Text>
    void note(Text text) {
        if (!silent) {
            calls.push_back(text());
        }
    }
};

inline TableStorageOps fakeOwnerOps() {
    TableStorageOps ops;
    ops.writeHeader = [](void* owner, KSVByteStream* stream) {
        auto* self = static_cast<FakeOwner*>(owner);
        self->note([] { return std::string("writeHeader"); });
        byteStream_putBytes(stream, self->specificHeader.data(),
                            static_cast<std::int32_t>(self->specificHeader.size()));
        return self->writeCode;
    };
    ops.verifyHeader = [](void* owner, TableFile*, KSVByteStream* stream, std::int32_t offset) {
        auto* self = static_cast<FakeOwner*>(owner);
        self->note([&] { return "verifyHeader " + std::to_string(offset); });
        self->readMark = byteStream_readMark(stream);
        self->streamLength = byteStream_writeMark(stream);
        return self->verifyCode;
    };
    ops.loadHeader = [](void* owner, TableFile*, KSVByteStream*, std::int32_t offset) {
        auto* self = static_cast<FakeOwner*>(owner);
        self->note([&] { return "loadHeader " + std::to_string(offset); });
        return self->loadCode;
    };
    ops.recover = [](void* owner, TableFile* file) {
        auto* self = static_cast<FakeOwner*>(owner);
        self->note([] { return std::string("recover"); });
        if (self->onRecover) {
            self->onRecover(file);
        }
        return self->recoverCode;
    };
    ops.opened = [](void* owner, TableFile* file, std::int64_t fileSize, std::int32_t headerSize,
                    std::int32_t specificOffset) {
        auto* self = static_cast<FakeOwner*>(owner);
        self->note([&] {
            return "opened " + std::to_string(fileSize) + " " + std::to_string(headerSize) + " " +
                   std::to_string(specificOffset);
        });
        self->openedFile = file;
        return self->openedCode;
    };
    return ops;
}

// The bytes of a file with a header of `headerSize` bytes and `records` bytes behind it.
inline Bytes fakeTable(std::int32_t headerSize, std::size_t records) {
    Bytes bytes = fromHex("4b 65 73 74 72 6f 76 61 44 62 01 05 00 20 03");
    for (int shift = 0; shift < 32; shift += 8) {
        bytes.push_back(static_cast<std::uint8_t>(headerSize >> shift));
    }
    const Bytes specific = pattern(static_cast<std::size_t>(headerSize) - bytes.size(), 100);
    bytes.insert(bytes.end(), specific.begin(), specific.end());
    const Bytes data = pattern(records, 7);
    bytes.insert(bytes.end(), data.begin(), data.end());
    return bytes;
}

}  // namespace tabulo::internal::test
