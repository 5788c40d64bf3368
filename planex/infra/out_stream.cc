#include "planex/infra/out_stream.h"

namespace etl {

OutStream::~OutStream() = default;

bool MemoryOutStream::Write(const void* data, std::size_t size) {
  const auto* bytes = static_cast<const unsigned char*>(data);
  buffer_.insert(buffer_.end(), bytes, bytes + size);
  return true;
}

std::string_view MemoryOutStream::GetText() const {
  return {reinterpret_cast<const char*>(buffer_.data()), buffer_.size()};
}

}  // namespace etl
