#pragma once
// The one place that starts parallel work.  A kernel builds its body (a
// small value functor over raw pointers), skips empty work itself, and hands
// range and body here; the calling thread blocks until every sub-range is
// done.  Bodies must give the same result however the range is split.

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/partitioner.h>

namespace qz {

template <class Range, class Body>
void runParallel(Range const& range, Body const& body) {
  tbb::parallel_for(range, body, tbb::auto_partitioner());
}

}  // namespace qz
