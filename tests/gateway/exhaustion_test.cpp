// Running out of memory at every request (allocation or array creation) of
// every built-in: the call raises the host's out-of-memory error and stops
// there, leaves no block and no array behind, and leaves each output slot
// empty or holding an array of the final class and shape.  Afterwards
// the built-in still gives the result of an ordinary call.

#include <tuple>

#include "builtin_args.hpp"
#include "snapshot.hpp"

using qzhost::ArrayPtr;
using namespace qztest;
using ExhaustionTest = HostTest;

TEST_F(ExhaustionTest, EveryRequestOfEveryBuiltInCanFailCleanly) {
  struct Disarm { ~Disarm() { qzhost::disarmAllocationFailure(); } } const disarmOnExit;
  std::mt19937_64 rng(20240611);
  auto rgb = [&rng](std::size_t m, std::size_t n) { return randomArray<std::uint8_t>({m, n, 3}, rng, 0, 256); };
  // filled: the gateway fills each output before its next request.  Where
  // not, an output may be placed and a scratch request then fail before the
  // kernel writes it: its shape is final, its values are not.
  std::tuple<char const*, qzhost::Gateway, int, std::vector<ArrayPtr>, bool> const cases[] = {
      {"rgb2gray int16", pximages::_rgb2gray, 1, args(randomArray<std::int16_t>({7, 5, 3}, rng, -32768, 32767)), true},
      {"rgb2hsv single", pximages::_rgb2hsv, 1, args(randomArray<float>({6, 5, 3}, rng, -0.1, 1.1)), true},
      {"grayto8 double", pximages::_grayto8, 1, args(randomArray<double>({6, 5}, rng, -0.2, 1.2)), true},
      {"imresize uint8 rows", pximages::_imresize, 1, resizeArgs(rgb(9, 7), 9, 5, 1), false},
      {"imresize complex columns", pximages::_imresize, 1,
       resizeArgs(randomArray<double>({6, 8}, rng, -1, 1, true), 8, 11, 2), false},
      {"ind2rgb8 uint16", pximages::_ind2rgb8, 1,
       args(randomArray<std::uint16_t>({6, 5}, rng, 0, 4), randomArray<double>({4, 3}, rng, 0, 1)), false},
      {"cq map only", pximages::_cq, 1, args(rgb(16, 12), scalar(8)), true},
      {"cq uint8 index", pximages::_cq, 2, args(rgb(16, 12), scalar(8)), true},
      {"cq uint16 index: over 256 colours", pximages::_cq, 2, args(rgb(30, 30), scalar(300)), true},
  };
  for (auto const& [name, fn, outs, inputs, filled] : cases) {
    SCOPED_TRACE(name);
    std::vector<ndArray_tag const*> in;
    for (auto const& a : inputs) in.push_back(a.get());
    auto const expected = snapshotsOfCall(fn, outs, inputs);
    qzhost::armAllocationFailure(0);
    EXPECT_TRUE(snapshotsOfCall(fn, outs, inputs) == expected) << "counting alone changed the result";
    std::size_t const requests = qzhost::allocationsCounted();
    ASSERT_GE(requests, 1u);
    for (std::size_t n = 1; n <= requests; ++n) {
      SCOPED_TRACE(testing::Message() << "request " << n << " of " << requests);
      std::size_t const blocks = qzhost::liveBlocks(), arrays = qzhost::liveArrays();
      std::vector<ArrayPtr> slots(2);
      qzhost::armAllocationFailure(n);
      EXPECT_EQ(errorOf([&] { qzhost::call(fn, outs, slots.data(), int(in.size()), in.data()); }),
                "qzhost:outOfMemory");
      EXPECT_EQ(qzhost::allocationsCounted(), n) << "the call went on after its request failed";
      qzhost::disarmAllocationFailure();
      for (std::size_t k = 0; k < 2 && slots[k]; ++k) {
        ASSERT_TRUE(dataBytesOf(slots[k].get()) == 0 || ndGetData(slots[k].get())) << "an array without its data";
        auto const now = snapshotOf(slots[k].get());
        EXPECT_TRUE(filled ? now == expected[k] : now.shape == expected[k].shape) << "slot " << k << " differs";
      }
      slots.clear();
      EXPECT_EQ(qzhost::liveBlocks(), blocks) << "scratch blocks leaked";
      EXPECT_EQ(qzhost::liveArrays(), arrays) << "arrays leaked";
    }
    EXPECT_TRUE(snapshotsOfCall(fn, outs, inputs) == expected) << "a failure changed a later call";
  }
}
