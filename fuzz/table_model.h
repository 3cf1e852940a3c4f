// A message table beside the plain list of what it has acknowledged.
//
// Each operation does the same to both and compares. One writer and one reader may be open, and one iterator over
// either.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "fuzz/input.h"
#include "fuzz/tables.h"
#include "query/message_table_iterator.h"
#include "tests/support/memory_platform.h"

namespace tabulo::internal::fuzz {

class TableModel {
  public:
    TableModel(std::string name, const MessageTableLayout& layout, test::MemoryPlatform* platform);

    void openWriter(bool anew);
    void openReader();
    void closeReader();
    void closeWriter();
    // Releases the writer without a word to its file, as a process that dies.
    void crash();
    // As a crash that leaves the beginning of an append, or of anything, behind; then opens the table again.
    void tear(Input* input);
    void drop();

    void write(Input* input);
    void writeRaw(Input* input);
    // One message while the n-th write to a file fails, which `arm` sees to: acknowledged or not.
    void writeWithFault(Input* input, int n, const std::function<void()>& arm, const std::function<void()>& disarm);

    void lookUp(Input* input);
    void readWhole(Input* input);
    void query(Input* input);
    void readMessages(Input* input);
    void watch(Input* input);
    void openIterator(Input* input);
    void stepIterator();

    // Opens the table once more and reads all of it.
    void finish();

  private:
    MessageTable* chosen(Input* input) const;
    std::string path() const { return ROOT + name_; }
    void acknowledge(const Message& message) { stored_.push_back(message); }
    void settleUnsure(const Messages& found);
    void checkContent(MessageTable* table);

    std::string name_;
    MessageTableLayout layout_;
    test::MemoryPlatform* platform_;
    std::vector<Message> stored_;
    std::optional<Message> unsure_;  // written last, not acknowledged: may be there
    MessageTablePtr writer_;
    MessageTablePtr reader_;
    MessageTableIteratorPtr iterator_;  // after the tables: it goes first
    std::size_t delivered_ = 0;         // by the iterator
};

}  // namespace tabulo::internal::fuzz
