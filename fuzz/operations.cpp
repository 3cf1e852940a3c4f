// Fuzz target: the public operations in any order, over two message tables and a session info table.
//
//   1     layouts of the two tables
//   rest  operations: a byte, whose upper half chooses the table, and what the operation takes
//
// Beside each table goes the plain list of what it has acknowledged; every answer must be the list's.
#include <array>
#include <cerrno>

#include "fuzz/harness.h"
#include "fuzz/table_model.h"
#include "sessioninfo/session_info_table.h"

namespace tabulo::internal::fuzz {

namespace {

constexpr int MOST_OPERATIONS = 100;

// The memory's record, but one write fails, maybe behind some of its bytes.
struct FailingWrites {
    const FilePlatform* memory = nullptr;
    FilePlatform record{};
    int writesUntilFailure = 0;  // 0: none fails
    std::size_t bytesBefore = 0;
};

FailingWrites failing;

SystemError failingWriteAt(int descriptor, const void* buffer, std::size_t length, std::int64_t offset,
                           std::size_t* transferred) {
    if (failing.writesUntilFailure == 0 || --failing.writesUntilFailure > 0) {
        return failing.memory->writeAt(descriptor, buffer, length, offset, transferred);
    }
    const std::size_t shorter = std::min(length - 1, failing.bytesBefore);
    if (shorter == 0) {
        *transferred = 0;
        errno = ENOSPC;
        return ENOSPC;
    }
    failing.writesUntilFailure = 1;  // a short write first, then the failure
    failing.bytesBefore = 0;
    return failing.memory->writeAt(descriptor, buffer, shorter, offset, transferred);
}

void installFailing(const FilePlatform& memory) {
    failing = FailingWrites{};
    failing.memory = &memory;
    failing.record = memory;
    failing.record.writeAt = failingWriteAt;
    filePlatform_install(&failing.record);
}

// The values that a session info table has acknowledged.
class SessionModel {
  public:
    ~SessionModel() { si_destroy(table_); }

    void open(OpenMode mode) {
        si_destroy(table_);
        KSVTboTableConfig* config = tableConfig_create("s", 1);
        requireSuccess(tableConfig_setPath(config, 0, ROOT), "a path");
        table_ = si_create(config);
        require(table_ != nullptr, "a session table is not created");
        const ErrorCode code = si_init(table_, mode);
        if (mode == OpenMode::read && !exists_) {
            require(code == FILE_OPEN_ERROR, "a session that is not there is opened");
            si_destroy(table_);
            table_ = nullptr;
            return;
        }
        requireSuccess(code, "opening a session");
        exists_ = true;
        if (mode == OpenMode::create) {
            values_.fill(0);
        }
    }

    void write(Input* input) {
        const std::int32_t tag = 1 + input->below(7);
        const std::int64_t value = input->smallOrAny();
        if (table_ == nullptr) {
            return;
        }
        const ErrorCode code = si_write(table_, 1, &tag, &value);
        require((code == NO_ERROR) == (tag <= 6), "a session tag is taken for another");
        if (code == NO_ERROR) {
            values_[static_cast<std::size_t>(tag) - 1] = value;
        }
    }

    void read() {
        if (table_ == nullptr) {
            return;
        }
        constexpr std::array<std::int32_t, 6> tags = {1, 2, 3, 4, 5, 6};
        std::array<std::int64_t, 6> read{};
        requireSuccess(si_read(table_, 6, tags.data(), read.data()), "reading a session");
        require(read == values_, "a session holds something else than was acknowledged");
    }

    void drop() {
        if (table_ != nullptr) {
            requireSuccess(si_drop(table_), "dropping a session");
            values_.fill(0);
        }
    }

  private:
    SessionInfoTable* table_ = nullptr;
    bool exists_ = false;
    std::array<std::int64_t, 6> values_{};
};

void sessionOperation(SessionModel* session, Input* input) {
    switch (input->below(6)) {
        case 0:
            session->open(OpenMode::read);
            break;
        case 1:
            session->open(OpenMode::write);
            break;
        case 2:
            session->open(OpenMode::create);
            break;
        case 3:
            session->drop();
            break;
        default:
            session->write(input);
    }
    session->read();
}

void writeWithFault(TableModel* table, Input* input) {
    const int writes = 1 + input->below(4);
    const std::size_t bytes = input->byte();
    const auto arm = [&] {
        failing.writesUntilFailure = writes;
        failing.bytesBefore = bytes;
    };
    table->writeWithFault(input, writes, arm, [] { failing.writesUntilFailure = 0; });
}

using Operation = void (*)(TableModel*, Input*);

constexpr Operation OPERATIONS[] = {
    [](TableModel* table, Input* input) { table->write(input); },
    [](TableModel* table, Input*) { table->openWriter(false); },
    [](TableModel* table, Input*) { table->openReader(); },
    [](TableModel* table, Input* input) { table->query(input); },
    [](TableModel* table, Input* input) { table->openIterator(input); },
    [](TableModel* table, Input*) { table->stepIterator(); },
    [](TableModel* table, Input* input) { table->readWhole(input); },
    [](TableModel* table, Input* input) { table->lookUp(input); },
    [](TableModel* table, Input* input) { table->readMessages(input); },
    [](TableModel* table, Input* input) { table->watch(input); },
    [](TableModel* table, Input* input) { table->writeRaw(input); },
    [](TableModel* table, Input*) { table->crash(); },
    [](TableModel* table, Input* input) { table->tear(input); },
    writeWithFault,
    [](TableModel* table, Input* input) { input->flag() ? table->drop() : table->openWriter(true); },
    [](TableModel* table, Input* input) { input->flag() ? table->closeWriter() : table->closeReader(); },
};
constexpr std::size_t OPERATION_COUNT = std::size(OPERATIONS);
static_assert(OPERATION_COUNT == 16);

void run(Input* input) {
    test::MemoryPlatform platform;
    installFailing(platform.record());
    {
        const std::uint8_t chosen = input->byte();
        std::array<TableModel, 2> tables = {TableModel("t0", layouts()[chosen % layouts().size()], &platform),
                                            TableModel("t1", layouts()[chosen / 16 % layouts().size()], &platform)};
        SessionModel session;
        for (int count = 0; !input->empty() && count < MOST_OPERATIONS; ++count) {
            const std::uint8_t byte = input->byte();
            if (byte >= 0xf0) {
                sessionOperation(&session, input);
            } else {
                OPERATIONS[byte % OPERATION_COUNT](&tables[byte / 128], input);
            }
        }
        for (TableModel& table : tables) {
            table.finish();
        }
    }
    require(platform.openCount() == 0, "a file was left open");
}

}  // namespace

}  // namespace tabulo::internal::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    tabulo::internal::fuzz::Input input({data, size});
    tabulo::internal::fuzz::run(&input);
    return 0;
}
