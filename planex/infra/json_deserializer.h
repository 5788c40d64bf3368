#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "planex/infra/containers.h"
#include "planex/infra/export.h"
#include "planex/infra/forwarding_visitor.h"
#include "planex/infra/visitor.h"

struct cJSON;

namespace base {

/// Fills visitable objects from JSON, the form that JsonVisitingSerializer writes.
///
///     base::JsonVisitingDeSerializer document(text, false);
///     if (!document.DeserializeIntoExistingObject(model)) report(document.GetErrorDescription());
///
/// Members are looked up by name, so their order is free, and members that no Visit asks for are
/// ignored. Of members of the same name the first counts. No white space, key or number depends
/// on the locale. A byte order mark of UTF-8 before the text and anything after the document are
/// skipped. Nesting deeper than 100 levels is refused as no JSON.
///
/// Values:
///   - an integer must be written as a number without fraction that its type can hold, anything
///     else is out of range. Numbers are parsed as doubles: a 64-bit integer beyond 2^53 becomes
///     the nearest double, and one that this rounds up to 2^63 (2^64 unsigned) is the largest
///     value of its type, so that the limits survive;
///   - a float is rounded to nearest; a number that rounds to infinity is out of range, for
///     doubles likewise;
///   - a boolean must be true or false, a string a string; "\u0000" ends a string;
///   - char is the number of its code; byte buffers and byte arrays are base64 text;
///   - base64 is taken strictly: padded to a multiple of four, no white space, unused bits zero;
///   - a big data array must have the number and size of elements that the object expects, and
///     text of just that many bytes, before memory is asked for. Its "endian" may be "neutral" or
///     "little". Its "elemTypes" must be a string, a note of the writer that is not interpreted.
///
/// Bad documents never throw. The first error is kept, later operations do nothing, and members
/// read before it keep their new values. Texts (M is the member, C the innermost class that has
/// a name):
///   - "Can not parse JSON"; "Out of memory or invalid JSON format" (a null text);
///   - "JSON sequence is not of 'object' type",
///     "There need to be exact two elements for objects: 'class' and 'data'",
///     "Could not find JSON 'class' field for object", "Could not find 'data' field on object",
///     "A class with name C is not registered with the classes repository",
///     "Attempt to deserialize a 'C' type into a 'C' object";
///   - "Data field 'M' of class 'C' not found or out or range" (missing, of another JSON type, or
///     beyond the type), "Data field 'M' of class 'C' not not a number";
///   - "'object' fields must be either 'null' or JSON 'object' in member 'M'",
///     "Could not find 'class' name field for member 'M'",
///     "Could not create class 'C' at run-time: Not registered with the classes repository";
///   - "Could not find array beginning bracket for member 'M' of class 'C'",
///     "Serialized array size mismatch while de-serializing class 'C'",
///     "Array element out of bounds while de-serializing class 'C'";
///   - "No 'data' field found for big data array while de-serializing class 'C'",
///     "Serialized array 'endian' not specified while de-serializing class 'C'",
///     "Unknown 'endian' type: '...' while de-serializing class 'C'",
///     "Serialized array 'elemTypes' parse error while de-serializing class 'C'",
///     "No memory for big data array while de-serializing class 'C'",
///     "Problems decoding BASE64 'data' field of member 'M' while de-serializing class 'C'";
///   - "EndVisitingArray() mismatch", "Nested EndVisiting() mismatch": a Visit that opens and
///     closes unevenly.
class PLANEX_EXPORT JsonVisitingDeSerializer final
    : public etl::ForwardingVisitor<JsonVisitingDeSerializer> {
 public:
  /// Parses the text at once; it need not live on.
  /// @param text       NUL-terminated
  /// @param exactNames false: names of members match in any case of the ASCII letters; true: only
  ///                   as they are written
  JsonVisitingDeSerializer(const char* text, bool exactNames);
  /// Parses the bytes at once, as far as the first NUL.
  JsonVisitingDeSerializer(const etl::Buffer& text, bool exactNames);
  /// Reads from a parsed document, which must outlive the deserialiser and is not changed.
  JsonVisitingDeSerializer(cJSON& root, bool exactNames);
  ~JsonVisitingDeSerializer() override;
  JsonVisitingDeSerializer(const JsonVisitingDeSerializer&) = delete;
  JsonVisitingDeSerializer& operator=(const JsonVisitingDeSerializer&) = delete;

  /// Creates the object that the document names, through etl::Classes, and fills it.
  /// @return null on an error
  std::unique_ptr<etl::IVisitable> DeserializeObject();

  /// Fills an object whose class is that of the document; the class need not be registered.
  /// @return !HasError()
  bool DeserializeIntoExistingObject(etl::IVisitable& object);

  etl::VisitType GetVisitType() const override { return etl::VisitType::Reading; }

  void VisitMemberS(etl::String& value, const char* name) override;
  void VisitMemberBU(etl::Buffer& value, const char* name) override;
  void VisitMemberByteArray(unsigned char* bytes, std::size_t size, const char* name) override;

  void BeginVisiting(const char* className) override;
  void EndVisiting(const char* className) override;
  void BeginVisitingBaseClass(const char* className) override;
  void EndVisitingBaseClass(const char* className) override;
  void BeginVisitingSubObject(const char* name, const char* className) override;
  void EndVisitingSubObject(const char* name, const char* className) override;
  void VisitSubObjectVisitable(std::shared_ptr<etl::IVisitable>& object, const char* name) override;

  void BeginVisitingArray(etl::ArrayType type, std::size_t& count, const char* name) override;
  void VisitArraySeparator() override;
  void EndVisitingArray(etl::ArrayType type) override;
  void VisitBigDataArray(const etl::BigDataArray& array, const char* name) override;

  void SetArraySizeMismatch() override;

 private:
  friend class etl::ForwardingVisitor<JsonVisitingDeSerializer>;
  enum class LevelKind { Object, SubObject, Array };
  struct Level {
    LevelKind kind;
    const cJSON* node;
    etl::String name;          // class of an object, also when empty; member name of an array
    etl::ArrayType arrayType;  // array only, like what follows
    std::size_t count;         // its length
    const cJSON* next;         // first element not yet visited
  };

  void Parse(const char* text);
  const cJSON* CheckedRoot();
  void VisitObject(const cJSON* node, etl::IVisitable& object);

  const cJSON* Find(const cJSON* object, const char* name) const;
  const char* FindText(const cJSON* object, const char* name) const;
  const cJSON* Lookup(const char* name);
  const cJSON* Member(const char* name);
  const cJSON* ObjectMember(const char* name);
  const char* TextMember(const char* name);
  template <typename T>
  PLANEX_HIDDEN bool Assign(const cJSON* node, T& value, const char* name);
  template <typename T>
  PLANEX_HIDDEN void VisitPrimitive(T& value, const char* name);

  bool IsInside(LevelKind kind) const;
  bool IsInsideArrayOf(etl::ArrayType type) const;
  void Enter(LevelKind kind, const cJSON* node, const char* name);
  void Leave(LevelKind kind);
  const cJSON* NextArray(const char* name);
  template <typename T>
  PLANEX_HIDDEN void VisitPrimitives(T* values);
  const char* CheckedBigData(const etl::BigDataArray& array, std::size_t& bytes);
  void FillBigData(const etl::BigDataArray& array, const char* text, std::size_t bytes,
                   const char* name);

  const etl::String& ClassName() const;
  void FailMember(const char* name, const char* what);
  void FailMissing(const char* name);
  void FailBase64(const char* name);
  void FailInClass(const etl::String& text);

  cJSON* owned_ = nullptr;
  const cJSON* root_ = nullptr;
  const bool exactNames_;
  const cJSON* objectNode_ = nullptr;  // what the next BeginVisiting enters
  std::vector<Level> levels_;
};

}  // namespace base

/// @cond explicit instantiation
extern template class etl::ForwardingVisitor<base::JsonVisitingDeSerializer>;
/// @endcond
