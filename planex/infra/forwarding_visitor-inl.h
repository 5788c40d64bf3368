#pragma once

#include "planex/infra/forwarding_visitor.h"

// Included by the one .cc file of each visitor, which instantiates the class for it.

namespace etl {

// NOLINTBEGIN(bugprone-macro-parentheses): a type cannot be enclosed
#define PLANEX_FORWARD_MEMBER(kind, type)                                             \
  template <typename Derived>                                                         \
  void ForwardingVisitor<Derived>::VisitMember##kind(type& value, const char* name) { \
    static_cast<Derived*>(this)->VisitPrimitive(value, name);                         \
  }
PLANEX_FORWARD_MEMBER(B, bool)
PLANEX_FORWARD_MEMBER(C, char)
PLANEX_FORWARD_MEMBER(I8, std::int8_t)
PLANEX_FORWARD_MEMBER(I16, std::int16_t)
PLANEX_FORWARD_MEMBER(I32, std::int32_t)
PLANEX_FORWARD_MEMBER(I64, std::int64_t)
PLANEX_FORWARD_MEMBER(UI8, std::uint8_t)
PLANEX_FORWARD_MEMBER(UI16, std::uint16_t)
PLANEX_FORWARD_MEMBER(UI32, std::uint32_t)
PLANEX_FORWARD_MEMBER(UI64, std::uint64_t)
PLANEX_FORWARD_MEMBER(IP, std::intptr_t)
PLANEX_FORWARD_MEMBER(UIP, std::uintptr_t)
PLANEX_FORWARD_MEMBER(F32, float)
PLANEX_FORWARD_MEMBER(F64, double)
PLANEX_FORWARD_MEMBER(EInternal, std::int32_t)
#undef PLANEX_FORWARD_MEMBER

#define PLANEX_FORWARD_ARRAY(type)                               \
  template <typename Derived>                                    \
  void ForwardingVisitor<Derived>::VisitPodArray(type* values) { \
    static_cast<Derived*>(this)->VisitPrimitives(values);        \
  }
PLANEX_FORWARD_ARRAY(bool)
PLANEX_FORWARD_ARRAY(char)
PLANEX_FORWARD_ARRAY(std::int8_t)
PLANEX_FORWARD_ARRAY(std::int16_t)
PLANEX_FORWARD_ARRAY(std::int32_t)
PLANEX_FORWARD_ARRAY(std::int64_t)
PLANEX_FORWARD_ARRAY(std::uint8_t)
PLANEX_FORWARD_ARRAY(std::uint16_t)
PLANEX_FORWARD_ARRAY(std::uint32_t)
PLANEX_FORWARD_ARRAY(std::uint64_t)
PLANEX_FORWARD_ARRAY(float)
PLANEX_FORWARD_ARRAY(double)
#undef PLANEX_FORWARD_ARRAY
// NOLINTEND(bugprone-macro-parentheses)

template <typename Derived>
void ForwardingVisitor<Derived>::SetError(const String& text) {
  if (!HasError()) error_ = text;
}

}  // namespace etl
