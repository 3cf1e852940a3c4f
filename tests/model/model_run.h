// Random operations on one message table, each followed by a comparison of everything that the library answers with
// what the model answers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tests/model/table_model.h"
#include "tests/query/plain_query.h"
#include "tests/query/random_table.h"

namespace tabulo::internal::test {

// An iterator that stays open over several operations, and where it stands.
struct KeptIterator {
    MessageTableIteratorPtr iterator;
    PlainQuery query;
    bool backward = false;
    bool started = false;
    // Messages that a forward one has looked at; that a backward one has still to look at, once it has started.
    std::size_t place = 0;
};

// A table object on the file. Its iterators go before it.
struct Handle {
    MessageTablePtr table;
    bool writes = false;
    std::vector<KeptIterator> iterators;
    // What the file looked like when a reader's view was read: a file that became shorter and has grown to the same
    // again is not read anew.
    bool viewed = false;
    int viewGeneration = 0;
    std::int64_t viewSize = 0;
    std::int64_t viewBlockStart = 0;
};

class ModelRun {
  public:
    // Draws a layout and makes the table in `root`, which must be empty.
    ModelRun(Random* random, const std::string& root);

    // The next operation's number in the table of operations; then its name; then the operation and the comparison.
    std::size_t choose();
    static const char* name(std::size_t operation);
    void perform(std::size_t operation);

    const TableModel& model() const { return model_; }

  private:
    struct Operation;
    static const std::vector<Operation>& operations();

    // Conditions of operations.
    bool hasWriter() const { return writer_ != nullptr; }
    bool hasNoWriter() const { return writer_ == nullptr; }
    bool hasHandle() const { return hasWriter() || !readers_.empty(); }
    bool hasReader() const { return !readers_.empty(); }
    bool hasRoomForReader() const { return readers_.size() < 4; }
    bool isLong() const { return hasWriter() && model_.size() > 200; }

    // Writing (model_writes.cpp).
    void writeOne();
    void writeBurst();
    void writeRaw();
    void refuseWrite();
    void refuseOnReader();
    void saveTail();
    void drop();
    // Opening, closing, crashing (model_crashes.cpp).
    void openWriter();
    void openWriterEmptying();
    void closeWriter();
    void reopenWriter();
    void refuseSecondWriter();
    void openReader();
    void reopenReader();
    void closeReader();
    void crash();
    void crashWithCut();
    void crashWithTornFrame();
    void crashWithGarbage();
    void crashInHeader();
    void openCopy();
    void writeInKilledProcess();
    // Reading (model_reads.cpp).
    void query();
    void openIterator();
    void advanceIterator();
    void readMessages();
    void findUniformId();

    // Helpers.
    Message nextMessage();
    void store(const Message& message);
    Handle& someHandle();
    std::unique_ptr<Handle> makeHandle(OpenMode mode, const std::string& root);
    void recoverInto(std::size_t survivors);
    void endOwnIterators(Handle* handle);
    void dropForeignIterators(bool fileIsHeaderOnly);
    bool nextEnds(KeptIterator* kept);
    std::vector<std::size_t> selected(const PlainQuery& query) const;
    PlainQuery someQuery();
    // The copies that recovery has made beside the table since the last call, "<offset>" each; they are removed.
    std::vector<std::string> takeSalvaged(Bytes* content = nullptr);
    // Comparisons.
    void compareAll();
    void compareFile();
    void compareLookups(Handle* handle);
    void compareIndexes(MessageTable* table);
    void compareWalk(Handle* handle, bool backward);

    std::string path() const { return root_ + "messages"; }

    Random* random_;
    std::string root_;
    RandomMessages pool_;
    std::size_t drawn_ = 0;
    TableModel model_;
    std::unique_ptr<Handle> writer_;
    std::vector<std::unique_ptr<Handle>> readers_;
    std::int64_t tornBytes_ = 0;  // behind the last message, until the next writer cuts them
};

// The message that the iterator stands at is this one, field by field.
bool isCurrent(const MessageTableIterator* iterator, const Message& message);

}  // namespace tabulo::internal::test
