#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "planex/infra/containers.h"
#include "planex/infra/export.h"
#include "planex/infra/forwarding_visitor.h"
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
class PLANEX_EXPORT CountMembersVisitor final : public ForwardingVisitor<CountMembersVisitor> {
 public:
  /// The members seen so far.
  std::size_t GetCount() const { return count_; }

  VisitType GetVisitType() const override { return VisitType::Writing; }
  bool RecursionIntoSubObjectsMeaningful() const override { return false; }
  void SkipSubObject(const char* name) override;

  void VisitMemberS(String& value, const char* name) override;
  void VisitMemberBU(Buffer& value, const char* name) override;
  void VisitMemberByteArray(unsigned char* bytes, std::size_t size, const char* name) override;

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
  void VisitBigDataArray(const BigDataArray& array, const char* name) override;

 private:
  friend class ForwardingVisitor<CountMembersVisitor>;
  template <typename T>
  PLANEX_HIDDEN void VisitPrimitive(T&, const char*) {
    CountOne();
  }
  template <typename T>
  PLANEX_HIDDEN void VisitPrimitives(T*) {}
  void CountOne();
  void Enter();
  void Leave();

  std::size_t count_ = 0;
  std::size_t depth_ = 0;  // open arrays, sub-objects and base-class parts
};

extern template class ForwardingVisitor<CountMembersVisitor>;

}  // namespace etl
