#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string>
#include <vector>

#include "planex/io/image_formats.h"
#include "planex/io/input_file.h"
#include "planex/io/tiff_file.h"

namespace planex::io {
namespace {

/// Compressed strips are decoded from memory as a whole; tiles side by side are held decoded.
constexpr std::uint64_t kMaximumStrip = std::uint64_t{128} << 20;

constexpr std::uint64_t kMostPages = 1 << 24;
constexpr std::uint64_t kSmallestPage = 18;  // bytes of a page with one tag

/// Compressions that keep samples bit for bit and fill every row of a sound strip.
constexpr std::uint16_t kLossless[] = {COMPRESSION_NONE,          COMPRESSION_LZW,
                                       COMPRESSION_ADOBE_DEFLATE, COMPRESSION_DEFLATE,
                                       COMPRESSION_ZSTD,          COMPRESSION_PACKBITS};

/// What a value of a tag means.
struct Meaning {
  std::uint16_t value;
  const char* text;
};

constexpr Meaning kCompressions[] = {
    {COMPRESSION_OJPEG, "JPEG"}, {34712, "JPEG 2000"}, {COMPRESSION_WEBP, "WebP"}};
constexpr Meaning kPhotometrics[] = {
    {PHOTOMETRIC_MINISWHITE, "is white at 0 (min-is-white); convert it"},
    {PHOTOMETRIC_RGB, "has colours (RGB); convert it"},
    {PHOTOMETRIC_PALETTE, "holds indices of a palette; convert it"},
    {PHOTOMETRIC_MASK, "is a transparency mask; give the image"},
    {PHOTOMETRIC_SEPARATED, "has colours (CMYK); convert it"},
    {PHOTOMETRIC_YCBCR, "has colours (YCbCr); convert it"},
    {PHOTOMETRIC_CIELAB, "has colours (CIELab); convert it"},
};
constexpr Meaning kSampleFormats[] = {
    {SAMPLEFORMAT_INT, "has values with a sign"},
    {SAMPLEFORMAT_IEEEFP, "has floating-point values"},
    {SAMPLEFORMAT_VOID, "does not say what its values are"},
    {SAMPLEFORMAT_COMPLEXINT, "has complex values"},
    {SAMPLEFORMAT_COMPLEXIEEEFP, "has complex values"},
};

/// The text on a value; null where the table has none.
template <std::size_t kSize>
const char* meaningOf(const Meaning (&table)[kSize], std::uint16_t value) {
  const auto* const found = std::find_if(std::begin(table), std::end(table),
                                         [&](const Meaning& row) { return row.value == value; });
  return found != std::end(table) ? found->text : nullptr;
}

/// The only sample of each pixel, or one of several, in strips or tiles. Uncompressed strips are
/// read row by row where they stand in the file, so that a file of one large strip needs no more
/// memory than others; of tiles, those of one row of tiles are held.
class TiffReader final : public PagedImage {
 public:
  /// @param isOneImage the pages are one image, which is shown
  TiffReader(const std::string& path, Samples samples, bool isOneImage, std::size_t layer = 0)
      : PagedImage(path),
        samples_(samples),
        layer_(layer),
        file_(path),
        tiff_(path == "-" ? "/proc/self/fd/" + std::to_string(file_.descriptor()) : path,
              "rm") {  // m: not mapped into memory
    if (tiff_.get() == nullptr) refuseDamaged(tiff_.error());
    if (isOneImage) {
      findPages();
      selectPage(0);
    } else {
      findImages();
    }
  }

  std::size_t pages() const override { return images_.size(); }

  void show(std::size_t page) override {
    pages_ = {images_[page]};
    row_ = 0;
    selectPage(0);
  }

 private:
  [[noreturn]] void refuseDamaged(const std::string& reason) const {
    refuse("is a damaged TIFF (" + (reason.empty() ? std::string("unreadable") : reason) +
           "); fetch it again from where it was made");
  }

  std::uint16_t tag(std::uint32_t name) const {
    std::uint16_t value = 0;
    TIFFGetFieldDefaulted(tiff_.get(), name, &value);
    return value;
  }

