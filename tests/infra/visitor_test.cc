#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>

#include "planex/infra/allocator.h"
#include "planex/infra/class_repository.h"
#include "planex/infra/count_members_visitor.h"
#include "planex/infra/json_serializer.h"
#include "planex/infra/out_stream.h"
#include "planex/infra/sub_object.h"

namespace {

/// A writer that must know the number of members.
class Asking final : public base::JsonVisitingSerializer {
 public:
  using JsonVisitingSerializer::JsonVisitingSerializer;
  bool NeedsToKnowNumOfMembers() const override { return true; }
  void BeginVisitingSubObjectKnowingNumOfMembers(const char* name, const char* className,
                                                 std::size_t count) override {
    EXPECT_EQ(count, 2U);
    JsonVisitingSerializer::BeginVisitingSubObjectKnowingNumOfMembers(name, className, count);
  }
};

/// A part of two members.
struct Whole final : etl::IVisitable {
  const char* GetClassName() const override { return "Whole"; }
  void Visit(etl::IVisitor& v) override {
    etl::visitPlainSubObject(v, "sub", "", [](etl::IVisitor& inner) {
      std::int32_t number = 1;
      inner.VisitMemberI32(number, "x");
      inner.VisitMemberI32(number, "y");
    });
  }
  std::unique_ptr<etl::IVisitable> CloneVisitable() const override { return nullptr; }
};

TEST(VisitPlainSubObject, CountsTheMembersOnRequest) {
  etl::MemoryOutStream stream;
  Asking visitor(stream, false);
  Whole whole;
  EXPECT_TRUE(visitor.Serialize(whole)) << visitor.GetErrorDescription();
  EXPECT_EQ(stream.GetText(), R"({"class":"Whole","data":{"sub":{"x":1,"y":1}}})");
}

TEST(CountMembersVisitor, CountsTheOutermostAndKeepsTheFirstError) {
  etl::CountMembersVisitor counter;
  counter.BeginVisiting("Whole");
  Whole().Visit(counter);
  counter.VisitBigDataArray({"t", 1, 0, 0, nullptr, 0, {}}, "p");
  EXPECT_EQ(counter.GetCount(), 2U);
  counter.SetError("first");
  counter.SetArraySizeMismatch();
  EXPECT_EQ(counter.GetErrorDescription(), "first");
}

TEST(Classes, KeepsTheFirstFactoryOfAName) {
  EXPECT_EQ(etl::Classes::New("Whole"), nullptr);
  EXPECT_TRUE(etl::registerClass<Whole>("Whole"));
  EXPECT_TRUE(etl::Classes::Register("Whole", [] { return std::unique_ptr<etl::IVisitable>(); }));
  EXPECT_STREQ(etl::Classes::New("Whole")->GetClassName(), "Whole");
}

TEST(StandardMemAllocator, AlignsAndRefusesWhatCannotBe) {
  const auto& memory = etl::StandardMemAllocator::Default();
  for (const std::size_t size : {0U, 1U, 64U, 65U}) {
    void* const bytes = memory.Allocate(size);
    ASSERT_NE(bytes, nullptr);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(bytes) % 64, 0U) << size;
    memory.Deallocate(bytes);
  }
  EXPECT_EQ(memory.Allocate(SIZE_MAX), nullptr);
  memory.Deallocate(nullptr);
}

}  // namespace
