#pragma once
// Where a command's inputs come from and its outputs go: the one place
// files are read whole and written, with "-" for standard input and
// standard output so that a command can sit in a pipe.
//
//   Outputs out;
//   out.add(png);  out.add(npy);        // before any work: refuses bad paths
//   ...                                 // the work
//   out.write(png, encodePng(...));     // held until commit
//   out.write(npy, formatNpy(...));
//   out.commit();                       // every file written

#include <string>
#include <vector>

#include "npy.hpp"

namespace qzcli {

// The name "-" stands for in messages.
inline constexpr char const* kStdinName = "standard input";

// How an input path is named in messages.
std::string inputName(std::string const& path);

// The bytes of the file `path`, or of standard input for "-".
std::string readInput(std::string const& path);

// The outputs of one command (or of one input of a batch): nothing is
// written before commit(), so a command that fails halfway leaves no
// partial set of outputs behind.
class Outputs {
 public:
  // Plans an output; "-" is standard output, at most once.  Refuses
  // (FileError) an empty path, a folder, and a path planned twice.
  void add(std::string const& path);
  // The complete content of a planned output.
  void write(std::string const& path, std::string bytes);
  // Writes every output, standard output last.
  void commit();

 private:
  struct Entry {
    std::string path, bytes;
    bool written = false;
  };
  std::vector<Entry> entries_;
};

}  // namespace qzcli
