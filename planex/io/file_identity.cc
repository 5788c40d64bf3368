#include "planex/io/file_identity.h"

#include <cstddef>
#include <vector>

#include "planex/io/input_file.h"
#include "planex/io/sha256.h"

namespace planex::io {

FileIdentity identityOf(const std::string& path) {
  const InputFile file(path);
  FileIdentity identity;
  Sha256 sum;
  std::vector<char> piece(std::size_t{1} << 18);
  while (const std::size_t size = file.readAt(identity.bytes, piece.data(), piece.size())) {
    sum.add(piece.data(), size);
    identity.bytes += size;
  }
  identity.sha256 = sum.take();
  return identity;
}

std::string sha256Of(std::string_view text) {
  Sha256 sum;
  sum.add(text.data(), text.size());
  return sum.take();
}

}  // namespace planex::io
