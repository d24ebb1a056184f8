#include "qztest.hpp"

namespace qztest {

std::vector<ArrayPtr> call(qzhost::Gateway fn, int numOutputs, std::vector<ndArray_tag const*> inputs,
                           std::size_t slots) {
  std::vector<ArrayPtr> out(slots);
  qzhost::call(fn, numOutputs, out.data(), static_cast<int>(inputs.size()), inputs.data());
  return out;
}

void HostTest::SetUp() {
  blocks_ = qzhost::liveBlocks();
  arrays_ = qzhost::liveArrays();
  violations_ = qzhost::contractViolations();
}

void HostTest::TearDown() {
  EXPECT_EQ(qzhost::liveBlocks(), blocks_) << "scratch blocks left alive";
  EXPECT_EQ(qzhost::liveArrays(), arrays_) << "arrays left alive";
  EXPECT_EQ(qzhost::contractViolations(), violations_) << "array interface misused";
}

}  // namespace qztest
