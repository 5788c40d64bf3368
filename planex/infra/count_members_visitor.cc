#include "planex/infra/count_members_visitor.h"

#include "planex/infra/forwarding_visitor-inl.h"

namespace etl {

template class ForwardingVisitor<CountMembersVisitor>;

void CountMembersVisitor::CountOne() {
  if (depth_ == 0) ++count_;
}

void CountMembersVisitor::Enter() {
  CountOne();
  ++depth_;
}

void CountMembersVisitor::Leave() {
  if (depth_ > 0) --depth_;
}

void CountMembersVisitor::SkipSubObject(const char*) { CountOne(); }

void CountMembersVisitor::VisitMemberS(String&, const char*) { CountOne(); }
void CountMembersVisitor::VisitMemberBU(Buffer&, const char*) { CountOne(); }
void CountMembersVisitor::VisitMemberByteArray(unsigned char*, std::size_t, const char*) {
  CountOne();
}
void CountMembersVisitor::VisitSubObjectVisitable(std::shared_ptr<IVisitable>&, const char*) {
  CountOne();
}
void CountMembersVisitor::VisitBigDataArray(const BigDataArray&, const char*) { CountOne(); }

void CountMembersVisitor::BeginVisiting(const char*) {}
void CountMembersVisitor::EndVisiting(const char*) {}
void CountMembersVisitor::BeginVisitingBaseClass(const char*) { Enter(); }
void CountMembersVisitor::EndVisitingBaseClass(const char*) { Leave(); }
void CountMembersVisitor::BeginVisitingSubObject(const char*, const char*) { Enter(); }
void CountMembersVisitor::EndVisitingSubObject(const char*, const char*) { Leave(); }
void CountMembersVisitor::BeginVisitingArray(ArrayType, std::size_t&, const char*) { Enter(); }
void CountMembersVisitor::VisitArraySeparator() {}
void CountMembersVisitor::EndVisitingArray(ArrayType) { Leave(); }

}  // namespace etl
