// Points as text: CSV and XYZ.
#include <array>
#include <charconv>
#include <cstdint>

#include "planex/io/point_formats.h"

namespace planex::io {
namespace {

class TextPointWriter final : public PointWriter {
 public:
  TextPointWriter(OutputFile& file, const PointDescription& points, char separator)
      : points_(points), separator_(separator), file_(file) {
    if (separator == ',') file_.write(points.intensity ? "x,y,z,intensity\n" : "x,y,z\n");
  }

  void prepare(const PointRows& rows, PreparedRows& prepared) const override {
    std::vector<char>& bytes = prepared.bytes;
    bytes.clear();
    prepared.points = 0;
    const std::size_t count =
        static_cast<std::size_t>(rows.count) * static_cast<std::size_t>(points_.columns);
    for (std::size_t i = 0; i < count; ++i) {
      if (!isThere(rows, i)) continue;
      std::array<char, 80> line;  // three floats have at most 48 letters
      char* end = line.data();
      append(rows.x[i], end, line);
      append(rows.y[i], end, line);
      append(rows.z[i], end, line);
      if (points_.intensity) append(intensityAt(rows, i), end, line);
      end[-1] = '\n';
      bytes.insert(bytes.end(), line.data(), end);
      ++prepared.points;
    }
  }

  void writeRows(const PointRows& /*rows*/, const PreparedRows& prepared) override {
    file_.write(prepared.bytes.data(), prepared.bytes.size());
    written_.points += prepared.points;
  }

 private:
  /// The fewest digits that read back as the same number, whatever the locale.
  template <typename T>
  void append(T value, char*& end, std::array<char, 80>& line) const {
    end = std::to_chars(end, line.data() + line.size(), value).ptr;
    *end++ = separator_;
  }

  unsigned intensityAt(const PointRows& rows, std::size_t i) const {
    return points_.intensity == SampleType::kUint8
               ? static_cast<const std::uint8_t*>(rows.intensity)[i]
               : static_cast<const std::uint16_t*>(rows.intensity)[i];
  }

  const PointDescription points_;
  const char separator_;
  OutputFile& file_;
};

}  // namespace

std::unique_ptr<PointWriter> createText(OutputFile& file, const PointDescription& points,
                                        char separator) {
  return std::make_unique<TextPointWriter>(file, points, separator);
}

}  // namespace planex::io
