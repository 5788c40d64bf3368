#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "planex/infra/containers.h"
#include "planex/infra/export.h"
#include "planex/infra/visitor.h"

namespace etl {

/// Counts the members of an object that a writer would see at its top level.
///
///     CountMembersVisitor counter;
///     object.Visit(counter);
///     counter.GetCount();
///
/// Each primitive member, sub-object, nested visitable object, array and big data array counts
/// as one, and so does a base-class part; what is inside them does not count. Members are read,
/// never changed. Nothing is checked, so only SetError makes HasError true.
class PLANEX_EXPORT CountMembersVisitor final : public IVisitor {
 public:
  /// The members seen so far.
  std::size_t GetCount() const { return count_; }

  VisitType GetVisitType() const override { return VisitType::Writing; }
  bool RecursionIntoSubObjectsMeaningful() const override { return false; }
  void SkipSubObject(const char* name) override;

  void VisitMemberB(bool& value, const char* name) override;
  void VisitMemberC(char& value, const char* name) override;
  void VisitMemberI8(std::int8_t& value, const char* name) override;
  void VisitMemberI16(std::int16_t& value, const char* name) override;
  void VisitMemberI32(std::int32_t& value, const char* name) override;
  void VisitMemberI64(std::int64_t& value, const char* name) override;
  void VisitMemberUI8(std::uint8_t& value, const char* name) override;
  void VisitMemberUI16(std::uint16_t& value, const char* name) override;
  void VisitMemberUI32(std::uint32_t& value, const char* name) override;
  void VisitMemberUI64(std::uint64_t& value, const char* name) override;
  void VisitMemberIP(std::intptr_t& value, const char* name) override;
  void VisitMemberUIP(std::uintptr_t& value, const char* name) override;
  void VisitMemberF32(float& value, const char* name) override;
  void VisitMemberF64(double& value, const char* name) override;
  void VisitMemberS(String& value, const char* name) override;
  void VisitMemberBU(Buffer& value, const char* name) override;
  void VisitMemberByteArray(unsigned char* bytes, std::size_t size, const char* name) override;
  void VisitMemberEInternal(std::int32_t& value, const char* name) override;

  void BeginVisiting(const char* className) override;
  void EndVisiting(const char* className) override;
  void BeginVisitingBaseClass(const char* className) override;
  void EndVisitingBaseClass(const char* className) override;
  void BeginVisitingSubObject(const char* name, const char* className) override;
  void EndVisitingSubObject(const char* name, const char* className) override;
  void VisitSubObjectVisitable(std::shared_ptr<IVisitable>& object, const char* name) override;

  void BeginVisitingArray(ArrayType type, std::size_t& count, const char* name) override;
  void VisitArraySeparator() override;
  void EndVisitingArray(ArrayType type) override;
  void VisitPodArray(bool* values) override;
  void VisitPodArray(char* values) override;
  void VisitPodArray(std::int8_t* values) override;
  void VisitPodArray(std::int16_t* values) override;
  void VisitPodArray(std::int32_t* values) override;
  void VisitPodArray(std::int64_t* values) override;
  void VisitPodArray(std::uint8_t* values) override;
  void VisitPodArray(std::uint16_t* values) override;
  void VisitPodArray(std::uint32_t* values) override;
  void VisitPodArray(std::uint64_t* values) override;
  void VisitPodArray(float* values) override;
  void VisitPodArray(double* values) override;
  void VisitBigDataArray(const BigDataArray& array, const char* name) override;

  void SetError(const String& text) override;
  bool HasError() const override { return !error_.empty(); }
  const String& GetErrorDescription() const override { return error_; }

 private:
  void CountOne();
  void Enter();
  void Leave();

  std::size_t count_ = 0;
  std::size_t depth_ = 0;  // open arrays, sub-objects and base-class parts
  String error_;
};

}  // namespace etl
