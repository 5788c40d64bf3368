#include <cjson/cJSON.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "planex/infra/class_repository.h"
#include "planex/infra/count_members_visitor.h"
#include "planex/infra/sub_object.h"
#include "tests/infra/probe.h"

// What the serialiser writes, the deserialiser reads: values of every kind and structures of every
// kind, as the visitable classes of callers may have them.

namespace {

using etl::ArrayType;
using etl::IVisitor;
using test::Probe;

// ---- Values ----

enum class Colour : std::int32_t { Red = 3, Green = -7 };

struct Everything {
  bool b = true;
  char c = '\xfe';
  double d = 1.0 / 3.0;
  etl::String s = "\"\\\x1f\r\n\xc3\xa9";
  etl::Buffer bytes = {1, 2, 3, 4, 0};
  Colour colour = Colour::Green;
  bool flags[2] = {true, false};
  char letters[2] = {'a', '\x80'};
  float floats[2] = {1e-45F, -3.5F};
  std::uint64_t longs[2] = {0, UINT64_MAX};
  std::vector<double> many;

  void Visit(IVisitor& v) {
    v.VisitMemberB(b, "b");
    v.VisitMemberC(c, "c");
    v.VisitMemberF64(d, "d");
    v.VisitMemberS(s, "s");
    v.VisitMemberBU(bytes, "bytes");
    v.VisitMemberE(colour, "colour");
    Pod(v, flags, "flags");
    Pod(v, letters, "letters");
    Pod(v, floats, "floats");
    Pod(v, longs, "longs");
    std::size_t count = many.size();
    v.BeginVisitingArray(ArrayType::Primitives, count, "many");
    many.resize(count);
    v.VisitPodArray(many.data());
    v.EndVisitingArray(ArrayType::Primitives);
  }

  template <typename T>
  static void Pod(IVisitor& v, T (&values)[2], const char* name) {
    std::size_t count = 2;
    v.BeginVisitingArray(ArrayType::Primitives, count, name);
    v.VisitPodArray(values);
    v.EndVisitingArray(ArrayType::Primitives);
  }
};

/// The limits of an integer type, as members and as an array.
template <typename T>
void expectLimitsBack(void (IVisitor::*visit)(T&, const char*)) {
  struct Values {
    T member;
    T array[2];
  };
  using Limits = std::numeric_limits<T>;
  Values values{Limits::max(), {Limits::min(), Limits::max()}};
  const auto visitAll = [&](IVisitor& v) {
    (v.*visit)(values.member, "m");
    Everything::Pod(v, values.array, "a");
  };
  const std::string text = test::written(visitAll);
  values = {};
  base::JsonVisitingDeSerializer document(text.c_str(), true);
  Probe probe(visitAll);
  EXPECT_TRUE(document.DeserializeIntoExistingObject(probe)) << document.GetErrorDescription();
  EXPECT_EQ(values.member, Limits::max());
  EXPECT_EQ(values.array[0], Limits::min());
  EXPECT_EQ(values.array[1], Limits::max());
  etl::CountMembersVisitor counter;
  visitAll(counter);
  EXPECT_EQ(counter.GetCount(), 2u);
}

TEST(JsonRoundTrip, GivesTheLimitsOfIntegersBack) {
  expectLimitsBack<std::int8_t>(&IVisitor::VisitMemberI8);
  expectLimitsBack<std::int16_t>(&IVisitor::VisitMemberI16);
  expectLimitsBack<std::int32_t>(&IVisitor::VisitMemberI32);
  expectLimitsBack<std::int64_t>(&IVisitor::VisitMemberI64);
  expectLimitsBack<std::uint8_t>(&IVisitor::VisitMemberUI8);
  expectLimitsBack<std::uint16_t>(&IVisitor::VisitMemberUI16);
  expectLimitsBack<std::uint32_t>(&IVisitor::VisitMemberUI32);
  expectLimitsBack<std::uint64_t>(&IVisitor::VisitMemberUI64);
  expectLimitsBack<std::intptr_t>(&IVisitor::VisitMemberIP);
  expectLimitsBack<std::uintptr_t>(&IVisitor::VisitMemberUIP);
}

TEST(JsonRoundTrip, GivesEveryValueBackFromCompactAndPrettyText) {
  Everything source;
  source.many.assign(1000000, 0.5);  // a walk by index would take minutes
  etl::CountMembersVisitor counter;
  source.Visit(counter);
  EXPECT_EQ(counter.GetCount(), 11u) << "arrays count as one, whatever is in them";
  for (const bool pretty : {false, true}) {
    const std::string text = test::written([&](IVisitor& v) { source.Visit(v); }, pretty);
    Everything back{false, 0, 0, "", {}, Colour::Red, {}, {}, {}, {}, {}};
    base::JsonVisitingDeSerializer document(text.c_str(), true);
    Probe probe([&](IVisitor& v) { back.Visit(v); });
    ASSERT_TRUE(document.DeserializeIntoExistingObject(probe)) << document.GetErrorDescription();
    EXPECT_EQ(test::written([&](IVisitor& v) { back.Visit(v); }, pretty), text);
    EXPECT_EQ(back.s, source.s);
    EXPECT_EQ(back.d, source.d);
    EXPECT_EQ(back.many.size(), source.many.size());
  }
}

// ---- Structures ----

/// What others hold by pointer.
class Leaf : public etl::IVisitable {
 public:
  explicit Leaf(std::int32_t value = 0) : number(value) {}

