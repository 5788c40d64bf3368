#include "planex/infra/count_members_visitor.h"

namespace etl {

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

void CountMembersVisitor::VisitMemberB(bool&, const char*) { CountOne(); }
void CountMembersVisitor::VisitMemberC(char&, const char*) { CountOne(); }
void CountMembersVisitor::VisitMemberI8(std::int8_t&, const char*) { CountOne(); }
void CountMembersVisitor::VisitMemberI16(std::int16_t&, const char*) { CountOne(); }
void CountMembersVisitor::VisitMemberI32(std::int32_t&, const char*) { CountOne(); }
void CountMembersVisitor::VisitMemberI64(std::int64_t&, const char*) { CountOne(); }
void CountMembersVisitor::VisitMemberUI8(std::uint8_t&, const char*) { CountOne(); }
void CountMembersVisitor::VisitMemberUI16(std::uint16_t&, const char*) { CountOne(); }
void CountMembersVisitor::VisitMemberUI32(std::uint32_t&, const char*) { CountOne(); }
void CountMembersVisitor::VisitMemberUI64(std::uint64_t&, const char*) { CountOne(); }
void CountMembersVisitor::VisitMemberIP(std::intptr_t&, const char*) { CountOne(); }
void CountMembersVisitor::VisitMemberUIP(std::uintptr_t&, const char*) { CountOne(); }
void CountMembersVisitor::VisitMemberF32(float&, const char*) { CountOne(); }
void CountMembersVisitor::VisitMemberF64(double&, const char*) { CountOne(); }
void CountMembersVisitor::VisitMemberS(String&, const char*) { CountOne(); }
void CountMembersVisitor::VisitMemberBU(Buffer&, const char*) { CountOne(); }
void CountMembersVisitor::VisitMemberByteArray(unsigned char*, std::size_t, const char*) {
  CountOne();
}
void CountMembersVisitor::VisitMemberEInternal(std::int32_t&, const char*) { CountOne(); }
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

void CountMembersVisitor::VisitPodArray(bool*) {}
void CountMembersVisitor::VisitPodArray(char*) {}
void CountMembersVisitor::VisitPodArray(std::int8_t*) {}
void CountMembersVisitor::VisitPodArray(std::int16_t*) {}
void CountMembersVisitor::VisitPodArray(std::int32_t*) {}
void CountMembersVisitor::VisitPodArray(std::int64_t*) {}
void CountMembersVisitor::VisitPodArray(std::uint8_t*) {}
void CountMembersVisitor::VisitPodArray(std::uint16_t*) {}
void CountMembersVisitor::VisitPodArray(std::uint32_t*) {}
void CountMembersVisitor::VisitPodArray(std::uint64_t*) {}
void CountMembersVisitor::VisitPodArray(float*) {}
void CountMembersVisitor::VisitPodArray(double*) {}

void CountMembersVisitor::SetError(const String& text) {
  if (!HasError()) error_ = text;
}

}  // namespace etl
