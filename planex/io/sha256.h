#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "planex/infra/export.h"

namespace planex::io {

/// The SHA-256 of bytes that come in pieces (FIPS 180-4).
class PLANEX_EXPORT Sha256 {
 public:
  Sha256();
  ~Sha256();
  Sha256(const Sha256&) = delete;
  Sha256& operator=(const Sha256&) = delete;

  /// Appends bytes.
  void add(const void* bytes, std::size_t size);

  /// @return 64 hexadecimal digits; then it begins anew
  std::string take();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace planex::io
