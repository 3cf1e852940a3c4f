// Makes one run of several that follow each other.
#pragma once

#include <span>
#include <vector>

#include "index/index_pages.h"
#include "index/index_run.h"

namespace tabulo::internal {

// Appends the content of the runs to a run that is being written; it begins with the block of the first one. The parts
// are empty when a page of them is not sound. Throws std::bad_alloc.
std::vector<IndexPart> runMerge_write(IndexPages* pages, std::span<const IndexRun> runs,
                                      const MessageTableLayout& layout, RunWriter* merged);

}  // namespace tabulo::internal
