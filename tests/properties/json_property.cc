// Objects with members of every kind, drawn anew: what the deserialiser reads is what the
// serialiser was given, with spaces and without.

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <type_traits>

#include "planex/infra/class_repository.h"
#include "planex/infra/json_deserializer.h"
#include "planex/infra/json_serializer.h"
#include "planex/infra/out_stream.h"
#include "tests/support/property.h"
#include "tests/support/samples.h"

namespace {

using etl::ArrayType;
using etl::Buffer;
using etl::IVisitor;

/// One walk through the members.
struct Walk {
  test::ByteSource source;  // the same members on every walk
  std::size_t depth = 0;    // of objects and arrays that are open
  bool isReadable = true;   // false: there is a number that JSON has no word for
};

Walk* walk = nullptr;  // the one that goes on

template <typename T>
T drawn() {
  test::ByteSource& source = walk->source;
  if constexpr (std::is_same_v<T, bool>) {
    return source.Flip();
  } else if constexpr (std::is_floating_point_v<T>) {
    const int kind = source.Between(0, 7);
    const T value = kind == 0   ? test::narrowed<T>(source.Real())
                    : kind == 1 ? source.Raw<T>()
                                : static_cast<T>(source.Raw<std::int16_t>()) / 7;
    walk->isReadable = walk->isReadable && std::isfinite(value);
    return value;
  } else {
    constexpr T kLimits[] = {std::numeric_limits<T>::min(), std::numeric_limits<T>::max()};
    return source.Flip() ? source.OneOf(kLimits) : source.Raw<T>();
  }
}

Buffer drawnBytes() {
  const std::string text = walk->source.Text(walk->source.Raw<std::uint8_t>() % 16);
  return Buffer(text.begin(), text.end());
}

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
  T value = v.IsReading() ? T{} : wanted;
  (v.*kVisit)(value, name);
  CHECK_HOLDS(!compares(v) || isReadAs(wanted, value));
}

void visitText(IVisitor& v, const char* name) {
  const Buffer bytes = drawnBytes();
  const std::string text(bytes.begin(), std::find(bytes.begin(), bytes.end(), 0));
  etl::String value = v.IsReading() ? "" : std::string(bytes.begin(), bytes.end());
  v.VisitMemberS(value, name);
  CHECK_HOLDS(!compares(v) || value == text);  // which ends at the first NUL
}

template <bool kIsBuffer>
void visitBytes(IVisitor& v, const char* name) {
  const Buffer bytes = drawnBytes();
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
      visitElements<bool>,         visitElements<char>,  visitElements<std::int16_t>,
      visitElements<std::int64_t>, visitElements<float>, visitElements<double>};
  const bool hasArrays = walk->depth < 5 && walk->source.Between(0, 2) == 0;
  const ArrayType type = hasArrays ? ArrayType::Arrays : ArrayType::Primitives;
  const auto length = static_cast<std::size_t>(walk->source.Between(0, kMaxElements));
  std::size_t count = v.IsReading() ? 99 : length;
  v.BeginVisitingArray(type, count, name);
  CHECK_HOLDS(!compares(v) || count == length);
  ++walk->depth;
  if (!hasArrays) walk->source.OneOf(kElements)(v, length);
  for (std::size_t i = 0; i < length && hasArrays; ++i) {
    if (i > 0) v.VisitArraySeparator();
    visitArray(v, nullptr);
  }
  --walk->depth;
  v.EndVisitingArray(type);
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
  v.VisitSubObjectVisitable(object, name);
  CHECK_HOLDS(!compares(v) || (object == nullptr) == isNull);
}

void visitMembers(IVisitor& v) {
  using V = IVisitor;
  using Visit = void (*)(IVisitor&, const char*);
  constexpr Visit kMembers[] = {number<&V::VisitMemberB>,
                                number<&V::VisitMemberC>,
                                number<&V::VisitMemberI32>,
                                number<&V::VisitMemberI64>,
                                number<&V::VisitMemberUI64>,
                                number<&V::VisitMemberF32>,
                                number<&V::VisitMemberF64>,
                                number<&V::VisitMemberEInternal>,
                                visitText,
                                visitBytes<true>,
                                visitBytes<false>,
                                visitArray,
                                visitObject};
  constexpr const char* kNames[] = {"m", "", "\"\\", "\n\x01"};
  test::ByteSource& source = walk->source;
  const auto count = static_cast<std::size_t>(walk->depth < 6 ? source.Between(0, 7) : 0);
  ++walk->depth;
  if (count > 0 && source.Flip()) {
    v.BeginVisitingBaseClass("Test.Base");
    visitMembers(v);
    v.EndVisitingBaseClass("Test.Base");
  }
  for (std::size_t i = 0; i < count; ++i) {
    const std::string name = source.OneOf(kNames) + std::to_string(i);
    source.OneOf(kMembers)(v, name.c_str());
  }
  --walk->depth;
}

void checkRoundTrip(const test::ByteSource& source, bool isPretty) {
  Nested object;
  Walk writing{source};
  walk = &writing;
  etl::MemoryOutStream stream;
  CHECK_HOLDS(base::JsonVisitingSerializer(stream, isPretty).Serialize(object));
  Walk reading{source};
  walk = &reading;
  base::JsonVisitingDeSerializer reader(stream.GetBuffer(), true);
  CHECK_HOLDS(reader.DeserializeIntoExistingObject(object) == writing.isReadable);
}

}  // namespace

PLANEX_PROPERTY(json) {
  checkRoundTrip(source, false);
  checkRoundTrip(source, true);
}
