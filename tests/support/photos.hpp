#pragma once
// The bundled sample photographs (data/*.png) as planar M-by-N-by-3 uint8
// images, the layout the built-ins take.

#include <cstdint>
#include <string>
#include <vector>

#include "qzhost/runtime.hpp"

namespace qztest {

struct Photo {
  std::size_t rows = 0, cols = 0;
  std::vector<std::uint8_t> planar;  // red plane, green plane, blue plane; column-major
};

// Names of the bundled PNG photos (without the folder).
std::vector<std::string> samplePhotoNames();

// Loads data/<name>; fails the current test and returns an empty photo if
// it cannot be read.
Photo loadSamplePhoto(std::string const& name);

// The photo as a host array of class uint8, M-by-N-by-3.
qzhost::ArrayPtr photoArray(Photo const& p);

}  // namespace qztest