  bool isFloat() const {
    return samples_ != Samples::kIntensities && tag(TIFFTAG_BITSPERSAMPLE) == 32 &&
           tag(TIFFTAG_SAMPLEFORMAT) == SAMPLEFORMAT_IEEEFP;
  }

  /// What the tags of a page say of its size and values.
  struct Header {
    std::uint32_t width = 0, height = 0;
    std::uint16_t bits = 1, format = SAMPLEFORMAT_UINT;

    bool isLike(const Header& other) const {
      return width == other.width && height == other.height && bits == other.bits &&
             format == other.format;
    }
  };

  Header header() const {
    Header header;
    TIFFGetField(tiff_.get(), TIFFTAG_IMAGEWIDTH, &header.width);
    TIFFGetField(tiff_.get(), TIFFTAG_IMAGELENGTH, &header.height);
    header.bits = tag(TIFFTAG_BITSPERSAMPLE);
    header.format = tag(TIFFTAG_SAMPLEFORMAT);
    return header;
  }

  /// An unsigned number of so many bytes in the file; 0 behind its end.
  std::uint64_t numberAt(std::uint64_t offset, std::size_t bytes) const {
    std::array<unsigned char, 8> read{};
    if (file_.readAt(offset, read.data(), bytes) != bytes) return 0;
    std::uint64_t number = 0;
    for (std::size_t i = 0; i < bytes; ++i) {
      const std::size_t place = TIFFIsBigEndian(tiff_.get()) != 0 ? i : bytes - 1 - i;
      number = number << 8 | read[place];
    }
    return number;
  }

  /// Where the tags of the next page stand; 0 behind the last one. In the file itself: libtiff
  /// compares each page with all before it.
  std::uint64_t pageBehind(std::uint64_t page) const {
    const bool big = TIFFIsBigTIFF(tiff_.get()) != 0;
    const std::uint64_t tags = numberAt(page, big ? 8 : 2);
    return numberAt(page + (big ? 8 : 2) + tags * (big ? 20 : 12), big ? 8 : 4);
  }

  /// Calls take() with the place of each page.
  template <typename Take>
  void forEachPage(Take&& take) const {
    const std::uint64_t most = std::min(kMostPages, file_.size() / kSmallestPage);
    std::uint64_t count = 0;
    for (std::uint64_t page = TIFFCurrentDirOffset(tiff_.get()); page != 0;
         page = pageBehind(page)) {
      if (++count > std::max<std::uint64_t>(most, 1)) refuseDamaged("pages without end");
      take(page);
    }
  }

  /// Whether a page is not marked as a smaller copy of another, or as a mask. In the file itself,
  /// and in the first of its tags, which are sorted.
  bool isImage(std::uint64_t page) const {
    const bool big = TIFFIsBigTIFF(tiff_.get()) != 0;
    const std::uint64_t tag = page + (big ? 8 : 2);
    if (numberAt(tag, 2) != TIFFTAG_SUBFILETYPE) return true;
    const std::size_t bytes = numberAt(tag + 2, 2) == TIFF_SHORT ? 2 : 4;
    const std::uint64_t kind = numberAt(tag + (big ? 12 : 8), bytes);
    return (kind & (FILETYPE_REDUCEDIMAGE | FILETYPE_MASK)) == 0;
  }

  void findImages() {
    forEachPage([&](std::uint64_t page) {
      if (isImage(page)) images_.push_back(page);
    });
    requireAll();
  }

  /// ImageJ saves stacks of more than 4 GiB with the tags of the first image alone.
  void requireAll() const {
    const char* text = nullptr;
    if (TIFFGetField(tiff_.get(), TIFFTAG_IMAGEDESCRIPTION, &text) != 1) return;
    const std::string description = text;
    const std::size_t found = description.find("\nimages=");
    if (description.compare(0, 7, "ImageJ=") != 0 || found == std::string::npos) return;
    const std::uint64_t told = std::strtoull(description.c_str() + found + 8, nullptr, 10);
    if (told <= images_.size()) return;
    refuse("says that it holds " + std::to_string(told) + " images, but tells where " +
           std::to_string(images_.size()) + " are; save it as BigTIFF, or as one file an image");
  }

