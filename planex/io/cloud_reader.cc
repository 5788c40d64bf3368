#include "planex/io/cloud_reader.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <optional>
#include <string_view>

#include "planex/infra/byte_order.h"
#include "planex/io/failure.h"
#include "planex/io/input_file.h"
#include "planex/io/json_value.h"
#include "planex/io/model_file.h"
#include "planex/io/npy_header.h"
#include "planex/io/number_text.h"

namespace planex::io {
namespace {

constexpr std::size_t kMostHeading = 65536;
constexpr std::size_t kMostRecord = 65536;
constexpr std::size_t kPiece = 1 << 20;
constexpr std::int64_t kMostPoints = std::int64_t{1} << 40;

/// How a number is stored.
enum class Kind { kInt8, kUint8, kInt16, kUint16, kInt32, kUint32, kFloat32, kFloat64 };

std::size_t bytesOf(Kind kind) {
  static constexpr std::array<std::size_t, 8> kBytes = {1, 1, 2, 2, 4, 4, 4, 8};
  return kBytes[static_cast<std::size_t>(kind)];
}

template <typename Stored>
double numberAs(const char* bytes) {
  return static_cast<double>(base::loadLittle<Stored>(bytes));
}

double numberAt(const char* bytes, Kind kind) {
  switch (kind) {
    case Kind::kInt8:
      return numberAs<std::int8_t>(bytes);
    case Kind::kUint8:
      return numberAs<std::uint8_t>(bytes);
    case Kind::kInt16:
      return numberAs<std::int16_t>(bytes);
    case Kind::kUint16:
      return numberAs<std::uint16_t>(bytes);
    case Kind::kInt32:
      return numberAs<std::int32_t>(bytes);
    case Kind::kUint32:
      return numberAs<std::uint32_t>(bytes);
    case Kind::kFloat32:
      return numberAs<float>(bytes);
    default:
      return numberAs<double>(bytes);
  }
}

/// A number of each point.
struct Field {
  std::string name;
  Kind kind;
};

/// How the points of a file lie.
struct Layout {
  std::vector<Field> fields;
  std::int64_t count = 0;
  std::uint64_t begin = 0;  // the byte at which points begin
  bool isText = false;
};

std::vector<std::string> wordsOf(std::string_view line) {
  std::vector<std::string> words;
  for (std::size_t at = 0; at < line.size();) {
    const std::size_t end = std::min(line.find_first_of(" \t\r", at), line.size());
    if (end > at) words.emplace_back(line.substr(at, end - at));
    at = end + 1;
  }
  return words;
}

/// A whole number of 0 to kMostPoints.
std::optional<std::int64_t> countIn(const std::string& text) {
  if (text.empty() || text.size() > 13 || text.find_first_not_of("0123456789") != text.npos) {
    return std::nullopt;
  }
  const std::int64_t count = std::stoll(text);
  return count <= kMostPoints ? std::optional(count) : std::nullopt;
}

/// The lines of a heading, one after the other.
class Heading {
 public:
  Heading(const InputFile& file, std::string path)
      : path_(std::move(path)), text_(kMostHeading, '\0') {
    text_.resize(file.readAt(0, text_.data(), text_.size()));
  }

  /// The words of the next line.
  std::vector<std::string> next() {
    const std::size_t end = text_.find('\n', at_);
    if (end == text_.npos) refuse();
    const std::string_view line = std::string_view(text_).substr(at_, end - at_);
    at_ = end + 1;
    return wordsOf(line);
  }
  std::size_t end() const { return at_; }

  [[noreturn]] void refuse() const {
    throw Failure(path_, "has a heading that is no valid one of a cloud; write it again");
  }

