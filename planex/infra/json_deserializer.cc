#include "planex/infra/json_deserializer.h"

#include <cjson/cJSON.h>
#include <locale.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <mutex>
#include <type_traits>
#include <utility>

#include "planex/infra/base64.h"
#include "planex/infra/byte_order.h"
#include "planex/infra/class_repository.h"
#include "planex/infra/float_environment.h"
#include "planex/infra/fork_safety.h"
#include "planex/infra/forwarding_visitor-inl.h"

namespace base {
namespace {

constexpr char kArrayMismatch[] = "EndVisitingArray() mismatch";
constexpr char kNestingMismatch[] = "Nested EndVisiting() mismatch";

/// Puts this thread into the C locale: cJSON asks it for the decimal point and for lower case.
class CLocaleScope {
 public:
  CLocaleScope() : former_(uselocale(cLocale())) {}
  ~CLocaleScope() { uselocale(former_); }
  CLocaleScope(const CLocaleScope&) = delete;
  CLocaleScope& operator=(const CLocaleScope&) = delete;

 private:
  static locale_t cLocale() {
    static const locale_t instance = newlocale(LC_ALL_MASK, "C", nullptr);
    return instance;  // null, should it fail, changes nothing
  }

  locale_t former_;
};

/// Held while cJSON parses, which writes the place of its last error into a variable of the
/// process.
std::mutex& parserMutex() {
  static std::mutex mutex;
  return mutex;
}

[[maybe_unused]] const int kGuarded = guardAgainstForks<parserMutex>();

/// The parser takes some hundred bytes of stack for each level. A model document has nine.
constexpr int kMaxNesting = 100;

/// The quote that ends a string, which begins at `text`; null where the text ends before.
const char* endOfString(const char* text) {
  for (const char* from = text;; ++from) {
    from = std::strchr(from, '"');  // strings hold images, and are most of a document
    if (from == nullptr) return nullptr;
    const char* unescaped = from;
    while (unescaped != text && unescaped[-1] == '\\') --unescaped;
    if ((from - unescaped) % 2 == 0) return from;
  }
}

/// Whether the first value of the text nests deeper. What is not JSON may count as either.
bool nestsTooDeep(const char* text) {
  int depth = 0;
  for (; *text != '\0'; ++text) {
    if (*text == '"') {
      text = endOfString(text + 1);
      if (text == nullptr) return false;
    } else if (*text == '{' || *text == '[') {
      if (++depth > kMaxNesting) return true;
    } else if ((*text == '}' || *text == ']') && --depth <= 0) {
      return false;
    }
  }
  return false;
}

etl::String quoted(const char* text) {
  return "'" + etl::String(text == nullptr ? "" : text) + "'";
}

const char* textOf(const cJSON* node) { return cJSON_IsString(node) ? node->valuestring : nullptr; }

/// Integers: refuses fractions and what lies beyond the type. The largest 64-bit integers have no
/// double of their own, so the power of two that they are parsed as stands for the largest value.
template <typename T>
bool toInteger(double number, T& value) {
  using Limits = std::numeric_limits<T>;
  constexpr auto kMax = static_cast<double>(Limits::max());
  if (!(number >= static_cast<double>(Limits::min()) && number <= kMax)) return false;
  if (number != std::trunc(number)) return false;
  const bool isPastMax = Limits::digits > 53 && number == kMax;
  value = isPastMax ? Limits::max() : static_cast<T>(number);
  return true;
}

bool toNumber(double number, double& value) {
  if (!std::isfinite(number)) return false;
  value = number;
  return true;
}

bool toNumber(double number, float& value) {
  constexpr double kRoundsToInfinity = 0x1.ffffffp+127;  // half a step above the largest float
  if (!(std::abs(number) < kRoundsToInfinity)) return false;
  value = static_cast<float>(number);
  return true;
}

bool toNumber(double number, char& value) {
  std::int8_t code = 0;  // the same numbers where char is unsigned
  if (!toInteger(number, code)) return false;
  value = static_cast<char>(code);
  return true;
}

template <typename T>
bool toNumber(double number, T& value) {
  return toInteger(number, value);
}

}  // namespace

JsonVisitingDeSerializer::JsonVisitingDeSerializer(const char* text, bool exactNames)
    : exactNames_(exactNames) {
  Parse(text);
}

JsonVisitingDeSerializer::JsonVisitingDeSerializer(const etl::Buffer& text, bool exactNames)
    : exactNames_(exactNames) {
  const auto* const bytes = reinterpret_cast<const char*>(text.data());
  if (!text.empty() && text.back() == 0) {
    Parse(bytes);
  } else {
    Parse(etl::String(bytes, text.size()).c_str());  // parsing by length reads past the end
  }
}

JsonVisitingDeSerializer::JsonVisitingDeSerializer(cJSON& root, bool exactNames)
    : root_(&root), exactNames_(exactNames) {}

JsonVisitingDeSerializer::~JsonVisitingDeSerializer() { cJSON_Delete(owned_); }

void JsonVisitingDeSerializer::Parse(const char* text) {
  if (text == nullptr) return SetError("Out of memory or invalid JSON format");
  const CLocaleScope scope;
  const DefaultFloatEnvironment environment;
  const std::lock_guard lock(parserMutex());
  if (!nestsTooDeep(text)) owned_ = cJSON_Parse(text);
  root_ = owned_;
  if (root_ == nullptr) SetError("Can not parse JSON");
}

// ---- Whole documents ----

std::unique_ptr<etl::IVisitable> JsonVisitingDeSerializer::DeserializeObject() {
  const cJSON* const root = CheckedRoot();
  if (root == nullptr) return nullptr;
  const char* const className = FindText(root, "class");
  std::unique_ptr<etl::IVisitable> object = etl::Classes::New(className);
  if (object == nullptr) {
    SetError("A class with name " + etl::String(className) +
             " is not registered with the classes repository");
    return nullptr;
  }
  VisitObject(root, *object);
  return HasError() ? nullptr : std::move(object);
}

bool JsonVisitingDeSerializer::DeserializeIntoExistingObject(etl::IVisitable& object) {
  const cJSON* const root = CheckedRoot();
  if (root == nullptr) return false;
  const char* const className = FindText(root, "class");
  if (std::strcmp(className, object.GetClassName()) != 0) {
    SetError("Attempt to deserialize a " + quoted(className) + " type into a " +
             quoted(object.GetClassName()) + " object");
    return false;
  }
  VisitObject(root, object);
  return !HasError();
}

/// @return the root when it has the form of an object with a class name, else null and an error
const cJSON* JsonVisitingDeSerializer::CheckedRoot() {
  levels_.clear();
  objectNode_ = nullptr;
  if (HasError()) return nullptr;
  const cJSON* const first = root_->child;
  if (!cJSON_IsObject(root_)) {
    SetError("JSON sequence is not of 'object' type");
  } else if (first == nullptr || first->next == nullptr || first->next->next != nullptr) {
    SetError("There need to be exact two elements for objects: 'class' and 'data'");
  } else if (FindText(root_, "class") == nullptr) {
    SetError("Could not find JSON 'class' field for object");
  }
  return HasError() ? nullptr : root_;
}

void JsonVisitingDeSerializer::VisitObject(const cJSON* node, etl::IVisitable& object) {
  objectNode_ = node;
  BeginVisiting(object.GetClassName());
  if (!HasError()) object.Visit(*this);
  EndVisiting(object.GetClassName());
}

// ---- Errors ----

void JsonVisitingDeSerializer::SetArraySizeMismatch() {
  FailInClass("Serialized array size mismatch");
}

/// The innermost class that has a name: plain sub-objects often have none.
const etl::String& JsonVisitingDeSerializer::ClassName() const {
  for (auto level = levels_.rbegin(); level != levels_.rend(); ++level) {
    if (level->kind != LevelKind::Array && !level->name.empty()) return level->name;
  }
  static const auto* const none = new etl::String;
  return *none;
}

void JsonVisitingDeSerializer::FailMember(const char* name, const char* what) {
  SetError("Data field " + quoted(name) + " of class '" + ClassName() + "' " + what);
}

void JsonVisitingDeSerializer::FailMissing(const char* name) {
  FailMember(name, "not found or out or range");
}

void JsonVisitingDeSerializer::FailBase64(const char* name) {
  FailInClass("Problems decoding BASE64 'data' field of member " + quoted(name));
}

void JsonVisitingDeSerializer::FailInClass(const etl::String& text) {
  SetError(text + " while de-serializing class '" + ClassName() + "'");
}

// ---- Looking up ----

const cJSON* JsonVisitingDeSerializer::Find(const cJSON* object, const char* name) const {
  const CLocaleScope scope;
  return exactNames_ ? cJSON_GetObjectItemCaseSensitive(object, name)
                     : cJSON_GetObjectItem(object, name);
}

const char* JsonVisitingDeSerializer::FindText(const cJSON* object, const char* name) const {
  return textOf(Find(object, name));
}

/// @return the member of the current object, null when there is none or after an error
const cJSON* JsonVisitingDeSerializer::Lookup(const char* name) {
  if (HasError()) return nullptr;
  if (levels_.empty()) {
    SetError(kNestingMismatch);
    return nullptr;
  }
  return Find(levels_.back().node, name);
}

const cJSON* JsonVisitingDeSerializer::Member(const char* name) {
  const cJSON* const node = Lookup(name);
  if (node == nullptr) FailMissing(name);
  return node;
}

const cJSON* JsonVisitingDeSerializer::ObjectMember(const char* name) {
  const cJSON* const node = Member(name);
  if (cJSON_IsObject(node)) return node;
  FailMissing(name);
  return nullptr;
}

const char* JsonVisitingDeSerializer::TextMember(const char* name) {
  const char* const text = textOf(Member(name));
  if (text == nullptr) FailMissing(name);
  return text;
}

// ---- Members ----

template <typename T>
bool JsonVisitingDeSerializer::Assign(const cJSON* node, T& value, const char* name) {
  if constexpr (std::is_same_v<T, bool>) {
    if (cJSON_IsBool(node)) {
      value = cJSON_IsTrue(node) != 0;
      return true;
    }
  } else {
    if (!cJSON_IsNumber(node)) {
      FailMember(name, "not not a number");
      return false;
    }
    const DefaultFloatEnvironment environment;
    if (toNumber(node->valuedouble, value)) return true;
  }
  FailMissing(name);
  return false;
}

template <typename T>
void JsonVisitingDeSerializer::VisitPrimitive(T& value, const char* name) {
  const cJSON* const node = Member(name);
  if (node != nullptr) Assign(node, value, name);
}

void JsonVisitingDeSerializer::VisitMemberS(etl::String& value, const char* name) {
  const char* const text = TextMember(name);
  if (text != nullptr) value = text;
}

void JsonVisitingDeSerializer::VisitMemberBU(etl::Buffer& value, const char* name) {
  const char* const text = TextMember(name);
  if (text == nullptr) return;
  std::size_t size = 0;
  if (!etl::base64::decodedSize(text, size)) return FailBase64(name);
  etl::Buffer bytes(size);
  if (!etl::base64::decode(text, bytes.data())) return FailBase64(name);
  value = std::move(bytes);
}

void JsonVisitingDeSerializer::VisitMemberByteArray(unsigned char* bytes, std::size_t size,
                                                    const char* name) {
  etl::Buffer decoded;
  VisitMemberBU(decoded, name);
  if (HasError()) return;
  if (decoded.size() != size) return SetArraySizeMismatch();
  if (size > 0) std::memcpy(bytes, decoded.data(), size);
}

// ---- Objects ----

bool JsonVisitingDeSerializer::IsInside(LevelKind kind) const {
  return !levels_.empty() && levels_.back().kind == kind;
}

void JsonVisitingDeSerializer::Enter(LevelKind kind, const cJSON* node, const char* name) {
  levels_.push_back(
      {kind, node, name == nullptr ? "" : name, etl::ArrayType::Primitives, 0, nullptr});
}

void JsonVisitingDeSerializer::Leave(LevelKind kind) {
  if (HasError()) return;
  if (!IsInside(kind)) return SetError(kNestingMismatch);
  levels_.pop_back();
}

void JsonVisitingDeSerializer::BeginVisiting(const char* className) {
  if (HasError()) return;
  const cJSON* const node = std::exchange(objectNode_, nullptr);
  if (node == nullptr) return SetError(kNestingMismatch);
  const cJSON* const data = Find(node, "data");
  if (!cJSON_IsObject(data)) return SetError("Could not find 'data' field on object");
  Enter(LevelKind::Object, data, className);
}

void JsonVisitingDeSerializer::EndVisiting(const char*) { Leave(LevelKind::Object); }

void JsonVisitingDeSerializer::BeginVisitingBaseClass(const char* className) {
  const cJSON* const node = ObjectMember("baseClass");
  if (node == nullptr) return;
  const char* const found = FindText(node, "class");
  if (found == nullptr) return SetError("Could not find 'class' name field for member 'baseClass'");
  if (std::strcmp(found, className) != 0) {
    return SetError("Attempt to deserialize a " + quoted(found) + " type into a " +
                    quoted(className) + " object");
  }
  objectNode_ = node;
  BeginVisiting(className);
}

void JsonVisitingDeSerializer::EndVisitingBaseClass(const char* className) {
  EndVisiting(className);
}

void JsonVisitingDeSerializer::BeginVisitingSubObject(const char* name, const char* className) {
  const cJSON* const node = ObjectMember(name);
  if (node != nullptr) Enter(LevelKind::SubObject, node, className);
}

void JsonVisitingDeSerializer::EndVisitingSubObject(const char*, const char*) {
  Leave(LevelKind::SubObject);
}

void JsonVisitingDeSerializer::VisitSubObjectVisitable(std::shared_ptr<etl::IVisitable>& object,
                                                       const char* name) {
  const cJSON* const node = Member(name);
  if (node == nullptr) return;
  if (cJSON_IsNull(node)) return object.reset();
  if (!cJSON_IsObject(node)) {
    return SetError("'object' fields must be either 'null' or JSON 'object' in member " +
                    quoted(name));
  }
  const char* const className = FindText(node, "class");
  if (className == nullptr) {
    return SetError("Could not find 'class' name field for member " + quoted(name));
  }
  std::unique_ptr<etl::IVisitable> created = etl::Classes::New(className);
  if (created == nullptr) {
    return SetError("Could not create class " + quoted(className) +
                    " at run-time: Not registered with the classes repository");
  }
  VisitObject(node, *created);
  if (!HasError()) object = std::move(created);
}

// ---- Arrays ----

bool JsonVisitingDeSerializer::IsInsideArrayOf(etl::ArrayType type) const {
  return IsInside(LevelKind::Array) && levels_.back().arrayType == type;
}

/// @return the array that begins: the next element of an array of arrays, or a member
const cJSON* JsonVisitingDeSerializer::NextArray(const char* name) {
  if (HasError()) return nullptr;
  const cJSON* node = nullptr;
  if (!IsInside(LevelKind::Array)) {
    node = Lookup(name);
  } else if (!IsInsideArrayOf(etl::ArrayType::Arrays)) {
    SetError(kArrayMismatch);
  } else if (levels_.back().next == nullptr) {
    FailInClass("Array element out of bounds");
  } else {
    node = std::exchange(levels_.back().next, levels_.back().next->next);
  }
  if (cJSON_IsArray(node)) return node;
  SetError("Could not find array beginning bracket for member " + quoted(name) + " of class '" +
           ClassName() + "'");
  return nullptr;
}

void JsonVisitingDeSerializer::BeginVisitingArray(etl::ArrayType type, std::size_t& count,
                                                  const char* name) {
  count = 0;  // also after an error, so that nobody loops over an array that is not there
  // Errors inside an array of arrays name the member that the outermost one is.
  const etl::String outer = IsInside(LevelKind::Array) ? levels_.back().name : "";
  const char* const memberName = outer.empty() ? name : outer.c_str();
  const cJSON* const node = NextArray(memberName);
  if (node == nullptr) return;
  for (const cJSON* element = node->child; element != nullptr; element = element->next) ++count;
  Enter(LevelKind::Array, node, memberName);
  levels_.back().arrayType = type;
  levels_.back().count = count;
  levels_.back().next = node->child;
}

void JsonVisitingDeSerializer::VisitArraySeparator() {
  if (HasError()) return;
  if (!IsInsideArrayOf(etl::ArrayType::Arrays)) return SetError(kArrayMismatch);
  if (levels_.back().next == nullptr) FailInClass("Array element out of bounds");
}

void JsonVisitingDeSerializer::EndVisitingArray(etl::ArrayType type) {
  if (HasError()) return;
  if (!IsInsideArrayOf(type)) return SetError(kArrayMismatch);
  if (levels_.back().next != nullptr) return SetArraySizeMismatch();
  levels_.pop_back();
}

template <typename T>
void JsonVisitingDeSerializer::VisitPrimitives(T* values) {
  if (HasError()) return;
  if (!IsInsideArrayOf(etl::ArrayType::Primitives)) return SetError(kArrayMismatch);
  Level& level = levels_.back();
  for (std::size_t i = 0; i < level.count; ++i) {
    if (level.next == nullptr) return FailInClass("Array element out of bounds");
    if (!Assign(level.next, values[i], level.name.c_str())) return;
    level.next = level.next->next;
  }
}

// ---- Big data arrays ----

void JsonVisitingDeSerializer::VisitBigDataArray(const etl::BigDataArray& array, const char* name) {
  const cJSON* const node = ObjectMember(name);
  if (node == nullptr) return;
  Enter(LevelKind::SubObject, node, "");
  std::size_t bytes = 0;
  const char* const text = CheckedBigData(array, bytes);
  if (text != nullptr) FillBigData(array, text, bytes, name);
  Leave(LevelKind::SubObject);
}

/// @return the base64 text of the current object when all around it agrees with what the visited
///         object expects, and with it the number of bytes; else null and an error
const char* JsonVisitingDeSerializer::CheckedBigData(const etl::BigDataArray& array,
                                                     std::size_t& bytes) {
  const cJSON* const object = levels_.back().node;
  const char* const text = FindText(object, "data");
  const char* const endian = FindText(object, "endian");
  if (text == nullptr) {
    FailInClass("No 'data' field found for big data array");
  } else if (endian == nullptr) {
    FailInClass("Serialized array 'endian' not specified");
  } else if (std::strcmp(endian, "neutral") != 0 && std::strcmp(endian, "little") != 0) {
    FailInClass("Unknown 'endian' type: " + quoted(endian));
  } else if (FindText(object, "elemTypes") == nullptr) {
    FailInClass("Serialized array 'elemTypes' parse error");
  }
  std::uint64_t elems = 0;
  std::uint64_t elemSize = 0;
  VisitPrimitive(elems, "numOfElems");
  VisitPrimitive(elemSize, "elemSz");
  if (HasError()) return nullptr;
  std::size_t expected = 0;
  if (__builtin_mul_overflow(array.rows, array.rowElems, &expected) || elems != expected ||
      elemSize != array.elemSize || __builtin_mul_overflow(expected, elemSize, &bytes)) {
    SetArraySizeMismatch();
    return nullptr;
  }
  return text;
}

void JsonVisitingDeSerializer::FillBigData(const etl::BigDataArray& array, const char* text,
                                           std::size_t bytes, const char* name) {
  const std::string_view encoded(text);
  std::size_t size = 0;
  if (!etl::base64::decodedSize(encoded, size)) return FailBase64(name);
  if (size != bytes) return SetArraySizeMismatch();
  auto* const memory =
      static_cast<unsigned char*>(array.allocate == nullptr ? nullptr : array.allocate());
  if (size == 0) return;
  if (memory == nullptr) return FailInClass("No memory for big data array");
  if (!etl::base64::decode(encoded, memory)) return FailBase64(name);
  base::swapLittle(memory, bytes / array.elemSize, array.elemSize);
}

}  // namespace base

template class etl::ForwardingVisitor<base::JsonVisitingDeSerializer>;