  /// Finds the pages of the image: the only one; one that is a range image or its intensities; or
  /// one for each row.
  void findPages() {
    const Header first = header();
    forEachPage([&](std::uint64_t page) {
      pages_.push_back(page);
      if (pages_.size() > 2 && first.height != 1) refuseSeveral();
    });
    if (pages_.size() != 2) return;
    showPage(1);
    const Header second = header();
    if (first.height == 1 && first.isLike(second)) return;
    const bool isPair = first.width == second.width && first.height == second.height &&
                        first.bits > 8 && (second.bits == 8 || second.bits == 16) &&
                        second.format == SAMPLEFORMAT_UINT && samples_ != Samples::kHeights;
    if (!isPair) refuseSeveral();
    pages_ = {pages_[samples_ == Samples::kIntensities ? 1 : 0]};
  }

  [[noreturn]] void refuseSeveral() const { refuse("holds several images; extract one of them"); }

  void showPage(std::size_t page) {
    if (TIFFCurrentDirOffset(tiff_.get()) == pages_[page]) return;
    if (TIFFSetSubDirectory(tiff_.get(), pages_[page]) != 1) refuseDamaged(tiff_.error());
  }

  /// Makes a page the one that is read, and checks it.
  void selectPage(std::size_t page) {
    showPage(page);
    checkLayout();
    const Header found = header();
    if (page == 0) {
      header_ = found;
      announce(found.width, pages_.size() > 1 ? pages_.size() : found.height,
               found.bits == 8    ? cmnalg::IMAGE_TYPE_UINT8
               : found.bits == 16 ? cmnalg::IMAGE_TYPE_UINT16
               : isFloat()        ? cmnalg::IMAGE_TYPE_FLOAT32
                                  : cmnalg::IMAGE_TYPE_UINT32);
    } else if (!found.isLike(header_)) {
      refuse("has a page " + std::to_string(page) +
             " that is not like the first one, a row; extract those that are");
    }
    firstRow_ = static_cast<int>(page);
    rowsOfPage_ = pages_.size() > 1 ? 1 : shape().height;
    bandHeld_ = -1;
    takeLayers();
    checkParts();
    // Decodes row by row: the other decoder takes a strip of one row as a whole, and leaves the row
    // as it was where the strip holds more.
    TIFFSetField(tiff_.get(), TIFFTAG_DEFLATE_SUBCODEC, DEFLATE_SUBCODEC_ZLIB);
  }

  void checkLayout() const {
    checkCompression();
    checkValues();
    const std::uint16_t orientation = tag(TIFFTAG_ORIENTATION);
    if (orientation != ORIENTATION_TOPLEFT) {
      refuse("is stored mirrored or rotated (orientation " + std::to_string(orientation) +
             "); save it upright");
    }
  }

  void checkCompression() const {
    const std::uint16_t compression = tag(TIFFTAG_COMPRESSION);
    if (std::find(std::begin(kLossless), std::end(kLossless), compression) != std::end(kLossless)) {
      return;
    }
    const TIFFCodec* const codec = TIFFFindCODEC(compression);
    const char* name = meaningOf(kCompressions, compression);
    if (name == nullptr && codec != nullptr) name = codec->name;
    refuse("is compressed by " +
           (name != nullptr ? name : "method " + std::to_string(compression)) +
           ", which is not supported; save it uncompressed, or by LZW, deflate, ZSTD or PackBits");
  }

