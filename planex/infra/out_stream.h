#pragma once

#include <cstddef>
#include <string_view>

#include "planex/infra/containers.h"
#include "planex/infra/export.h"

namespace etl {

/// Where serialisers write.
class PLANEX_EXPORT OutStream {
 public:
  virtual ~OutStream();

  /// Appends `size` bytes. @return false when the stream cannot take them; nothing is reported.
  virtual bool Write(const void* data, std::size_t size) = 0;

  /// The same for text.
  bool Write(std::string_view text) { return Write(text.data(), text.size()); }
};

/// Collects what is written in memory.
class PLANEX_EXPORT MemoryOutStream final : public OutStream {
 public:
  using OutStream::Write;

  /// Always true; throws std::bad_alloc when memory runs out, and keeps what was written before.
  bool Write(const void* data, std::size_t size) override;

  /// @{
  /// What was written so far.
  const Buffer& GetBuffer() const { return buffer_; }
  std::string_view GetText() const;
  /// @}

 private:
  Buffer buffer_;
};

}  // namespace etl
