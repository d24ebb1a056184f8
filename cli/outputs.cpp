#include "outputs.hpp"

#include <cstdio>
#include <iostream>

namespace qzcli {

std::string inputName(std::string const& path) { return path == "-" ? kStdinName : path; }

std::string readInput(std::string const& path) {
  if (path != "-") return readInputFile(path);
  std::string bytes;
  char buf[1 << 16];
  for (;;) {
    std::size_t n = std::fread(buf, 1, sizeof buf, stdin);
    bytes.append(buf, n);
    if (bytes.size() > kMaxInputBytes)
      throw FileError(std::string(kStdinName) + ": more than the readers take (" + std::to_string(kMaxInputBytes) +
                      " bytes)");
    if (n < sizeof buf) break;
  }
  if (std::ferror(stdin)) throw FileError(std::string(kStdinName) + ": cannot read");
  return bytes;
}

void Outputs::add(std::string const& path) {
  if (path != "-") return files_.add(path);
  if (toStdout_) throw FileError("standard output is named twice as an output");
  toStdout_ = true;
}

void Outputs::write(std::string const& path, std::string const& bytes) {
  if (path != "-") return files_.write(path, bytes);
  stdoutBytes_ = bytes;
}

void Outputs::commit() {
  files_.commit();
  if (!toStdout_) return;
  std::cout.write(stdoutBytes_.data(), static_cast<std::streamsize>(stdoutBytes_.size()));
  std::cout.flush();
  if (!std::cout) throw FileError("standard output: write failed");
}

}  // namespace qzcli
