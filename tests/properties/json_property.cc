// Objects with members of every kind, drawn anew: what the serialiser writes is what a plain writer
// gives, what the deserialiser reads is what was drawn, and each member counts as one.

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "planex/infra/class_repository.h"
#include "planex/infra/count_members_visitor.h"
#include "planex/infra/json_deserializer.h"
#include "planex/infra/json_serializer.h"
#include "planex/infra/out_stream.h"
#include "planex/infra/sub_object.h"
#include "tests/support/property.h"

namespace {

using etl::ArrayType;
using etl::Buffer;
using etl::IVisitor;

/// One walk through the members.
struct Walk {
  test::ByteSource source;  // the same members on every walk
  unsigned short floatDigits = 9, doubleDigits = 17;
  bool writesBigData = true;
  std::size_t depth = 0;    // of objects and arrays that are open
  std::size_t members = 0;  // of the outermost object
  bool isReadable = true;   // false: there is a number that JSON has no word for
  std::string text = R"({"class":"Test.Nested","data":{)";  // what the plain writer wrote

  /// Begins a member or element.
  void Begin() {
    if (text.back() != '{' && text.back() != '[') text += ',';
  }
};

Walk* walk = nullptr;  // the one that goes on

// ---- The plain writer ----

std::string quoted(const std::string& text) {
  const std::string special = "\"\\\b\f\n\r\t";
  std::string result = "\"";
  for (const char c : text) {
    char code[8];
    std::snprintf(code, sizeof code, "\\u%04x", static_cast<unsigned>(c & 31));
    const std::size_t at = special.find(c);
    if (at != std::string::npos) {
      result += {'\\', "\"\\bfnrt"[at]};
    } else {
      result += c >= 0 && c < ' ' ? code : std::string(1, c);
    }
  }
  return result + '"';
}

/// Base64, one bit at a time.
std::string encoded(const Buffer& bytes) {
  const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text = "\"";
  for (std::size_t bit = 0; bit < 8 * bytes.size(); bit += 6) {
    std::size_t value = 0;
    for (std::size_t i = bit; i < bit + 6; ++i) {
      value = 2 * value + (i < 8 * bytes.size() ? bytes[i / 8] >> (7 - i % 8) & 1U : 0U);
    }
    text += alphabet[value];
  }
  while (text.size() % 4 != 1) text += '=';
  return text + '"';
}

template <typename T>
std::string written(T value) {
  if constexpr (std::is_same_v<T, bool>) {
    return value ? "true" : "false";
  } else if constexpr (std::is_floating_point_v<T>) {
    if (std::isnan(value)) return "nan";
    const int digits = std::is_same_v<T, float> ? walk->floatDigits : walk->doubleDigits;
    char text[64] = {};
    std::snprintf(text, sizeof text, "%.*g", std::clamp(digits, 1, 40), double{value});
    std::replace(text, text + sizeof text, ',', '.');  // of the locale
    return text;
  } else if constexpr (std::is_same_v<T, char>) {
    return std::to_string(static_cast<signed char>(value));  // also where char is unsigned
  } else {
    return std::to_string(value);
  }
}

// ---- Members ----

template <typename T>
T drawn() {
  test::ByteSource& source = walk->source;
  if constexpr (std::is_same_v<T, bool>) {
    return source.Flip();
  } else if constexpr (std::is_floating_point_v<T>) {
    using Limits = std::numeric_limits<T>;
    constexpr T kSpecial[] = {Limits::infinity(),
                              -Limits::infinity(),
                              Limits::quiet_NaN(),
                              Limits::max(),
                              -Limits::max(),
                              Limits::denorm_min(),
                              Limits::min(),
                              T{-0.0},
                              T{0.5}};
    const int kind = source.Between(0, 7);
    const T value = kind == 0   ? source.OneOf(kSpecial)
                    : kind == 1 ? source.Raw<T>()
                                : static_cast<T>(source.Raw<std::int16_t>()) / 7;
    walk->isReadable = walk->isReadable && std::isfinite(value);
    return value;
  } else {
    constexpr T kLimits[] = {std::numeric_limits<T>::min(), std::numeric_limits<T>::max()};
    return source.Flip() ? source.OneOf(kLimits) : source.Raw<T>();
  }
}

std::string drawnText() { return walk->source.Text(walk->source.Raw<std::uint8_t>() % 16); }

bool compares(const IVisitor& v) { return v.IsReading() && !v.HasError(); }

/// Whether a document gives `value` back. Numbers are read as doubles: what has none is the
/// nearest, or the largest of the type where that is past it.
template <typename T>
bool isReadAs(T value, T back) {
  if constexpr (std::is_floating_point_v<T>) {
    return test::sameBits(value, back);
  } else {
    constexpr T kMax = std::numeric_limits<T>::max();
    const auto number = static_cast<double>(value);
    return back == (number == static_cast<double>(kMax) ? kMax : static_cast<T>(number));
  }
}

template <typename T>
T argumentOf(void (IVisitor::*visit)(T&, const char*));

template <auto kVisit>
void number(IVisitor& v, const char* name) {
  using T = decltype(argumentOf(kVisit));
  const T wanted = drawn<T>();
  walk->text += written(wanted);
  T value = v.IsReading() ? T{} : wanted;
  (v.*kVisit)(value, name);
  CHECK_HOLDS(!compares(v) || isReadAs(wanted, value));
}

void visitText(IVisitor& v, const char* name) {
  const std::string text = drawnText();
  walk->text += quoted(text);
  etl::String value = v.IsReading() ? "" : text;
  v.VisitMemberS(value, name);
  CHECK_HOLDS(!compares(v) || value == text.substr(0, text.find('\0')));
}

template <bool kIsBuffer>
void visitBytes(IVisitor& v, const char* name) {
  const std::string text = drawnText();
  const Buffer bytes(text.begin(), text.end());
  walk->text += encoded(bytes);
  Buffer value = v.IsReading() ? Buffer(kIsBuffer ? 1 : bytes.size()) : bytes;
  kIsBuffer ? v.VisitMemberBU(value, name)
            : v.VisitMemberByteArray(value.data(), value.size(), name);
  CHECK_HOLDS(!compares(v) || value == bytes);
}

constexpr std::size_t kMaxElements = 4;

template <typename T>
void visitElements(IVisitor& v, std::size_t count) {
  T elements[kMaxElements] = {}, values[kMaxElements] = {};
  for (std::size_t i = 0; i < count; ++i) {
    elements[i] = drawn<T>();
    walk->Begin();
    walk->text += written(elements[i]);
    if (!v.IsReading()) values[i] = elements[i];
  }
  v.VisitPodArray(values);
  for (std::size_t i = 0; i < count && compares(v); ++i) {
    CHECK_HOLDS(isReadAs(elements[i], values[i]));
  }
}

/// `name` is null for an array in an array.
void visitArray(IVisitor& v, const char* name) {
  constexpr void (*kElements[])(IVisitor&, std::size_t) = {
      visitElements<bool>,          visitElements<char>,          visitElements<std::int8_t>,
      visitElements<std::int16_t>,  visitElements<std::int32_t>,  visitElements<std::int64_t>,
      visitElements<std::uint8_t>,  visitElements<std::uint16_t>, visitElements<std::uint32_t>,
      visitElements<std::uint64_t>, visitElements<float>,         visitElements<double>};
  const bool hasArrays = walk->depth < 5 && walk->source.Between(0, 2) == 0;
  const ArrayType type = hasArrays ? ArrayType::Arrays : ArrayType::Primitives;
  const auto length = static_cast<std::size_t>(walk->source.Between(0, kMaxElements));
  std::size_t count = v.IsReading() ? 99 : length;
  v.BeginVisitingArray(type, count, name);
  CHECK_HOLDS(!compares(v) || count == length);
  walk->text += '[';
  ++walk->depth;
  if (!hasArrays) walk->source.OneOf(kElements)(v, length);
  for (std::size_t i = 0; i < length && hasArrays; ++i) {
    if (i > 0) v.VisitArraySeparator();
    walk->Begin();
    visitArray(v, nullptr);
  }
  --walk->depth;
  walk->text += ']';
  v.EndVisitingArray(type);
}

void visitBigData(IVisitor& v, const char* name) {
  test::ByteSource& source = walk->source;
  constexpr std::size_t kSizes[] = {1, 2, 8};
  const std::size_t elemSize = source.OneOf(kSizes);
  const bool isLarge = source.Between(0, 15) == 0;  // more than the serialiser holds back
  const auto rows = static_cast<std::size_t>(isLarge ? 700 : source.Between(0, 3));
  const auto rowElems = static_cast<std::size_t>(isLarge ? 101 : source.Between(0, 5));
  const std::size_t pitch = rowElems * elemSize + static_cast<std::size_t>(source.Between(0, 2));
  const auto seed = source.Raw<std::uint32_t>();
  Buffer memory(rows * pitch), packed, back;
  for (std::size_t i = 0; i < memory.size(); ++i) {
    memory[i] = static_cast<unsigned char>((seed + i * i) * 2654435761U >> 13);
    if (i % pitch < rowElems * elemSize) packed.push_back(memory[i]);
  }
  walk->text += R"({"numOfElems":)" + std::to_string(rows * rowElems) + R"(,"elemSz":)" +
                std::to_string(elemSize) + R"(,"endian":)" +
                (elemSize == 1 ? R"("neutral")" : R"("little")") + R"(,"elemTypes":"?","data":)" +
                encoded(walk->writesBigData ? packed : Buffer()) + "}";
  const auto allocate = [&] { return back.assign(packed.size() + 1, 7), back.data(); };
  v.VisitBigDataArray({"?", elemSize, rowElems, rows, memory.data(), pitch, allocate}, name);
  if (!compares(v)) return;
  packed.push_back(7);  // nothing is written past the end
  CHECK_HOLDS(back == packed);
}

void visitMembers(IVisitor& v);

/// Its members are what comes next.
class Nested final : public etl::IVisitable {
 public:
  const char* GetClassName() const override { return "Test.Nested"; }
  void Visit(IVisitor& v) override { visitMembers(v); }
  std::unique_ptr<etl::IVisitable> CloneVisitable() const override { return nullptr; }
};
[[maybe_unused]] const bool registered = etl::registerClass<Nested>("Test.Nested");

void visitObject(IVisitor& v, const char* name) {
  const bool isNull = walk->source.Flip();
  std::shared_ptr<etl::IVisitable> object;
  if (isNull == v.IsReading()) object = std::make_shared<Nested>();  // reading replaces it
  walk->text += isNull ? "null" : R"({"class":"Test.Nested","data":{)";
  v.VisitSubObjectVisitable(object, name);
  walk->text += isNull ? "" : "}}";
  CHECK_HOLDS(!compares(v) || (object == nullptr) == isNull);
}

void visitPart(IVisitor& v, const char* name) {
  walk->text += '{';
  etl::visitPlainSubObject(v, name, "", visitMembers);
  walk->text += '}';
}

void visitMembers(IVisitor& v) {
  using V = IVisitor;
  constexpr void (*kMembers[])(IVisitor&, const char*) = {number<&V::VisitMemberB>,
                                                          number<&V::VisitMemberC>,
                                                          number<&V::VisitMemberI8>,
                                                          number<&V::VisitMemberI16>,
                                                          number<&V::VisitMemberI32>,
                                                          number<&V::VisitMemberI64>,
                                                          number<&V::VisitMemberUI8>,
                                                          number<&V::VisitMemberUI16>,
                                                          number<&V::VisitMemberUI32>,
                                                          number<&V::VisitMemberUI64>,
                                                          number<&V::VisitMemberIP>,
                                                          number<&V::VisitMemberUIP>,
                                                          number<&V::VisitMemberF32>,
                                                          number<&V::VisitMemberF64>,
                                                          number<&V::VisitMemberEInternal>,
                                                          visitText,
                                                          visitBytes<true>,
                                                          visitBytes<false>,
                                                          visitBigData,
                                                          visitArray,
                                                          visitArray,
                                                          visitObject,
                                                          visitObject,
                                                          visitPart,
                                                          visitPart};
  constexpr const char* kNames[] = {"m", "", "\"\\", "\n\x01"};
  test::ByteSource& source = walk->source;
  const auto count = static_cast<std::size_t>(walk->depth < 6 ? source.Between(0, 7) : 0);
  const bool hasBase = count > 0 && source.Flip();
  if (walk->depth++ == 0) walk->members = count + (hasBase ? 1 : 0);
  if (hasBase) {
    walk->Begin();
    walk->text += R"("baseClass":{"class":"Test.Base","data":{)";
    v.BeginVisitingBaseClass("Test.Base");
    visitMembers(v);
    v.EndVisitingBaseClass("Test.Base");
    walk->text += "}}";
  }
  for (std::size_t i = 0; i < count; ++i) {
    const std::string name = source.OneOf(kNames) + std::to_string(i);
    walk->Begin();
    walk->text += quoted(name) + ":";
    source.OneOf(kMembers)(v, name.c_str());
  }
  --walk->depth;
}

std::string withoutSpace(std::string text) {
  const auto isSpace = [](char c) { return c == ' ' || c == '\r' || c == '\n'; };
  text.erase(std::remove_if(text.begin(), text.end(), isSpace), text.end());
  return text;
}

std::string serialized(bool isPretty, Walk& one) {
  walk = &one;
  etl::MemoryOutStream stream;
  base::JsonVisitingSerializer serializer(stream, isPretty);
  serializer.SetNumOfSignificants(one.floatDigits, one.doubleDigits);
  if (!one.writesBigData) serializer.SetVisitingDetails(base::Details::WithoutBigData);
  Nested object;
  CHECK_HOLDS(serializer.Serialize(object));
  one.text += "}}";
  return std::string(stream.GetText());
}

}  // namespace

PLANEX_PROPERTY(json) {
  constexpr unsigned short kDigits[] = {0, 1, 6, 9, 17, 40, 65535};
  Walk pretty{source};
  pretty.floatDigits = source.OneOf(kDigits);
  pretty.doubleDigits = source.OneOf(kDigits);
  pretty.writesBigData = source.Flip();
  const std::string prettyText = serialized(true, pretty);
  CHECK_HOLDS(withoutSpace(prettyText) == withoutSpace(pretty.text));

  Walk compact{source};
  const std::string text = serialized(false, compact);
  CHECK_HOLDS(text == compact.text);
  Walk reading{source};
  walk = &reading;
  base::JsonVisitingDeSerializer reader(text.c_str(), true);
  Nested object;
  CHECK_HOLDS(reader.DeserializeIntoExistingObject(object) == compact.isReadable);

  Walk counting{source};
  walk = &counting;
  etl::CountMembersVisitor counter;
  counter.BeginVisiting("Test.Nested");
  visitMembers(counter);
  counter.EndVisiting("Test.Nested");
  CHECK_HOLDS(counter.GetCount() == counting.members);
}
