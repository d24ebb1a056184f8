#include "photos.hpp"

#include <gtest/gtest.h>
#include <png.h>

#include <cstring>

#ifndef QZ_DATA_DIR
#error "QZ_DATA_DIR must name the folder of the sample photos"
#endif

namespace qztest {

Photo loadSamplePhoto(std::string const& name) {
  std::string path = std::string(QZ_DATA_DIR) + "/" + name;
  png_image image;
  std::memset(&image, 0, sizeof image);
  image.version = PNG_IMAGE_VERSION;
  if (!png_image_begin_read_from_file(&image, path.c_str())) {
    ADD_FAILURE() << "cannot read " << path << ": " << image.message;
    return {};
  }
  image.format = PNG_FORMAT_RGB;
  std::vector<std::uint8_t> rgb(PNG_IMAGE_SIZE(image));
  if (!png_image_finish_read(&image, nullptr, rgb.data(), 0, nullptr)) {
    ADD_FAILURE() << "cannot decode " << path << ": " << image.message;
    return {};
  }
  // Row-major interleaved (the file's order) to column-major planes.
  Photo p;
  p.rows = image.height;
  p.cols = image.width;
  std::size_t plane = p.rows * p.cols;
  p.planar.resize(3 * plane);
  for (std::size_t y = 0; y < p.rows; ++y)
    for (std::size_t x = 0; x < p.cols; ++x)
      for (std::size_t c = 0; c < 3; ++c) p.planar[c * plane + x * p.rows + y] = rgb[(y * p.cols + x) * 3 + c];
  return p;
}

}  // namespace qztest
