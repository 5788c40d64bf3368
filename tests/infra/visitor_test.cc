#include "planex/infra/visitor.h"

#include <cjson/cJSON.h>
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

void visitNumber(etl::IVisitor& visitor) {
  std::int32_t number = 1;
  visitor.VisitMemberI32(number, "number");
}

/// Two rows of numbers.
void visitMatrix(etl::IVisitor& visitor) {
  float row[3] = {};
  std::size_t rows = 2;
  std::size_t columns = 3;
  visitor.BeginVisitingArray(etl::ArrayType::Arrays, rows, "matrix");
  for (std::size_t r = 0; r < rows; ++r) {
    if (r > 0) visitor.VisitArraySeparator();
    visitor.BeginVisitingArray(etl::ArrayType::Primitives, columns, nullptr);
    visitor.VisitPodArray(row);
    visitor.EndVisitingArray(etl::ArrayType::Primitives);
  }
  visitor.EndVisitingArray(etl::ArrayType::Arrays);
}

/// How many members the "data" of a written document has.
int writtenMembers(const test::Probe::Members& members) {
  const std::string text = test::written(members);
  const std::unique_ptr<cJSON, void (*)(cJSON*)> root(cJSON_Parse(text.c_str()), cJSON_Delete);
  return cJSON_GetArraySize(cJSON_GetObjectItem(root.get(), "data"));
}

TEST(CountMembersVisitor, CountsEachStructureOnceWhateverIsInside) {
  struct Case {
    const char* name;
    void (*visit)(etl::IVisitor&);
  };
  const Case kCases[] = {
      {"BaseClass",
       [](etl::IVisitor& v) {
         v.BeginVisitingBaseClass("Base");
         visitNumber(v);
         visitMatrix(v);
         v.EndVisitingBaseClass("Base");
       }},
      {"SubObject",
       [](etl::IVisitor& v) {
         etl::visitPlainSubObject(v, "part", "", [](etl::IVisitor& inner) {
           visitNumber(inner);
           visitMatrix(inner);
         });
       }},
      {"SubObjectBegunByHand",
       [](etl::IVisitor& v) {
         v.BeginVisitingSubObject("part", "");
         visitNumber(v);
         visitMatrix(v);
         v.EndVisitingSubObject("part", "");
       }},
      {"VisitableObject",
       [](etl::IVisitor& v) {
         std::shared_ptr<etl::IVisitable> nested = std::make_shared<test::Probe>(visitMatrix);
         v.VisitSubObjectVisitable(nested, "nested");
       }},
      {"Matrix", visitMatrix},
      {"BigDataArray", [](etl::IVisitor& v) { v.VisitBigDataArray({}, "pixels"); }},
      {"ByteArray",
       [](etl::IVisitor& v) {
         unsigned char bytes[2] = {};
         v.VisitMemberByteArray(bytes, 2, "bytes");
       }},
      {"Float",
       [](etl::IVisitor& v) {
         float single = 0;
         v.VisitMemberF32(single, "single");
       }},
  };
  for (const Case& c : kCases) {
    const auto members = [&](etl::IVisitor& v) {
      c.visit(v);
      visitNumber(v);  // at the top level again
    };
    etl::CountMembersVisitor counter;
    test::Probe probe(members);
    counter.BeginVisiting("Probe");
    probe.Visit(counter);
    counter.EndVisiting("Probe");
    EXPECT_EQ(counter.GetCount(), 2U) << c.name;
    EXPECT_EQ(writtenMembers(members), 2) << c.name;
  }
}

TEST(CountMembersVisitor, ReportsWhatItsObjectReports) {
  etl::CountMembersVisitor counter;
  counter.EndVisitingSubObject("never begun", "");
  visitNumber(counter);
  EXPECT_EQ(counter.GetCount(), 1U);
  EXPECT_FALSE(counter.HasError());
  counter.SetError("first");
  counter.SetArraySizeMismatch();
  EXPECT_TRUE(counter.HasError());
  EXPECT_EQ(counter.GetErrorDescription(), "first");
}

/// A writer that may pass over sub-objects or ask for their size.
class Asking : public base::JsonVisitingSerializer {
 public:
  Asking(etl::OutStream& stream, bool enters, bool counts)
      : JsonVisitingSerializer(stream, false), enters_(enters), counts_(counts) {}

  bool RecursionIntoSubObjectsMeaningful() const override { return enters_; }
  bool NeedsToKnowNumOfMembers() const override { return counts_; }
  void SkipSubObject(const char* name) override {
    asked += std::string("skip ") + name;
    JsonVisitingSerializer::SkipSubObject(name);
  }
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
