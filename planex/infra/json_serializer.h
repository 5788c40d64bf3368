#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "planex/infra/containers.h"
#include "planex/infra/export.h"
#include "planex/infra/forwarding_visitor.h"
#include "planex/infra/out_stream.h"
#include "planex/infra/visitor.h"

namespace base {

/// How much of an object a serialiser writes.
enum class Details : std::int32_t {
  Full = 0,            ///< everything: the document can be read back
  WithoutBigData = 1,  ///< big data arrays with an empty "data" text: a summary for people, which
                       ///< a reader refuses
};

/// Writes visitable objects as JSON.
///
///     etl::MemoryOutStream stream;
///     base::JsonVisitingSerializer serializer(stream, true);
///     if (serializer.Serialize(model)) use(stream.GetText());
///
/// An object is `{"class":"Name","data":{members in visiting order}}`. In it
///   - integers are decimal, also enumerations and char (as its code); booleans true or false;
///   - floats and doubles are printed as by %.*g in the C locale; any NaN is the bare word nan,
///     infinities are inf and -inf (these three words are not JSON: a reader refuses the text);
///   - strings are quoted, with quotes, backslashes and control characters escaped and all other
///     bytes as they are; byte buffers and byte arrays are strings of base64;
///   - a plain sub-object is an object with its members, without "class" and "data";
///   - a nested visitable object has the form of the whole, or is null for an empty pointer;
///   - a base-class part has that form too, as the member "baseClass";
///   - arrays are arrays of numbers (or of true and false) or arrays of those;
///   - a big data array is an object: "numOfElems", "elemSz" (bytes of one element), "endian"
///     ("neutral" for elements of one byte, else "little"), "elemTypes" (BigDataArray::elemType)
///     and "data", the rows in base64 without padding between them.
///
/// Pretty text starts every member and element on a line of its own ("\r\n"), indented by two
/// spaces per level; compact text has no white space. Nothing depends on the locale.
///
/// Failures are recorded, the first one is kept, and from then on nothing is written; what
/// reached the stream before stays there. Texts: "Could not write to the output stream",
/// "EndVisitingArray() mismatch" and "Nested EndVisiting() mismatch" (a Visit that opens and
/// closes unevenly), "Big data array of invalid size". Only std::bad_alloc is thrown.
class PLANEX_EXPORT JsonVisitingSerializer : public etl::ForwardingVisitor<JsonVisitingSerializer> {
 public:
  /// @param stream receives the text in pieces; must outlive the serialiser
  JsonVisitingSerializer(etl::OutStream& stream, bool pretty);

  /// Writes one object. Several calls write several documents, one after the other.
  /// @return whether everything was written, !HasError()
  bool Serialize(etl::IVisitable& object);

  /// Significant digits of floats and doubles, 9 and 17 at first: what is needed to read the same
  /// value back. 0 counts as 1, and more than 40 as 40.
  void SetNumOfSignificants(unsigned short floatDigits, unsigned short doubleDigits);

  /// Details::Full at first.
  void SetVisitingDetails(Details details) { details_ = details; }

  etl::VisitType GetVisitType() const override { return etl::VisitType::Writing; }

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

 private:
  friend class etl::ForwardingVisitor<JsonVisitingSerializer>;
  enum class LevelKind { Wrapper, Object, SubObject, Array };  // Wrapper: of "class" and "data"
  struct Level {
    LevelKind kind;
    etl::ArrayType arrayType;
    std::size_t announced;  // elements of an array
    std::size_t written;    // members or elements so far
  };

  void WriteObject(etl::IVisitable& object);
  bool BeginMember(const char* name);
  bool BeginArrayValue(const char* name);
  void Separate();
  void NewLine();
  void Open(LevelKind kind, char bracket);
  void Close(char bracket);
  bool IsInside(LevelKind kind) const;
  void PutText(std::string_view text) { pending_.append(text); }
  void PutQuoted(std::string_view text);
  void PutBase64(const void* bytes, std::size_t size);
  void PutBase64Rows(const etl::BigDataArray& array);
  template <typename T>
  PLANEX_HIDDEN void PutNumber(T value);
  template <typename T>
  PLANEX_HIDDEN void VisitPrimitive(T value, const char* name);
  template <typename T>
  PLANEX_HIDDEN void VisitPrimitives(T* values);
  void Flush();

  etl::OutStream& stream_;
  const bool pretty_;
  int floatDigits_ = 9;
  int doubleDigits_ = 17;
  Details details_ = Details::Full;
  bool objectExpected_ = false;  // a member name is written, BeginVisiting gives its value
  std::vector<Level> levels_;
  std::string pending_;  // not yet in the stream
};

}  // namespace base

/// @cond explicit instantiation
extern template class etl::ForwardingVisitor<base::JsonVisitingSerializer>;
/// @endcond
