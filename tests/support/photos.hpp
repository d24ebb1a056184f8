#pragma once
// The bundled sample photographs (data/*.png) as planar M-by-N-by-3 uint8
// data, the layout the built-ins take.

#include <cstdint>
#include <string>
#include <vector>

namespace qztest {

struct Photo {
  std::size_t rows = 0, cols = 0;
  std::vector<std::uint8_t> planar;  // red plane, green plane, blue plane; column-major
};

// Loads data/<name>; fails the current test and returns an empty photo if
// it cannot be read.
Photo loadSamplePhoto(std::string const& name);

}  // namespace qztest
