// qzimages_bench: every built-in of libqzimages on a 12-megapixel photo,
// called the way a host calls it (qzhost::call), once limited to one thread
// and once at oneTBB's default concurrency.
//
// Each benchmark reports real time (TBB's workers do the work, and the CPU
// timer would count only the calling thread) and bytes per second, counting
// every byte of the inputs and outputs of one call.  The "threads" counter is
// the parallelism oneTBB allowed.

#include <benchmark/benchmark.h>
#include <tbb/global_control.h>
#include <tbb/info.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "dither.hpp"
#include "filters.hpp"
#include "inputs.hpp"
#include "qzimages/qzimages.hpp"

namespace {

using qzbench::kCols;
using qzbench::kRows;
using qzhost::ArrayPtr;

// A call takes from ten milliseconds to a few seconds, so a few iterations
// measure it well; three repetitions give a median.  The console shows only
// the statistics of the repetitions (--benchmark_out keeps every one).  With
// 64 benchmarks the whole program takes about two minutes on two cores.
constexpr double kMinTime = 0.2;  // seconds per repetition
constexpr int kRepetitions = 3;

// One call of a built-in: its inputs and how many outputs it asks for.
struct Call {
  qzhost::Gateway fn;
  int numOutputs;
  std::vector<ndArray_tag const*> inputs;
};

// What is wrong with the outputs of one call; empty when they are sane.
using Check = std::function<std::string(ArrayPtr const* outputs)>;

std::string expectArray(ArrayPtr const& a, ndClassID cls, std::vector<std::size_t> const& dims) {
  if (!a) return "no output, expected " + qzbench::describe(cls, dims);
  if (ndGetClassID(a.get()) != cls || ndIsComplex(a.get()) || qzhost::dimsOf(a.get()) != dims)
    return "output " + qzbench::describe(a.get()) + ", expected " + qzbench::describe(cls, dims);
  return {};
}

Check expectOutput(ndClassID cls, std::vector<std::size_t> dims) {
  return [cls, dims](ArrayPtr const* out) { return expectArray(out[0], cls, dims); };
}

// Times the call with at most `threads` threads (0: oneTBB's default).  The
// outputs of the last iteration are checked once per benchmark, after the
// timed loop.
void measure(benchmark::State& state, std::string const& name, int threads, Call const& c, Check const& check) {
  std::optional<tbb::global_control> limit;
  if (threads > 0) limit.emplace(tbb::global_control::max_allowed_parallelism, threads);

  ArrayPtr out[2];
  for (auto _ : state) {
    // A host passes empty slots; freeing the last result is part of the cost.
    for (auto& o : out) o.reset();
    qzbench::call(name, c.fn, c.numOutputs, out, c.inputs);
  }

  static std::set<std::string> checked;
  if (checked.insert(name).second) {
    std::string const problem = check(out);
    if (!problem.empty()) qzbench::fail(name + ": " + problem);
  }

  std::size_t bytes = 0;
  for (auto const* in : c.inputs) bytes += qzbench::bytesOf(in);
  for (auto const& o : out)
    if (o) bytes += qzbench::bytesOf(o.get());
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(bytes));
  state.counters["threads"] =
      static_cast<double>(tbb::global_control::active_value(tbb::global_control::max_allowed_parallelism));
}

// Registers NAME/threads:1 and NAME/threads:default.  `make` gives the call
// when the benchmark runs, so that a filtered run builds only the inputs it
// needs.
void add(std::string const& family, std::function<Call()> make, Check check) {
  for (int threads : {1, 0}) {
    std::string const name = family + "/threads:" + (threads ? std::to_string(threads) : "default");
    benchmark::RegisterBenchmark(name.c_str(),
                                 [=](benchmark::State& state) { measure(state, name, threads, make(), check); })
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond)
        ->MinTime(kMinTime)
        ->Repetitions(kRepetitions)
        ->DisplayAggregatesOnly();
  }
}

