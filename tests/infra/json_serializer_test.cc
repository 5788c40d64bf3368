#include "planex/infra/json_serializer.h"

#include <gtest/gtest.h>
#include <langinfo.h>

#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "planex/infra/sub_object.h"
#include "tests/infra/probe.h"

namespace {

using etl::ArrayType;
using etl::IVisitor;
using test::Probe;
using test::written;

/// Every form that a value can take, once.
void visitAllForms(IVisitor& visitor) {
  bool flag = true;
  char letter = 'A';
  std::string text = "a\"b\\c/\r\n\t\b\f\x01\x7f\xc3\xa9";
  etl::Buffer bytes = {0, 255, 16, 131};
  double values[3] = {0.1, -0.0, 1e300};
  bool flags[1] = {false};
  const std::uint16_t pixels[2][3] = {{1, 2, 0xffff}, {0x1234, 5, 0xffff}};
  std::size_t none = 0;
  std::size_t one = 1;
  std::size_t two = 2;
  std::size_t three = 3;
  std::shared_ptr<etl::IVisitable> nobody;
  std::shared_ptr<etl::IVisitable> nested = std::make_shared<Probe>([](IVisitor&) {}, "Empty");

  visitor.BeginVisitingBaseClass("Base");
  visitor.VisitMemberB(flag, "flag");
  visitor.EndVisitingBaseClass("Base");
  visitor.VisitMemberC(letter, "letter");
  visitor.VisitMemberS(text, "te\"xt");
  visitor.VisitMemberBU(bytes, "bytes");
  visitor.VisitMemberByteArray(bytes.data(), 3, "three");
  etl::visitPlainSubObject(visitor, "sub", "Sub",
                           [&](IVisitor& v) { v.VisitMemberF64(values[0], "x"); });
  visitor.VisitSubObjectVisitable(nobody, "nobody");
  visitor.VisitSubObjectVisitable(nested, "nested");
  visitor.BeginVisitingArray(ArrayType::Primitives, none, "none");
  visitor.EndVisitingArray(ArrayType::Primitives);
  visitor.BeginVisitingArray(ArrayType::Arrays, two, "rows");
  visitor.BeginVisitingArray(ArrayType::Primitives, three, nullptr);
  visitor.VisitPodArray(values);
  visitor.EndVisitingArray(ArrayType::Primitives);
  visitor.VisitArraySeparator();
  visitor.BeginVisitingArray(ArrayType::Primitives, one, nullptr);
  visitor.VisitPodArray(flags);
  visitor.EndVisitingArray(ArrayType::Primitives);
  visitor.EndVisitingArray(ArrayType::Arrays);
  visitor.VisitBigDataArray({"uint16", 2, 2, 2, pixels, sizeof pixels[0], {}}, "pixels");
}

constexpr char kCompact[] =
    R"({"class":"Probe","data":{"baseClass":{"class":"Base","data":{"flag":true}},"letter":65,)"
    R"("te\"xt":"a\"b\\c/\r\n\t\b\f\u0001)"
    "\x7f\xc3\xa9\","
    R"("bytes":"AP8Qgw==","three":"AP8Q","sub":{"x":0.10000000000000001},"nobody":null,)"
    R"("nested":{"class":"Empty","data":{}},"none":[],)"
    R"("rows":[[0.10000000000000001,-0,1.0000000000000001e+300],[false]],)"
    R"("pixels":{"numOfElems":4,"elemSz":2,"endian":"little","elemTypes":"uint16",)"
    R"("data":"AQACADQSBQA="}}})";

TEST(JsonSerializer, WritesAMemberOrElementPerLineWhenPretty) {
  const auto members = [](IVisitor& visitor) {
    std::int32_t numbers[2] = {1, -2};
    std::size_t two = 2;
    std::size_t none = 0;
    visitor.BeginVisitingArray(ArrayType::Primitives, two, "a");
    visitor.VisitPodArray(numbers);
    visitor.EndVisitingArray(ArrayType::Primitives);
    visitor.BeginVisitingArray(ArrayType::Arrays, none, "b");
    visitor.EndVisitingArray(ArrayType::Arrays);
    etl::visitPlainSubObject(visitor, "c", "",
                             [&](IVisitor& v) { v.VisitMemberI32(numbers[0], "x"); });
  };
  EXPECT_EQ(written(members, true),
            "{\r\n"
            "  \"class\": \"Probe\",\r\n"
            "  \"data\": {\r\n"
            "    \"a\": [\r\n"
            "      1,\r\n"
            "      -2\r\n"
            "    ],\r\n"
            "    \"b\": [],\r\n"
            "    \"c\": {\r\n"
            "      \"x\": 1\r\n"
            "    }\r\n"
            "  }\r\n"
            "}");
}

TEST(JsonSerializer, WritesEveryFormCompactlyOrPretty) {
  EXPECT_EQ(written(visitAllForms), kCompact);
  std::string stripped;
  for (const char c : written(visitAllForms, true)) {
    if (c != ' ' && c != '\r' && c != '\n') stripped += c;
  }
  EXPECT_EQ(stripped, kCompact);
}

template <typename T>
std::string number(T value, void (IVisitor::*visit)(T&, const char*), int floatDigits = 9,
                   int doubleDigits = 17) {
  etl::MemoryOutStream stream;
  base::JsonVisitingSerializer serializer(stream, false);
  serializer.SetNumOfSignificants(static_cast<unsigned short>(floatDigits),
                                  static_cast<unsigned short>(doubleDigits));
  Probe probe([&](IVisitor& visitor) { (visitor.*visit)(value, "n"); });
  serializer.Serialize(probe);
  const std::string text(stream.GetText());
  const std::size_t start = text.find("\"n\":") + 4;
  return text.substr(start, text.size() - start - 2);
}

/// What printf makes of it, with a point for the decimal point of the locale.
std::string printed(int digits, double value) {
  char text[64];
  std::snprintf(text, sizeof text, "%.*g", digits, value);
  std::string result = text;
  const std::string point = nl_langinfo(RADIXCHAR);
  const std::size_t at = result.find(point);
  return at == std::string::npos ? result : result.replace(at, point.size(), ".");
}

TEST(JsonSerializer, PrintsNumbersAsPrintfDoes) {
  std::mt19937_64 random(7);
  for (int i = 0; i < 20000; ++i) {
    const std::uint64_t bits = random();
    double value = 0;
    std::memcpy(&value, &bits, sizeof value);
    const auto single = static_cast<float>(static_cast<std::int32_t>(bits)) / 7;
    if (!std::isfinite(value)) continue;
    for (const int digits : {1, 6, 17, 40}) {
      ASSERT_EQ(number(value, &IVisitor::VisitMemberF64, 9, digits), printed(digits, value));
      ASSERT_EQ(number(single, &IVisitor::VisitMemberF32, digits, 17),
                printed(digits, static_cast<double>(single)));
    }
  }
}

TEST(JsonSerializer, PrintsLimitsAndWhatIsNotFinite) {
  EXPECT_EQ(number(DBL_MAX, &IVisitor::VisitMemberF64), "1.7976931348623157e+308");
  EXPECT_EQ(number(-std::nan(""), &IVisitor::VisitMemberF64), "nan");
  EXPECT_EQ(number(-HUGE_VALF, &IVisitor::VisitMemberF32), "-inf");
  EXPECT_EQ(number(HUGE_VAL, &IVisitor::VisitMemberF64), "inf");
  EXPECT_EQ(number(1.25, &IVisitor::VisitMemberF64, 9, 0), "1");
  EXPECT_EQ(number(0.1, &IVisitor::VisitMemberF64, 9, 65535).size(), 42U);
  EXPECT_EQ(number(INT64_MIN, &IVisitor::VisitMemberI64), "-9223372036854775808");
  EXPECT_EQ(number(UINT64_MAX, &IVisitor::VisitMemberUI64), "18446744073709551615");
  EXPECT_EQ(number('\xff', &IVisitor::VisitMemberC), "-1");
}

TEST(JsonSerializer, LeavesBigDataOutOnRequest) {
  etl::MemoryOutStream stream;
  base::JsonVisitingSerializer serializer(stream, false);
  serializer.SetVisitingDetails(base::Details::WithoutBigData);
  const unsigned char bytes[2] = {1, 2};
  Probe probe([&](IVisitor& v) { v.VisitBigDataArray({"uint8", 1, 2, 1, bytes, 2, {}}, "p"); });
  ASSERT_TRUE(serializer.Serialize(probe));
  EXPECT_NE(stream.GetText().find(R"("endian":"neutral","elemTypes":"uint8","data":""})"),
            std::string::npos);
}

TEST(JsonSerializer, ReportsUnevenNesting) {
  constexpr char kArray[] = "EndVisitingArray() mismatch";
  constexpr char kObject[] = "Nested EndVisiting() mismatch";
  struct Case {
    const char* name;
    void (*visit)(IVisitor&);
    const char* error;
  };
  static std::size_t one = 1;
  static double values[2] = {};
  const Case kCases[] = {
      {"EndsAnArrayThatIsNotOpen", [](IVisitor& v) { v.EndVisitingArray(ArrayType::Primitives); },
       kArray},
      {"EndsAnArrayOfTheOtherType",
       [](IVisitor& v) {
         v.BeginVisitingArray(ArrayType::Primitives, one, "a");
         v.VisitPodArray(values);
         v.EndVisitingArray(ArrayType::Arrays);
       },
       kArray},
      {"BeginsTheObjectAgain", [](IVisitor& v) { v.BeginVisiting("Probe"); }, kObject},
      {"WritesFewerElementsThanAnnounced",
       [](IVisitor& v) {
         v.BeginVisitingArray(ArrayType::Primitives, one, "a");
         v.EndVisitingArray(ArrayType::Primitives);
       },
       kArray},
      {"LeavesAnArrayOpen",
       [](IVisitor& v) { v.BeginVisitingArray(ArrayType::Primitives, one, "a"); }, kObject},
      {"NamesAMemberInsideAnArray",
       [](IVisitor& v) {
         v.BeginVisitingArray(ArrayType::Primitives, one, "a");
         v.VisitMemberF64(values[0], "x");
       },
       kObject},
      {"NestsAnArrayInAnArrayOfNumbers",
       [](IVisitor& v) {
         v.BeginVisitingArray(ArrayType::Primitives, one, "a");
         v.BeginVisitingArray(ArrayType::Primitives, one, nullptr);
       },
       kArray},
      {"PutsNumbersIntoAnArrayOfArrays",
       [](IVisitor& v) {
         v.BeginVisitingArray(ArrayType::Arrays, one, "a");
         v.VisitPodArray(values);
       },
       kArray},
      {"PutsNumbersOutsideOfArrays", [](IVisitor& v) { v.VisitPodArray(values); }, kArray},
      {"PutsAnObjectIntoAnArray",
       [](IVisitor& v) {
         std::shared_ptr<etl::IVisitable> nobody;
         v.BeginVisitingArray(ArrayType::Arrays, one, "a");
         v.VisitSubObjectVisitable(nobody, nullptr);
       },
       kObject},
      {"EndsABaseClassAsTwoSubObjects",
       [](IVisitor& v) {
         v.BeginVisitingBaseClass("Base");
         v.EndVisitingSubObject("s", "");
         v.EndVisitingSubObject("s", "");
       },
       kObject},
      {"NamesAMemberAfterTheEnd",
       [](IVisitor& v) {
         v.EndVisiting("Probe");
         v.VisitMemberF64(values[0], "x");
       },
       kObject},
      {"MismatchesWhileWriting", [](IVisitor& v) { v.SetArraySizeMismatch(); },
       "Serialized array size mismatch"},
      {"HasNoDataForBigDataArray",
       [](IVisitor& v) {
         v.VisitBigDataArray({"uint8", 1, 2, 1, nullptr, 2, {}}, "p");
       },
       "Big data array of invalid size"},
      {"HasMoreBigDataThanMemoryCanHold",
       [](IVisitor& v) {
         v.VisitBigDataArray({"float64", 8, SIZE_MAX / 8, 2, values, 8, {}}, "p");
       },
       "Big data array of invalid size"},
  };
  for (const Case& c : kCases) EXPECT_EQ(written(c.visit), c.error) << c.name;
}

TEST(JsonSerializer, WritesNothingAfterAnError) {
  etl::MemoryOutStream stream;
  base::JsonVisitingSerializer serializer(stream, false);
  Probe probe([](IVisitor& v) {
    v.SetError("first");
    visitAllForms(v);
    v.EndVisitingArray(ArrayType::Arrays);
  });
  for (int i = 0; i < 2; ++i) {
    EXPECT_FALSE(serializer.Serialize(probe));
    EXPECT_EQ(serializer.GetErrorDescription(), "first");
    EXPECT_EQ(stream.GetText(), "");
  }
}

class FullStream : public etl::OutStream {
 public:
  using OutStream::Write;
  bool Write(const void*, std::size_t) override {
    ++writes;
    return false;
  }
  int writes = 0;
};

TEST(JsonSerializer, StopsWhenTheStreamTakesNoMore) {
  FullStream stream;
  base::JsonVisitingSerializer serializer(stream, false);
  std::vector<double> values(100000, 0.1);
  Probe probe([&](IVisitor& visitor) {
    std::size_t count = values.size();
    visitor.BeginVisitingArray(ArrayType::Primitives, count, "a");
    visitor.VisitPodArray(values.data());
    visitor.EndVisitingArray(ArrayType::Primitives);
  });
  EXPECT_FALSE(serializer.Serialize(probe));
  EXPECT_EQ(serializer.GetErrorDescription(), "Could not write to the output stream");
  EXPECT_EQ(stream.writes, 1);
}

}  // namespace