  const char* GetClassName() const override { return "Test.Leaf"; }
  void Visit(IVisitor& v) override { v.VisitMemberI32(number, "number"); }
  std::unique_ptr<etl::IVisitable> CloneVisitable() const override {
    return std::make_unique<Leaf>(*this);
  }

  std::int32_t number;
};

/// A member of every structure. Those inside share one name, so that each is found at its place
/// only.
class Owner : public etl::IVisitable {
 public:
  const char* GetClassName() const override { return "Test.Owner"; }
  std::unique_ptr<etl::IVisitable> CloneVisitable() const override {
    return std::make_unique<Owner>(*this);
  }
  void Visit(IVisitor& v) override {
    v.BeginVisitingBaseClass("Test.Base");
    v.VisitMemberI32(inherited, "number");
    v.EndVisitingBaseClass("Test.Base");
    v.VisitMemberI32(own, "number");
    etl::visitPlainSubObject(v, "part", "",
                             [this](IVisitor& inner) { inner.VisitMemberI32(part, "number"); });
    v.VisitSubObjectVisitable(nested, "nested");
    v.VisitSubObjectVisitable(nobody, "nobody");
    v.VisitMemberByteArray(key, sizeof key, "key");
    VisitRows(v);
    const auto allocate = [this]() -> void* {
      return pixels.assign(6, 0), pitch = 3, pixels.data();
    };
    v.VisitBigDataArray({"uint16", 2, 3, 2, pixels.data(), 2 * pitch, allocate}, "pixels");
  }

  std::int32_t inherited = 0, own = 0, part = 0;
  std::shared_ptr<etl::IVisitable> nested, nobody = std::make_shared<Leaf>();
  unsigned char key[3] = {};
  std::vector<std::vector<float>> rows;  // of different lengths
  std::vector<std::uint16_t> pixels = std::vector<std::uint16_t>(6);
  std::size_t pitch = 3;  // elements from one row of pixels to the next

