#pragma once

#include <cstddef>

#include "planex/infra/count_members_visitor.h"
#include "planex/infra/visitor.h"

namespace etl {

/// Walks a nested plain object, one that is part of its owner and has no life of its own.
///
/// Asks the visitor whether it wants to enter at all and whether it must know the number of
/// members beforehand; a visitor that does not enter gets SkipSubObject instead.
///
///     etl::visitPlainSubObject(visitor, "LensCenter", "", [this](etl::IVisitor& v) {
///       v.VisitMemberF64(LensCenter.x, "x");
///       v.VisitMemberF64(LensCenter.y, "y");
///     });
///
/// @param name      the member under which the owner holds it
/// @param className may be empty: errors then name the class of the owner
/// @param members   void(IVisitor&), visits the members in document order; called once, or twice
///                  when they have to be counted first, then with a visitor that writes
template <typename Members>
void visitPlainSubObject(IVisitor& visitor, const char* name, const char* className,
                         const Members& members) {
  if (!visitor.RecursionIntoSubObjectsMeaningful()) {
    visitor.SkipSubObject(name);
    return;
  }
  std::size_t count = 0;
  if (visitor.NeedsToKnowNumOfMembers()) {
    CountMembersVisitor counter;
    members(static_cast<IVisitor&>(counter));
    count = counter.GetCount();
  }
  visitor.BeginVisitingSubObjectKnowingNumOfMembers(name, className, count);
  members(visitor);
  visitor.EndVisitingSubObject(name, className);
}

}  // namespace etl
