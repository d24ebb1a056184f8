#pragma once
// Where a command's lines go.  Notes, warnings and errors go to messages(),
// results meant for the user (a quantised image's colours and PSNR) to
// report(): standard error and standard output, except while a file of a
// batch is processed, when both are that file's own buffers, printed whole
// once it is done so that files processed at the same time never mix their
// lines.  The redirection is per thread.

#include <ostream>

namespace qzcli {

std::ostream& messages();
std::ostream& report();

// Redirects messages() and report() on this thread for its lifetime.
class Redirect {
 public:
  Redirect(std::ostream& report, std::ostream& messages);
  ~Redirect();
  Redirect(Redirect const&) = delete;
  Redirect& operator=(Redirect const&) = delete;

 private:
  std::ostream* report_;
  std::ostream* messages_;
};

}  // namespace qzcli
