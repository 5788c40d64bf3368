// Points as LAS 1.2, the exchange format of the American Society for Photogrammetry and Remote
// Sensing: a heading, a record with a text, and points in format 0.
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <limits>

#include "planex/io/failure.h"
#include "planex/io/number_text.h"
#include "planex/io/point_formats.h"
#include "planex/version.h"

namespace planex::io {
namespace {

constexpr std::size_t kRecordBytes = 20;

/// One axis: coordinate = scale * stored.
struct LasAxis {
  double least = std::numeric_limits<double>::infinity(), most = -least;
  double scale = 1;

  void include(double value) {
    least = std::min(least, value);
    most = std::max(most, value);
  }
  /// The finest power of ten with which all coordinates fit into 32 bits: an eighth of a float's
  /// last place, or less, where they are largest.
  void chooseScale() {
    if (least > most) least = most = 0;
    const double largest = std::max(-least, most);
    for (int exponent = largest == 0 ? -4 : -12;; ++exponent) {
      scale = *parseNumber(fmt::format("1e{}", exponent));
      if (largest / scale <= std::numeric_limits<std::int32_t>::max()) return;
    }
  }
  std::int32_t stored(double value) const {
    return static_cast<std::int32_t>(std::llround(value / scale));
  }
  double rounded(double value) const { return scale * stored(value); }
};

template <typename T>
void append(std::string& bytes, T value) {
  bytes.resize(bytes.size() + sizeof value);
  base::storeLittle(value, bytes.data() + bytes.size() - sizeof value);
}

void append(std::string& bytes, std::string text, std::size_t size) {
  text.resize(size);
  bytes += text;
}

/// While points come, their coordinates stand as floats in the place of the 32-bit numbers that
/// they become when the extent is known.
class LasWriter final : public RecordWriter {
 public:
  LasWriter(OutputFile& file, const PointDescription& points)
      : RecordWriter(file, points, kRecordBytes) {
    file_.write(heading());
  }

  void writeRows(const PointRows& rows, const PreparedRows& prepared) override {
    requireCountable(prepared.points);
    for (std::size_t i = 0; i < prepared.bytes.size(); i += kRecordBytes) {
      const char* const point = prepared.bytes.data() + i;
      for (std::size_t k = 0; k < 3; ++k) {
        axes_[k].include(double{base::loadLittle<float>(point + 4 * k)});
      }
    }
    RecordWriter::writeRows(rows, prepared);
  }

  void finish() override {
    for (LasAxis& axis : axes_) axis.chooseScale();
    std::vector<char> bytes(kRecordBytes * 65536);
    off_t position = static_cast<off_t>(heading().size());
    for (std::int64_t left = written_.points; left > 0;) {
      const std::int64_t count = std::min<std::int64_t>(left, 65536);
      const std::size_t size = static_cast<std::size_t>(count) * kRecordBytes;
      seek(position);
      if (std::fread(bytes.data(), 1, size, file_.stream()) != size) {
        throw Failure(file_.path(), "cannot be read again; check the disk");
      }
      for (std::size_t i = 0; i < size; i += kRecordBytes) store(bytes.data() + i);
      seek(position);
      file_.write(bytes.data(), size);
      position += static_cast<off_t>(size);
      left -= count;
    }
    replaceHeading(file_, heading());
  }

 private:
  void fill(const PointRows& rows, std::vector<char>& bytes) const override {
    place<float>(rows.x, 0, bytes);
    place<float>(rows.y, 4, bytes);
    place<float>(rows.z, 8, bytes);
    placeIntensity<std::uint16_t>(rows.intensity, 12, bytes);
    for (std::size_t i = 14; i < bytes.size(); i += kRecordBytes) bytes[i] = 1 | 1 << 3;  // 1 of 1
  }

  void store(char* record) const {
    for (std::size_t k = 0; k < 3; ++k, record += 4) {
      base::storeLittle(axes_[k].stored(double{base::loadLittle<float>(record)}), record);
    }
  }

  void seek(off_t position) {
    if (fseeko(file_.stream(), position, SEEK_SET) != 0) {
      throw Failure(file_.path(), "cannot be rewound");
    }
  }

  std::string heading() const {
    const std::string text = fmt::format(
        "{} points, unit {}", points_.aligned ? "aligned" : "calibrated", unitText(points_));
    const auto points = static_cast<std::uint32_t>(written_.points);
    std::string bytes = "LASF";
    append(bytes, "", 20);                 // source, encoding, project
    append(bytes, std::uint16_t{0x0201});  // version 1.2
    append(bytes, "OTHER", 32);
    append(bytes, "planex " PLANEX_VERSION_STRING, 32);
    append(bytes, std::uint32_t{0});  // no date: the same points give the same bytes
    append(bytes, std::uint16_t{227});
    append(bytes, static_cast<std::uint32_t>(227 + 54 + text.size()));
    append(bytes, std::uint32_t{1});  // texts
    append(bytes, std::uint8_t{0});
    append(bytes, static_cast<std::uint16_t>(kRecordBytes));
    append(bytes, points);
    append(bytes, points);  // of the first return; the others have none
    append(bytes, "", 16);
    for (const LasAxis& axis : axes_) append(bytes, axis.scale);
    append(bytes, "", 24);  // offsets
    for (const LasAxis& axis : axes_) {
      append(bytes, points > 0 ? axis.rounded(axis.most) : 0.0);
      append(bytes, points > 0 ? axis.rounded(axis.least) : 0.0);
    }
    append(bytes, "", 2);
    append(bytes, "LASF_Spec", 16);
    append(bytes, std::uint16_t{3});  // a text for people
    append(bytes, static_cast<std::uint16_t>(text.size()));
    append(bytes, "Text area description", 32);
    return bytes + text;
  }

  std::array<LasAxis, 3> axes_;
};

}  // namespace

std::unique_ptr<PointWriter> createLas(OutputFile& file, const PointDescription& points) {
  PointDescription compact = points;
  compact.withoutMissing = true;
  return std::make_unique<LasWriter>(file, compact);
}

}  // namespace planex::io