 private:
  std::string path_, text_;
  std::size_t at_ = 0;
};

std::optional<Kind> plyKind(const std::string& name) {
  static constexpr struct {
    const char* names[2];
    Kind kind;
  } kKinds[] = {{{"char", "int8"}, Kind::kInt8},        {{"uchar", "uint8"}, Kind::kUint8},
                {{"short", "int16"}, Kind::kInt16},     {{"ushort", "uint16"}, Kind::kUint16},
                {{"int", "int32"}, Kind::kInt32},       {{"uint", "uint32"}, Kind::kUint32},
                {{"float", "float32"}, Kind::kFloat32}, {{"double", "float64"}, Kind::kFloat64}};
  for (const auto& [names, kind] : kKinds) {
    if (name == names[0] || name == names[1]) return kind;
  }
  return std::nullopt;
}

Layout plyLayout(const InputFile& file, const std::string& path) {
  Heading heading(file, path);
  Layout layout;
  heading.next();
  int elements = 0;
  for (;;) {
    const std::vector<std::string> words = heading.next();
    if (words.empty() || words[0] == "comment" || words[0] == "obj_info") continue;
    if (words[0] == "end_header") break;
    if (words.size() < 3) heading.refuse();
    if (words[0] == "format") {
      layout.isText = words[1] == "ascii";
      if (!layout.isText && words[1] != "binary_little_endian") {
        throw Failure(path, "is a PLY of another byte order; save it as binary_little_endian");
      }
    } else if (words[0] == "element") {
      const auto count = countIn(words[2]);
      if (!count || (++elements == 1 && words[1] != "vertex")) heading.refuse();
      if (elements == 1) layout.count = *count;
    } else if (words[0] == "property" && elements == 1) {
      const auto kind = plyKind(words[1]);
      if (!kind) heading.refuse();
      layout.fields.push_back({words[2], *kind});
    }
  }
  layout.begin = heading.end();
  return layout;
}

std::optional<Kind> pcdKind(const std::string& type, const std::string& size) {
  const std::string name = type + size;
  static constexpr struct {
    const char* name;
    Kind kind;
  } kKinds[] = {{"I1", Kind::kInt8},    {"U1", Kind::kUint8},  {"I2", Kind::kInt16},
                {"U2", Kind::kUint16},  {"I4", Kind::kInt32},  {"U4", Kind::kUint32},
                {"F4", Kind::kFloat32}, {"F8", Kind::kFloat64}};
  for (const auto& row : kKinds) {
    if (name == row.name) return row.kind;
  }
  return std::nullopt;
}

Layout pcdLayout(const InputFile& file, const std::string& path) {
  Heading heading(file, path);
  Layout layout;
  std::vector<std::string> names, sizes, types, counts;
  for (;;) {
    std::vector<std::string> words = heading.next();
    if (words.empty() || words[0][0] == '#') continue;
    const std::string key = words[0];
    words.erase(words.begin());
    if (key == "FIELDS") names = words;
    if (key == "SIZE") sizes = words;
    if (key == "TYPE") types = words;
    if (key == "COUNT") counts = words;
    if (key == "POINTS") {
      const auto count = words.empty() ? std::nullopt : countIn(words[0]);
      if (!count) heading.refuse();
      layout.count = *count;
    }
    if (key != "DATA") continue;
    layout.isText = !words.empty() && words[0] == "ascii";
    if (!layout.isText && (words.empty() || words[0] != "binary")) {
      throw Failure(path, "is a compressed PCD; save it as binary");
    }
    break;
  }
  if (counts.empty()) counts.assign(names.size(), "1");
  if (sizes.size() != names.size() || types.size() != names.size() ||
      counts.size() != names.size()) {
    heading.refuse();
  }
  for (std::size_t i = 0; i < names.size(); ++i) {
    const auto kind = pcdKind(types[i], sizes[i]);
    const auto times = countIn(counts[i]);
    if (!kind || !times || *times > 1024 || layout.fields.size() > kMostRecord) heading.refuse();
    for (std::int64_t k = 0; k < *times; ++k)
      layout.fields.push_back({k == 0 ? names[i] : "", *kind});
  }
  layout.begin = heading.end();
  return layout;
}

Layout npyLayout(const InputFile& file, const std::string& path) {
  const NpyHeader header = readNpyHeader(file, path);
  const bool isDouble = header.type == "f8";
  if (!header.isRowMajor || header.isSwapped || (header.type != "f4" && !isDouble) ||
      header.shape.size() < 2 || header.shape.size() > 3 || header.shape.back() != 3) {
    throw Failure(
        path,
        "is no array of points; save float32 or float64 of points x 3 or of rows x columns "
        "x 3");
  }
  Layout layout;
  const Kind kind = isDouble ? Kind::kFloat64 : Kind::kFloat32;
  layout.fields = {{"x", kind}, {"y", kind}, {"z", kind}};
  std::uint64_t count = header.shape[0];
  if (header.shape.size() == 3) count *= header.shape[1];  // below 2^64
  if (count > static_cast<std::uint64_t>(kMostPoints)) throw Failure(path, "has too many points");
  layout.count = static_cast<std::int64_t>(count);
  layout.begin = header.begin;
  requireNpyBytes(file, path, header, count * 3 * bytesOf(kind));
  return layout;
}

/// The file beside a cloud, if there is a JSON text.
class Description {
 public:
  explicit Description(const std::string& cloud) {
    const std::string path = cloud + ".json";
    if (access(path.c_str(), F_OK) != 0) return;
    const InputFile file(path);  // not a pipe to wait for
    json_.reset(cJSON_Parse(readTextFile(path).c_str()));
  }

