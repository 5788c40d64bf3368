#include "planex/io/frame_names.h"

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <system_error>

#include "planex/io/failure.h"
#include "planex/io/raster.h"

namespace planex::io {
namespace {

bool isDigit(char c) { return c >= '0' && c <= '9'; }

/// A run of digits without the zeros it begins with, or one other character.
struct Piece {
  std::size_t begin, end;

  Piece(const std::string& name, std::size_t at) : begin(at), end(at + 1) {
    if (!isDigit(name[at])) return;
    while (end < name.size() && isDigit(name[end])) ++end;
    while (begin + 1 < end && name[begin] == '0') ++begin;
  }
};

bool holdsFrames(const std::string& name, bool areRaw) {
  if (name.front() == '.') return false;
  const std::string ending = endingOf(name);
  if (areRaw) return ending == ".raw" || ending == ".bin";
  for (const char* known : {".png", ".pgm", ".tif", ".tiff", ".npy"}) {
    if (ending == known) return true;
  }
  return false;
}

}  // namespace

bool isBeforeNaturally(const std::string& name, const std::string& other) {
  std::size_t i = 0, j = 0;
  while (i < name.size() && j < other.size()) {
    const Piece a(name, i), b(other, j);
    const std::size_t sizeA = a.end - a.begin, sizeB = b.end - b.begin;
    // The longer number is larger; beside a letter the length of a number says nothing.
    if (sizeA != sizeB && isDigit(name[i]) && isDigit(other[j])) return sizeA < sizeB;
    const int order = name.compare(a.begin, sizeA, other, b.begin, sizeB);
    if (order != 0) return order < 0;
    i = a.end;
    j = b.end;
  }
  if (i < name.size() || j < other.size()) return j < other.size();
  return name < other;
}

std::vector<std::string> frameFilesIn(const std::string& folder, bool areRaw) {
  namespace fs = std::filesystem;
  std::vector<std::string> files;
  std::error_code error;
  fs::directory_iterator entries(folder, error);
  for (; !error && entries != fs::directory_iterator(); entries.increment(error)) {
    std::error_code unknown;
    if (entries->is_directory(unknown)) continue;
    std::string name = entries->path().filename().string();
    if (holdsFrames(name, areRaw)) files.push_back(std::move(name));
  }
  if (error) {
    throw Failure(folder, "cannot be read (" + error.message() + "); check its permissions");
  }
  if (files.empty()) {
    throw Failure(folder, std::string("holds no file that ends in ") +
                              (areRaw ? ".raw or .bin" : ".png, .pgm, .tif, .tiff or .npy") +
                              "; give the folder of the frames");
  }
  std::sort(files.begin(), files.end(), isBeforeNaturally);
  const std::string path = folder.back() == '/' ? folder : folder + "/";
  for (std::string& name : files) name.insert(0, path);
  return files;
}

}  // namespace planex::io
