// Frames: the same pixels come from every kind of file, and what is wrong with one is said.

#include <gtest/gtest.h>
#include <tiffio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "planex/infra/byte_order.h"
#include "planex/io/failure.h"
#include "planex/io/frame_source.h"
#include "planex/io/frame_writer.h"
#include "planex/io/raster_writer.h"
#include "tests/io/temporary_folder.h"

namespace {

namespace io = planex::io;

constexpr int kWidth = 7, kHeight = 5, kFrames = 3;
constexpr std::size_t kPixels = std::size_t{kWidth} * kHeight;
constexpr char kNames[kFrames][4] = {"f1", "f2", "f10"};

using Pixels = std::vector<std::uint16_t>;

/// Values of so many bits, frame by frame.
Pixels pixelsOf(int bits) {
  Pixels pixels;
  for (unsigned i = 0; i < kFrames * kPixels; ++i) {
    pixels.push_back(static_cast<std::uint16_t>(i * 40503 % (1U << bits)));
  }
  return pixels;
}

/// The pixels of frame `first` to before `end` as a file holds them.
std::string bytesOf(int bits, bool highFirst, int first = 0, int end = kFrames) {
  std::string bytes;
  for (const std::uint16_t value : pixelsOf(bits)) {
    if (bits > 8 && highFirst) bytes += static_cast<char>(value >> 8);
    bytes += static_cast<char>(value & 0xFF);
    if (bits > 8 && !highFirst) bytes += static_cast<char>(value >> 8);
  }
  const std::size_t frame = bytes.size() / kFrames;
  return bytes.substr(static_cast<std::size_t>(first) * frame,
                      static_cast<std::size_t>(end - first) * frame);
}

/// Every frame's bits one behind the other, the lower first, up to a whole byte.
std::string packed(int bits) {
  const auto stored = static_cast<unsigned>(bits);
  const std::size_t frameBytes = (kPixels * stored + 7) / 8;
  std::string bytes(kFrames * frameBytes, '\0');
  std::size_t pixel = 0;
  for (const std::uint16_t value : pixelsOf(bits)) {
    const std::size_t place = pixel / kPixels * frameBytes * 8 + pixel % kPixels * stored;
    for (unsigned bit = 0; bit < stored; ++bit) {
      char& byte = bytes[(place + bit) / 8];
      byte = static_cast<char>(byte | (value >> bit & 1) << (place + bit) % 8);
    }
    ++pixel;
  }
  return bytes;
}

std::string pgmOf(int bits, int frame) {
  return std::string("P5 # one\n7 5\n") + std::to_string((1 << bits) - 1) + "\n" +
         bytesOf(bits, true, frame, frame + 1);
}

std::string streamOf(int bits) { return pgmOf(bits, 0) + pgmOf(bits, 1) + pgmOf(bits, 2); }

void writeImage(const test::TemporaryFolder& folder, const std::string& name, int bits, int frame,
                int height = kHeight) {
  folder.Write(name, "");
  io::OutputFile file(folder.Path(name), true);
  io::RasterDescription raster;
  raster.width = kWidth;
  raster.height = height;
  raster.sample = bits == 8 ? io::SampleType::kUint8 : io::SampleType::kUint16;
  raster.layers = {"frame"};
  const auto writer = io::RasterWriter::create(*io::rasterFormatOf(name), file, raster);
  const std::string pixels = bytesOf(bits, base::kIsBigEndian, frame);
  writer->writeRows(height, {pixels.data()});
  writer->finish();
  file.commit();
}

std::string folderOf(const test::TemporaryFolder& folder, const std::string& ending, int bits) {
  for (const int frame : {2, 0, 1}) {
    const std::string name = std::string("frames/") + kNames[frame] + ending;
    if (ending == ".pgm") {
      folder.Write(name, pgmOf(bits, frame));
    } else {
      writeImage(folder, name, bits, frame);
    }
  }
  for (const char* other : {"notes.txt", ".f0.png", "f0.tif/f", "f3"}) {
    folder.Write(std::string("frames/") + other, "no frame");
  }
  return folder.Path("frames");
}

std::string written(const test::TemporaryFolder& folder, const std::string& name, int bits) {
  io::OutputFile file(folder.Path(name), true);
  const auto type = bits == 8 ? cmnalg::IMAGE_TYPE_UINT8 : cmnalg::IMAGE_TYPE_UINT16;
  const auto writer =
      io::FrameWriter::create(*io::frameFormatOf(name), file, {kWidth, kHeight, type});
  const std::string first = bytesOf(bits, base::kIsBigEndian, 0, 2);
  const std::string last = bytesOf(bits, base::kIsBigEndian, 2);
  writer->write(2, first.data());
  writer->write(1, last.data());
  writer->finish();
  file.commit();
  return folder.Path(name);
}

/// Pages of libtiff, compressed, with a smaller copy behind each of them.
std::string pagesOf(const test::TemporaryFolder& folder, const char* mode, int bits) {
  TIFF* const tiff = TIFFOpen(folder.Path("pages.tif").c_str(), mode);
  for (int page = 0; page < 2 * kFrames; ++page) {
    const bool isCopy = page % 2 != 0;
    const int height = isCopy ? 2 : kHeight;
    TIFFSetField(tiff, TIFFTAG_SUBFILETYPE, isCopy ? FILETYPE_REDUCEDIMAGE : FILETYPE_PAGE);
    TIFFSetField(tiff, TIFFTAG_IMAGEDESCRIPTION, "ImageJ=1.54\nimages=3\n");
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, kWidth);
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, height);
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, bits);
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
    TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_LZW);
    TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, 2);
    std::string rows = bytesOf(bits, base::kIsBigEndian, page / 2);
    for (int row = 0; row < height; ++row) {
      TIFFWriteScanline(tiff, rows.data() + row * kWidth * bits / 8,
                        static_cast<std::uint32_t>(row), 0);
    }
    TIFFWriteDirectory(tiff);
  }
  TIFFClose(tiff);
  return folder.Path("pages.tif");
}