  /// A text, of an object in it where that has a name; empty where there is none.
  std::string text(const char* name, const char* object = nullptr) const {
    const cJSON* from = json_.get();
    if (object != nullptr) from = cJSON_GetObjectItemCaseSensitive(from, object);
    const char* const value = cJSON_GetStringValue(cJSON_GetObjectItemCaseSensitive(from, name));
    return value == nullptr ? std::string() : inOneLine(value);
  }

 private:
  JsonValue json_;
};

bool beginsWith(const InputFile& file, std::string_view text) {
  std::string bytes(text.size(), '\0');
  return file.readAt(0, bytes.data(), bytes.size()) == bytes.size() && bytes == text;
}

}  // namespace

/// The bytes of the points, in pieces.
class CloudReader::Source {
 public:
  explicit Source(const std::string& path) : path_(path), file_(path), layout_(layoutOf()) {
    for (const Field& field : layout_.fields) {
      offsets_.push_back(record_);
      record_ += bytesOf(field.kind);
    }
    x_ = indexOf({"x", "X"});
    y_ = indexOf({"y", "Y"});
    z_ = indexOf({"z", "Z"});
    intensity_ = indexOf({"intensity", "scalar_intensity"});
    const Description description(path);
    unit_ = description.text("unit");
    yUnit_ = description.text("unit", "y");
    if (yUnit_.empty()) yUnit_ = unit_;
    if (!x_ || !y_ || !z_) throw Failure(path, "has no points with x, y and z; name them so");
    if (record_ > kMostRecord) throw Failure(path, "has very many numbers a point; save fewer");
    const std::uint64_t least = layout_.isText ? 2 * layout_.fields.size() : record_;
    if (static_cast<std::uint64_t>(layout_.count) >
        (file_.size() - std::min(layout_.begin, file_.size())) / least + (layout_.isText ? 1 : 0)) {
      refuseEnd();
    }
    rewind();
  }

  std::int64_t count() const { return layout_.count; }
  bool hasIntensity() const { return intensity_.has_value(); }
  const std::string& unit() const { return unit_; }
  const std::string& yUnit() const { return yUnit_; }

  void rewind() {
    next_ = 0;
    offset_ = layout_.begin;
    text_.clear();
    at_ = 0;
    lines_ = 0;
  }

  bool read(std::size_t most, std::vector<CloudPoint>& points) {
    points.clear();
    const auto left = static_cast<std::size_t>(layout_.count - next_);
    const std::size_t wanted = std::min({most, left, std::max<std::size_t>(kPiece / record_, 1)});
    if (layout_.isText) {
      for (std::size_t i = 0; i < wanted; ++i) points.push_back(nextLine());
    } else {
      std::vector<char> bytes(wanted * record_);
      if (file_.readAt(offset_, bytes.data(), bytes.size()) != bytes.size()) refuseEnd();
      offset_ += bytes.size();
      for (std::size_t i = 0; i < wanted; ++i) {
        const char* const record = bytes.data() + i * record_;
        const auto number = [&](std::size_t field) {
          return numberAt(record + offsets_[field], layout_.fields[field].kind);
        };
        points.push_back(
            {number(*x_), number(*y_), number(*z_), intensity_ ? number(*intensity_) : 0});
      }
    }
    next_ += static_cast<std::int64_t>(wanted);
    return wanted > 0;
  }

