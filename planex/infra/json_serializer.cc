#include "planex/infra/json_serializer.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <type_traits>
#include <vector>

#include "planex/infra/base64.h"
#include "planex/infra/byte_order.h"
#include "planex/infra/float_environment.h"
#include "planex/infra/forwarding_visitor-inl.h"

namespace base {
namespace {

constexpr std::size_t kFlushSize = 1 << 16;
constexpr int kMaxDigits = 40;
constexpr std::size_t kMaxNumberLength = 64;  // sign, digits, point, zeros after it, exponent

constexpr char kArrayMismatch[] = "EndVisitingArray() mismatch";
constexpr char kNestingMismatch[] = "Nested EndVisiting() mismatch";

/// @return the text of the escape for a character that may not stand in a string, else nothing
std::string_view escapeOf(char c) {
  switch (c) {
    case '"':
      return "\\\"";
    case '\\':
      return "\\\\";
    case '\b':
      return "\\b";
    case '\f':
      return "\\f";
    case '\n':
      return "\\n";
    case '\r':
      return "\\r";
    case '\t':
      return "\\t";
    default:
      return {};
  }
}

bool bytesOf(const etl::BigDataArray& array, std::size_t& elems, std::size_t& bytes) {
  return !__builtin_mul_overflow(array.rows, array.rowElems, &elems) &&
         !__builtin_mul_overflow(elems, array.elemSize, &bytes);
}

}  // namespace

JsonVisitingSerializer::JsonVisitingSerializer(etl::OutStream& stream, bool pretty)
    : stream_(stream), pretty_(pretty) {}

bool JsonVisitingSerializer::Serialize(etl::IVisitable& object) {
  levels_.clear();  // what an exception in an earlier call left open
  pending_.clear();
  objectExpected_ = false;
  WriteObject(object);
  return !HasError();
}

void JsonVisitingSerializer::WriteObject(etl::IVisitable& object) {
  BeginVisiting(object.GetClassName());
  if (!HasError()) object.Visit(*this);
  EndVisiting(object.GetClassName());
}

void JsonVisitingSerializer::SetNumOfSignificants(unsigned short floatDigits,
                                                  unsigned short doubleDigits) {
  floatDigits_ = std::clamp<int>(floatDigits, 1, kMaxDigits);
  doubleDigits_ = std::clamp<int>(doubleDigits, 1, kMaxDigits);
}

// ---- Text ----

void JsonVisitingSerializer::Flush() {
  if (!HasError() && !stream_.Write(pending_)) SetError("Could not write to the output stream");
  pending_.clear();
}

void JsonVisitingSerializer::NewLine() {
  if (!pretty_) return;
  PutText("\r\n");
  pending_.append(2 * levels_.size(), ' ');
}

void JsonVisitingSerializer::Separate() {
  if (levels_.back().written++ > 0) PutText(",");
  NewLine();
  if (pending_.size() >= kFlushSize) Flush();
}

void JsonVisitingSerializer::Open(LevelKind kind, char bracket) {
  pending_ += bracket;
  levels_.push_back({kind, etl::ArrayType::Primitives, 0, 0});
}

void JsonVisitingSerializer::Close(char bracket) {
  const bool empty = levels_.back().written == 0;
  levels_.pop_back();
  if (!empty) NewLine();
  pending_ += bracket;
}

bool JsonVisitingSerializer::IsInside(LevelKind kind) const {
  return !levels_.empty() && levels_.back().kind == kind;
}

void JsonVisitingSerializer::PutQuoted(std::string_view text) {
  constexpr char kHex[] = "0123456789abcdef";
  pending_ += '"';
  for (const char c : text) {
    const std::string_view escape = escapeOf(c);
    if (!escape.empty()) {
      PutText(escape);
    } else if (static_cast<unsigned char>(c) < 0x20) {
      PutText("\\u00");
      pending_ += kHex[c >> 4];
      pending_ += kHex[c & 15];
    } else {
      pending_ += c;
    }
  }
  pending_ += '"';
}

void JsonVisitingSerializer::PutBase64(const void* bytes, std::size_t size) {
  pending_ += '"';
  etl::base64::Encoder encoder(pending_);
  encoder.Append(static_cast<const unsigned char*>(bytes), size);
  encoder.Finish();
  pending_ += '"';
}

void JsonVisitingSerializer::PutBase64Rows(const etl::BigDataArray& array) {
  const auto* const bytes = static_cast<const unsigned char*>(array.data);
  pending_ += '"';
  etl::base64::Encoder encoder(pending_);
  std::vector<unsigned char> little;
  for (std::size_t row = 0; row < array.rows && !HasError(); ++row) {
    const unsigned char* const elems = bytes + row * array.rowPitchBytes;
    const std::size_t size = array.rowElems * array.elemSize;
    if (base::kIsBigEndian) {
      little.assign(elems, elems + size);
      base::swapLittle(little.data(), array.rowElems, array.elemSize);
      encoder.Append(little.data(), size);
    } else {
      encoder.Append(elems, size);
    }
    if (pending_.size() >= kFlushSize) Flush();
  }
  encoder.Finish();
  pending_ += '"';
}

template <typename T>
void JsonVisitingSerializer::PutNumber(T value) {
  char text[kMaxNumberLength];
  std::to_chars_result end{};
  if constexpr (std::is_same_v<T, bool>) {
    return PutText(value ? "true" : "false");
  } else if constexpr (std::is_same_v<T, char>) {
    return PutNumber(static_cast<std::int8_t>(value));  // the same text where char is unsigned
  } else if constexpr (std::is_floating_point_v<T>) {
    const DefaultFloatEnvironment environment;
    if (std::isnan(value)) return PutText("nan");
    if (std::isinf(value)) return PutText(value > 0 ? "inf" : "-inf");
    const int digits = std::is_same_v<T, float> ? floatDigits_ : doubleDigits_;
    end = std::to_chars(text, text + sizeof text, value, std::chars_format::general, digits);
  } else {
    end = std::to_chars(text, text + sizeof text, value);
  }
  pending_.append(text, end.ptr);
}

// ---- Members ----

bool JsonVisitingSerializer::BeginMember(const char* name) {
  if (HasError()) return false;
  if (name == nullptr || levels_.empty() || IsInside(LevelKind::Array)) {
    SetError(kNestingMismatch);
    return false;
  }
  Separate();
  PutQuoted(name);
  PutText(pretty_ ? ": " : ":");
  return !HasError();
}

template <typename T>
void JsonVisitingSerializer::VisitPrimitive(T value, const char* name) {
  if (BeginMember(name)) PutNumber(value);
}

void JsonVisitingSerializer::VisitMemberS(etl::String& value, const char* name) {
  if (BeginMember(name)) PutQuoted(value);
}

void JsonVisitingSerializer::VisitMemberBU(etl::Buffer& value, const char* name) {
  if (BeginMember(name)) PutBase64(value.data(), value.size());
}

void JsonVisitingSerializer::VisitMemberByteArray(unsigned char* bytes, std::size_t size,
                                                  const char* name) {
  if (BeginMember(name)) PutBase64(bytes, size);
}

// ---- Objects ----

void JsonVisitingSerializer::BeginVisiting(const char* className) {
  if (HasError()) return;
  if (!levels_.empty() && !objectExpected_) return SetError(kNestingMismatch);
  objectExpected_ = false;
  Open(LevelKind::Wrapper, '{');
  if (BeginMember("class")) PutQuoted(className);
  if (BeginMember("data")) Open(LevelKind::Object, '{');
}

void JsonVisitingSerializer::EndVisiting(const char*) {
  if (HasError()) return;
  if (!IsInside(LevelKind::Object)) return SetError(kNestingMismatch);
  Close('}');
  Close('}');
  if (levels_.empty()) Flush();
}

void JsonVisitingSerializer::BeginVisitingBaseClass(const char* className) {
  if (!BeginMember("baseClass")) return;
  objectExpected_ = true;
  BeginVisiting(className);
}

void JsonVisitingSerializer::EndVisitingBaseClass(const char* className) { EndVisiting(className); }

void JsonVisitingSerializer::BeginVisitingSubObject(const char* name, const char*) {
  if (BeginMember(name)) Open(LevelKind::SubObject, '{');
}

void JsonVisitingSerializer::EndVisitingSubObject(const char*, const char*) {
  if (HasError()) return;
  if (!IsInside(LevelKind::SubObject)) return SetError(kNestingMismatch);
  Close('}');
}

void JsonVisitingSerializer::VisitSubObjectVisitable(std::shared_ptr<etl::IVisitable>& object,
                                                     const char* name) {
  if (!BeginMember(name)) return;
  if (object == nullptr) return PutText("null");
  objectExpected_ = true;
  WriteObject(*object);
}

// ---- Arrays ----

/// Starts the value of an array: a member, or an element of an array of arrays.
bool JsonVisitingSerializer::BeginArrayValue(const char* name) {
  if (!IsInside(LevelKind::Array)) return BeginMember(name);
  if (HasError()) return false;
  if (levels_.back().arrayType != etl::ArrayType::Arrays) {
    SetError(kArrayMismatch);
    return false;
  }
  Separate();
  return !HasError();
}

void JsonVisitingSerializer::BeginVisitingArray(etl::ArrayType type, std::size_t& count,
                                                const char* name) {
  if (!BeginArrayValue(name)) return;
  Open(LevelKind::Array, '[');
  levels_.back().arrayType = type;
  levels_.back().announced = count;
}

void JsonVisitingSerializer::VisitArraySeparator() {}  // an element brings its own comma

void JsonVisitingSerializer::EndVisitingArray(etl::ArrayType type) {
  if (HasError()) return;
  if (!IsInside(LevelKind::Array) || levels_.back().arrayType != type ||
      levels_.back().written != levels_.back().announced) {
    return SetError(kArrayMismatch);
  }
  Close(']');
}

template <typename T>
void JsonVisitingSerializer::VisitPrimitives(T* values) {
  if (HasError()) return;
  if (!IsInside(LevelKind::Array) || levels_.back().arrayType != etl::ArrayType::Primitives) {
    return SetError(kArrayMismatch);
  }
  const std::size_t count = levels_.back().announced;
  for (std::size_t i = 0; i < count && !HasError(); ++i) {
    Separate();
    PutNumber(values[i]);
  }
}

void JsonVisitingSerializer::VisitBigDataArray(const etl::BigDataArray& array, const char* name) {
  std::size_t elems = 0;
  std::size_t bytes = 0;
  if (!bytesOf(array, elems, bytes) || (bytes > 0 && array.data == nullptr)) {
    return SetError("Big data array of invalid size");
  }
  BeginVisitingSubObject(name, "");
  VisitPrimitive(elems, "numOfElems");
  VisitPrimitive(array.elemSize, "elemSz");
  if (BeginMember("endian")) PutQuoted(array.elemSize == 1 ? "neutral" : "little");
  if (BeginMember("elemTypes")) PutQuoted(array.elemType);
  if (BeginMember("data")) {
    if (bytes > 0 && details_ == Details::Full) {
      PutBase64Rows(array);
    } else {
      PutText("\"\"");
    }
  }
  EndVisitingSubObject(name, "");
}

}  // namespace base

template class etl::ForwardingVisitor<base::JsonVisitingSerializer>;
