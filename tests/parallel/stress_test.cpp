// Many calls at once: several host threads call all six built-ins over and
// over, each on its own image at any moment, while every kernel splits its
// work over the shared task scheduler.  Every result must equal, byte for
// byte, the one the same call gave when it ran alone.  Run under
// ThreadSanitizer this is the check that calls share no mutable state.

#include <atomic>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <thread>

#include "builtin_args.hpp"
#include "photos.hpp"
#include "qzimages/qzimages.hpp"
#include "qztest.hpp"
#include "snapshot.hpp"

namespace {

using qzhost::ArrayPtr;
using qztest::args;
using qztest::ArraySnapshot;
using qztest::randomArray;
using qztest::resizeArgs;
using qztest::scalar;

constexpr std::size_t kSlots = 2;
constexpr int kThreads = 4;
#ifdef QZ_SANITIZED
constexpr int kRounds = 2;
#else
constexpr int kRounds = 30;
#endif

struct Job {
  std::string name;
  qzhost::Gateway fn;
  int numOutputs;
  std::vector<ArrayPtr> inputs;
  std::vector<ArraySnapshot> expected;  // one per slot, from a call on its own
};

std::vector<ndArray_tag const*> inputsOf(Job const& j) {
  std::vector<ndArray_tag const*> in;
  for (auto const& a : j.inputs) in.push_back(a.get());
  return in;
}

std::vector<ArraySnapshot> runJob(Job const& j) {
  std::vector<ArraySnapshot> s;
  for (auto const& a : qztest::call(j.fn, j.numOutputs, inputsOf(j), kSlots)) s.push_back(qztest::snapshotOf(a.get()));
  return s;
}

// A rows-by-cols window of a photo, as an M-by-N-by-3 uint8 array.
ArrayPtr crop(qztest::Photo const& p, std::size_t r0, std::size_t c0, std::size_t rows, std::size_t cols) {
  ArrayPtr a = qzhost::makeArray(ndclass::UInt8, {rows, cols, 3});
  auto* out = qzhost::dataOf<std::uint8_t>(a.get());
  for (std::size_t c = 0; c < 3; ++c)
    for (std::size_t x = 0; x < cols; ++x)
      for (std::size_t y = 0; y < rows; ++y)
        out[(c * cols + x) * rows + y] = p.planar[(c * p.cols + c0 + x) * p.rows + r0 + y];
  return a;
}

// An RGB image of floating values with specials: NaN in at most one
// channel of a pixel (the hue of a pixel with two or more NaN channels
// depends on how the work is split, so it has no single serial answer),
// infinities and values outside [0, 1].
template <class T>
ArrayPtr randomRgbWithSpecials(std::size_t m, std::size_t n, std::mt19937_64& rng) {
  ArrayPtr a = randomArray<T>({m, n, 3}, rng, -0.25, 1.25);
  T* d = qzhost::dataOf<T>(a.get());
  std::size_t const plane = m * n;
  std::uniform_int_distribution<int> pick(0, 19);
  for (std::size_t p = 0; p < plane; ++p) {
    int const r = pick(rng);
    if (r < 3) d[static_cast<std::size_t>(r) * plane + p] = std::numeric_limits<T>::quiet_NaN();
    if (r == 3) d[p] = std::numeric_limits<T>::infinity();
    if (r == 4) d[2 * plane + p] = -std::numeric_limits<T>::infinity();
  }
  return a;
}

// A copy of an array the host owns, for feeding one job's result to another.
ArrayPtr copyOf(ndArray_tag const* a) {
  ArrayPtr c = qzhost::makeArray(ndGetClassID(a), qzhost::dimsOf(a), ndIsComplex(a));
  std::size_t const bytes = qztest::dataBytesOf(a);
  if (bytes) std::memcpy(ndGetData(c.get()), ndGetData(a), bytes);
  return c;
}

std::vector<Job> makeJobs() {
  std::vector<Job> jobs;
  auto add = [&jobs](std::string name, qzhost::Gateway fn, int numOutputs, std::vector<ArrayPtr> inputs) {
    jobs.push_back({std::move(name), fn, numOutputs, std::move(inputs), {}});
  };
  std::mt19937_64 rng(4242);

  // Two windows of each sample photograph (top left, bottom right), each
  // through all six built-ins: cq's map and index image of a window go on to
  // ind2rgb8, and the window's red plane as doubles to grayto8.
  std::size_t window = 0;
  for (auto const& name : qztest::samplePhotoNames()) {
    qztest::Photo const photo = qztest::loadSamplePhoto(name);
    if (photo.rows < 200 || photo.cols < 240) {
      ADD_FAILURE() << name << " is smaller than the windows";
      continue;
    }
    for (std::size_t r0 : {std::size_t{0}, photo.rows - 180}) {
      std::string const tag = name + " window " + std::to_string(window++);
      ArrayPtr rgb = crop(photo, r0, r0 == 0 ? 0 : photo.cols - 220, 180, 220);
      ndArray_tag const* image = rgb.get();
      add(tag + " rgb2gray", pximages::_rgb2gray, 1, args(copyOf(image)));
      add(tag + " rgb2hsv", pximages::_rgb2hsv, 1, args(copyOf(image)));
      add(tag + " imresize rows", pximages::_imresize, 1, resizeArgs(copyOf(image), 180, 77, 1));
      add(tag + " imresize columns", pximages::_imresize, 1, resizeArgs(copyOf(image), 220, 301, 2));

      auto quantised = qztest::call(pximages::_cq, 2, {image, scalar(24).get()});
      add(tag + " cq", pximages::_cq, 2, args(copyOf(image), scalar(24)));
      // The colour map as doubles in [0, 1], the 0-based byte index image.
      ndArray_tag const* map8 = quantised[0].get();
      std::size_t const colours = qzhost::dimsOf(map8)[0];
      ArrayPtr map = qzhost::makeArray(ndclass::Double, {colours, 3});
      for (std::size_t e = 0; e < 3 * colours; ++e)
        qzhost::dataOf<double>(map.get())[e] = qzhost::dataOf<std::uint8_t>(map8)[e] / 255.0;
      add(tag + " ind2rgb8", pximages::_ind2rgb8, 1, args(copyOf(quantised[1].get()), std::move(map)));

      ArrayPtr gray = qzhost::makeArray(ndclass::Double, {180, 220});
      for (std::size_t p = 0; p < 180 * 220; ++p)
        qzhost::dataOf<double>(gray.get())[p] = qzhost::dataOf<std::uint8_t>(image)[p] / 255.0;
      add(tag + " grayto8", pximages::_grayto8, 1, args(std::move(gray)));
    }
  }

  // Random images of several classes.
  add("rgb2gray double", pximages::_rgb2gray, 1, args(randomRgbWithSpecials<double>(150, 170, rng)));
  add("rgb2gray single", pximages::_rgb2gray, 1, args(randomRgbWithSpecials<float>(140, 160, rng)));
  add("rgb2gray int8", pximages::_rgb2gray, 1, args(randomArray<std::int8_t>({120, 130, 3}, rng, -128, 127)));
  add("rgb2gray uint16", pximages::_rgb2gray, 1, args(randomArray<std::uint16_t>({130, 120, 3}, rng, 0, 65535)));
  add("rgb2gray int32", pximages::_rgb2gray, 1, args(randomArray<std::int32_t>({100, 110, 3}, rng, -2e9, 2e9)));
  add("rgb2gray uint64", pximages::_rgb2gray, 1, args(randomArray<std::uint64_t>({90, 100, 3}, rng, 0, 1.8e19)));
  add("rgb2hsv double", pximages::_rgb2hsv, 1, args(randomRgbWithSpecials<double>(160, 150, rng)));
  add("rgb2hsv single", pximages::_rgb2hsv, 1, args(randomRgbWithSpecials<float>(150, 140, rng)));
  add("rgb2hsv uint16", pximages::_rgb2hsv, 1, args(randomArray<std::uint16_t>({140, 150, 3}, rng, 0, 65535)));
  add("imresize int16 rows", pximages::_imresize, 1,
           resizeArgs(randomArray<std::int16_t>({150, 90, 2}, rng, -32768, 32767), 150, 61, 1));
  add("imresize complex single columns", pximages::_imresize, 1,
           resizeArgs(randomArray<float>({120, 110}, rng, -4, 4, true), 110, 173, 2));
  add("imresize uint32 columns", pximages::_imresize, 1,
           resizeArgs(randomArray<std::uint32_t>({100, 130, 3}, rng, 0, 4e9), 130, 52, 2));
  ArrayPtr map = randomArray<double>({7, 3}, rng, -0.1, 1.1);
  add("ind2rgb8 double index", pximages::_ind2rgb8, 1,
           args(randomArray<double>({170, 160}, rng, -1, 9), copyOf(map.get())));
  add("ind2rgb8 uint32 index", pximages::_ind2rgb8, 1,
           args(randomArray<std::uint32_t>({160, 170}, rng, 0, 9), copyOf(map.get())));
  add("grayto8 single", pximages::_grayto8, 1, args(randomArray<float>({150, 160}, rng, -0.2, 1.2)));
  add("grayto8 uint16", pximages::_grayto8, 1, args(randomArray<std::uint16_t>({160, 150}, rng, 0, 65535)));
  add("cq random, 300 colours", pximages::_cq, 2,
           args(randomArray<std::uint8_t>({60, 50, 3}, rng, 0, 256), scalar(300)));
  add("cq random, map only", pximages::_cq, 1,
           args(randomArray<std::uint8_t>({70, 60, 3}, rng, 0, 256), scalar(200)));

  // The serial results, one call at a time.
  for (Job& j : jobs) j.expected = runJob(j);
  return jobs;
}

using StressTest = qztest::HostTest;

TEST_F(StressTest, ConcurrentCallsOfAllBuiltInsGiveTheirSerialResults) {
  std::vector<Job> const jobs = makeJobs();
  ASSERT_GE(jobs.size(), 6u);
  for (Job const& j : jobs) ASSERT_TRUE(j.expected[0].present) << j.name;

  // Each thread walks the whole list from its own starting point, so that
  // at any moment the threads are on different jobs and built-ins.
  std::vector<std::vector<std::string>> mismatches(kThreads);
  std::atomic<int> ready{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      std::vector<std::string>& bad = mismatches[static_cast<std::size_t>(t)];
      ready.fetch_add(1);
      while (ready.load() < kThreads) std::this_thread::yield();  // start together
      std::size_t const start = jobs.size() * static_cast<std::size_t>(t) / kThreads;
      for (int round = 0; round < kRounds && bad.size() < 5; ++round) {
        for (std::size_t i = 0; i < jobs.size(); ++i) {
          Job const& j = jobs[(start + i) % jobs.size()];
          try {
            if (runJob(j) != j.expected) bad.push_back(j.name + ", round " + std::to_string(round));
          } catch (qzhost::HostError const& e) {
            bad.push_back(j.name + " raised " + e.identifier());
          }
        }
      }
    });
  }
  for (auto& th : threads) th.join();

  for (int t = 0; t < kThreads; ++t)
    for (auto const& m : mismatches[static_cast<std::size_t>(t)])
      ADD_FAILURE() << "thread " << t << ": " << m << " differs from its serial result";
}

}  // namespace
