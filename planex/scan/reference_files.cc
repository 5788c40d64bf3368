// Scenes of documents and files. Of files that planex writes by itself the bytes count, without the
// version in their headings; of PNG and TIFF, whose bytes are also those of zlib, zstd and libtiff,
// what is read back.
#include <array>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>

#include "planex/infra/json_deserializer.h"
#include "planex/infra/json_serializer.h"
#include "planex/infra/out_stream.h"
#include "planex/io/frame_source.h"
#include "planex/io/frame_writer.h"
#include "planex/io/image_reader.h"
#include "planex/io/output_file.h"
#include "planex/io/point_writer.h"
#include "planex/io/raster_formats.h"
#include "planex/io/raster_writer.h"
#include "planex/scan/reference_scenes.h"
#include "planex/version.h"

namespace planex::scan {
namespace {

using cmnalg::ImageOf;

constexpr int kWidth = 97;  // with odd sizes, packed pixels end within a byte
constexpr int kHeight = 33;

std::string temporaryName() {
  std::error_code error;
  const std::filesystem::path folder = std::filesystem::temp_directory_path(error);
  if (error) throw io::Failure("there is no folder for temporary files; let TMPDIR name one");
  return (folder / "planex-selftest").string();
}

/// A file that never gets its name.
class NamelessFile {
 public:
  NamelessFile() : file_(temporaryName(), true) {}

  io::OutputFile& output() { return file_; }

  /// @return where it may be opened, complete
  const std::string& path() {
    SceneSum::require(std::fflush(file_.stream()) == 0);
    return file_.temporaryPath();
  }

  std::string bytes() {
    std::string bytes(static_cast<std::size_t>(file_.size()), '\0');
    SceneSum::require(fseeko(file_.stream(), 0, SEEK_SET) == 0 &&
                      std::fread(bytes.data(), 1, bytes.size(), file_.stream()) == bytes.size());
    return bytes;
  }

 private:
  io::OutputFile file_;
};

/// Without the version, and the zeros that fill up the place it has in a LAS.
std::string withoutVersion(std::string bytes) {
  static const std::string version = "planex " PLANEX_VERSION_STRING;
  const std::size_t begin = bytes.find(version);
  if (begin == std::string::npos) return bytes;
  const std::size_t end = bytes.find_first_not_of('\0', begin + version.size());
  return bytes.erase(begin, std::min(end, bytes.size()) - begin);
}

std::string documentOf(etl::IVisitable& object, bool indented) {
  etl::MemoryOutStream stream;
  base::JsonVisitingSerializer writer(stream, indented);
  writer.Serialize(object);
  SceneSum::require(!writer.HasError());
  return std::string(stream.GetText());
}

void readDocument(const std::string& text, etl::IVisitable& object) {
  SceneSum::require(
      base::JsonVisitingDeSerializer(text.c_str(), true).DeserializeIntoExistingObject(object));
}

template <typename T>
void addDocumentOfImage(SceneSum& sum) {
  ImageOf<T> image = drawnImage<T>(13, 5, [](unsigned u, unsigned, unsigned noise) {
    return static_cast<T>(noise) / static_cast<T>(1 + u);
  });
  image.Origin = {0.1, -2e-17, 1e300};
  ImageOf<T> found;
  const std::string text = documentOf(image, false);
  sum.add(text);
  readDocument(text, found);
  sum.add(found);
}

void addDocuments(std::vector<Scene>& scenes) {
  addScene(scenes, "document of a model", [](int, SceneSum& sum) {
    auto model = referenceModel();
    etl::Vector<cmnalg::Vec<2, double>> points, residuals;
    for (int i = 0; i < 500; ++i) {
      points.push_back({i % 31 * 0.3, i * 0.1});
      residuals.push_back({i % 7 * 1e-3, i % 11 * -1e-4});
    }
    SceneSum::require(model.CalibratedRegion.Resize(7, 5) &&
                      model.CalibratedRegion.Update(points, residuals));
    sum.add(documentOf(model, true));
    const std::string text = documentOf(model, false);
    datafusion::planex::CalibrationModel found;
    readDocument(text, found);
    sum.add(text);
    sum.add(documentOf(found, false));
    sum.add(found.toString());
    for (const double value : found.LensCoefficients) sum.add(value);
  });
  addScene(scenes, "documents of images", [](int, SceneSum& sum) {
    forEachMeasuredType(
        [&sum](const std::string&, auto pixel) { addDocumentOfImage<decltype(pixel)>(sum); });
    addDocumentOfImage<std::int16_t>(sum);
    addDocumentOfImage<std::int32_t>(sum);
    addDocumentOfImage<std::int64_t>(sum);
  });
}

/// Points of a few heights, of which one in eight is missing.
struct Points {
  ImageOf<float> x, y, z;
  ImageOf<std::uint16_t> intensity;

