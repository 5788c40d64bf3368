#include "planex/io/model_file.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "planex/infra/json_deserializer.h"
#include "planex/io/failure.h"
#include "planex/io/file_identity.h"

namespace planex::io {
namespace {

constexpr std::size_t kMostBytes = std::size_t{256} << 20;

struct CloseFile {
  void operator()(std::FILE* file) const {
    if (file != stdin) std::fclose(file);
  }
};

}  // namespace

std::string readTextFile(const std::string& path) {
  const std::unique_ptr<std::FILE, CloseFile> file(path == "-" ? stdin
                                                               : std::fopen(path.c_str(), "rb"));
  if (file == nullptr) {
    throw Failure(path, std::string("cannot be opened (") + std::strerror(errno) +
                            "); check its name and permissions");
  }
  std::string text;
  std::array<char, 65536> piece;
  while (const std::size_t size = std::fread(piece.data(), 1, piece.size(), file.get())) {
    text.append(piece.data(), size);
    if (text.size() > kMostBytes) {
      throw Failure(path, "is larger than 256 MB and no model document; name another file");
    }
  }
  if (std::ferror(file.get()) != 0) {
    throw Failure(path, std::string("cannot be read (") + std::strerror(errno) +
                            "); check that it is a file on a working disk");
  }
  return text;
}

datafusion::planex::CalibrationModel loadModel(const std::string& path, std::string& sha256,
                                               std::string& document) {
  document = readTextFile(path);
  sha256 = sha256Of(document);
  base::JsonVisitingDeSerializer reader(document.c_str(), false);
  datafusion::planex::CalibrationModel model;
  if (!reader.DeserializeIntoExistingObject(model)) {
    throw Failure(path, "is not a readable model document (" + reader.GetErrorDescription() +
                            "); see what is wrong with: planex check " + path);
  }
  if (!model.IsConsistent()) {
    throw Failure(path, "has a negative focal length or error figure; see: planex check " + path);
  }
  return model;
}

datafusion::planex::CalibrationModel loadModel(const std::string& path, std::string& sha256) {
  std::string document;
  return loadModel(path, sha256, document);
}

datafusion::planex::CalibrationModel loadModel(const std::string& path) {
  std::string sha256;
  return loadModel(path, sha256);
}

}  // namespace planex::io