  /// The values in the file must be the numbers that are meant.
  void checkValues() const {
    static constexpr char kGreyscale[] = " to greyscale of 8 or 16 bits without sign, black at 0";
    std::uint16_t photometric = 0;
    if (TIFFGetField(tiff_.get(), TIFFTAG_PHOTOMETRIC, &photometric) != 1) {
      refuse("does not say whether 0 is black (no photometric); convert it" +
             std::string(kGreyscale));
    }
    if (photometric != PHOTOMETRIC_MINISBLACK) {
      const char* const meaning = meaningOf(kPhotometrics, photometric);
      refuse((meaning != nullptr ? meaning
                                 : "has values of unknown meaning (photometric " +
                                       std::to_string(photometric) + "); convert it") +
             kGreyscale);
    }
    const std::uint16_t format = tag(TIFFTAG_SAMPLEFORMAT), bits = tag(TIFFTAG_BITSPERSAMPLE);
    if (format != SAMPLEFORMAT_UINT && !isFloat()) {
      const char* const meaning = meaningOf(kSampleFormats, format);
      std::string what = meaning != nullptr ? meaning : "has values of unknown format";
      if (format == SAMPLEFORMAT_IEEEFP) what += " of " + std::to_string(bits) + " bits";
      refuse(what + "; convert it" + kGreyscale);
    }
    const bool isWide = bits == 32 && samples_ == Samples::kRanges;
    if (bits != 8 && bits != 16 && !isFloat() && !isWide) {
      refuse("has " + std::to_string(bits) + " bits a value; convert it" + kGreyscale);
    }
    const std::uint16_t samples = tag(TIFFTAG_SAMPLESPERPIXEL);
    if (samples != 1 && (samples == 0 || samples_ != Samples::kHeights)) {
      refuse("has " + std::to_string(samples) + " values a pixel; convert it" + kGreyscale);
    }
    if (tag(TIFFTAG_FILLORDER) != FILLORDER_MSB2LSB) {
      refuse("has its bits in reverse order (fill order 2); convert it" + std::string(kGreyscale));
    }
  }

  /// Layers stand one behind the other in the file, or the samples of a pixel stand together.
  void takeLayers() {
    layers_ = tag(TIFFTAG_SAMPLESPERPIXEL);
    together_ = tag(TIFFTAG_PLANARCONFIG) == PLANARCONFIG_CONTIG ? layers_ : 1;
    if (layer_ >= layers_) refuse("has no layer " + std::to_string(layer_) + "; name another one");
    if (storedRowBytes() > kMaximumStrip) refuse("has very large rows; save fewer layers");
    if (together_ > 1) stored_.resize(storedRowBytes());
  }

  /// Of one row in the file.
  std::size_t storedRowBytes() const { return together_ * shape().rowBytes(); }

  /// Takes the sample of every pixel that is read.
  void takeLayer(const char* pixels, std::size_t count, char* samples) const {
    const std::size_t bytes = cmnalg::bytesPerPixel(shape().type);
    if (together_ == 1) {
      std::memcpy(samples, pixels, count * bytes);
      return;
    }
    for (std::size_t i = 0; i < count; ++i) {
      std::memcpy(samples + i * bytes, pixels + (i * together_ + layer_) * bytes, bytes);
    }
  }

  /// Every strip or tile must lie in the file, an uncompressed one with all of its rows.
  void checkParts() {
    plain_ = tag(TIFFTAG_COMPRESSION) == COMPRESSION_NONE;
    tiled_ = TIFFIsTiled(tiff_.get()) != 0;
    auto columns = static_cast<std::uint32_t>(shape().width);
    std::uint32_t rows = 0;
    if (tiled_) {
      TIFFGetField(tiff_.get(), TIFFTAG_TILEWIDTH, &columns);
      TIFFGetField(tiff_.get(), TIFFTAG_TILELENGTH, &rows);
    } else {
      TIFFGetFieldDefaulted(tiff_.get(), TIFFTAG_ROWSPERSTRIP, &rows);
      rows = std::min(rows, static_cast<std::uint32_t>(rowsOfPage_));
    }
    if (rows < 1 || columns < 1) refuseDamaged("strips or tiles without pixels");
    if (tiled_) takeTileSize(columns, rows);
    rowsPerPart_ = static_cast<int>(rows);
    partsAcross_ = static_cast<std::uint32_t>((shape().width - 1)) / columns + 1;
    const std::uint64_t parts =
        partsAcross_ * ((static_cast<std::uint64_t>(rowsOfPage_) - 1) / rows + 1);
    if ((tiled_ ? TIFFNumberOfTiles(tiff_.get()) : TIFFNumberOfStrips(tiff_.get())) !=
        parts * (layers_ / together_)) {
      refuseDamaged(tiled_ ? "number of tiles" : "number of strips");
    }
    firstPart_ = together_ == 1 ? static_cast<std::uint32_t>(parts * layer_) : 0;
    for (std::uint32_t part = 0; part < parts; ++part) checkPart(part);
  }

