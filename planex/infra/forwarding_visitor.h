#pragma once

#include <cstdint>

#include "planex/infra/containers.h"
#include "planex/infra/export.h"
#include "planex/infra/visitor.h"

namespace etl {

/// The part of a visitor that is the same for all of the library's: primitive members of every kind
/// go to one member template of Derived, arrays of them to another, and the first error is kept.
///
///     template <typename T> void VisitPrimitive(T& value, const char* name);
///     template <typename T> void VisitPrimitives(T* values);
///
/// Derived befriends this class when they are private. The definitions are compiled into the
/// library, for its own visitors only.
template <typename Derived>
class PLANEX_EXPORT ForwardingVisitor : public IVisitor {
 public:
  /// @cond the overrides, which IVisitor describes
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
  void VisitMemberEInternal(std::int32_t& value, const char* name) override;

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
  /// @endcond

  /// Keeps the first text.
  void SetError(const String& text) override;
  /// Whether there was an error.
  bool HasError() const override { return !error_.empty(); }
  /// The text of the first error; empty without one.
  const String& GetErrorDescription() const override { return error_; }

 private:
  String error_;
};

}  // namespace etl
