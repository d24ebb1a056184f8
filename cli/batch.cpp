#include "batch.hpp"

#include <tbb/parallel_pipeline.h>
#include <tbb/task_arena.h>

#include <chrono>
#include <cstdio>
#include <iomanip>
#include <iostream>
#include <sstream>

#include "messages.hpp"

namespace qzcli {
namespace {

struct Outcome {
  std::size_t index = 0;
  bool ok = false;
  std::string report, messages;
};

// "[#########...........] 12/40 files, 2 failed", redrawn in place.
class ProgressBar {
 public:
  ProgressBar(bool on, std::size_t total) : on_(on), total_(total) { draw(0, 0); }
  void clear() {
    if (on_) std::cerr << "\r\033[K" << std::flush;
  }
  void draw(std::size_t finished, std::size_t failed) {
    if (!on_) return;
    constexpr std::size_t kWidth = 30;
    std::size_t filled = total_ ? finished * kWidth / total_ : kWidth;
    std::cerr << "\r[" << std::string(filled, '#') << std::string(kWidth - filled, '.') << "] " << finished << "/"
              << total_ << " files";
    if (failed) std::cerr << ", " << failed << " failed";
    std::cerr << std::flush;
  }

 private:
  bool on_;
  std::size_t total_;
};

// Each line of `text` with "NAME: " in front.
std::string prefixed(std::string const& name, std::string const& text) {
  std::string out;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) out += name + ": " + line + "\n";
  return out;
}

}  // namespace

BatchSummary runBatch(std::vector<std::string> const& inputs, std::function<void(std::string const&)> const& processOne,
                      std::function<std::string(std::exception_ptr)> const& describe, BatchOptions const& options) {
  auto const start = std::chrono::steady_clock::now();
  BatchSummary summary;
  ProgressBar bar(options.progress, inputs.size());
  std::size_t next = 0;

  // At most inFlight files are between being read and being reported, so at
  // most that many images are held at once, whatever the number of files.
  tbb::parallel_pipeline(
      std::max<std::size_t>(options.inFlight, 1),
      tbb::make_filter<void, std::size_t>(tbb::filter_mode::serial_in_order,
                                          [&](tbb::flow_control& fc) -> std::size_t {
                                            if (next == inputs.size()) fc.stop();
                                            return next++;
                                          }) &
          tbb::make_filter<std::size_t, Outcome>(
              tbb::filter_mode::parallel,
              [&](std::size_t i) {
                Outcome o;
                o.index = i;
                std::ostringstream report, messages;
                {
                  Redirect redirect(report, messages);
                  // The built-ins' own parallel loops may wait for their
                  // tasks; isolated, this thread then takes no other file's
                  // stage meanwhile, and its redirection stays its own.
                  tbb::this_task_arena::isolate([&] {
                    try {
                      processOne(inputs[i]);
                      o.ok = true;
                    } catch (...) {
                      messages << describe(std::current_exception());
                    }
                  });
                }
                o.report = report.str();
                o.messages = messages.str();
                return o;
              }) &
          tbb::make_filter<Outcome, void>(tbb::filter_mode::serial_out_of_order, [&](Outcome const& o) {
            (o.ok ? summary.done : summary.failed) += 1;
            if (!o.report.empty() || !o.messages.empty()) {
              bar.clear();
              std::cout << prefixed(inputs[o.index], o.report) << std::flush;
              std::cerr << o.messages << std::flush;
            }
            bar.draw(summary.done + summary.failed, summary.failed);
          }));

  bar.clear();
  summary.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  std::cerr << options.command << ": " << summary.done << " done, " << summary.failed << " failed, " << inputs.size()
            << (inputs.size() == 1 ? " file" : " files") << " in " << std::fixed << std::setprecision(2)
            << summary.seconds << " s\n";
  return summary;
}

}  // namespace qzcli
