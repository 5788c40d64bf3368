#include "planex/infra/visitor.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>

#include "planex/infra/allocator.h"
#include "planex/infra/class_repository.h"
#include "planex/infra/count_members_visitor.h"
#include "planex/infra/sub_object.h"
#include "tests/infra/probe.h"

namespace {

/// One member of every structure, each with more inside that must not be counted.
void visitStructures(etl::IVisitor& visitor) {
  std::int32_t number = 0;
  double row[2] = {};
  std::size_t rows = 2;
  std::size_t columns = 2;
  std::shared_ptr<etl::IVisitable> nested =
      std::make_shared<test::Probe>([&](etl::IVisitor& v) { v.VisitMemberI32(number, "inner"); });
  visitor.BeginVisitingBaseClass("Base");
  visitor.VisitMemberI32(number, "inherited");
  visitor.EndVisitingBaseClass("Base");
  visitor.VisitMemberI32(number, "own");
  etl::visitPlainSubObject(visitor, "sub", "", [&](etl::IVisitor& v) {
    v.VisitMemberI32(number, "a");
    v.VisitMemberI32(number, "b");
  });
  visitor.VisitSubObjectVisitable(nested, "nested");
  visitor.BeginVisitingArray(etl::ArrayType::Arrays, rows, "matrix");
  for (std::size_t r = 0; r < rows; ++r) {
    visitor.BeginVisitingArray(etl::ArrayType::Primitives, columns, nullptr);
    visitor.VisitPodArray(row);
    visitor.EndVisitingArray(etl::ArrayType::Primitives);
  }
  visitor.EndVisitingArray(etl::ArrayType::Arrays);
  visitor.VisitBigDataArray({}, "pixels");
}

TEST(CountMembersVisitor, CountsEachStructureOnce) {
  etl::CountMembersVisitor counter;
  visitStructures(counter);
  EXPECT_EQ(counter.GetCount(), 6U);
  EXPECT_FALSE(counter.HasError());
}

/// A writer that may pass over sub-objects or ask for their size.
class Asking : public base::JsonVisitingSerializer {
 public:
  Asking(etl::OutStream& stream, bool enters, bool counts)
      : JsonVisitingSerializer(stream, false), enters_(enters), counts_(counts) {}

  bool RecursionIntoSubObjectsMeaningful() const override { return enters_; }
  bool NeedsToKnowNumOfMembers() const override { return counts_; }
  void SkipSubObject(const char* name) override { asked += std::string("skip ") + name; }
  void BeginVisitingSubObjectKnowingNumOfMembers(const char* name, const char* className,
                                                 std::size_t count) override {
    asked += "begin " + std::to_string(count);
    BeginVisitingSubObject(name, className);
  }

  std::string asked;

 private:
  bool enters_;
  bool counts_;
};

TEST(VisitPlainSubObject, AsksTheVisitorFirst) {
  struct Case {
    bool enters, counts;
    const char *asked, *data;
  };
  const Case kCases[] = {
      {true, false, "begin 0", R"({"sub":{"x":1,"y":1}})"},
      {true, true, "begin 2", R"({"sub":{"x":1,"y":1}})"},
      {false, true, "skip sub", "{}"},
  };
  for (const Case& c : kCases) {
    etl::MemoryOutStream stream;
    Asking visitor(stream, c.enters, c.counts);
    test::Probe probe([](etl::IVisitor& v) {
      etl::visitPlainSubObject(v, "sub", "", [](etl::IVisitor& inner) {
        std::int32_t number = 1;
        inner.VisitMemberI32(number, "x");
        inner.VisitMemberI32(number, "y");
      });
    });
    EXPECT_TRUE(visitor.Serialize(probe)) << visitor.GetErrorDescription();
    EXPECT_EQ(visitor.asked, c.asked);
    EXPECT_EQ(stream.GetText(), R"({"class":"Probe","data":)" + std::string(c.data) + "}");
  }
}

TEST(Classes, KeepsTheFirstFactoryOfAName) {
  const auto first = +[]() -> std::unique_ptr<etl::IVisitable> {
    return std::make_unique<test::Probe>([](etl::IVisitor&) {}, "first");
  };
  const auto second = +[]() -> std::unique_ptr<etl::IVisitable> { return nullptr; };
  EXPECT_FALSE(etl::Classes::IsRegistered("Test.Twice"));
  EXPECT_EQ(etl::Classes::New("Test.Twice"), nullptr);
  EXPECT_TRUE(etl::Classes::Register("Test.Twice", first));
  EXPECT_TRUE(etl::Classes::Register("Test.Twice", second));
  EXPECT_STREQ(etl::Classes::New("Test.Twice")->GetClassName(), "first");
}

TEST(StandardMemAllocator, AlignsAndRefusesWhatCannotBe) {
  const auto& memory = etl::StandardMemAllocator::Default();
  for (const std::size_t size : {0U, 1U, 64U, 65U}) {
    auto* const bytes = static_cast<unsigned char*>(memory.Allocate(size));
    ASSERT_NE(bytes, nullptr);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(bytes) % 64, 0U) << size;
    std::fill(bytes, bytes + size, static_cast<unsigned char>(1));
    memory.Deallocate(bytes);
  }
  EXPECT_EQ(memory.Allocate(SIZE_MAX), nullptr);
  memory.Deallocate(nullptr);
}

}  // namespace
