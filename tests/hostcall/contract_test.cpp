// The output limit of a call is inclusive.  Weights with no rows take no
// memory, so the largest allowed imresize request costs nothing to check;
// ind2rgb8 writes three bytes per index, a third of the limit in indices.

#include <gtest/gtest.h>

#include <functional>

#include "contract.hpp"
#include "qzimages/qzimages.hpp"
#include "qztest.hpp"

namespace {

TEST(ContractTest, AnOutputOfExactlyTheLimitIsAllowed) {
  using qzcall::checkContract;
  std::size_t const limit = qzcall::kMaxOutputElements;
  auto image = qzhost::makeArray(ndclass::UInt8, {1, 1}), map = qzhost::makeArray(ndclass::Double, {1, 3});
  auto dim = qztest::makeFrom<double>({1, 1}, {2});
  for (std::size_t over : {0, 1}) {
    auto weights = qzhost::makeArray(ndclass::Double, {0, limit + over});
    auto indices = qzhost::makeArray(ndclass::Double, {0, limit + over});
    auto index = qzhost::makeArray(ndclass::UInt8, {limit / 3 + over, 1});
    std::function<void()> const checks[] = {
        [&] { checkContract(pximages::_imresize, {image.get(), weights.get(), indices.get(), dim.get()}); },
        [&] { checkContract(pximages::_ind2rgb8, {index.get(), map.get()}); }};
    for (auto const& check : checks)
      if (over)
        EXPECT_THROW(check(), qzcall::ContractError);
      else
        EXPECT_NO_THROW(check());
  }
}

}  // namespace