/// Standard input, for as long as the object lives: a pipe that gives a few bytes at a time.
class PipedInput {
 public:
  explicit PipedInput(std::string bytes) : before_(dup(STDIN_FILENO)) {
    int ends[2];
    if (pipe(ends) != 0) std::abort();
    dup2(ends[0], STDIN_FILENO);
    close(ends[0]);
    writer_ = std::thread([bytes = std::move(bytes), out = ends[1]] {
      for (std::size_t i = 0; i < bytes.size(); i += 11) {
        if (write(out, bytes.data() + i, std::min<std::size_t>(11, bytes.size() - i)) < 0) break;
      }
      close(out);
    });
  }
  ~PipedInput() {
    writer_.join();
    dup2(before_, STDIN_FILENO);
    close(before_);
  }
  PipedInput(const PipedInput&) = delete;
  PipedInput& operator=(const PipedInput&) = delete;

 private:
  const int before_;
  std::thread writer_;
};

std::unique_ptr<io::FrameSource> open(const std::vector<std::string>& paths, const char* layout) {
  if (layout == nullptr) return io::openFrames(paths);
  const io::RawFrames raw = io::RawFrames::parse(layout);
  return io::openFrames(paths, &raw);
}

/// All frames behind `first`, `most` at a time.
Pixels read(io::FrameSource& frames, int first, int most) {
  frames.skip(first);
  std::string block(static_cast<std::size_t>(most) * frames.frameBytes(), '\x55');
  std::vector<io::FrameNote> notes(static_cast<std::size_t>(most));
  Pixels pixels;
  while (const int count = frames.read(most, block.data(), notes.data())) {
    const bool isWide = frames.shape().type == cmnalg::IMAGE_TYPE_UINT16;
    const std::size_t size = static_cast<std::size_t>(count) * frames.frameBytes();
    for (std::size_t i = 0; i < size; i += isWide ? 2 : 1) {
      std::uint16_t value = static_cast<std::uint8_t>(block[i]);
      if (isWide) std::memcpy(&value, &block[i], sizeof value);
      pixels.push_back(value);
    }
  }
  return pixels;
}