std::string familyName(char const* builtin, ndClassID cls) {
  return std::string("BM_") + builtin + "_" + qzhost::className(cls);
}

constexpr ndClassID kRgbClasses[] = {ndclass::UInt8, ndclass::UInt16, ndclass::Single, ndclass::Double};

void addRgb2gray() {
  for (ndClassID cls : kRgbClasses)
    add(familyName("rgb2gray", cls),
        [cls] { return Call{pximages::_rgb2gray, 1, {qzbench::photo(cls)}}; },
        expectOutput(cls, {kRows, kCols}));
}

void addRgb2hsv() {
  for (ndClassID cls : kRgbClasses) {
    ndClassID const outCls = cls == ndclass::Single ? ndclass::Single : ndclass::Double;
    add(familyName("rgb2hsv", cls),
        [cls] { return Call{pximages::_rgb2hsv, 1, {qzbench::photo(cls)}}; },
        expectOutput(outCls, {kRows, kCols, 3}));
  }
}

// One imresize call: along the rows (dim 1) or the columns (dim 2), halving
// or doubling that dimension with a bicubic filter.
void addImresize() {
  for (ndClassID cls : kRgbClasses)
    for (int dim : {1, 2})
      for (double scale : {0.5, 2.0}) {
        std::vector<std::size_t> dims{kRows, kCols, 3};
        std::size_t const k = dim == 1 ? 0 : 1;
        dims[k] = qzfilters::outputLength(dims[k], scale);
        add(familyName("imresize", cls) + "/dim:" + std::to_string(dim) + "/scale:" + (scale < 1 ? "0.5" : "2"),
            [cls, dim, scale] {
              auto const& f = qzbench::resizeFilter(dim, scale);
              return Call{pximages::_imresize, 1, {qzbench::photo(cls), f.weights.get(), f.indices.get(), f.dim.get()}};
            },
            expectOutput(cls, dims));
      }
}

// The photo's 256-colour index image through its map; the name gives the
// class of the index image (double: 1-based, uint8: 0-based).
void addInd2rgb8() {
  for (ndClassID cls : {ndclass::Double, ndclass::UInt8})
    add(familyName("ind2rgb8", cls) + "/colours:256",
        [cls] {
          auto const& p = qzbench::indexedPhoto();
          return Call{pximages::_ind2rgb8, 1, {(cls == ndclass::UInt8 ? p.index8 : p.indexDouble).get(), p.map.get()}};
        },
        expectOutput(ndclass::UInt8, {kRows, kCols, 3}));
}

// The photo's luminance in each class grayto8 takes.
void addGrayto8() {
  for (ndClassID cls : {ndclass::Double, ndclass::Single, ndclass::UInt16})
    add(familyName("grayto8", cls), [cls] { return Call{pximages::_grayto8, 1, {qzbench::gray(cls)}}; },
        expectOutput(ndclass::UInt8, {kRows, kCols}));
}

// cq asked for both outputs, the map and the index image, as a host that
// quantises an image does.
void addCq() {
  for (int k : {16, 64, 256}) {
    auto const kArg = std::make_shared<ArrayPtr>(qzbench::scalar(k));
    add(familyName("cq", ndclass::UInt8) + "/colours:" + std::to_string(k),
        [kArg] { return Call{pximages::_cq, 2, {qzbench::photo(ndclass::UInt8), kArg->get()}}; },
        [k](ArrayPtr const* out) -> std::string {
          if (!out[0] || ndGetClassID(out[0].get()) != ndclass::UInt8) return "the map is not uint8";
          auto const md = qzhost::dimsOf(out[0].get());
          if (md.size() != 2 || md[1] != 3 || md[0] < 1 || md[0] > static_cast<std::size_t>(k))
            return "map " + qzbench::describe(out[0].get()) + ", expected 1 to " + std::to_string(k) + " rows of 3";
          std::string problem = expectArray(out[1], ndclass::UInt8, {kRows, kCols});
          if (!problem.empty()) return problem;
          auto const* index = qzhost::dataOf<std::uint8_t>(out[1].get());
          std::uint8_t const top = *std::max_element(index, index + kRows * kCols);
          if (top >= md[0])
            return "index " + std::to_string(top) + " is outside a map of " + std::to_string(md[0]) + " colours";
          return {};
        });
  }
}

