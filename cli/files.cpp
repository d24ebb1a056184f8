#include "files.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>

namespace fs = std::filesystem;

namespace qzcli {
namespace {

std::string errnoText() { return std::strerror(errno); }

// Closes a descriptor on every path out.
struct Fd {
  int fd;
  explicit Fd(int f) : fd(f) {}
  ~Fd() {
    if (fd >= 0) ::close(fd);
  }
  Fd(Fd const&) = delete;
  Fd& operator=(Fd const&) = delete;
  // Closes now, reporting what close() reports (a delayed write error).
  int close() {
    int r = ::close(fd);
    fd = -1;
    return r;
  }
};

// The folder a path's file lives in, as the user would write it.
std::string folderOf(std::string const& path) {
  std::string dir = fs::path(path).parent_path().string();
  return dir.empty() ? "." : dir;
}

// One spelling per file: "a.png", "./a.png" and a symbolic link to it all
// name the same destination.
fs::path resolved(std::string const& path) {
  std::error_code ec;
  fs::path p = fs::weakly_canonical(fs::absolute(fs::path(path)), ec);
  return ec ? fs::absolute(fs::path(path)) : p;
}

bool sameFile(fs::path const& a, fs::path const& b) {
  if (a == b) return true;
  std::error_code ec;
  bool same = fs::equivalent(a, b, ec);  // hard links
  return !ec && same;
}

// What a new file would get from open(): 0666 less the umask; a replaced
// file keeps its own permissions.
mode_t modeFor(fs::path const& destination) {
  struct stat st;
  if (::stat(destination.c_str(), &st) == 0) return st.st_mode & 07777;
  mode_t mask = ::umask(0);
  ::umask(mask);
  return 0666 & ~mask;
}

}  // namespace

std::string readInputFile(std::string const& path, std::size_t maxBytes) {
  // Non-blocking, so that opening a FIFO with no writer returns at once and
  // can be refused below.
  Fd f(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  if (f.fd < 0) throw FileError(path + ": cannot open: " + errnoText());
  struct stat st;
  if (::fstat(f.fd, &st) != 0) throw FileError(path + ": cannot open: " + errnoText());
  if (S_ISDIR(st.st_mode)) throw FileError(path + ": is a folder, not a file");
  if (!S_ISREG(st.st_mode)) throw FileError(path + ": not a regular file (FIFOs, sockets and devices are not read)");
  auto const size = static_cast<std::size_t>(st.st_size);
  std::string const limit = " bytes is more than the readers take (" + std::to_string(maxBytes) + " bytes)";
  if (size > maxBytes) throw FileError(path + ": a file of " + std::to_string(size) + limit);
  // The file may change while it is read: read what is there, up to the
  // limit and one byte past it to notice growth.
  std::string bytes(size, '\0');
  std::size_t got = 0;
  for (;;) {
    if (got == bytes.size()) {
      if (bytes.size() > maxBytes) throw FileError(path + ": a file of more than " + std::to_string(maxBytes) + limit);
      bytes.resize(std::min(bytes.size() + (std::size_t{1} << 16), maxBytes + 1));
    }
    ssize_t n = ::read(f.fd, &bytes[got], bytes.size() - got);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) throw FileError(path + ": cannot read: " + errnoText());
    if (n == 0) break;
    got += static_cast<std::size_t>(n);
  }
  bytes.resize(got);
  return bytes;
}

OutputFiles::OutputFiles(std::vector<std::string> readLater) : readLater_(std::move(readLater)) {}

OutputFiles::~OutputFiles() {
  if (committed_) return;
  for (auto const& e : entries_)
    if (!e.temporary.empty()) ::unlink(e.temporary.c_str());
  // Innermost first; a folder something else has written into stays.
  std::error_code ec;
  for (auto it = createdFolders_.rbegin(); it != createdFolders_.rend(); ++it) fs::remove(*it, ec);
}

void OutputFiles::makeFolder(std::string const& dir) {
  if (dir.empty()) throw FileError("the output folder is an empty path");
  std::error_code ec;
  std::vector<fs::path> missing;
  for (fs::path p = fs::absolute(dir); !p.empty() && !fs::exists(fs::symlink_status(p, ec)); p = p.parent_path())
    missing.push_back(p);
  for (auto it = missing.rbegin(); it != missing.rend(); ++it) {
    if (!fs::create_directory(*it, ec) && ec)
      throw FileError(dir + ": cannot create the folder: " + ec.message());
    createdFolders_.push_back(it->string());
  }
  if (!fs::is_directory(dir, ec)) throw FileError(dir + ": not a folder");
}

void OutputFiles::add(std::string const& path) {
  if (path.empty()) throw FileError("an output path is empty");
  fs::path const destination = resolved(path);
  std::error_code ec;
  fs::file_status st = fs::status(destination, ec);
  if (fs::is_directory(st)) throw FileError(path + ": is a folder; give a file name");
  if (fs::exists(st) && !fs::is_regular_file(st))
    throw FileError(path + ": not a regular file (only regular files are replaced)");
  std::string const folder = folderOf(path);
  if (!fs::is_directory(destination.parent_path(), ec)) throw FileError(path + ": the folder " + folder + " does not exist");
  if (::access(destination.parent_path().c_str(), W_OK | X_OK) != 0)
    throw FileError(path + ": cannot write in the folder " + folder + ": " + errnoText());
  for (auto const& e : entries_)
    if (sameFile(fs::path(e.destination), destination))
      throw FileError(path + ": the same file is named twice as an output" +
                      (e.path == path ? std::string() : " (also as " + e.path + ")"));
  for (auto const& r : readLater_)
    if (sameFile(resolved(r), destination)) throw FileError(path + ": is also an input still to be read");
  entries_.push_back({path, destination.string(), {}});
}

OutputFiles::Entry& OutputFiles::find(std::string const& path) {
  for (auto& e : entries_)
    if (e.path == path) return e;
  throw std::logic_error(path + ": written without being planned as an output");
}

void OutputFiles::write(std::string const& path, std::string const& bytes) {
  Entry& e = find(path);
  fs::path const dest(e.destination);
  if (e.temporary.empty()) {
    // Hidden, beside the destination (a rename across file systems is a
    // copy), and unique.
    std::string name = dest.filename().string().substr(0, 200);
    std::string pattern = (dest.parent_path() / ("." + name + ".XXXXXX")).string();
    int fd = ::mkostemp(pattern.data(), O_CLOEXEC);
    if (fd < 0) throw FileError(path + ": cannot create a file in " + folderOf(path) + ": " + errnoText());
    ::close(fd);
    e.temporary = pattern;
  }
  Fd f(::open(e.temporary.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC));
  if (f.fd < 0) throw FileError(path + ": cannot write: " + errnoText());
  if (::fchmod(f.fd, modeFor(dest)) != 0) throw FileError(path + ": cannot write: " + errnoText());
  for (std::size_t done = 0; done < bytes.size();) {
    ssize_t n = ::write(f.fd, bytes.data() + done, bytes.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) throw FileError(path + ": cannot write: " + errnoText());
    done += static_cast<std::size_t>(n);
  }
  // On the disk before it replaces anything: a crash after the rename must
  // not leave an empty file where the old one was.
  if (::fsync(f.fd) != 0 || f.close() != 0) throw FileError(path + ": cannot write: " + errnoText());
}

void OutputFiles::commit() {
  for (auto& e : entries_) {
    if (e.temporary.empty()) continue;
    if (::rename(e.temporary.c_str(), e.destination.c_str()) != 0)
      throw FileError(e.path + ": cannot replace the file: " + errnoText());
    e.temporary.clear();
    // The new directory entry, on the disk too.
    Fd dir(::open(fs::path(e.destination).parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (dir.fd >= 0) ::fsync(dir.fd);
  }
  committed_ = true;
}

}  // namespace qzcli
