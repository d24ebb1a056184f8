#pragma once
// Ranges over column-major images that split only between whole columns, so
// that a body always sees complete columns and a pair of views (an index
// image and the three planes of its output) splits at the same column.
//
// Each type models oneTBB's range concept: copyable, empty(), is_divisible()
// and a splitting constructor that gives the new object the right-hand part
// and leaves the left-hand part in the source.

#include <algorithm>
#include <cstddef>

#include <tbb/blocked_range.h>

namespace raster {

// A column-major M-by-columns view.
template <class T>
struct SplittableArrayWrapper {
  T* data;              // first element of the view
  std::size_t count;    // elements in the view: rows * columns
  std::size_t rows;     // M
  std::size_t columns;  // whole columns in the view
  std::size_t grain;    // minimum elements per piece

  SplittableArrayWrapper(T* d, std::size_t n, std::size_t m, std::size_t cols, std::size_t g)
      : data(d), count(n), rows(m), columns(cols), grain(g) {}

  SplittableArrayWrapper(SplittableArrayWrapper& r, tbb::split)
      : data(r.data + r.rows * (r.columns - r.columns / 2)),
        count(r.half()),
        rows(r.rows),
        columns(r.columns / 2),
        grain(r.grain) {
    r.count -= count;
    r.columns -= columns;
  }

  bool empty() const { return count == 0; }

  // Both pieces keep at least one column and the grain; a one-column view
  // never splits.
  bool is_divisible() const {
    std::size_t const h = half(), least = std::max(rows, grain);
    return count - h >= least && h >= least;
  }

  std::size_t half() const { return rows * (columns / 2); }
};

// The matching columns of all three planes of an M-by-N-by-3 array.  Only
// the first plane's position moves; plane c of the view starts at
// data + c * planeSize in every piece.
template <class T>
struct SplittableRGBArrayWrapper {
  T* data;                  // first element of the view in the first plane
  std::size_t count;        // elements over the three planes (3*M*N whole)
  std::size_t rows;         // M
  std::size_t hostColumns;  // the host's column count for the whole array (3*N)
  std::size_t grain;        // minimum elements per piece
  std::size_t planeSize;    // M*N, the same in every piece
  std::size_t columns;      // columns per plane in the view

  SplittableRGBArrayWrapper(T* d, std::size_t n, std::size_t m, std::size_t hostCols, std::size_t g,
                            std::size_t plane, std::size_t cols)
      : data(d), count(n), rows(m), hostColumns(hostCols), grain(g), planeSize(plane), columns(cols) {}

  // The count is halved independently of the columns: with an odd number of
  // columns the pieces' counts no longer equal 3 * rows * columns.  Only
  // is_divisible() reads it, and this halving is the intended behaviour.
  SplittableRGBArrayWrapper(SplittableRGBArrayWrapper& r, tbb::split)
      : data(r.data + r.rows * (r.columns - r.columns / 2)),
        count(r.count / 2),
        rows(r.rows),
        hostColumns(r.hostColumns),
        grain(r.grain),
        planeSize(r.planeSize),
        columns(r.columns / 2) {
    r.count -= count;
    r.columns -= columns;
  }

  bool empty() const { return count == 0; }

  bool is_divisible() const {
    std::size_t const h = rows * (columns / 2), least = std::max(rows, grain);
    // count / 3 - h >= least, written so that it cannot wrap around.
    return count / 3 >= h + least && h >= least;
  }
};

// Two views that split together; for views of equal column counts every
// piece pairs the same columns of both.
template <class A, class B>
struct SplittablePair {
  A first;
  B second;

  SplittablePair(A a, B b) : first(a), second(b) {}
  SplittablePair(SplittablePair& r, tbb::split s) : first(r.first, s), second(r.second, s) {}

  bool empty() const { return first.empty(); }
  bool is_divisible() const { return first.is_divisible() && second.is_divisible(); }
};

}  // namespace raster