// Floyd-Steinberg dithering of the photo onto its cq map, on the host side;
// serial by nature (each pixel waits for its neighbours' errors).
void addDither() {
  for (int k : {16, 256}) {
    std::string const name = "BM_dither_uint8/colours:" + std::to_string(k);
    benchmark::RegisterBenchmark(name.c_str(), [k, name](benchmark::State& state) {
      ndArray_tag const* photo = qzbench::photo(ndclass::UInt8);
      ArrayPtr kArg = qzbench::scalar(k), out[2];
      qzbench::call(name, pximages::_cq, 1, out, {photo, kArg.get()});
      std::size_t const colours = qzhost::dimsOf(out[0].get())[0];
      ArrayPtr index;
      for (auto _ : state) index = qzcall::ditherToMap(photo, out[0].get());
      std::string problem = expectArray(index, ndclass::UInt8, {kRows, kCols});
      auto const* ix = qzhost::dataOf<std::uint8_t>(index.get());
      if (problem.empty() && *std::max_element(ix, ix + kRows * kCols) >= colours)
        problem = "an index is outside the map";
      if (!problem.empty()) qzbench::fail(name + ": " + problem);
      state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                              static_cast<std::int64_t>(qzbench::bytesOf(photo) + qzbench::bytesOf(index.get())));
    })
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond)
        ->MinTime(kMinTime)
        ->Repetitions(kRepetitions)
        ->DisplayAggregatesOnly();
  }
}

// The nearest colour of the photo's 256-colour map for a million of its
// pixels, through the cell cache (filled as the queries come) and by
// scanning the whole map.
void addNearestColour() {
  for (bool cached : {true, false}) {
    std::string const name = std::string("BM_nearest_colour/") + (cached ? "cell_cache" : "plain") + "/colours:256";
    benchmark::RegisterBenchmark(name.c_str(), [cached, name](benchmark::State& state) {
      ndArray_tag const* photo = qzbench::photo(ndclass::UInt8);
      ArrayPtr kArg = qzbench::scalar(256), out[2];
      qzbench::call(name, pximages::_cq, 1, out, {photo, kArg.get()});
      std::size_t const k = qzhost::dimsOf(out[0].get())[0], plane = kRows * kCols, n = std::size_t{1} << 20;
      auto const* map = qzhost::dataOf<std::uint8_t>(out[0].get());
      auto const* px = qzhost::dataOf<std::uint8_t>(photo);
      for (auto _ : state) {
        qzcall::NearestColour nearest(map, k);
        std::size_t sum = 0;
        for (std::size_t i = 0; i < n; ++i) {
          std::size_t p = i * 11 % plane;  // spread over the photo
          sum += cached ? nearest(px[p], px[plane + p], px[2 * plane + p])
                        : qzcall::nearestColourPlain(map, k, px[p], px[plane + p], px[2 * plane + p]);
        }
        benchmark::DoNotOptimize(sum);
      }
      state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * n));
    })
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond)
        ->MinTime(kMinTime)
        ->Repetitions(kRepetitions)
        ->DisplayAggregatesOnly();
  }
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;

  // The scaled photo is made now, before anything is timed.
  ndArray_tag const* base = qzbench::photo(ndclass::UInt8);
  benchmark::AddCustomContext("image", qzbench::describe(base) + ", data/coffee.png enlarged by imresize (bicubic)");
  benchmark::AddCustomContext("tbb_default_concurrency", std::to_string(tbb::info::default_concurrency()));

  addRgb2gray();
  addRgb2hsv();
  addImresize();
  addInd2rgb8();
  addGrayto8();
  addCq();
  addDither();
  addNearestColour();

  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