 private:
  void VisitRows(IVisitor& v) {
    std::size_t count = rows.size();
    v.BeginVisitingArray(ArrayType::Arrays, count, "rows");
    rows.resize(count);
    for (std::vector<float>& row : rows) {
      if (&row != rows.data()) v.VisitArraySeparator();
      std::size_t length = row.size();
      v.BeginVisitingArray(ArrayType::Primitives, length, nullptr);
      row.resize(length);
      v.VisitPodArray(row.data());
      v.EndVisitingArray(ArrayType::Primitives);
    }
    v.EndVisitingArray(ArrayType::Arrays);
  }
};

const bool registered =
    etl::registerClass<Leaf>("Test.Leaf") && etl::registerClass<Owner>("Test.Owner");

std::string textOf(etl::IVisitable& object) {
  etl::MemoryOutStream stream;
  base::JsonVisitingSerializer serializer(stream, false);
  EXPECT_TRUE(serializer.Serialize(object)) << serializer.GetErrorDescription();
  return std::string(stream.GetText());
}

constexpr char kOwnerText[] =
    R"({"class":"Test.Owner","data":{"baseClass":{"class":"Test.Base","data":{"number":1}},)"
    R"("number":2,"part":{"number":3},"nested":{"class":"Test.Leaf","data":{"number":4}},)"
    R"("nobody":null,"key":"AP8Q","rows":[[5,-2],[],[8]],)"
    R"("pixels":{"numOfElems":6,"elemSz":2,"endian":"little","elemTypes":"uint16",)"
    R"("data":"AQACAAMABAAFAAYA"}}})";

TEST(JsonRoundTrip, GivesEveryStructureBack) {
  Owner source;
  source.inherited = 1;
  source.own = 2;
  source.part = 3;
  source.nested = std::make_shared<Leaf>(4);
  source.nobody = nullptr;
  source.key[1] = 255;
  source.key[2] = 16;
  source.rows = {{5, -2}, {}, {8}};
  source.pixels = {1, 2, 3, 0xffff, 4, 5, 6, 0xffff};
  source.pitch = 4;
  EXPECT_EQ(textOf(source), kOwnerText);

  Owner back;
  base::JsonVisitingDeSerializer document(kOwnerText, true);
  EXPECT_TRUE(document.DeserializeIntoExistingObject(back)) << document.GetErrorDescription();
  EXPECT_EQ(textOf(back), kOwnerText);
}

TEST(JsonRoundTrip, ReadsABorrowedDocumentAndLeavesItAlone) {
  const std::unique_ptr<cJSON, void (*)(cJSON*)> root(cJSON_Parse(kOwnerText), cJSON_Delete);
  ASSERT_NE(root, nullptr);
  for (const bool exactNames : {false, true}) {
    base::JsonVisitingDeSerializer document(*root, exactNames);
    for (int i = 0; i < 2; ++i) {
      const std::unique_ptr<etl::IVisitable> object = document.DeserializeObject();
      ASSERT_NE(object, nullptr) << document.GetErrorDescription();
      EXPECT_EQ(textOf(*object), kOwnerText);
    }
  }
  const std::unique_ptr<char, void (*)(void*)> text(cJSON_PrintUnformatted(root.get()), cJSON_free);
  EXPECT_STREQ(text.get(), kOwnerText);

  base::JsonVisitingDeSerializer part(*cJSON_GetObjectItem(root.get(), "class"), false);
  EXPECT_EQ(part.DeserializeObject(), nullptr);
  EXPECT_EQ(part.GetErrorDescription(), "JSON sequence is not of 'object' type");
}

TEST(JsonRoundTrip, RefusesAStructureOfAnotherKindAndStopsThere) {
  struct Case {
    const char *piece, *replacement, *error;
    std::int32_t own = 2;  ///< what the member behind the base class is afterwards
  };
  const Case kCases[] = {
      {"\"number\":1", "\"number\":true",
       "Data field 'number' of class 'Test.Base' not not a number", 0},
      {"{\"number\":1}", "[1]", "Could not find 'data' field on object", 0},
      {"{\"class\":\"Test.Base\",\"data\":{\"number\":1}}", "[1]",
       "Data field 'baseClass' of class 'Test.Owner' not found or out or range", 0},
      {"\"number\":3", "\"numbers\":3",
       "Data field 'number' of class 'Test.Owner' not found or out or range"},
      {"\"number\":4", "\"number\":4.5",
       "Data field 'number' of class 'Test.Leaf' not found or out or range"},
      {"\"AP8Q\"", "[0,255,16]",
       "Data field 'key' of class 'Test.Owner' not found or out or range"},
      {"AP8Q", "AP8",
       "Problems decoding BASE64 'data' field of member 'key' while de-serializing class "
       "'Test.Owner'"},
      {"AP8Q",
       "AP8QAA==", "Serialized array size mismatch while de-serializing class 'Test.Owner'"},
      {"[],", "{},",
       "Could not find array beginning bracket for member 'rows' of class 'Test.Owner'"},
      {"8]]", "[8]]]", "Data field 'rows' of class 'Test.Owner' not not a number"},
      {"\"AQACAAMABAAFAAYA\"", "[1,2,3,4,5,6]",
       "No 'data' field found for big data array while de-serializing class 'Test.Owner'"},
  };
  for (const Case& c : kCases) {
    std::string text = kOwnerText;
    text.replace(text.find(c.piece), std::string(c.piece).size(), c.replacement);
    Owner owner;
    base::JsonVisitingDeSerializer document(text.c_str(), true);
    EXPECT_FALSE(document.DeserializeIntoExistingObject(owner)) << text;
    EXPECT_EQ(document.GetErrorDescription(), c.error) << text;
    EXPECT_EQ(owner.own, c.own) << text;
    EXPECT_EQ(owner.pixels, std::vector<std::uint16_t>(6)) << text;
    EXPECT_FALSE(document.DeserializeIntoExistingObject(owner)) << "a second time";
    EXPECT_EQ(document.GetErrorDescription(), c.error);
  }
}

TEST(JsonRoundTrip, KeepsRowsOfBigDataWholeAcrossPieces) {
  constexpr std::size_t kRows = 700, kLength = 401, kPitch = 403;  // no row fills groups of three
  std::vector<unsigned char> source(kRows * kPitch, 0xee);
  std::vector<unsigned char> back;
  for (std::size_t i = 0; i < source.size(); ++i) {
    if (i % kPitch < kLength) source[i] = static_cast<unsigned char>(i * i >> 7);
  }
  const auto visit = [&](IVisitor& v) {
    const auto allocate = [&]() -> void* { return back.resize(kRows * kLength), back.data(); };
    v.VisitBigDataArray({"uint8", 1, kLength, kRows, source.data(), kPitch, allocate}, "p");
  };
  base::JsonVisitingDeSerializer document(test::written(visit).c_str(), true);
  Probe probe(visit);
  ASSERT_TRUE(document.DeserializeIntoExistingObject(probe)) << document.GetErrorDescription();
  for (std::size_t row = 0; row < kRows; ++row) {
    ASSERT_TRUE(
        std::equal(&back[row * kLength], &back[row * kLength] + kLength, &source[row * kPitch]))
        << "row " << row;
  }
}

}  // namespace