  static const Points& get() {
    static const Points points = [] {
      Points made{
          drawnImage<float>(
              kWidth, kHeight,
              [](unsigned u, unsigned, unsigned) { return static_cast<float>(u) / 4; }),
          drawnImage<float>(
              kWidth, kHeight,
              [](unsigned, unsigned v, unsigned) { return static_cast<float>(v) / 8; }),
          drawnImage<float>(kWidth, kHeight,
                            [](unsigned u, unsigned v, unsigned) {
                              return 0.1F * static_cast<float>((u * 7 + v * 3) % 50) - 2;
                            }),
          drawnImage<std::uint16_t>(
              kWidth, kHeight, [](unsigned, unsigned, unsigned noise) { return noise & 0xFFFF; })};
      std::mt19937 noise(7);
      for (int v = 0; v < kHeight; ++v) {
        for (int u = 0; u < kWidth; ++u) {
          if (noise() % 8 > 0) continue;
          for (auto* image : {&made.x, &made.y, &made.z}) {
            image->Pix(u, v) = std::numeric_limits<float>::quiet_NaN();
          }
        }
      }
      return made;
    }();
    return points;
  }
};

void writePoints(io::PointFormat format, io::PointDescription points, int rows, SceneSum& sum) {
  const Points& from = Points::get();
  points.columns = kWidth;
  points.rows = kHeight;
  points.aligned = true;
  points.unit = "mm";
  NamelessFile file;
  const auto writer = io::PointWriter::create(format, file.output(), points);
  io::PreparedRows prepared;
  forEachBlock(rows, kHeight, [&](int first, int count) {
    const io::PointRows some{count, from.x.GetRowPtr(first), from.y.GetRowPtr(first),
                             from.z.GetRowPtr(first),
                             points.intensity ? from.intensity.GetRowPtr(first) : nullptr};
    writer->prepare(some, prepared);
    writer->writeRows(some, prepared);
  });
  writer->finish();
  sum.add(withoutVersion(file.bytes()));
}

void addPointFiles(std::vector<Scene>& scenes) {
  using io::PointFormat;
  static constexpr std::pair<const char*, PointFormat> kFormats[] = {
      {"PLY", PointFormat::kPly}, {"PCD", PointFormat::kPcd}, {"NPY", PointFormat::kNpy},
      {"LAS", PointFormat::kLas}, {"CSV", PointFormat::kCsv}, {"XYZ", PointFormat::kXyz}};
  for (const auto& named : kFormats) {
    const PointFormat format = named.second;
    addScene(scenes, std::string("points in a file ") + named.first,
             [format](int rows, SceneSum& sum) {
               writePoints(format, {}, rows, sum);
               io::PointDescription more;
               more.intensity = io::SampleType::kUint16;
               more.withoutMissing = true;
               writePoints(format, more, rows, sum);
             });
  }
  addScene(scenes, "mesh in a file PLY", [](int rows, SceneSum& sum) {
    io::PointDescription mesh;
    mesh.meshEdge = 1.25;
    writePoints(PointFormat::kPly, mesh, rows, sum);
  });
}

void addSamples(const io::ImageShape& shape, const std::vector<char>& bytes, SceneSum& sum) {
  const std::size_t count = bytes.size() / cmnalg::bytesPerPixel(shape.type);
  const void* const samples = bytes.data();
  if (shape.type == cmnalg::IMAGE_TYPE_UINT8) {
    sum.add(static_cast<const std::uint8_t*>(samples), count);
  } else if (shape.type == cmnalg::IMAGE_TYPE_UINT16) {
    sum.add(static_cast<const std::uint16_t*>(samples), count);
  } else {
    sum.add(static_cast<const float*>(samples), count);
  }
}

void readImage(const std::string& path, int rows, SceneSum& sum) {
  const auto reader = io::ImageReader::open(path, io::Samples::kHeights);
  std::vector<char> samples(reader->shape().rowBytes() *
                            static_cast<std::size_t>(reader->shape().height));
  forEachBlock(rows, reader->shape().height, [&](int first, int count) {
    reader->readRows(first, count,
                     samples.data() + static_cast<std::size_t>(first) * reader->shape().rowBytes());
  });
  addSamples(reader->shape(), samples, sum);
}

template <typename T>
void writeRaster(io::RasterFormat format, io::Compression compression, io::SampleType sample,
                 int rows, SceneSum& sum) {
  const ImageOf<T> image = drawnImage<T>(kWidth, kHeight, [](unsigned u, unsigned, unsigned noise) {
    return static_cast<T>(noise % 65536) / static_cast<T>(1 + u % 3);
  });
  io::RasterDescription raster;
  raster.width = kWidth;
  raster.height = kHeight;
  raster.sample = sample;
  raster.layers = {"height"};
  NamelessFile file;
  const auto writer =
      io::RasterWriter::create(format, file.output(), raster, {compression, nullptr});
  forEachBlock(rows, kHeight,
               [&](int first, int count) { writer->writeRows(count, {image.GetRowPtr(first)}); });
  writer->finish();
  if (format == io::RasterFormat::kNpy) sum.add(file.bytes());
  readImage(file.path(), rows, sum);
}

void addRasterFiles(std::vector<Scene>& scenes) {
  struct Kind {
    const char* name;
    io::RasterFormat format;
    io::Compression compression;
  };
  static constexpr Kind kKinds[] = {
      {"PNG", io::RasterFormat::kPng, io::Compression::kNone},
      {"NPY", io::RasterFormat::kNpy, io::Compression::kNone},
      {"TIFF", io::RasterFormat::kTiff, io::Compression::kNone},
      {"TIFF with deflate", io::RasterFormat::kTiff, io::Compression::kDeflate},
      {"TIFF with ZSTD", io::RasterFormat::kTiff, io::Compression::kZstd}};
  for (const Kind& kind : kKinds) {
    addScene(scenes, std::string("map in a file ") + kind.name, [&kind](int rows, SceneSum& sum) {
      using io::SampleType;
      writeRaster<std::uint8_t>(kind.format, kind.compression, SampleType::kUint8, rows, sum);
      writeRaster<std::uint16_t>(kind.format, kind.compression, SampleType::kUint16, rows, sum);
      if (kind.format == io::RasterFormat::kPng) return;
      writeRaster<float>(kind.format, kind.compression, SampleType::kFloat32, rows, sum);
    });
  }
  addScene(scenes, "arrays of both byte orders", [](int rows, SceneSum& sum) {
    for (const char* const type : {"<u2", ">u2", "<f4", ">f4"}) {
      NamelessFile file;
      file.output().write(io::npyHeader(type, "(3, 2)"));
      file.output().write(
          std::string_view("A\x02"
                           "B\x04"
                           "C\x08"
                           "D\x10"
                           "E\x20"
                           "F\x40"
                           "G\x03"
                           "H\x05"
                           "I\x07"
                           "J\x09"
                           "K\x0B"
                           "L\x0D",
                           type[2] == '2' ? 12 : 24));
      readImage(file.path(), rows, sum);
    }
  });
}

void readFrames(const std::string& path, const io::RawFrames* raw, SceneSum& sum) {
  const auto source = io::openFrames({path}, raw);
  std::vector<char> frame(source->frameBytes());
  io::FrameNote note;
  while (source->read(1, frame.data(), &note) > 0) addSamples(source->shape(), frame, sum);
}

template <typename T>
void writeFrames(io::FrameFormat format, const io::RawFrames* raw, SceneSum& sum) {
  const ImageOf<T> frame = drawnImage<T>(
      kWidth, kHeight, [](unsigned, unsigned, unsigned noise) { return noise & 0xFFFF; });
  NamelessFile file;
  const auto writer = io::FrameWriter::create(format, file.output(),
                                              {kWidth, kHeight, cmnalg::PixelTypeOf<T>::value});
  for (int i = 0; i < 3; ++i) writer->write(1, frame.GetRowPtr(0));
  writer->finish();
  sum.add(file.bytes());
  readFrames(file.path(), raw, sum);
}

void addFrameFiles(std::vector<Scene>& scenes) {
  using Packing = io::RawFrames::Packing;
  addScene(scenes, "frames in a file PGM", [](int, SceneSum& sum) {
    writeFrames<std::uint8_t>(io::FrameFormat::kPgm, nullptr, sum);
    writeFrames<std::uint16_t>(io::FrameFormat::kPgm, nullptr, sum);
  });
  addScene(scenes, "frames in a file TIFF", [](int, SceneSum& sum) {
    writeFrames<std::uint8_t>(io::FrameFormat::kTiffPages, nullptr, sum);
    writeFrames<std::uint16_t>(io::FrameFormat::kTiffPages, nullptr, sum);
  });
  addScene(scenes, "frames without headings", [](int, SceneSum& sum) {
    for (const auto packing : {Packing::kMono8, Packing::kMono16}) {
      const io::RawFrames raw{kWidth, kHeight, packing};
      if (packing == Packing::kMono8) {
        writeFrames<std::uint8_t>(io::FrameFormat::kRaw, &raw, sum);
      } else {
        writeFrames<std::uint16_t>(io::FrameFormat::kRaw, &raw, sum);
      }
    }
  });
  addScene(scenes, "frames of packed pixels", [](int, SceneSum& sum) {
    for (const auto packing : {Packing::kMono10p, Packing::kMono12p}) {
      const io::RawFrames raw{kWidth, kHeight, packing};
      const std::size_t bits = packing == Packing::kMono10p ? 10 : 12;
      std::string packed((std::size_t{kWidth} * kHeight * bits + 7) / 8, '\0');
      std::mt19937 noise(11);
      for (char& byte : packed) byte = static_cast<char>(noise() & 0xFF);
      NamelessFile file;
      file.output().write(packed);
      readFrames(file.path(), &raw, sum);
    }
  });
}

}  // namespace

void addFileScenes(std::vector<Scene>& scenes) {
  addDocuments(scenes);
  addPointFiles(scenes);
  addRasterFiles(scenes);
  addFrameFiles(scenes);
}

}  // namespace planex::scan
