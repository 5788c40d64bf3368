#include "planex/infra/json_deserializer.h"

#include <gtest/gtest.h>
#include <locale.h>

#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "planex/infra/class_repository.h"
#include "planex/infra/sub_object.h"
#include "tests/infra/probe.h"

/// Stands in for the C library's: a decimal comma wherever a thread has no locale of its own, as
/// in a process that called setlocale for a country that has one.
extern "C" __attribute__((visibility("default"))) struct lconv* localeconv() noexcept {
  static char comma[] = ",";
  static char point[] = ".";
  static char none[] = "";
  static struct lconv conventions {};
  conventions.decimal_point = uselocale(nullptr) == LC_GLOBAL_LOCALE ? comma : point;
  conventions.thousands_sep = none;
  conventions.grouping = none;
  return &conventions;
}

namespace {

using etl::ArrayType;
using etl::IVisitor;
using test::Probe;
using test::readData;

void visitX(IVisitor& v) {
  std::int32_t x = 0;
  v.VisitMemberI32(x, "x");
}

const bool registered = etl::Classes::Register(
    "Probe", []() -> std::unique_ptr<etl::IVisitable> { return std::make_unique<Probe>(visitX); });

std::string outOfRange(const std::string& member) {
  return "Data field '" + member + "' of class 'Probe' not found or out or range";
}

std::string notANumber(const std::string& member) {
  return "Data field '" + member + "' of class 'Probe' not not a number";
}

TEST(JsonDeserializer, ChecksTheDocument) {
  struct Case {
    const char* text;
    std::string error;
    const char* errorForExisting = nullptr;  ///< null: the same
  };
  const std::string parse = "Can not parse JSON";
  const std::string elements =
      "There need to be exact two elements for objects: 'class' and 'data'";
  const Case kCases[] = {
      {"{\"class\":\"Probe\",", parse},
      {"\xEF\xBB", parse},
      {"[]", "JSON sequence is not of 'object' type"},
      {"{}", elements},
      {R"({"class":"Probe"})", elements},
      {R"({"class":"Probe","data":{},"more":1})", elements},
      {R"({"class":7,"data":{}})", "Could not find JSON 'class' field for object"},
      {R"({"class":"Other","date":{}})",
       "A class with name Other is not registered with the classes repository",
       "Attempt to deserialize a 'Other' type into a 'Probe' object"},
      {R"({"class":"Probe","date":{}})", "Could not find 'data' field on object"},
      {R"({"class":"Probe","data":[1]})", "Could not find 'data' field on object"},
      {R"({"class":"Probe","data":{}})", outOfRange("x")},
      {"\xEF\xBB\xBF {\"Data\":{\"y\":[],\"X\":3,\"x\":\"second\"},\"CLASS\":\"Probe\"} trailing",
       ""},
  };
  for (const Case& c : kCases) {
    const std::string text = c.text;
    base::JsonVisitingDeSerializer fresh(c.text, false);
    EXPECT_EQ(fresh.DeserializeObject() != nullptr, c.error.empty()) << text;
    EXPECT_EQ(fresh.GetErrorDescription(), c.error) << text;

    base::JsonVisitingDeSerializer filling(c.text, false);
    Probe existing(visitX);
    EXPECT_EQ(filling.DeserializeIntoExistingObject(existing), c.error.empty()) << text;
    EXPECT_EQ(filling.GetErrorDescription(), c.errorForExisting ? c.errorForExisting : c.error);

    for (const std::string& end : {std::string(), std::string(1, '\0'), std::string("\0,\"", 3)}) {
      etl::Buffer buffer(text.begin(), text.end());
      buffer.insert(buffer.end(), end.begin(), end.end());
      base::JsonVisitingDeSerializer bytes(buffer, false);
      bytes.DeserializeObject();
      EXPECT_EQ(bytes.GetErrorDescription(), c.error) << text << " with " << end.size() << " more";
    }
  }
  base::JsonVisitingDeSerializer none(nullptr, false);
  EXPECT_EQ(none.DeserializeObject(), nullptr);
  EXPECT_EQ(none.GetErrorDescription(), "Out of memory or invalid JSON format");
  EXPECT_EQ(base::JsonVisitingDeSerializer(etl::Buffer(), false).GetErrorDescription(), parse);
  EXPECT_EQ(readData(R"({"X":3})", visitX, true), outOfRange("x")) << "exact names on request";
  EXPECT_EQ(readData(R"({"X":"","x":3})", visitX, true), "");
}

template <typename T>
std::string readNumber(const std::string& text, T& value,
                       void (IVisitor::*visit)(T&, const char*)) {
  return readData(R"({"n":)" + text + "}", [&](IVisitor& v) { (v.*visit)(value, "n"); });
}

/// The limits of an integer type come back, what lies one step outside is refused.
template <typename T>
void checkLimits(void (IVisitor::*visit)(T&, const char*), const char* below, const char* above) {
  auto value = static_cast<T>(42);
  for (const char* text : {below, above, "1.5"}) {
    EXPECT_EQ(readNumber(text, value, visit), outOfRange("n")) << text;
    EXPECT_EQ(value, 42);
  }
  EXPECT_EQ(readNumber("true", value, visit), notANumber("n"));
  for (const T limit : {std::numeric_limits<T>::min(), std::numeric_limits<T>::max()}) {
    EXPECT_EQ(readNumber(std::to_string(limit), value, visit), "") << +limit;
    EXPECT_EQ(value, limit);
  }
}

TEST(JsonDeserializer, KeepsNumbersWithinTheirType) {
  checkLimits(&IVisitor::VisitMemberI8, "-129", "128");
  checkLimits(&IVisitor::VisitMemberI16, "-32769", "32768");
  checkLimits(&IVisitor::VisitMemberI32, "-2147483649", "2147483648");
  checkLimits(&IVisitor::VisitMemberI64, "-9223372036854778000", "9223372036854778000");
  checkLimits(&IVisitor::VisitMemberUI8, "-1", "256");
  checkLimits(&IVisitor::VisitMemberUI16, "-1", "65536");
  checkLimits(&IVisitor::VisitMemberUI32, "-1", "4294967296");
  checkLimits(&IVisitor::VisitMemberUI64, "-1", "18446744073709556000");
  checkLimits(&IVisitor::VisitMemberIP, "-9223372036854778000", "9223372036854778000");
  checkLimits(&IVisitor::VisitMemberUIP, "-1", "18446744073709556000");
  checkLimits(&IVisitor::VisitMemberEInternal, "-2147483649", "2147483648");

  char letter = 'x';  // the same numbers where char is unsigned
  for (const char* text : {"-129", "128"}) {
    EXPECT_EQ(readNumber(text, letter, &IVisitor::VisitMemberC), outOfRange("n"));
    EXPECT_EQ(letter, 'x');
  }

  float single = 0;
  EXPECT_EQ(readNumber("3.40282347e+38", single, &IVisitor::VisitMemberF32), "");
  EXPECT_EQ(single, std::numeric_limits<float>::max());
  EXPECT_EQ(readNumber("1e-60", single, &IVisitor::VisitMemberF32), "");
  EXPECT_EQ(single, 0.0F);
  EXPECT_EQ(readNumber("3.4028236e+38", single, &IVisitor::VisitMemberF32), outOfRange("n"));
  double number = 0;
  EXPECT_EQ(readNumber("1e999", number, &IVisitor::VisitMemberF64), outOfRange("n"));
  EXPECT_EQ(readNumber("\"1\"", number, &IVisitor::VisitMemberF64), notANumber("n"));
  bool flag = false;
  EXPECT_EQ(readNumber("1", flag, &IVisitor::VisitMemberB), outOfRange("n"));
}

TEST(JsonDeserializer, ParsesUnderTheCLocaleAndPutsTheFormerBack) {
  const locale_t former = uselocale(nullptr);
  double number = 0;
  EXPECT_EQ(readNumber("0.5", number, &IVisitor::VisitMemberF64), "");
  EXPECT_EQ(number, 0.5);
  EXPECT_EQ(uselocale(nullptr), former);
  ASSERT_STREQ(localeconv()->decimal_point, ",") << "the check above would see nothing";
}

// ---- Errors inside "data" ----

/// One row of numbers: member "a", or the next row of a matrix.
void visitRow(IVisitor& v, const char* name) {
  std::size_t count = 0;
  v.BeginVisitingArray(ArrayType::Primitives, count, name);
  std::vector<double> values(count);
  v.VisitPodArray(values.data());
  v.EndVisitingArray(ArrayType::Primitives);
}

void visitNumbers(IVisitor& v) { visitRow(v, "a"); }

/// A matrix of two rows, whatever the document has.
void visitTwoRows(IVisitor& v) {
  std::size_t rows = 0;
  v.BeginVisitingArray(ArrayType::Arrays, rows, "a");
  visitRow(v, nullptr);
  v.VisitArraySeparator();
  visitRow(v, nullptr);
  v.EndVisitingArray(ArrayType::Arrays);
}

void beginNumbers(IVisitor& v) {
  std::size_t count = 0;
  v.BeginVisitingArray(ArrayType::Primitives, count, "a");
}

void visitNested(IVisitor& v) {
  std::shared_ptr<etl::IVisitable> object;
  v.VisitSubObjectVisitable(object, "o");
}

void visitBase(IVisitor& v) {
  v.BeginVisitingBaseClass("Base");
  visitX(v);
  v.EndVisitingBaseClass("Base");
}

TEST(JsonDeserializer, GivesTheErrorOfBadData) {
  struct Case {
    void (*visit)(IVisitor&);
    const char* data;
    std::string error;
  };
  const std::string noArray =
      "Could not find array beginning bracket for member 'a' of class 'Probe'";
  const std::string beyond = "Array element out of bounds while de-serializing class 'Probe'";
  const std::string mismatch = "Serialized array size mismatch while de-serializing class 'Probe'";
  const std::string arrays = "EndVisitingArray() mismatch";
  const std::string nesting = "Nested EndVisiting() mismatch";
  const std::string noClass = "Could not find 'class' name field for member ";
  const Case kCases[] = {
      {[](IVisitor& v) {
         double n = 0;
         v.VisitMemberF64(n, "first");
         v.VisitMemberF64(n, "second");
         v.EndVisitingArray(ArrayType::Arrays);
         v.SetError("third");
       },
       "{}", outOfRange("first")},
      {[](IVisitor& v) { etl::visitPlainSubObject(v, "s", "", visitX); }, R"({"s":[]})",
       outOfRange("s")},
      {[](IVisitor& v) { etl::visitPlainSubObject(v, "s", "", visitX); }, R"({"x":1,"s":{}})",
       outOfRange("x")},
      {[](IVisitor& v) { etl::visitPlainSubObject(v, "s", "Sub", visitX); }, R"({"x":1,"s":{}})",
       "Data field 'x' of class 'Sub' not found or out or range"},

      {visitNested, "{}", outOfRange("o")},
      {visitNested, R"({"o":1})",
       "'object' fields must be either 'null' or JSON 'object' in member 'o'"},
      {visitNested, R"({"o":{"data":{}}})", noClass + "'o'"},
      {visitNested, R"({"o":{"class":"None","data":{}}})",
       "Could not create class 'None' at run-time: Not registered with the classes repository"},
      {visitNested, R"({"o":{"class":"Probe"}})", "Could not find 'data' field on object"},
      {visitBase, "{}", outOfRange("baseClass")},
      {visitBase, R"({"baseClass":{"data":{"x":1}}})", noClass + "'baseClass'"},
      {visitBase, R"({"baseClass":{"class":"Else","data":{"x":1}}})",
       "Attempt to deserialize a 'Else' type into a 'Base' object"},

      {visitNumbers, "{}", noArray},
      {visitNumbers, R"({"a":1})", noArray},
      {visitNumbers, R"({"a":[1,"2"]})", notANumber("a")},
      {visitNumbers, R"({"a":[]})", ""},
      {visitTwoRows, R"({"a":[1,2]})", noArray},
      {visitTwoRows, R"({"a":[[1],[null]]})", notANumber("a")},
      {visitTwoRows, R"({"a":[[1]]})", beyond},
      {visitTwoRows, R"({"a":[]})", beyond},
      {visitTwoRows, R"({"a":[[1],[2],[3]]})", mismatch},
      {[](IVisitor& v) {
         double value = 0;
         beginNumbers(v);
         v.VisitPodArray(&value);
         v.VisitPodArray(&value);
       },
       R"({"a":[1]})", beyond},
      {[](IVisitor& v) {
         beginNumbers(v);
         v.EndVisitingArray(ArrayType::Arrays);
       },
       R"({"a":[]})", arrays},
      {beginNumbers, R"({"a":[]})", nesting},
      {[](IVisitor& v) {
         beginNumbers(v);
         visitRow(v, nullptr);
       },
       R"({"a":[[1]]})", arrays},
      {[](IVisitor& v) {
         beginNumbers(v);
         visitX(v);
       },
       R"({"a":[1],"x":1})", outOfRange("x")},
      {[](IVisitor& v) {
         beginNumbers(v);
         v.VisitArraySeparator();
       },
       R"({"a":[1]})", arrays},
      {[](IVisitor& v) {
         std::size_t rows = 0;
         double value = 0;
         v.BeginVisitingArray(ArrayType::Arrays, rows, "a");
         v.VisitPodArray(&value);
       },
       R"({"a":[1]})", arrays},
      {[](IVisitor& v) {
         std::size_t rows = 0;
         v.BeginVisitingArray(ArrayType::Arrays, rows, "a");
         v.VisitArraySeparator();
       },
       R"({"a":[]})", beyond},
      {[](IVisitor& v) {
         bool flag = false;
         beginNumbers(v);
         v.VisitPodArray(&flag);
       },
       R"({"a":[1]})", outOfRange("a")},
      {[](IVisitor& v) { v.BeginVisiting("Probe"); }, "{}", nesting},
      {[](IVisitor& v) {
         v.BeginVisitingBaseClass("Base");
         v.EndVisitingSubObject("s", "");
       },
       R"({"baseClass":{"class":"Base","data":{}}})", nesting},
      {[](IVisitor& v) {
         v.EndVisiting("Probe");
         visitX(v);
       },
       R"({"x":1})", nesting},

      {[](IVisitor& v) {
         etl::Buffer bytes;
         v.VisitMemberBU(bytes, "b");
       },
       R"({"b":"QU-D"})",
       "Problems decoding BASE64 'data' field of member 'b' while de-serializing class 'Probe'"},
      {[](IVisitor& v) {
         unsigned char bytes[2];
         v.VisitMemberByteArray(bytes, 2, "b");
       },
       R"({"b":"QUJD"})", mismatch},
      {[](IVisitor& v) { v.VisitMemberByteArray(nullptr, 0, "b"); }, R"({"b":""})", ""},
      {[](IVisitor& v) {
         etl::String text;
         v.VisitMemberS(text, "s");
       },
       R"({"s":1})", outOfRange("s")},
  };
  for (const Case& c : kCases) EXPECT_EQ(readData(c.data, c.visit), c.error) << c.data;
}

TEST(JsonDeserializer, RefusesWhatIsVisitedOutsideOfAnObject) {
  const char* const text = R"({"class":"Probe","data":{"x":3}})";
  std::int32_t x = 7;
  base::JsonVisitingDeSerializer member(text, false);
  member.VisitMemberI32(x, "x");
  EXPECT_EQ(member.GetErrorDescription(), "Nested EndVisiting() mismatch");
  EXPECT_EQ(x, 7);
  base::JsonVisitingDeSerializer mismatch(text, false);
  mismatch.SetArraySizeMismatch();
  EXPECT_EQ(mismatch.GetErrorDescription(),
            "Serialized array size mismatch while de-serializing class ''");
}

TEST(JsonDeserializer, ChecksBigDataArrays) {
  const std::string good =
      R"({"p":{"numOfElems":2,"elemSz":2,"endian":"little","elemTypes":"?","data":"AQACAA=="}})";
  const std::string tail = " while de-serializing class 'Probe'";
  const std::string mismatch = "Serialized array size mismatch" + tail;
  struct Case {
    const char *piece, *replacement;
    std::string error;
  };
  const Case kCases[] = {
      {"little", "neutral", ""},
      {"\"data\"", "\"date\"", "No 'data' field found for big data array" + tail},
      {"endian", "Indian", "Serialized array 'endian' not specified" + tail},
      {"little", "big", "Unknown 'endian' type: 'big'" + tail},
      {"\"?\"", "1", "Serialized array 'elemTypes' parse error" + tail},
      {"numOf", "numberOf", outOfRange("numOfElems")},
      {"2,\"elemSz\":2,", "3,\"elemSz\":2,", mismatch},
      {"elemSz\":2", "elemSz\":1", mismatch},
      {"AQACAA==", "AQAC", mismatch},
      {"AQACAA==", "AQACAAM=", mismatch},
      {"AQACAA==", "AQACA", "Problems decoding BASE64 'data' field of member 'p'" + tail},
      {"AQACAA==", "AQ CAA==", "Problems decoding BASE64 'data' field of member 'p'" + tail},
  };
  for (const Case& c : kCases) {
    std::string text = good;
    text.replace(text.find(c.piece), std::string(c.piece).size(), c.replacement);
    std::vector<std::uint16_t> memory(2);
    int allocations = 0;
    const auto visit = [&](IVisitor& v) {
      const auto allocate = [&]() -> void* { return ++allocations, memory.data(); };
      v.VisitBigDataArray({"uint16", 2, 2, 1, nullptr, 0, allocate}, "p");
    };
    EXPECT_EQ(readData(text, visit), c.error) << text;
    if (c.error == mismatch) {
      EXPECT_EQ(allocations, 0) << text;
    } else if (c.error.empty()) {
      EXPECT_EQ(memory, (std::vector<std::uint16_t>{1, 2}));
    }
  }
  const auto withoutMemory = [](IVisitor& v) {
    v.VisitBigDataArray({"uint16", 2, 2, 1, nullptr, 0, []() -> void* { return nullptr; }}, "p");
  };
  EXPECT_EQ(readData(good, withoutMemory), "No memory for big data array" + tail);
  const auto beyondMemory = [](IVisitor& v) {
    v.VisitBigDataArray({"uint16", 2, SIZE_MAX / 2 + 2, 2, nullptr, 0, {}}, "p");
  };
  EXPECT_EQ(readData(good, beyondMemory), mismatch);
  EXPECT_EQ(readData(R"({"p":null})", beyondMemory), outOfRange("p"));
  const auto withoutRows = [](IVisitor& v) {
    v.VisitBigDataArray({"uint16", 2, 2, 0, nullptr, 0, {}}, "p");
  };
  const char* const empty =
      R"({"p":{"numOfElems":0,"elemSz":2,"endian":"little","elemTypes":"","data":""}})";
  EXPECT_EQ(readData(empty, withoutRows), "") << "asks for no memory";
}

TEST(JsonDeserializer, LeavesANestedObjectThatFails) {
  const auto before = std::make_shared<Probe>([](IVisitor&) {});
  std::shared_ptr<etl::IVisitable> object = before;
  const auto visit = [&](IVisitor& v) { v.VisitSubObjectVisitable(object, "o"); };
  EXPECT_NE(readData(R"({"o":{"class":"Probe","data":{}}})", visit), "");
  EXPECT_EQ(object, before);
  EXPECT_EQ(readData(R"({"o":null})", visit), "");
  EXPECT_EQ(object, nullptr);
}

}  // namespace
