// Many calls at once: host threads call all six built-ins over and over,
// each on a different job at any moment, while every kernel splits its work
// over the shared task scheduler.  Every result must equal, byte for byte,
// the one the same call gave alone.  Under ThreadSanitizer this is the
// check that calls share no mutable state.

#include <cmath>
#include <thread>
#include <tuple>

#include "builtin_args.hpp"
#include "snapshot.hpp"

using namespace qztest;

#ifdef QZ_SANITIZED
constexpr int kRounds = 2;
#else
constexpr int kRounds = 30;
#endif

TEST(StressTest, ConcurrentCallsOfAllBuiltInsGiveTheirSerialResults) {
  std::mt19937_64 rng(4242);
  // Values outside [0, 1], infinities, and NaN in at most one channel of a
  // pixel (with two, the hue depends on how the work is split, so there is
  // no single serial answer).
  auto specials = [&rng](std::size_t m, std::size_t n) {
    ArrayPtr a = randomArray<double>({m, n, 3}, rng, -0.25, 1.25);
    for (std::size_t p = 0; p < m * n; p += 7) qzhost::dataOf<double>(a.get())[p % 3 * m * n + p] = NAN;
    for (std::size_t p = 3; p < m * n; p += 11) qzhost::dataOf<double>(a.get())[p] = INFINITY;
    return a;
  };
  std::tuple<qzhost::Gateway, int, std::vector<ArrayPtr>> const jobs[] = {
      {pximages::_rgb2gray, 1, args(specials(150, 170))},
      {pximages::_rgb2hsv, 1, args(specials(150, 140))},
      {pximages::_imresize, 1, resizeArgs(randomArray<std::int16_t>({150, 90, 2}, rng, -32768, 32767), 150, 61, 1)},
      {pximages::_imresize, 1, resizeArgs(randomArray<float>({120, 110}, rng, -4, 4, true), 110, 173, 2)},
      {pximages::_ind2rgb8, 1,
       args(randomArray<std::uint32_t>({160, 170}, rng, 0, 9), randomArray<double>({7, 3}, rng, 0, 1))},
      {pximages::_grayto8, 1, args(randomArray<std::uint16_t>({160, 150}, rng, 0, 65535))},
      {pximages::_cq, 2, args(randomArray<std::uint8_t>({60, 50, 3}, rng, 0, 256), scalar(300))},
  };
  std::vector<std::vector<ArraySnapshot>> expected;
  for (auto const& [fn, outs, in] : jobs) expected.push_back(snapshotsOfCall(fn, outs, in));
  std::vector<std::thread> threads;
  for (std::size_t t = 0; t < 4; ++t)
    threads.emplace_back([&, t] {
      for (int round = 0; round < kRounds; ++round)
        for (std::size_t i = 0; i < std::size(jobs); ++i) {  // each thread from its own place in the list
          std::size_t const j = (i + std::size(jobs) * t / 4) % std::size(jobs);
          bool same = false;
          auto const& [fn, outs, in] = jobs[j];
          EXPECT_EQ(errorOf([&] { same = snapshotsOfCall(fn, outs, in) == expected[j]; }), "") << "job " << j;
          EXPECT_TRUE(same) << "job " << j << " differs from its serial result";
        }
    });
  for (auto& th : threads) th.join();
}
