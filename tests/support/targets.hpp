#pragma once
// Runs a check once per instruction set that the library's vector kernels
// were compiled for and this processor can run, with dispatch forced to it,
// so the narrower paths are proven on a machine whose best one would hide
// them.  Also the ranges the kernels must handle at vector boundaries.

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "hwy/highway.h"
#include "hwy/targets.h"

namespace qztest {

template <class F>
void forEachTarget(F&& check) {
  std::vector<std::int64_t> const targets = hwy::SupportedAndGeneratedTargets();
  ASSERT_FALSE(targets.empty());
  for (std::int64_t t : targets) {
    hwy::SetSupportedTargetsForTest(t);
    SCOPED_TRACE(hwy::TargetName(t));
    check();
  }
  hwy::SetSupportedTargetsForTest(0);
}

// Sub-ranges [b, e) of [0, n): every length 0..70 from starts that fall on
// and between vector boundaries of every width, plus the whole range.
inline std::vector<std::pair<std::size_t, std::size_t>> boundaryRanges(std::size_t n) {
  std::vector<std::pair<std::size_t, std::size_t>> out;
  for (std::size_t b : {0, 1, 3, 7, 8, 13, 16, 31})
    for (std::size_t len = 0; len <= 70 && b + len <= n; ++len) out.emplace_back(b, b + len);
  out.emplace_back(0, n);
  return out;
}

}  // namespace qztest
