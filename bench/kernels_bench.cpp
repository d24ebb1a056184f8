// qzimages_kernels_bench: the per-pixel kernels on one thread, over buffers
// allocated and touched once, under each instruction set the library was
// compiled for (dispatch forced to it) and through the plain per-pixel rule
// ("rule").  Page faults and the parallel loop are left out, so the rows
// compare the arithmetic of the paths.  Throughput counts pixels (elements
// for grayto8) per second.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "color/rgb2gray.hpp"
#include "color/rgb2gray_rule.hpp"
#include "color/rgb2hsv.hpp"
#include "color/rgb2hsv_rule.hpp"
#include "common/convert.hpp"
#include "hwy/targets.h"
#include "indexed/grayto8.hpp"
#include "indexed/ind2rgb8.hpp"

namespace {

constexpr std::size_t kPixels = std::size_t{1} << 20;

template <class T>
std::vector<T> channels(std::size_t n) {
  std::mt19937_64 rng(5);
  std::vector<T> v(n);
  for (auto& x : v) {
    if constexpr (std::is_floating_point_v<T>)
      x = static_cast<T>(std::uniform_real_distribution<double>(0, 1)(rng));
    else
      x = static_cast<T>(rng());
  }
  return v;
}

// Registers NAME/rule and NAME/<target> for every target this processor
// runs; `run(vector)` does one pass, through the dispatched kernel when
// vector is true.
template <class Run>
void add(std::string const& name, std::size_t items, Run run) {
  auto reg = [&](std::string const& path, std::int64_t target) {
    benchmark::RegisterBenchmark((name + "/" + path).c_str(), [=](benchmark::State& state) {
      hwy::SetSupportedTargetsForTest(target);
      for (auto _ : state) run(target != 0);
      hwy::SetSupportedTargetsForTest(0);
      state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * items));
    })->Unit(benchmark::kMicrosecond);
  };
  reg("rule", 0);
  for (std::int64_t t : hwy::SupportedAndGeneratedTargets()) reg(hwy::TargetName(t), t);
}

template <class T>
void addGray(char const* cls) {
  for (bool planar : {true, false}) {
    auto in = std::make_shared<std::vector<T>>(channels<T>(3 * kPixels));
    auto out = std::make_shared<std::vector<T>>(kPixels);
    bool const clamp = std::is_floating_point_v<T>;
    add(std::string("rgb2gray_") + cls + (planar ? "_planar" : "_interleaved"), kPixels, [=](bool vector) {
      if (vector)
        qz::convertrgb2gray<T>{in->data(), kPixels, clamp, out->data(), planar}(
            tbb::blocked_range<std::size_t>(0, kPixels));
      else
        qz::grayrule::line(in->data(), kPixels, clamp, out->data(), planar, 0, kPixels);
      benchmark::DoNotOptimize(out->data());
    });
  }
}

template <class Body, class In, class Out>
void addHsv(char const* cls, Out scale) {
  for (bool planar : {true, false}) {
    auto in = std::make_shared<std::vector<In>>(channels<In>(3 * kPixels));
    auto out = std::make_shared<std::vector<Out>>(3 * kPixels);
    add(std::string("rgb2hsv_") + cls + (planar ? "_planar" : "_interleaved"), kPixels, [=](bool vector) {
      if (vector)
        Body{in->data(), kPixels, scale, out->data(), planar}(tbb::blocked_range<std::size_t>(0, kPixels));
      else if constexpr (std::is_same_v<In, std::uint8_t>)
        qz::hsvrule::lineOfBytes(in->data(), kPixels, out->data(), planar, 0, kPixels);
      else
        qz::hsvrule::line(in->data(), kPixels, scale, out->data(), planar, 0, kPixels, Out(0));
      benchmark::DoNotOptimize(out->data());
    });
  }
}

template <class T, class Rule>
void addGrayto8(char const* cls, Rule rule) {
  auto in = std::make_shared<std::vector<T>>(channels<T>(kPixels));
  auto out = std::make_shared<std::vector<std::uint8_t>>(kPixels);
  add(std::string("grayto8_") + cls, kPixels, [=](bool vector) {
    if (vector)
      qz::convertGrayToBytes(in->data(), kPixels, 1, out->data());
    else
      for (std::size_t j = 0; j < kPixels; ++j) (*out)[j] = rule((*in)[j]);
    benchmark::DoNotOptimize(out->data());
  });
}

void addLookup() {
  auto index = std::make_shared<std::vector<std::uint8_t>>(channels<std::uint8_t>(kPixels));
  auto tables = std::make_shared<std::vector<std::uint8_t>>(channels<std::uint8_t>(3 * 256));
  auto out = std::make_shared<std::vector<std::uint8_t>>(3 * kPixels);
  add("ind2rgb8_uint8", kPixels, [=](bool vector) {
    std::uint8_t const* t = tables->data();
    qz::ComputeFunctorUintArray<std::uint8_t> const body{t, t + 256, t + 512, 256};
    if (vector) {
      body(qz::LookupRange<std::uint8_t>(
          raster::SplittableArrayWrapper<std::uint8_t>(index->data(), kPixels, kPixels, 1, qz::kLookupGrain),
          raster::SplittableRGBArrayWrapper<unsigned char>(out->data(), 3 * kPixels, kPixels, 3, qz::kLookupGrain,
                                                           kPixels, 1)));
    } else {
      std::uint8_t* o = out->data();
      for (std::size_t j = 0; j < kPixels; ++j) {
        std::uint64_t const i = body.rowOf((*index)[j]);
        o[j] = body.red[i];
        o[kPixels + j] = body.green[i];
        o[2 * kPixels + j] = body.blue[i];
      }
    }
    benchmark::DoNotOptimize(out->data());
  });
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  addGray<std::uint8_t>("uint8");
  addGray<std::uint16_t>("uint16");
  addGray<float>("single");
  addGray<double>("double");
  addHsv<qz::convertrgb2hsvU8, std::uint8_t>("uint8", 255.0);
  addHsv<qz::convertrgb2hsv<unsigned short, double>, unsigned short>("uint16", 65535.0);
  addHsv<qz::convertrgb2hsv<float, float>, float>("single", 1.0f);
  addHsv<qz::convertrgb2hsv<double, double>, double>("double", 1.0);
  addLookup();
  addGrayto8<double>("double", qz::offsetUnitToByte);
  addGrayto8<float>("single", qz::offsetUnitToByteSingle);
  addGrayto8<std::uint16_t>("uint16", qz::uint16ToByte);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
