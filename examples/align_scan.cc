// From a range image to aligned points in space, through the classes of planex.
//
//     align_scan <scan folder> <output.ply>
//
// reads model.json, scan.txt, range.pgm and intensity.pgm (simulate_scan writes them), calibrates
// the range image, carries it through pose and skew of the model into the aligned system, and
// writes the points as a binary PLY with the intensity as their colour: profile by profile, in each
// along the laser line, without the samples that measured nothing. It also asks where on the sensor
// and in which profiles a box in space is seen, and exits with 1 when the measured points in the
// box disagree.
#include <planex/foundation/box.h>
#include <planex/foundation/image_of.h>
#include <planex/foundation/vec.h>
#include <planex/infra/log_handler.h>
#include <planex/infra/logger.h>
#include <planex/model/calibration_model.h>
#include <planex/model/coordinate_system.h>
#include <planex/model/model_file.h>
#include <planex/model/shape_mapping.h>
#include <planex/processing/image_alignment.h>
#include <planex/processing/image_calibration.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "scan_files.h"

namespace {

using namespace datafusion::planex;
using Point = cmnalg::Vec<3, double>;
using FloatImage = cmnalg::ImageOf<float>;

constexpr int kSupersampling = 20;  // points along each edge of a box, because mapping bends edges

/// Shows what the library refuses, and why.
class PrintingHandler final : public base::LogHandler {
 public:
  PrintingHandler() : LogHandler("align_scan", true) {}
  void Publish(const base::LogRecord& record) override {
    std::fprintf(stderr, "planex: %s%s\n", GetLogLevelPrefix(record).c_str(),
                 record.message.c_str());
  }
};

struct ScanReader : Scan {
  explicit ScanReader(const char* folder) : Scan{}, good(readScan(folder, this)) {}
  ~ScanReader() { freeScan(this); }
  ScanReader(const ScanReader&) = delete;
  ScanReader& operator=(const ScanReader&) = delete;

  const bool good;
};

/// The aligned points of a scan, one pixel a sample; NaN where nothing was measured.
struct AlignedScan {
  FloatImage x, y, z;

  Point at(int column, int profile) const {
    return {x.Pix(column, profile), y.Pix(column, profile), z.Pix(column, profile)};
  }
};

bool align(const CalibrationModel& model, const Scan& scan, AlignedScan& aligned) {
  // The image borrows the scan's values. Component x belongs to columns, z to the stored values.
  cmnalg::ImageOf<std::uint16_t> range(scan.range, scan.size.width, scan.size.height, 0, false,
                                       cmnalg::Image::s_defaultImageAllocator, false);
  range.PixelSize = {scan.traits.scaleX, scan.profileSpacing, scan.traits.scaleZ};
  range.Origin = {scan.traits.originX, 0, scan.traits.originZ};

  FloatImage x, z;
  etl::Vector<double> y;
  for (int profile = 0; profile < scan.size.height; ++profile) {
    y.push_back(profile * scan.profileSpacing);
  }
  return applyCalibration(model, false, range, x, z, RunMode::Default) &&
         applyAlignment(model, false, x, y, z, aligned.x, aligned.y, aligned.z, RunMode::Default);
}

/// Minimum and maximum in space, or of sensor column, profile and sensor row.
struct Bounds {
  Point min, max;

