#include "planex/infra/visitor.h"

namespace etl {

// The destructors are the key functions: the tables of virtual functions exist once, here.
IVisitable::~IVisitable() = default;
IVisitor::~IVisitor() = default;

}  // namespace etl
