#pragma once
// Reading input files and writing output files so that nothing is lost.
//
// Inputs are read whole, and only when they are regular files of a bounded
// size: a FIFO would block, a device never ends and a huge file would be
// taken into memory before any reader could refuse it.
//
// Outputs go through OutputFiles: every path is checked before any work is
// done, each file is written to a temporary beside its destination, and only
// when all of them are complete are they renamed into place.  A failure, a
// full disk or an interrupted command leaves the files that were there as
// they were, and no new file behind.

#include <cstddef>
#include <stdexcept>
#include <string>
#include <vector>

namespace qzcli {

// A file that cannot be read or written: the message names the file and
// what is wrong with it.
struct FileError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// The largest input file read: above the largest image the readers accept
// (67,108,864 pixels of three 16-bit samples) with room for a poorly
// compressed one.
constexpr std::size_t kMaxInputBytes = std::size_t{1} << 30;

// The whole content of a regular file of at most `maxBytes` bytes.
std::string readInputFile(std::string const& path, std::size_t maxBytes = kMaxInputBytes);

// The outputs of one command (or of one input of a command that treats
// several in turn):
//
//   OutputFiles out;
//   out.add(png);  out.add(npy);           // before any work: refuses bad paths
//   ...                                    // the work
//   out.write(png, encodePng(...));        // into a temporary beside png
//   out.write(npy, formatNpy(...));
//   out.commit();                          // all renamed into place
//
// Without commit() (an exception, an early return) the destructor removes
// every temporary and every folder makeFolder() created.
class OutputFiles {
 public:
  // `readLater`: files that some later step still reads; none of them may
  // be replaced by these outputs.  The command's own inputs need not be
  // listed: they are read before commit() replaces anything.
  explicit OutputFiles(std::vector<std::string> readLater = {});
  ~OutputFiles();
  OutputFiles(OutputFiles const&) = delete;
  OutputFiles& operator=(OutputFiles const&) = delete;

  // Creates `dir` and its missing parents; those it created are removed
  // again if the outputs are not committed.
  void makeFolder(std::string const& dir);

  // Plans an output.  Refuses (FileError) an empty path, a directory or
  // other non-regular file, a folder that does not exist or cannot be
  // written, a file already planned under this or another name, and a
  // file listed in readLater.  A symbolic link is followed: its target is
  // replaced, the link stays.
  void add(std::string const& path);

  // Writes the complete content of a planned output to its temporary.  An
  // output planned but never written is left alone by commit().
  void write(std::string const& path, std::string const& bytes);

  // Flushes every written temporary to disk and renames each onto its
  // destination.
  void commit();

 private:
  struct Entry {
    std::string path;         // as the user named it, for messages
    std::string destination;  // with symbolic links resolved
    std::string temporary;    // empty until written
  };
  Entry& find(std::string const& path);

  std::vector<std::string> readLater_;
  std::vector<Entry> entries_;
  std::vector<std::string> createdFolders_;
  bool committed_ = false;
};

}  // namespace qzcli
