#include "outputs.hpp"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>

namespace qzcli {

std::string inputName(std::string const& path) { return path == "-" ? kStdinName : path; }

std::string readInput(std::string const& path) {
  if (path == "-") {
    std::string bytes((std::istreambuf_iterator<char>(std::cin)), std::istreambuf_iterator<char>());
    if (std::cin.bad()) throw FileError(std::string(kStdinName) + ": read error");
    return bytes;
  }
  std::ifstream in(path, std::ios::binary);
  if (!in) throw FileError(path + ": cannot open file");
  std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  if (in.bad()) throw FileError(path + ": read error");
  return bytes;
}

void Outputs::add(std::string const& path) {
  if (path.empty()) throw FileError("an output path is empty");
  if (path != "-" && std::filesystem::is_directory(path)) throw FileError(path + ": is a folder, not a file");
  for (auto const& e : entries_)
    if (e.path == path)
      throw FileError((path == "-" ? std::string("standard output") : path) + ": named twice as an output");
  entries_.push_back({path, {}, false});
}

void Outputs::write(std::string const& path, std::string bytes) {
  for (auto& e : entries_)
    if (e.path == path) {
      e.bytes = std::move(bytes);
      e.written = true;
      return;
    }
  throw FileError(path + ": written without being planned");
}

void Outputs::commit() {
  for (auto const& e : entries_) {
    if (!e.written || e.path == "-") continue;
    std::ofstream out(e.path, std::ios::binary);
    if (!out) throw FileError(e.path + ": cannot open for writing");
    out.write(e.bytes.data(), static_cast<std::streamsize>(e.bytes.size()));
    out.close();
    if (!out) throw FileError(e.path + ": write failed");
  }
  for (auto const& e : entries_)
    if (e.written && e.path == "-") {
      std::cout.write(e.bytes.data(), static_cast<std::streamsize>(e.bytes.size()));
      std::cout.flush();
      if (!std::cout) throw FileError("standard output: write failed");
    }
}

}  // namespace qzcli
