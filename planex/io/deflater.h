#pragma once

#include <zlib.h>

#include <new>
#include <vector>

namespace planex::io {

/// Deflates one piece of data after the other, fast: on differences of neighbouring heights runs
/// and an entropy code are denser than slower settings on the samples themselves.
class Deflater {
 public:
  /// @param windowBits as for deflateInit2(): 15 with header and check sum, -15 without
  explicit Deflater(int windowBits) {
    if (deflateInit2(&stream_, 1, Z_DEFLATED, windowBits, 9, Z_RLE) != Z_OK) throw std::bad_alloc();
  }
  ~Deflater() { deflateEnd(&stream_); }
  Deflater(const Deflater&) = delete;
  Deflater& operator=(const Deflater&) = delete;

  /// Appends the data as blocks that end with a byte, behind which others can follow unless they
  /// are the last.
  void append(const std::vector<char>& data, bool last, std::vector<char>& out) {
    deflateReset(&stream_);
    const std::size_t begin = out.size();
    out.resize(begin + deflateBound(&stream_, static_cast<uLong>(data.size())) + 16);
    stream_.next_in = const_cast<Bytef*>(reinterpret_cast<const Bytef*>(data.data()));
    stream_.avail_in = static_cast<uInt>(data.size());
    stream_.next_out = reinterpret_cast<Bytef*>(out.data() + begin);
    stream_.avail_out = static_cast<uInt>(out.size() - begin);
    deflate(&stream_, last ? Z_FINISH : Z_SYNC_FLUSH);
    out.resize(begin + stream_.total_out);
  }

 private:
  z_stream stream_{};
};

}  // namespace planex::io