TEST(Frames, AreTheSameFromEveryKindOfFile) {
  using Folder = const test::TemporaryFolder&;
  struct Case {
    const char* name;
    std::vector<int> bits;
    std::function<std::vector<std::string>(Folder, int)> make;
    const char* layout;
    int count;  // 0: only the end tells
    std::function<std::string(int)> input = nullptr;
  };
  const auto files = [](const char* ending) {
    return [=](Folder folder, int bits) { return std::vector{folderOf(folder, ending, bits)}; };
  };
  const auto file = [](const std::string& bytes) {
    return [=](Folder folder, int) { return std::vector{folder.Write("file", bytes)}; };
  };
  const auto made = [](const char* name) {
    return [=](Folder folder, int bits) { return std::vector{written(folder, name, bits)}; };
  };
  const auto pages = [](const char* mode) {
    return [=](Folder folder, int bits) { return std::vector{pagesOf(folder, mode, bits)}; };
  };
  const auto piped = [](Folder, int) { return std::vector<std::string>{"-"}; };
  const Case cases[] = {
      {"png", {8, 16}, files(".png"), nullptr, 3},
      {"npy", {8, 16}, files(".npy"), nullptr, 3},
      {"tif", {8, 16}, files(".TIF"), nullptr, 3},
      {"pgm", {8, 16}, files(".pgm"), nullptr, 3},
      {"list",
       {8, 16},
       [](Folder folder, int bits) {
         writeImage(folder, "0.png", bits, 0);
         return std::vector{folder.Path("0.png"),
                            folder.Write("1.pgm", pgmOf(bits, 1) + pgmOf(bits, 2))};
       },
       nullptr,
       0},
      {"written pages", {8, 16}, made("pages.tif"), nullptr, 3},
      {"written stream", {8, 16}, made("stream.pgm"), nullptr, 0},
      {"written mono8", {8}, made("frames.raw"), "7x5:mono8", 3},
      {"written mono16", {16}, made("frames.raw"), "7x5:mono16", 3},
      {"pages", {8, 16}, pages("w"), nullptr, 3},
      {"big pages", {8, 16}, pages("w8b"), nullptr, 3},
      {"stream8", {8}, file(streamOf(8)), nullptr, 0},
      {"stream16", {16}, file(streamOf(16)), nullptr, 0},
      {"mono8", {8}, file(bytesOf(8, false)), "7x5:mono8", 3},
      {"mono10", {10}, file(bytesOf(10, false)), "7x5:mono10", 3},
      {"mono12", {12}, file(bytesOf(12, false)), "7x5:mono12", 3},
      {"mono10p", {10}, file(packed(10)), "7x5:mono10p", 3},
      {"mono12p", {12}, file(packed(12)), "7x5:mono12p", 3},
      {"pipe", {8, 16}, piped, nullptr, 0, streamOf},
      {"raw pipe", {10}, piped, "7x5:mono10p", 0, packed},
  };
  for (const Case& row : cases) {
    for (const int bits : row.bits) {
      SCOPED_TRACE(std::string(row.name) + " " + std::to_string(bits));
      const test::TemporaryFolder folder;
      const std::vector<std::string> paths = row.make(folder, bits);
      const Pixels wanted = pixelsOf(bits);
      for (const int most : {1, 2, 100}) {
        for (const int first : {0, 1, 2, 3, 4}) {
          std::unique_ptr<PipedInput> input;
          if (row.input) input = std::make_unique<PipedInput>(row.input(bits));
          const auto frames = open(paths, row.layout);
          EXPECT_EQ(frames->count().value_or(0), row.count);
          ASSERT_EQ(frames->frameBytes(), kPixels * (bits > 8 ? 2 : 1));
          const auto skipped = static_cast<std::ptrdiff_t>(kPixels) * std::min(first, kFrames);
          const Pixels rest(wanted.begin() + skipped, wanted.end());
          EXPECT_EQ(read(*frames, first, most), rest) << first << " " << most;
        }
      }
    }
  }
}