  void takeTileSize(std::uint32_t columns, std::uint32_t rows) {
    tileRowBytes_ = columns * together_ * cmnalg::bytesPerPixel(shape().type);
    const std::size_t held = std::max<std::size_t>(2 * tileRowBytes_, shape().rowBytes());
    if (rows > kMaximumStrip / held) refuse("has very large tiles; save it in smaller ones");
    if (TIFFTileSize64(tiff_.get()) != rows * tileRowBytes_) refuseDamaged("size of tiles");
    tile_.resize(rows * tileRowBytes_);
    band_.resize(rows * shape().rowBytes());
  }

  void checkPart(std::uint32_t part) const {
    int failed = 0;
    const std::uint64_t offset =
        TIFFGetStrileOffsetWithErr(tiff_.get(), firstPart_ + part, &failed);
    const std::uint64_t count =
        TIFFGetStrileByteCountWithErr(tiff_.get(), firstPart_ + part, &failed);
    const int first = static_cast<int>(part / partsAcross_) * rowsPerPart_;
    const int rows = std::min(rowsPerPart_, rowsOfPage_ - first);
    const std::uint64_t pixels =
        tiled_ ? tile_.size() : static_cast<std::uint64_t>(rows) * storedRowBytes();
    if (failed != 0) refuseDamaged(tiff_.error());
    if (offset > file_.size() || count > file_.size() - offset || count < (plain_ ? pixels : 1)) {
      refuseRow(firstRow_ + first, tiled_ ? "its tile does not lie in the file"
                                          : "its strip does not lie in the file");
    }
    if (!plain_ && count > kMaximumStrip) refuse("has very large strips; save it in smaller ones");
  }

  int rowInPage() const { return row_ - firstRow_; }

  void readNextRow(void* row) override {
    if (pages_.size() > 1 && firstRow_ != row_) selectPage(static_cast<std::size_t>(row_));
    if (tiled_) {
      readTiledRow(row);
    } else {
      void* const stored = together_ == 1 ? row : stored_.data();
      if (plain_) {
        readPlainRows(1, stored);
      } else {
        readCompressedRow(stored);
      }
      if (together_ > 1) {
        takeLayer(stored_.data(), static_cast<std::size_t>(shape().width), static_cast<char*>(row));
      }
    }
    ++row_;
  }

  /// A warning of the decoder means that it left out bytes, or did not fill the row.
  void readCompressedRow(void* row) {
    std::memset(row, 0, storedRowBytes());
    tiff_.forgetWarning();
    const auto plane = static_cast<std::uint16_t>(together_ == 1 ? layer_ : 0);
    if (TIFFReadScanline(tiff_.get(), row, static_cast<std::uint32_t>(rowInPage()), plane) != 1) {
      refuseRow(row_, tiff_.error());
    }
    if (!tiff_.warning().empty()) refuseRow(row_, tiff_.warning());
  }

  void readTiledRow(void* row) {
    const int band = rowInPage() / rowsPerPart_;
    if (band != bandHeld_) decodeBand(band);
    const auto line = static_cast<std::size_t>(rowInPage() % rowsPerPart_);
    std::memcpy(row, band_.data() + line * shape().rowBytes(), shape().rowBytes());
  }

  /// Decodes the tiles of a row of tiles, and puts their rows together.
  void decodeBand(int band) {
    bandHeld_ = -1;
    const std::size_t rowBytes = shape().rowBytes();
    for (std::uint32_t i = 0; i < partsAcross_; ++i) {
      decodeTile(static_cast<std::uint32_t>(band) * partsAcross_ + i,
                 firstRow_ + band * rowsPerPart_);
      const std::size_t begin = i * tileRowBytes_ / together_;
      const std::size_t bytes = std::min(tileRowBytes_ / together_, rowBytes - begin);
      const std::size_t pixels = bytes / cmnalg::bytesPerPixel(shape().type);
      for (std::size_t line = 0; line < static_cast<std::size_t>(rowsPerPart_); ++line) {
        takeLayer(tile_.data() + line * tileRowBytes_, pixels,
                  band_.data() + line * rowBytes + begin);
      }
    }
    bandHeld_ = band;
  }

