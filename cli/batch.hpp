#pragma once
// One subcommand over many input files: in parallel on oneTBB with only a
// few images in memory at once, each file's lines printed whole when it is
// done, a progress bar on a terminal, and a summary at the end.  A file that
// fails is reported and the others go on.

#include <cstddef>
#include <exception>
#include <functional>
#include <string>
#include <vector>

namespace qzcli {

struct BatchOptions {
  std::string command;     // for the summary line
  std::size_t inFlight = 2;  // files read, processed or written at once
  bool progress = false;     // draw a progress bar on standard error
};

struct BatchSummary {
  std::size_t done = 0, failed = 0;
  double seconds = 0;
};

// processOne(input) does all the work for one file, writing its outputs,
// and throws on failure; describe(failure) gives the lines to print for it
// (as a run on that file alone would).  Both run on oneTBB's threads, with
// messages() and report() going to the file's own buffers; the buffers are
// printed, report() lines prefixed with "INPUT: ", as each file finishes.
// Prints "COMMAND: D done, F failed, N files in S s" on standard error.
BatchSummary runBatch(std::vector<std::string> const& inputs, std::function<void(std::string const&)> const& processOne,
                      std::function<std::string(std::exception_ptr)> const& describe, BatchOptions const& options);

}  // namespace qzcli
