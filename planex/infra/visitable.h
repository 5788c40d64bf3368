#pragma once

#include <memory>

#include "planex/infra/export.h"

namespace etl {

class IVisitor;

/// An object that describes its persistent members.
///
/// One Visit serves every direction: it names each member in document order and hands the
/// visitor a reference to it. A visitor that writes reads the members; one that reads assigns
/// them. Members that are stored in another form than they are written (an enumeration as its
/// name) ask IVisitor::GetVisitType for the direction.
class PLANEX_EXPORT IVisitable {
 public:
  virtual ~IVisitable();

  /// The name under which the class is registered with etl::Classes; static storage.
  virtual const char* GetClassName() const = 0;

  /// Walks the members. Reading stops at the first error that the visitor reports; members read
  /// before it keep their new values.
  virtual void Visit(IVisitor& visitor) = 0;

  /// @return a copy on the heap
  virtual std::unique_ptr<IVisitable> CloneVisitable() const = 0;

 protected:
  IVisitable() = default;
  /// @{
  /// For derived classes.
  IVisitable(const IVisitable&) = default;
  IVisitable& operator=(const IVisitable&) = default;
  /// @}
};

}  // namespace etl