  void decodeTile(std::uint32_t number, int row) {
    std::fill(tile_.begin(), tile_.end(), '\0');
    tiff_.forgetWarning();
    const auto size = static_cast<tmsize_t>(tile_.size());
    if (TIFFReadEncodedTile(tiff_.get(), firstPart_ + number, tile_.data(), size) != size) {
      refuseRow(row, tiff_.error());
    }
    if (!tiff_.warning().empty()) refuseRow(row, tiff_.warning());
  }

  void readNextRows(int count, void* rows) override {
    if (!plain_ || tiled_ || together_ > 1 || pages_.size() > 1) {
      return PagedImage::readNextRows(count, rows);
    }
    while (count > 0) {
      const int part = std::min(count, rowsPerPart_ - rowInPage() % rowsPerPart_);
      readPlainRows(part, rows);
      rows = static_cast<char*>(rows) + static_cast<std::size_t>(part) * shape().rowBytes();
      row_ += part;
      count -= part;
    }
  }

  /// Rows of one strip.
  void readPlainRows(int count, void* rows) const {
    const std::size_t rowBytes = storedRowBytes();
    const std::size_t bytes = static_cast<std::size_t>(count) * rowBytes;
    const std::uint64_t strip = TIFFGetStrileOffset(
        tiff_.get(), firstPart_ + static_cast<std::uint32_t>(rowInPage() / rowsPerPart_));
    const std::uint64_t offset =
        strip + static_cast<std::uint64_t>(rowInPage() % rowsPerPart_) * rowBytes;
    const std::size_t got = file_.readAt(offset, rows, bytes);
    if (got != bytes) refuseRow(row_ + static_cast<std::int64_t>(got / rowBytes), "end of file");
    if (TIFFIsByteSwapped(tiff_.get()) == 0) return;
    if (shape().type == cmnalg::IMAGE_TYPE_UINT16) {
      TIFFSwabArrayOfShort(static_cast<std::uint16_t*>(rows), static_cast<tmsize_t>(bytes / 2));
    } else if (shape().type != cmnalg::IMAGE_TYPE_UINT8) {
      TIFFSwabArrayOfLong(static_cast<std::uint32_t*>(rows), static_cast<tmsize_t>(bytes / 4));
    }
  }

  void rewind() override { row_ = 0; }

  void skipRows(int count) override {
    const int next = row_ + count;
    if (plain_ || tiled_ || pages_.size() > 1) {
      row_ = next;
      return;
    }
    row_ = std::max(row_, next / rowsPerPart_ * rowsPerPart_);  // strips stand for themselves
    ImageReader::skipRows(next - row_);
  }

  const Samples samples_;
  const std::size_t layer_;  // that is read
  InputFile file_;
  TiffFile tiff_;
  std::vector<std::uint64_t> images_;  // where the tags of those stand that are no parts of one
  std::vector<std::uint64_t> pages_;   // where their tags stand; more than one: one for each row
  Header header_;                      // of the first one
  int firstRow_ = 0, rowsOfPage_ = 1;
  bool plain_ = false, tiled_ = false;
  int rowsPerPart_ = 1;            // of a strip or tile
  std::uint32_t partsAcross_ = 1;  // side by side
  std::uint32_t firstPart_ = 0;    // of the layer, where layers have parts of their own
  std::size_t tileRowBytes_ = 0;
  std::size_t layers_ = 1, together_ = 1;  // in the file, and of them in each of its rows
  std::vector<char> stored_;               // a row of several layers
  std::vector<char> tile_, band_;          // one tile; the rows of the tiles side by side
  int bandHeld_ = -1;
  int row_ = 0;
};

}  // namespace

std::unique_ptr<ImageReader> openTiff(const std::string& path, Samples samples, std::size_t layer) {
  return std::make_unique<TiffReader>(path, samples, true, layer);
}

std::unique_ptr<PagedImage> openTiffPages(const std::string& path) {
  return std::make_unique<TiffReader>(path, Samples::kIntensities, false);
}

}  // namespace planex::io
