#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>

#include "planex/infra/containers.h"
#include "planex/infra/export.h"
#include "planex/infra/visitable.h"

namespace etl {

/// Direction of a visit.
enum class VisitType : std::int32_t {
  Writing = 1,  ///< the visitor reads the members: serialisers and counters
  Reading = 2,  ///< the visitor assigns the members: deserialisers
};

/// What the elements of an array are.
enum class ArrayType : std::int32_t {
  Primitives = 0,  ///< numbers, handed over with one VisitPodArray
  Arrays = 1,      ///< arrays, each begun and ended on its own
};

/// A large typed block as one member: `rows` rows of `rowElems` elements each.
///
/// In a document the rows stand without padding. When writing, `data` and `rowPitchBytes` say
/// where they are in memory. When reading, the shape is what the object expects; only when the
/// document agrees with it is `allocate` called, once, for rows * rowElems * elemSize bytes that
/// the visitor fills without padding. Null from `allocate` is a reading error.
struct BigDataArray {
  const char* elemType = "";        ///< name of the element type, for example "float32"
  std::size_t elemSize = 1;         ///< bytes of one element
  std::size_t rowElems = 0;         ///< elements in one row
  std::size_t rows = 0;             ///< number of rows
  const void* data = nullptr;       ///< writing: first byte of row 0; may be null when empty
  std::size_t rowPitchBytes = 0;    ///< writing: bytes between the starts of two rows
  std::function<void*()> allocate;  ///< reading: memory for the whole block
};

/// What walks the members of visitable objects.
///
/// Member names are NUL-terminated and are not kept. After the first error every further
/// operation does nothing, so that Visit functions need not test after each member; HasError
/// tells the outcome. A visitor serves one thread.
class PLANEX_EXPORT IVisitor {
 public:
  virtual ~IVisitor();

  /// Which way members go.
  virtual VisitType GetVisitType() const = 0;
  /// Whether the visitor assigns the members.
  bool IsReading() const { return GetVisitType() == VisitType::Reading; }

  /// @{
  /// A member of a primitive kind: boolean, character, integer, address as integer, float, text.
  virtual void VisitMemberB(bool& value, const char* name) = 0;
  virtual void VisitMemberC(char& value, const char* name) = 0;
  virtual void VisitMemberI8(std::int8_t& value, const char* name) = 0;
  virtual void VisitMemberI16(std::int16_t& value, const char* name) = 0;
  virtual void VisitMemberI32(std::int32_t& value, const char* name) = 0;
  virtual void VisitMemberI64(std::int64_t& value, const char* name) = 0;
  virtual void VisitMemberUI8(std::uint8_t& value, const char* name) = 0;
  virtual void VisitMemberUI16(std::uint16_t& value, const char* name) = 0;
  virtual void VisitMemberUI32(std::uint32_t& value, const char* name) = 0;
  virtual void VisitMemberUI64(std::uint64_t& value, const char* name) = 0;
  virtual void VisitMemberIP(std::intptr_t& value, const char* name) = 0;
  virtual void VisitMemberUIP(std::uintptr_t& value, const char* name) = 0;
  virtual void VisitMemberF32(float& value, const char* name) = 0;
  virtual void VisitMemberF64(double& value, const char* name) = 0;
  virtual void VisitMemberS(String& value, const char* name) = 0;
  /// @}
  /// A byte buffer of any length, base64 text in a document.
  virtual void VisitMemberBU(Buffer& value, const char* name) = 0;
  /// `size` bytes at a fixed place, base64 text in a document; another length is an error.
  virtual void VisitMemberByteArray(unsigned char* bytes, std::size_t size, const char* name) = 0;
  /// An enumeration as its integer; use VisitMemberE.
  virtual void VisitMemberEInternal(std::int32_t& value, const char* name) = 0;