 private:
  Layout layoutOf() const {
    if (beginsWith(file_, "ply")) return plyLayout(file_, path_);
    if (beginsWith(file_, "\x93NUMPY")) return npyLayout(file_, path_);
    return pcdLayout(file_, path_);
  }

  std::optional<std::size_t> indexOf(const std::array<const char*, 2>& names) const {
    for (std::size_t i = 0; i < layout_.fields.size(); ++i) {
      if (layout_.fields[i].name == names[0] || layout_.fields[i].name == names[1]) return i;
    }
    return std::nullopt;
  }

  [[noreturn]] void refuseEnd() const {
    throw Failure(path_, "ends before the " + std::to_string(layout_.count) +
                             " points that its heading announces; fetch it again");
  }

  CloudPoint nextLine() {
    std::size_t end = text_.find('\n', at_);
    while (end == text_.npos) {
      text_.erase(0, at_);
      at_ = 0;
      const std::size_t held = text_.size();
      if (held > kMostRecord * 8) refuseEnd();
      text_.resize(held + kPiece);
      text_.resize(held + file_.readAt(offset_, text_.data() + held, kPiece));
      offset_ += text_.size() - held;
      if (text_.empty()) refuseEnd();
      if (text_.size() == held) text_ += '\n';
      end = text_.find('\n', held);
    }
    const std::vector<std::string> words = wordsOf(std::string_view(text_).substr(at_, end - at_));
    at_ = end + 1;
    const auto number = [&](std::size_t field) {
      if (words.size() != layout_.fields.size()) refuseText();
      if (const auto value = parseNumber(words[field])) return *value;
      std::string word = words[field];
      std::transform(word.begin(), word.end(), word.begin(),
                     [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
      if (word != "nan" && word != "-nan") refuseText();
      return std::numeric_limits<double>::quiet_NaN();
    };
    const CloudPoint point = {number(*x_), number(*y_), number(*z_),
                              intensity_ ? number(*intensity_) : 0};
    ++lines_;
    return point;
  }

  [[noreturn]] void refuseText() const {
    throw Failure(path_, "has a line that is no point behind point " + std::to_string(lines_) +
                             "; correct it");
  }

  const std::string path_;
  const InputFile file_;
  const Layout layout_;
  std::size_t record_ = 0;  // bytes
  std::vector<std::size_t> offsets_;
  std::optional<std::size_t> x_, y_, z_, intensity_;
  std::string unit_, yUnit_;
  std::int64_t next_ = 0;
  std::int64_t lines_ = 0;    // of a text that were points
  std::uint64_t offset_ = 0;  // of what is read next
  std::string text_;          // read and not used from at_ on
  std::size_t at_ = 0;
};

CloudReader::CloudReader(const std::string& path) : source_(std::make_unique<Source>(path)) {}
CloudReader::~CloudReader() = default;

bool CloudReader::isCloud(const std::string& path) {
  const InputFile file(path);
  if (beginsWith(file, "\x93NUMPY")) {
    const NpyHeader header = readNpyHeader(file, path);
    return header.shape.size() >= 2 && header.shape.back() == 3 &&
           Description(path).text("content") != "height map";
  }
  return beginsWith(file, "ply\n") || beginsWith(file, "ply\r\n") || beginsWith(file, "# .PCD") ||
         beginsWith(file, "VERSION") || beginsWith(file, "FIELDS");
}

std::int64_t CloudReader::count() const { return source_->count(); }
bool CloudReader::hasIntensity() const { return source_->hasIntensity(); }
const std::string& CloudReader::unit() const { return source_->unit(); }
const std::string& CloudReader::yUnit() const { return source_->yUnit(); }
bool CloudReader::read(std::size_t most, std::vector<CloudPoint>& points) {
  return source_->read(most, points);
}
void CloudReader::rewind() { source_->rewind(); }

}  // namespace planex::io
