#pragma once
// A command's inputs and outputs where "-" may stand for standard input or
// standard output, so that a command can sit in a pipe.  Files go through
// readInputFile and OutputFiles (all outputs or none); standard output gets
// its bytes only once every file is in place.
//
//   Outputs out;
//   out.add(png);  out.add(npy);        // before any work: refuses bad paths
//   ...                                 // the work
//   out.write(png, encodePng(...));
//   out.write(npy, formatNpy(...));
//   out.commit();                       // files renamed into place, then stdout

#include <string>
#include <vector>

#include "files.hpp"

namespace qzcli {

// The name "-" stands for in messages.
inline constexpr char const* kStdinName = "standard input";

// How an input path is named in messages.
std::string inputName(std::string const& path);

// The bytes of the file `path`, or of standard input for "-" (at most
// kMaxInputBytes either way).
std::string readInput(std::string const& path);

class Outputs {
 public:
  explicit Outputs(std::vector<std::string> readLater = {}) : files_(std::move(readLater)) {}
  void makeFolder(std::string const& dir) { files_.makeFolder(dir); }
  // As OutputFiles::add; "-" is standard output, at most once.
  void add(std::string const& path);
  void write(std::string const& path, std::string const& bytes);
  void commit();

 private:
  OutputFiles files_;
  bool toStdout_ = false;
  std::string stdoutBytes_;
};

}  // namespace qzcli