TEST(Frames, AreWrittenAsOthersReadThem) {
  const test::TemporaryFolder folder;
  written(folder, "frames.raw", 16);
  EXPECT_EQ(folder.Read("frames.raw"), bytesOf(16, false));
  written(folder, "frames.pgm", 16);
  std::string wanted;
  for (int frame = 0; frame < kFrames; ++frame) {
    wanted += "P5\n7 5\n65535\n" + bytesOf(16, true, frame, frame + 1);
  }
  EXPECT_EQ(folder.Read("frames.pgm"), wanted);
  TIFF* const tiff = TIFFOpen(written(folder, "frames.tif", 8).c_str(), "r");
  ASSERT_NE(tiff, nullptr);
  EXPECT_EQ(TIFFIsBigTIFF(tiff), 1);
  for (std::uint16_t page = 0; page < kFrames; ++page) {
    ASSERT_EQ(TIFFSetDirectory(tiff, page), 1);
    std::string frame(kPixels, '\0');
    EXPECT_EQ(TIFFReadEncodedStrip(tiff, 0, frame.data(), -1), tmsize_t{kPixels});
    EXPECT_EQ(frame, bytesOf(8, false, page, page + 1));
  }
  EXPECT_EQ(TIFFLastDirectory(tiff), 1);
  TIFFClose(tiff);
}

TEST(Frames, OfAFolderComeInNaturalOrder) {
  const char* const names[] = {
      "1.raw",    "002.raw",  "2.raw",     "10.raw", "18446744073709551616.raw",
      "a.raw",    "a1-2.raw", "a1-10.raw", "a1.raw", "a1b.raw",
      "a9b1.raw", "a10b0.raw"};
  const test::TemporaryFolder folder;
  std::uint16_t number = 0;
  Pixels wanted;
  for (const char* name : names) {
    folder.Write(name, std::string(1, static_cast<char>(number)));
    wanted.push_back(number++);
  }
  EXPECT_EQ(read(*open({folder.Path("")}, "1x1:mono8"), 0, 5), wanted);
}

