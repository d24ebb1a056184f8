#pragma once
// The one place that starts parallel work.  A kernel builds its body (a
// small value functor over raw pointers), skips empty work itself, and hands
// range and body here; the calling thread blocks until every sub-range is
// done.
//
// Each output element depends only on its own inputs, so results do not
// depend on how the range is split, with one exception: rgb2hsv on double
// and single data stores, for a pixel with two or three NaN channels, the
// hue last computed before it within the same sub-range (0 when there is
// none, as for the first pixel of a sub-range).  That hue can change with
// where the split falls; every other pixel, and every other built-in, is
// independent of it.

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/partitioner.h>

namespace qz {

template <class Range, class Body>
void runParallel(Range const& range, Body const& body) {
  tbb::parallel_for(range, body, tbb::auto_partitioner());
}

}  // namespace qz