  /// An enumeration with a 32-bit underlying type, as its integer.
  template <typename Enum>
  void VisitMemberE(Enum& value, const char* name) {
    auto number = static_cast<std::int32_t>(value);
    VisitMemberEInternal(number, name);
    if (IsReading() && !HasError()) value = static_cast<Enum>(number);
  }

  /// @{
  /// The object itself, called by whoever starts a visit (a serialiser's Serialize, say) around
  /// object.Visit; a Visit names the members only.
  virtual void BeginVisiting(const char* className) = 0;
  virtual void EndVisiting(const char* className) = 0;
  /// @}
  /// @{
  /// The members that an object inherits: its Visit calls these around Base::Visit.
  virtual void BeginVisitingBaseClass(const char* className) = 0;
  virtual void EndVisitingBaseClass(const char* className) = 0;
  /// @}

  /// Whether the visitor wants to see the members of nested plain objects; one that does not gets
  /// SkipSubObject for each.
  virtual bool RecursionIntoSubObjectsMeaningful() const { return true; }
  /// Whether nested plain objects must be begun with the number of their members.
  virtual bool NeedsToKnowNumOfMembers() const { return false; }
  /// Takes the place of a nested plain object and its members.
  virtual void SkipSubObject(const char* name) { static_cast<void>(name); }
  /// @{
  /// A nested plain object, part of its owner, whose members are visited in between. `className`
  /// may be empty: errors then name the class of the owner.
  virtual void BeginVisitingSubObject(const char* name, const char* className) = 0;
  virtual void BeginVisitingSubObjectKnowingNumOfMembers(const char* name, const char* className,
                                                         std::size_t count) {
    static_cast<void>(count);
    BeginVisitingSubObject(name, className);
  }
  virtual void EndVisitingSubObject(const char* name, const char* className) = 0;
  /// @}

  /// A nested visitable object held by pointer, possibly null. Reading replaces the pointer by
  /// an object of the class that the document names, or by null; on an error it stays as it was.
  virtual void VisitSubObjectVisitable(std::shared_ptr<IVisitable>& object, const char* name) = 0;

  /// Opens an array. Writing takes `count`; reading sets it to the array's length. `name` is
  /// null for an array inside an array.
  virtual void BeginVisitingArray(ArrayType type, std::size_t& count, const char* name) = 0;
  /// Stands before every element of an array of arrays but the first.
  virtual void VisitArraySeparator() = 0;
  /// Closes the array that was opened last.
  virtual void EndVisitingArray(ArrayType type) = 0;
  /// Reading: reports that the object cannot take an array of the length that the last
  /// BeginVisitingArray gave; the visitor names the class.
  virtual void SetArraySizeMismatch() { SetError("Serialized array size mismatch"); }

  /// @{
  /// The elements of an array of primitives, as many as the last BeginVisitingArray counted.
  virtual void VisitPodArray(bool* values) = 0;
  virtual void VisitPodArray(char* values) = 0;
  virtual void VisitPodArray(std::int8_t* values) = 0;
  virtual void VisitPodArray(std::int16_t* values) = 0;
  virtual void VisitPodArray(std::int32_t* values) = 0;
  virtual void VisitPodArray(std::int64_t* values) = 0;
  virtual void VisitPodArray(std::uint8_t* values) = 0;
  virtual void VisitPodArray(std::uint16_t* values) = 0;
  virtual void VisitPodArray(std::uint32_t* values) = 0;
  virtual void VisitPodArray(std::uint64_t* values) = 0;
  virtual void VisitPodArray(float* values) = 0;
  virtual void VisitPodArray(double* values) = 0;
  /// @}

  /// A large typed block as one member.
  virtual void VisitBigDataArray(const BigDataArray& array, const char* name) = 0;

  /// Reports a failure; the first one is kept.
  virtual void SetError(const String& text) = 0;
  /// Whether anything has failed.
  virtual bool HasError() const = 0;
  /// The text of the first failure; empty when there was none.
  virtual const String& GetErrorDescription() const = 0;
};

}  // namespace etl