  bool contains(const Point& p) const {
    return p.x >= min.x && p.x <= max.x && p.y >= min.y && p.y <= max.y && p.z >= min.z &&
           p.z <= max.z;
  }
};

Bounds boundsOf(const AlignedScan& scan) {
  Bounds bounds{{HUGE_VAL, HUGE_VAL, HUGE_VAL}, {-HUGE_VAL, -HUGE_VAL, -HUGE_VAL}};
  for (int profile = 0; profile < scan.z.GetHeight(); ++profile) {
    for (int column = 0; column < scan.z.GetWidth(); ++column) {
      const Point p = scan.at(column, profile);
      if (std::isnan(p.z)) continue;
      bounds.min = {std::min(bounds.min.x, p.x), std::min(bounds.min.y, p.y),
                    std::min(bounds.min.z, p.z)};
      bounds.max = {std::max(bounds.max.x, p.x), std::max(bounds.max.y, p.y),
                    std::max(bounds.max.z, p.z)};
    }
  }
  return bounds;
}

/// The middle of the bounds, a quarter as long and wide, and of full height.
Bounds middleOf(const Bounds& all) {
  const double x = (all.max.x - all.min.x) * 0.375;
  const double y = (all.max.y - all.min.y) * 0.375;
  return {{all.min.x + x, all.min.y + y, all.min.z}, {all.max.x - x, all.max.y - y, all.max.z}};
}

void print(const char* title, const Bounds& b, const char* const (&axes)[3]) {
  std::printf("%-18s %s %.2f to %.2f, %s %.2f to %.2f, %s %.2f to %.2f\n", title, axes[0], b.min.x,
              b.max.x, axes[1], b.min.y, b.max.y, axes[2], b.min.z, b.max.z);
}

/// Maps a region of interest in space to the part of the scan that sees it, and compares with the
/// points that were measured there.
bool findRegion(const CalibrationModel& model, const Scan& scan, const AlignedScan& aligned,
                const Bounds& region) {
  const auto box = cmnalg::shape3d::Box::FromCorners(region.min, region.max);
  Bounds seen;
  if (!mapBox(model, box, seen.min, seen.max, CoordinateSystem::Aligned, CoordinateSystem::Pixel,
              0.0, scan.profileSpacing, kSupersampling)) {
    return false;
  }
  print("region, mm", region, {"X", "Y", "Z"});
  print("seen in", seen, {"columns", "profiles", "rows"});

  // Points on the border may lie off by the rounding of single precision and of a bent edge.
  const Bounds limits{{seen.min.x - 0.5, seen.min.y - 0.5, seen.min.z - 0.5},
                      {seen.max.x + 0.5, seen.max.y + 0.5, seen.max.z + 0.5}};
  int inside = 0, elsewhere = 0;
  for (int profile = 0; profile < scan.size.height; ++profile) {
    for (int column = 0; column < scan.size.width; ++column) {
      if (!region.contains(aligned.at(column, profile))) continue;
      const int value = scan.range[profile * scan.size.width + column];
      const Point sample{scan.traits.scaleX * column + scan.traits.originX, double(profile),
                         scan.traits.scaleZ * value + scan.traits.originZ};
      ++inside;
      if (!limits.contains(sample)) ++elsewhere;
    }
  }
  std::printf("%-18s %d, of which %d were measured elsewhere\n", "points in it", inside, elsewhere);
  return inside > 0 && elsewhere == 0;
}

/// Little-endian bytes of a float.
void append(std::vector<std::uint8_t>& bytes, double value) {
  const auto single = static_cast<float>(value);
  std::uint32_t bits;
  std::memcpy(&bits, &single, sizeof bits);
  for (int shift = 0; shift < 32; shift += 8) bytes.push_back((bits >> shift) & 0xFF);
}

bool writePly(const char* path, const AlignedScan& aligned, const Scan& scan) {
  std::vector<std::uint8_t> bytes;
  std::size_t count = 0;
  for (int profile = 0; profile < scan.size.height; ++profile) {
    for (int column = 0; column < scan.size.width; ++column) {
      const Point p = aligned.at(column, profile);
      if (std::isnan(p.z)) continue;
      ++count;
      append(bytes, p.x);
      append(bytes, p.y);
      append(bytes, p.z);
      bytes.insert(bytes.end(), 3, scan.intensity[profile * scan.size.width + column]);
    }
  }
  std::FILE* file = std::fopen(path, "wb");
  if (file == nullptr) return false;
  std::fprintf(file,
               "ply\nformat binary_little_endian 1.0\ncomment aligned points, millimetres\n"
               "element vertex %zu\nproperty float x\nproperty float y\nproperty float z\n"
               "property uchar red\nproperty uchar green\nproperty uchar blue\nend_header\n",
               count);
  const bool written = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
  std::printf("%-18s %zu points in %s\n", "written", count, path);
  return std::fclose(file) == 0 && written;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: %s <scan folder> <output.ply>\n", argv[0]);
    return 2;
  }
  base::Logger::GetRoot().AddHandler(std::make_unique<PrintingHandler>());
  CalibrationModel model;
  const ScanReader scan(argv[1]);
  if (!scan.good || !readModel(std::string(argv[1]) + "/model.json", model)) return 1;
  std::printf("%s\n", model.toString().c_str());

  AlignedScan aligned;
  if (!align(model, scan, aligned)) return 1;
  const Bounds all = boundsOf(aligned);
  print("aligned, mm", all, {"X", "Y", "Z"});
  const bool found = findRegion(model, scan, aligned, middleOf(all));
  return writePly(argv[2], aligned, scan) && found ? 0 : 1;
}
