// The output limit of a call is inclusive.  Weights with no rows take no
// memory, so the largest allowed imresize request costs nothing to check.

#include <gtest/gtest.h>

#include "contract.hpp"
#include "qzimages/qzimages.hpp"
#include "qztest.hpp"

namespace {

TEST(ContractTest, AnOutputOfExactlyTheLimitIsAllowed) {
  auto image = qzhost::makeArray(ndclass::UInt8, {1, 1});
  auto dim = qztest::makeFrom<double>({1, 1}, {2});
  for (std::size_t columns : {qzcall::kMaxOutputElements, qzcall::kMaxOutputElements + 1}) {
    auto weights = qzhost::makeArray(ndclass::Double, {0, columns});
    auto indices = qzhost::makeArray(ndclass::Double, {0, columns});
    auto check = [&] {
      qzcall::checkContract(pximages::_imresize, {image.get(), weights.get(), indices.get(), dim.get()});
    };
    if (columns == qzcall::kMaxOutputElements)
      EXPECT_NO_THROW(check());
    else
      EXPECT_THROW(check(), qzcall::ContractError);
  }
}

}  // namespace
