// Writing a message table.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "tabulo/message.h"
#include "tabulo/table_info.h"

namespace tabulo {

namespace api {
struct WriterState;
}  // namespace api

// When what was written is also committed to the disk, so that it survives the loss of power. A commit happens in an
// append or when a table is closed, never in between.
class SyncPolicy {
  public:
    static SyncPolicy off() noexcept;     // only by Writer::commit; the policy at the start
    static SyncPolicy always() noexcept;  // at every append
    // In the first append after such a time, or after so many appends to a table at the latest; whichever is first.
    // wrongParameter for a time below one second or above 2^31 - 1 of them, or a number below 1.
    static SyncPolicy every(std::chrono::seconds time);
    static SyncPolicy after(std::int32_t appends);
    static SyncPolicy everyOrAfter(std::chrono::seconds time, std::int32_t appends);

  private:
    friend void setSyncPolicy(const SyncPolicy& policy) noexcept;
    bool on_ = false;
    std::int32_t seconds_ = 0;
    std::int32_t appends_ = 0;
};

// The policy of all tables of this process. Set it before tables are used.
void setSyncPolicy(const SyncPolicy& policy) noexcept;

// A message table that is open for writing, by this object alone: fileOpen when another Writer, in any process, has it.
// One thread at a time uses a Writer. A message counts as stored when its append has returned: it survives the end of
// the process. Readers see it from then on.
//
// A table that was not closed is recovered when it is opened: incomplete messages at its end are cut, and any damage
// that would have to be cut is saved beside it first. warnings() tells.
class Writer {
  public:
    // Makes a table. An existing file is refused with fileOpen and stays as it is. wrongParameter for an impossible
    // layout or names with a zero byte; stringFieldsLimit and numericFieldsLimit for too many names.
    static Writer create(const std::filesystem::path& path, const Layout& layout);
    // Opens a table with the layout that it has. It is not made: fileOpen when it is missing.
    static Writer open(const std::filesystem::path& path);
    // Opens a table that must have this layout (configMismatch and the others, as for a Reader), also one whose header
    // was never written.
    static Writer open(const std::filesystem::path& path, const Layout& layout);
    // The same, and makes the table when there is none.
    static Writer openOrCreate(const std::filesystem::path& path, const Layout& layout);

    Writer(Writer&&) noexcept;
    Writer& operator=(Writer&&) noexcept;
    // As close, without telling a failure.
    ~Writer();

    // Appends a message. wrongParameter: a type of more than five characters or with a zero byte;
    // stringFieldsCountMismatch, numericFieldsCountMismatch: more texts or numbers than the layout has;
    // streamExtension: beyond 2^31 - 1 bytes. After these nothing has changed.
    //
    // fileWrite, fileFlush, fileSeek: the file has failed and was closed; appends then give fileWrite, drop and commit
    // masterInactive, until the table is opened again. Error::stored is 1 when the message is in the file nevertheless,
    // because only the update of the header behind it has failed: it must not be appended again.
    void append(const Message& message);
    // Appends whole frames that stand one behind the other (MessageView::frame, encode), with one call to the system
    // for each block that they reach, and a few more for each frame of a MiB or more, which is not copied. The file is
    // byte for byte the one that single appends would have made, and each frame the one that was given. Returns their
    // number. The frames are checked first: noData for one that is cut, consistency for a damaged one, with nothing
    // stored; the Error's offset is then that in `frames`. When the file fails, each block's share is in the file as a
    // whole or not at all, and Error::stored is the number of frames that are.
    std::int64_t appendFrames(std::span<const std::byte> frames);

    // From now on keeps the table's side index (tabulo/index.h): the append that closes a block reads it again and adds
    // it to the index, which takes about half a millisecond for a block of 1000, every 16th block a few more, and with
    // large tables, rarely, the time of a merge (benchmarks/README.md has the figures). Covers what is closed already
    // first. The errors of an Indexer's constructor and of Indexer::complete. Later, when the index cannot be written,
    // it is given up and warnings() tells: appends never fail because of it.
    void keepIndex(const Work& work = {});
    bool keepsIndex() const noexcept;

    // Empties the table. When this fails the Writer may be closed (tableClosed from then on).
    void drop();
    // Commits what was written to the disk, whatever the policy. fileFlush when the system cannot.
    void commit();
    // Saves the header and closes the file. The table is closed also when this fails. A second call does nothing.
    void close();
    bool isOpen() const noexcept;

    const std::filesystem::path& path() const;
    const std::string& table() const;
    const Layout& layout() const;
    // Where the next message will stand.
    Position end() const;
    // What the library had to say when the table was opened: a recovery, and what it has saved beside the table.
    const std::vector<std::string>& warnings() const;

  private:
    explicit Writer(std::unique_ptr<api::WriterState> state) noexcept;
    std::unique_ptr<api::WriterState> state_;
};

}  // namespace tabulo