TEST(Frames, SayWhatIsWrong) {
  using Folder = const test::TemporaryFolder&;
  struct Case {
    std::function<std::vector<std::string>(Folder)> make;
    const char* layout;
    std::string text;  // "@" stands for the folder
    std::string input = {};
    int first = 0;
  };
  const auto file = [](const std::string& bytes) {
    return [=](Folder folder) { return std::vector{folder.Write("f", bytes)}; };
  };
  const auto piped = [](Folder) { return std::vector<std::string>{"-"}; };
  const std::string stream = streamOf(16), again = "fetch it again from where it was made";
  const Case cases[] = {
      {file(stream.substr(0, stream.size() - 3)), nullptr,
       "@f: frame 2 is cut off after 67 of 70 bytes of its pixels; " + again, "", 1},
      {file(stream + "P5 7"), nullptr,
       "@f: frame 3 has no valid PGM header; save it again as a binary PGM of 8 or 16 bits"},
      {file(stream + "P5 7 5 255 " + bytesOf(8, true, 0, 1)), nullptr,
       "@f: frame 3 has 7 x 5 pixels of 8 bits, the first one 7 x 5 pixels of 16 bits; give frames "
       "of one setting of the camera"},
      {file("P5 1 1 9 \x05P5 1 1 9 \x0A"), nullptr,
       "@f: frame 1 holds a value above its announced maximum of 9; " + again},
      {file("P5 1048576 32767 65535 "), nullptr,
       "@f: is said to be of 1048576 x 32767 pixels; frames have at most 1048576 columns, 32767 "
       "rows and 1 GiB"},
      {file("P6 1 1 255 abc"), nullptr,
       "@f: is not a PNG, TIFF, binary PGM or NPY image; convert it to one of these"},
      {file(""), nullptr, "@f: is empty; " + again},
      {file(""), "7x5:mono8", "@f: holds no frames; check where it comes from"},
      {file(packed(10) + "half"), "7x5:mono10p",
       "@f: holds 136 bytes, which are no whole number of frames of 44; check the size and format "
       "of frames"},
      {file(std::string(70, '\x04')), "7x5:mono10",
       "@f: frame 0 holds values of more than the 10 bits that were said; check the format of "
       "frames"},
      {piped, nullptr,
       "standard input: frame 2 is cut off after 30 of 70 bytes of its pixels; " + again,
       stream.substr(0, stream.size() - 40)},
      {piped, "7x5:mono12p",
       "standard input: frame 2 is cut off after 13 of 53 bytes of its pixels; " + again,
       packed(12).substr(0, 119)},
      {piped, nullptr, "standard input: holds no frames; check where it comes from"},
      {piped, nullptr,
       "standard input: is no binary PGM image, the one kind that is read from there beside raw "
       "frames; name a file for other kinds",
       "\x89PNG\r\n\x1A\n..."},
      {[](Folder folder) {
         folderOf(folder, ".pgm", 8);
         folder.Write("frames/f10.pgm", pgmOf(8, 0) + pgmOf(8, 0));
         return std::vector{folder.Path("frames")};
       },
       nullptr,
       "@frames/f10.pgm: holds several frames, where its ending, or the first file of its folder, "
       "tells of one; give the names of such files"},
      {[](Folder folder) {
         folderOf(folder, ".png", 8);
         writeImage(folder, "frames/f2.png", 8, 0, 4);
         return std::vector{folder.Path("frames")};
       },
       nullptr,
       "@frames/f2.png: frame 1 has 7 x 4 pixels of 8 bits, the first one 7 x 5 pixels of 8 bits; "
       "give frames of one setting of the camera"},
      {[](Folder folder) {
         folder.Write("empty/.f1.png", "");
         return std::vector{folder.Path("empty")};
       },
       nullptr,
       "@empty: holds no file that ends in .png, .pgm, .tif, .tiff or .npy; give the folder of the "
       "frames"},
      {[](Folder folder) {
         pagesOf(folder, "wl", 16);
         std::string bytes = folder.Read("pages.tif");
         for (std::size_t at = 0; (at = bytes.find(std::string("\x06\x01\x03\0\x01\0\0\0\x01", 9),
                                                   at)) != std::string::npos;
              ++at) {
           if (at > bytes.size() / 2) bytes[at + 8] = 2;  // black at 0 becomes RGB
         }
         return std::vector{folder.Write("pages.tif", bytes)};
       },
       nullptr,
       "@pages.tif: frame 2 has colours (RGB); convert it to greyscale of 8 or 16 bits without "
       "sign, black at 0"},
      {[](Folder folder) {
         pagesOf(folder, "w", 8);
         std::string bytes = folder.Read("pages.tif");
         bytes[bytes.find("images=3") + 7] = '4';
         return std::vector{folder.Write("pages.tif", bytes)};
       },
       nullptr,
       "@pages.tif: says that it holds 4 images, but tells where 3 are; save it as BigTIFF, or as "
       "one file an image"},
      {[](Folder folder) { return std::vector{folder.Path("none.tif")}; }, nullptr,
       "@none.tif: cannot be opened (No such file or directory); check the name and the "
       "permissions"},
      {[](Folder) { return std::vector<std::string>{}; }, "7x5:mono9",
       "'7x5:mono9' is no layout of raw frames; write their size and format, as 2560x1024:mono8, "
       "with mono8, mono10, mono12, mono16, mono10p or mono12p"},
  };
  for (const Case& row : cases) {
    const test::TemporaryFolder folder;
    std::string text = "none";
    const PipedInput input(row.input);
    try {
      read(*open(row.make(folder), row.layout), row.first, 2);
    } catch (const io::Failure& failure) {
      text = failure.what();
    }
    // The system speaks the language of the locale.
    const std::string told = std::strerror(ENOENT);
    if (const std::size_t at = text.find(told); at != std::string::npos) {
      text.replace(at, told.size(), "No such file or directory");
    }
    std::string wanted = row.text;
    if (wanted[0] == '@') wanted.replace(0, 1, folder.Path(""));
    EXPECT_EQ(text, wanted);
  }
}

}  // namespace
