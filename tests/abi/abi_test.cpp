// The built-ins as a host reaches them: through the shared library's
// exported entry points only.

#include "qzimages/qzimages.hpp"
#include "qztest.hpp"

TEST(AbiTest, LoadHooksAndRgb2grayWorkThroughTheSharedLibrary) {
  PXInitialize_libqzimages();
  auto rgb = qztest::makeFrom<std::uint8_t>({1, 2, 3}, {255, 10, 255, 20, 255, 30});
  auto out = qztest::call(pximages::_rgb2gray, 1, {rgb.get()});
  EXPECT_EQ(qzhost::dimsOf(out[0].get()), (std::vector<std::size_t>{1, 2}));
  EXPECT_EQ(qztest::valuesOf<std::uint8_t>(out[0].get())[0], 255);
  PXTerminate_libqzimages();
}
