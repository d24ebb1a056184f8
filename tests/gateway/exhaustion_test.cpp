// Running out of memory at every point of every built-in: for each request
// a normal call makes (allocation or array creation), a call in which that
// request fails must raise the host's out-of-memory error, leave no block
// and no array behind, and leave every output slot either as it was or
// holding a well-formed array of the final class and shape.  Afterwards the
// built-in must still give the result of an ordinary call.

#include <random>
#include <string>

#include "qzimages/qzimages.hpp"
#include "builtin_args.hpp"
#include "qztest.hpp"
#include "snapshot.hpp"

namespace {

using qzhost::ArrayPtr;
using qztest::args;
using qztest::ArraySnapshot;
using qztest::describe;
using qztest::randomArray;
using qztest::resizeArgs;
using qztest::scalar;
using qztest::snapshotOf;

constexpr std::size_t kSlots = 2;

struct Case {
  std::string name;
  qzhost::Gateway fn;
  int numOutputs;
  std::vector<ArrayPtr> inputs;
  // The gateway fills each output before its next request, so an output
  // found in a slot after a failure already holds the final values.  Where
  // false, an output may be placed and then a scratch request fail before
  // the kernel writes it: its shape is final, its values are not.
  bool placedOutputsAreFilled;
};

std::vector<Case> cases() {
  std::mt19937_64 rng(20240611);
  std::vector<Case> all;
  auto add = [&all](std::string name, qzhost::Gateway fn, int numOutputs, std::vector<ArrayPtr> in, bool filled) {
    all.push_back({std::move(name), fn, numOutputs, std::move(in), filled});
  };

  add("rgb2gray int16", pximages::_rgb2gray, 1, args(randomArray<std::int16_t>({7, 5, 3}, rng, -32768, 32767)), true);
  add("rgb2hsv uint8", pximages::_rgb2hsv, 1, args(randomArray<std::uint8_t>({6, 5, 3}, rng, 0, 255)), true);
  add("rgb2hsv single", pximages::_rgb2hsv, 1, args(randomArray<float>({6, 5, 3}, rng, -0.1, 1.1)), true);
  add("grayto8 double", pximages::_grayto8, 1, args(randomArray<double>({6, 5}, rng, -0.2, 1.2)), true);

  add("imresize uint8 rows", pximages::_imresize, 1,
      resizeArgs(randomArray<std::uint8_t>({9, 7, 3}, rng, 0, 255), 9, 5, 1), false);
  add("imresize complex double columns", pximages::_imresize, 1,
      resizeArgs(randomArray<double>({6, 8}, rng, -1, 1, true), 8, 11, 2), false);

  std::vector<double> map(4 * 3);
  for (auto& v : map) v = std::uniform_real_distribution<double>(0, 1)(rng);
  add("ind2rgb8 double index", pximages::_ind2rgb8, 1,
      args(randomArray<double>({6, 5}, rng, 0, 5), qztest::makeFrom<double>({4, 3}, map)), false);
  add("ind2rgb8 uint16 index", pximages::_ind2rgb8, 1,
      args(randomArray<std::uint16_t>({6, 5}, rng, 0, 4), qztest::makeFrom<double>({4, 3}, map)), false);

  // cq: the map alone, the map with a byte index image, and more than 256
  // colours, where the 16-bit labels themselves become the index image.
  auto rgb = [&rng](std::size_t m, std::size_t n) { return randomArray<std::uint8_t>({m, n, 3}, rng, 0, 256); };
  add("cq map only", pximages::_cq, 1, args(rgb(16, 12), scalar(8)), true);
  add("cq map and uint8 index", pximages::_cq, 2, args(rgb(16, 12), scalar(8)), true);
  add("cq map and uint16 index", pximages::_cq, 2, args(rgb(30, 30), scalar(300)), true);
  return all;
}

std::vector<ndArray_tag const*> inputsOf(Case const& c) {
  std::vector<ndArray_tag const*> in;
  for (auto const& a : c.inputs) in.push_back(a.get());
  return in;
}

std::vector<ArraySnapshot> snapshotsOf(std::vector<ArrayPtr> const& slots) {
  std::vector<ArraySnapshot> s;
  for (auto const& a : slots) s.push_back(snapshotOf(a.get()));
  return s;
}

class ExhaustionTest : public qztest::HostTest {
 protected:
  void TearDown() override {
    qzhost::disarmAllocationFailure();
    HostTest::TearDown();
  }
};

TEST_F(ExhaustionTest, EveryRequestOfEveryBuiltInCanFailCleanly) {
  for (Case const& c : cases()) {
    SCOPED_TRACE(c.name);
    auto const inputs = inputsOf(c);

    std::vector<ArraySnapshot> const expected = snapshotsOf(qztest::call(c.fn, c.numOutputs, inputs, kSlots));
    ASSERT_TRUE(expected[0].present);
    if (c.name == "cq map and uint16 index") {
      ASSERT_EQ(expected[1].cls, ndclass::UInt16) << "needs more than 256 colours";
    }

    // Counting alone changes nothing.
    qzhost::armAllocationFailure(0);
    auto counted = snapshotsOf(qztest::call(c.fn, c.numOutputs, inputs, kSlots));
    std::size_t const requests = qzhost::allocationsCounted();
    qzhost::disarmAllocationFailure();
    EXPECT_EQ(counted, expected);
    ASSERT_GE(requests, 1u) << "the output itself is a request";

    // Slots start empty, or holding an array of the host's that a failed
    // call must neither lose nor damage.
    for (bool prefilled : {false, true}) {
      for (std::size_t n = 1; n <= requests; ++n) {
        SCOPED_TRACE("request " + std::to_string(n) + " of " + std::to_string(requests) +
                     (prefilled ? ", slots held arrays" : ", slots empty"));
        std::size_t const blocks = qzhost::liveBlocks(), arrays = qzhost::liveArrays();
        std::vector<ArrayPtr> slots(kSlots);
        std::vector<ndArray_tag*> held(kSlots, nullptr);
        std::vector<ArraySnapshot> heldBefore(kSlots);
        if (prefilled) {
          for (std::size_t k = 0; k < kSlots; ++k) {
            slots[k] = qztest::makeFrom<double>({1, 2}, {41.0 + static_cast<double>(k), -1.0});
            held[k] = slots[k].get();
            heldBefore[k] = snapshotOf(held[k]);
          }
        }

        qzhost::armAllocationFailure(n);
        std::string const id = qztest::errorOf([&] {
          qzhost::call(c.fn, c.numOutputs, slots.data(), static_cast<int>(inputs.size()), inputs.data());
        });
        std::size_t const reached = qzhost::allocationsCounted();
        qzhost::disarmAllocationFailure();
        EXPECT_EQ(id, "qzhost:outOfMemory");
        EXPECT_EQ(reached, n) << "the call went on after its request failed";

        for (std::size_t k = 0; k < kSlots; ++k) {
          if (!slots[k]) {
            EXPECT_FALSE(prefilled) << "slot " << k << ": the host's array was released and nothing took its place";
            continue;
          }
          if (qztest::dataBytesOf(slots[k].get()) != 0 && ndGetData(slots[k].get()) == nullptr) {
            ADD_FAILURE() << "slot " << k << " holds an array without its data";
            continue;
          }
          ArraySnapshot const now = snapshotOf(slots[k].get());
          if (slots[k].get() == held[k]) {
            EXPECT_EQ(now, heldBefore[k]) << "slot " << k << ": the host's array was changed";
            continue;
          }
          EXPECT_TRUE(now.sameShape(expected[k]))
              << "slot " << k << " holds " << describe(now) << ", the result is " << describe(expected[k]);
          if (c.placedOutputsAreFilled) {
            EXPECT_EQ(now.bytes, expected[k].bytes) << "slot " << k << " is half written";
          }
        }
        slots.clear();
        EXPECT_EQ(qzhost::liveBlocks(), blocks) << "scratch blocks leaked";
        EXPECT_EQ(qzhost::liveArrays(), arrays) << "arrays leaked";
      }
    }

    // The failures left nothing behind that changes a later call.
    EXPECT_EQ(snapshotsOf(qztest::call(c.fn, c.numOutputs, inputs, kSlots)), expected);
  }
}

}  // namespace
