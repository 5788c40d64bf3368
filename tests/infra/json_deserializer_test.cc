#include "planex/infra/json_deserializer.h"

#include <cjson/cJSON.h>
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

const bool registered = etl::Classes::Register("Probe", []() -> std::unique_ptr<etl::IVisitable> {
  return std::make_unique<Probe>([](IVisitor& v) {
    std::int32_t x = 0;
    v.VisitMemberI32(x, "x");
  });
});

constexpr char kParse[] = "Can not parse JSON";
constexpr char kNotObject[] = "JSON sequence is not of 'object' type";
constexpr char kTwoElements[] =
    "There need to be exact two elements for objects: 'class' and 'data'";
constexpr char kNoClass[] = "Could not find JSON 'class' field for object";
constexpr char kNoData[] = "Could not find 'data' field on object";

TEST(JsonDeserializer, ChecksTheDocument) {
  struct Case {
    const char *text, *errorForNew, *errorForExisting;
  };
  static const std::string deep = std::string(1001, '[') + std::string(1001, ']');
  const char* const kOther = "Attempt to deserialize a 'Other' type into a 'Probe' object";
  const Case kCases[] = {
      {nullptr, "Out of memory or invalid JSON format", "Out of memory or invalid JSON format"},
      {"", kParse, kParse},
      {"{\"class\":\"Probe\",", kParse, kParse},
      {"\xEF\xBB", kParse, kParse},
      {R"({"class":"Probe","data":{"x":nan}})", kParse, kParse},
      {deep.c_str(), kParse, kParse},
      {"[]", kNotObject, kNotObject},
      {"null", kNotObject, kNotObject},
      {"{}", kTwoElements, kTwoElements},
      {R"({"class":"Probe"})", kTwoElements, kTwoElements},
      {R"({"class":"Probe","data":{},"more":1})", kTwoElements, kTwoElements},
      {R"({"class":7,"data":{}})", kNoClass, kNoClass},
      {R"({"name":"Probe","data":{}})", kNoClass, kNoClass},
      {R"({"class":"Other","date":{}})",
       "A class with name Other is not registered with the classes repository", kOther},
      {R"({"class":"Probe","date":{}})", kNoData, kNoData},
      {R"({"class":"Probe","data":[1]})", kNoData, kNoData},
      {R"({"class":"Probe","data":{}})",
       "Data field 'x' of class 'Probe' not found or out or range",
       "Data field 'x' of class 'Probe' not found or out or range"},
      {"\xEF\xBB\xBF {\"Data\":{\"y\":[],\"X\":3,\"x\":\"second\"},\"CLASS\":\"Probe\"} trailing",
       "", ""},
  };
  for (const Case& c : kCases) {
    const char* const shown = c.text == nullptr ? "(null)" : c.text;
    base::JsonVisitingDeSerializer fresh(c.text, false);
    const std::unique_ptr<etl::IVisitable> object = fresh.DeserializeObject();
    EXPECT_EQ(fresh.GetErrorDescription(), c.errorForNew) << shown;
    EXPECT_EQ(object != nullptr, *c.errorForNew == '\0') << shown;

    base::JsonVisitingDeSerializer filling(c.text, false);
    const std::unique_ptr<etl::IVisitable> existing = etl::Classes::New("Probe");
    EXPECT_EQ(filling.DeserializeIntoExistingObject(*existing), *c.errorForExisting == '\0');
    EXPECT_EQ(filling.GetErrorDescription(), c.errorForExisting) << shown;

    if (c.text == nullptr) continue;
    const std::string text = c.text;
    base::JsonVisitingDeSerializer bytes(etl::Buffer(text.begin(), text.end()), false);
    bytes.DeserializeObject();
    EXPECT_EQ(bytes.GetErrorDescription(), c.errorForNew) << shown;
  }
}

TEST(JsonDeserializer, MatchesNamesExactlyOnRequest) {
  const auto readsX = [](IVisitor& v) {
    std::int32_t x = 0;
    v.VisitMemberI32(x, "x");
  };
  EXPECT_EQ(readData(R"({"X":3})", readsX, false), "");
  EXPECT_EQ(readData(R"({"X":3})", readsX, true),
            "Data field 'x' of class 'Probe' not found or out or range");
  EXPECT_EQ(readData(R"({"X":"","x":3})", readsX, true), "");
}

TEST(JsonDeserializer, BorrowsAParsedDocument) {
  cJSON* const root = cJSON_Parse(R"({"class":"Probe","data":{"x":3}})");
  for (int i = 0; i < 2; ++i) {
    base::JsonVisitingDeSerializer document(*root, false);
    EXPECT_NE(document.DeserializeObject(), nullptr) << document.GetErrorDescription();
  }
  cJSON_Delete(root);
}

template <typename T>
std::string readNumber(const char* text, T& value, void (IVisitor::*visit)(T&, const char*)) {
  return readData(std::string(R"({"n":)") + text + "}",
                  [&](IVisitor& v) { (v.*visit)(value, "n"); });
}

constexpr char kOutOfRange[] = "Data field 'n' of class 'Probe' not found or out or range";
constexpr char kNotANumber[] = "Data field 'n' of class 'Probe' not not a number";

/// The limits of an integer type come back, what lies one step outside is refused.
template <typename T>
void checkLimits(void (IVisitor::*visit)(T&, const char*), const char* below, const char* above) {
  for (const T limit : {std::numeric_limits<T>::min(), std::numeric_limits<T>::max()}) {
    auto value = static_cast<T>(1);
    EXPECT_EQ(readNumber(std::to_string(limit).c_str(), value, visit), "") << +limit;
    EXPECT_EQ(value, limit);
  }
  for (const char* text : {below, above, "1.5", "1e400", "-1e400"}) {
    auto value = static_cast<T>(42);
    EXPECT_EQ(readNumber(text, value, visit), kOutOfRange) << text;
    EXPECT_EQ(value, 42);
  }
  for (const char* text : {"true", "\"1\"", "null", "[1]"}) {
    auto value = static_cast<T>(42);
    EXPECT_EQ(readNumber(text, value, visit), kNotANumber) << text;
  }
  auto value = static_cast<T>(1);
  EXPECT_EQ(readNumber("12e1", value, visit), "");
  EXPECT_EQ(value, 120);
}

TEST(JsonDeserializer, KeepsIntegersWithinTheirType) {
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
}

TEST(JsonDeserializer, RoundsFloatsAndRefusesOverflow) {
  float single = 0;
  EXPECT_EQ(readNumber("3.40282347e+38", single, &IVisitor::VisitMemberF32), "");
  EXPECT_EQ(single, std::numeric_limits<float>::max());
  EXPECT_EQ(readNumber("1e-60", single, &IVisitor::VisitMemberF32), "");
  EXPECT_EQ(single, 0.0F);
  EXPECT_EQ(readNumber("3.4028236e+38", single, &IVisitor::VisitMemberF32), kOutOfRange);
  double number = 0;
  EXPECT_EQ(readNumber("1.7976931348623157e+308", number, &IVisitor::VisitMemberF64), "");
  EXPECT_EQ(number, std::numeric_limits<double>::max());
  EXPECT_EQ(readNumber("1e999", number, &IVisitor::VisitMemberF64), kOutOfRange);
  EXPECT_EQ(readNumber("\"1\"", number, &IVisitor::VisitMemberF64), kNotANumber);
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

void visitNumbers(IVisitor& v) {
  std::size_t count = 0;
  v.BeginVisitingArray(ArrayType::Primitives, count, "a");
  std::vector<double> values(count);
  v.VisitPodArray(values.data());
  v.EndVisitingArray(ArrayType::Primitives);
}

/// A matrix of two rows, whatever the document has.
void visitTwoRows(IVisitor& v) {
  std::size_t rows = 0;
  v.BeginVisitingArray(ArrayType::Arrays, rows, "a");
  for (int row = 0; row < 2; ++row) {
    std::size_t columns = 0;
    if (row > 0) v.VisitArraySeparator();
    v.BeginVisitingArray(ArrayType::Primitives, columns, nullptr);
    std::vector<double> values(columns);
    v.VisitPodArray(values.data());
    v.EndVisitingArray(ArrayType::Primitives);
  }
  v.EndVisitingArray(ArrayType::Arrays);
}

void visitNested(IVisitor& v) {
  std::shared_ptr<etl::IVisitable> object;
  v.VisitSubObjectVisitable(object, "o");
}

void visitBase(IVisitor& v) {
  std::int32_t x = 0;
  v.BeginVisitingBaseClass("Base");
  v.VisitMemberI32(x, "x");
  v.EndVisitingBaseClass("Base");
}

void visitBytes(IVisitor& v) {
  etl::Buffer bytes;
  v.VisitMemberBU(bytes, "b");
}

void visitTwoBytes(IVisitor& v) {
  unsigned char bytes[2];
  v.VisitMemberByteArray(bytes, 2, "b");
}

/// 1 x 2 elements of two bytes.
void visitPixels(IVisitor& v) {
  static std::uint16_t pixels[2];
  etl::BigDataArray array{"uint16", 2, 2, 1, nullptr, 0, [] { return pixels; }};
  v.VisitBigDataArray(array, "p");
}

void visitPixelsWithoutMemory(IVisitor& v) {
  v.VisitBigDataArray({"uint16", 2, 2, 1, nullptr, 0, []() -> void* { return nullptr; }}, "p");
}

void visitPixelsBeyondMemory(IVisitor& v) {
  v.VisitBigDataArray({"uint16", 2, SIZE_MAX / 2 + 2, 2, nullptr, 0, {}}, "p");
}

struct DataCase {
  const char* name;
  void (*visit)(IVisitor&);
  const char *data, *error;
};

const DataCase kDataCases[] = {
    {"BooleanFromNumber",
     [](IVisitor& v) {
       bool flag = false;
       v.VisitMemberB(flag, "n");
     },
     R"({"n":1})", kOutOfRange},
    {"FirstErrorIsKept",
     [](IVisitor& v) {
       double n = 0;
       v.VisitMemberF64(n, "first");
       v.VisitMemberF64(n, "second");
       v.EndVisitingArray(ArrayType::Arrays);
       v.SetError("third");
     },
     "{}", "Data field 'first' of class 'Probe' not found or out or range"},
    {"SubObjectFromArray",
     [](IVisitor& v) { etl::visitPlainSubObject(v, "s", "", [](IVisitor&) {}); }, R"({"s":[]})",
     "Data field 's' of class 'Probe' not found or out or range"},
    {"MemberOfSubObjectWithClass",
     [](IVisitor& v) {
       etl::visitPlainSubObject(v, "s", "Sub", [](IVisitor& inner) {
         double n = 0;
         inner.VisitMemberF64(n, "n");
       });
     },
     R"({"n":1,"s":{}})", "Data field 'n' of class 'Sub' not found or out or range"},
    {"MemberOfSubObjectWithoutClass",
     [](IVisitor& v) {
       etl::visitPlainSubObject(v, "s", "", [](IVisitor& inner) {
         double n = 0;
         inner.VisitMemberF64(n, "n");
       });
     },
     R"({"n":1,"s":{}})", kOutOfRange},

    {"NestedMissing", visitNested, "{}",
     "Data field 'o' of class 'Probe' not found or out or range"},
    {"NestedNumber", visitNested, R"({"o":1})",
     "'object' fields must be either 'null' or JSON 'object' in member 'o'"},
    {"NestedWithoutClass", visitNested, R"({"o":{"data":{}}})",
     "Could not find 'class' name field for member 'o'"},
    {"NestedOfUnknownClass", visitNested, R"({"o":{"class":"None","data":{}}})",
     "Could not create class 'None' at run-time: Not registered with the classes repository"},
    {"NestedWithoutData", visitNested, R"({"o":{"class":"Probe"}})", kNoData},
    {"NestedNull", visitNested, R"({"o":null})", ""},
    {"BaseMissing", visitBase, "{}",
     "Data field 'baseClass' of class 'Probe' not found or out or range"},
    {"BaseWithoutClass", visitBase, R"({"baseClass":{"data":{"x":1}}})",
     "Could not find 'class' name field for member 'baseClass'"},
    {"BaseOfOtherClass", visitBase, R"({"baseClass":{"class":"Else","data":{"x":1}}})",
     "Attempt to deserialize a 'Else' type into a 'Base' object"},

    {"ArrayMissing", visitNumbers, "{}",
     "Could not find array beginning bracket for member 'a' of class 'Probe'"},
    {"ArrayFromNumber", visitNumbers, R"({"a":1})",
     "Could not find array beginning bracket for member 'a' of class 'Probe'"},
    {"ElementNotANumber", visitNumbers, R"({"a":[1,"2"]})",
     "Data field 'a' of class 'Probe' not not a number"},
    {"ArrayEmpty", visitNumbers, R"({"a":[]})", ""},
    {"RowNotAnArray", visitTwoRows, R"({"a":[1,2]})",
     "Could not find array beginning bracket for member 'a' of class 'Probe'"},
    {"ElementInRowNotANumber", visitTwoRows, R"({"a":[[1],[null]]})",
     "Data field 'a' of class 'Probe' not not a number"},
    {"TooFewRows", visitTwoRows, R"({"a":[[1]]})",
     "Array element out of bounds while de-serializing class 'Probe'"},
    {"NoRows", visitTwoRows, R"({"a":[]})",
     "Array element out of bounds while de-serializing class 'Probe'"},
    {"TooManyRows", visitTwoRows, R"({"a":[[1],[2],[3]]})",
     "Serialized array size mismatch while de-serializing class 'Probe'"},
    {"ElementsReadTwice",
     [](IVisitor& v) {
       std::size_t count = 0;
       double value = 0;
       v.BeginVisitingArray(ArrayType::Primitives, count, "a");
       v.VisitPodArray(&value);
       v.VisitPodArray(&value);
     },
     R"({"a":[1]})", "Array element out of bounds while de-serializing class 'Probe'"},
    {"ObjectRefusesLength",
     [](IVisitor& v) {
       std::size_t count = 0;
       v.BeginVisitingArray(ArrayType::Primitives, count, "a");
       v.SetArraySizeMismatch();
     },
     R"({"a":[1]})", "Serialized array size mismatch while de-serializing class 'Probe'"},
    {"ArrayEndsAsOtherType",
     [](IVisitor& v) {
       std::size_t count = 0;
       v.BeginVisitingArray(ArrayType::Primitives, count, "a");
       v.EndVisitingArray(ArrayType::Arrays);
     },
     R"({"a":[]})", "EndVisitingArray() mismatch"},
    {"ArrayLeftOpen",
     [](IVisitor& v) {
       std::size_t count = 0;
       v.BeginVisitingArray(ArrayType::Primitives, count, "a");
     },
     R"({"a":[]})", "Nested EndVisiting() mismatch"},

    {"BytesWithBadCharacter", visitBytes, R"({"b":"QU-D"})",
     "Problems decoding BASE64 'data' field of member 'b' while de-serializing class 'Probe'"},
    {"BytesOfOddLength", visitBytes, R"({"b":"QUI"})",
     "Problems decoding BASE64 'data' field of member 'b' while de-serializing class 'Probe'"},
    {"FixedBytesOfOtherLength", visitTwoBytes, R"({"b":"QUJD"})",
     "Serialized array size mismatch while de-serializing class 'Probe'"},

    {"PixelsNull", visitPixels, R"({"p":null})",
     "Data field 'p' of class 'Probe' not found or out or range"},
    {"PixelsWithoutData", visitPixels,
     R"({"p":{"numOfElems":2,"elemSz":2,"endian":"little","elemTypes":""}})",
     "No 'data' field found for big data array while de-serializing class 'Probe'"},
    {"PixelsWithoutEndian", visitPixels,
     R"({"p":{"numOfElems":2,"elemSz":2,"elemTypes":"","data":""}})",
     "Serialized array 'endian' not specified while de-serializing class 'Probe'"},
    {"PixelsBigEndian", visitPixels,
     R"({"p":{"numOfElems":2,"elemSz":2,"endian":"big","elemTypes":"","data":""}})",
     "Unknown 'endian' type: 'big' while de-serializing class 'Probe'"},
    {"PixelsWithoutElemTypes", visitPixels,
     R"({"p":{"numOfElems":2,"elemSz":2,"endian":"little","elemTypes":1,"data":""}})",
     "Serialized array 'elemTypes' parse error while de-serializing class 'Probe'"},
    {"PixelsWithoutNumber", visitPixels,
     R"({"p":{"elemSz":2,"endian":"little","elemTypes":"","data":"AQACAA=="}})",
     "Data field 'numOfElems' of class 'Probe' not found or out or range"},
    {"PixelsOfOtherNumber", visitPixels,
     R"({"p":{"numOfElems":3,"elemSz":2,"endian":"little","elemTypes":"","data":"AQACAAMA"}})",
     "Serialized array size mismatch while de-serializing class 'Probe'"},
    {"PixelsOfOtherSize", visitPixels,
     R"({"p":{"numOfElems":2,"elemSz":1,"endian":"little","elemTypes":"","data":"AQA="}})",
     "Serialized array size mismatch while de-serializing class 'Probe'"},
    {"PixelsWithFewerBytes", visitPixels,
     R"({"p":{"numOfElems":2,"elemSz":2,"endian":"little","elemTypes":"","data":"AQAC"}})",
     "Serialized array size mismatch while de-serializing class 'Probe'"},
    {"PixelsWithBadText", visitPixels,
     R"({"p":{"numOfElems":2,"elemSz":2,"endian":"little","elemTypes":"","data":"AQ CAA=="}})",
     "Problems decoding BASE64 'data' field of member 'p' while de-serializing class 'Probe'"},
    {"PixelsWithoutMemory", visitPixelsWithoutMemory,
     R"({"p":{"numOfElems":2,"elemSz":2,"endian":"little","elemTypes":"","data":"AQACAA=="}})",
     "No memory for big data array while de-serializing class 'Probe'"},
    {"PixelsBeyondMemory", visitPixelsBeyondMemory,
     R"({"p":{"numOfElems":2,"elemSz":2,"endian":"little","elemTypes":"","data":"AQACAA=="}})",
     "Serialized array size mismatch while de-serializing class 'Probe'"},
    {"PixelsNeutral", visitPixels,
     R"({"p":{"numOfElems":2,"elemSz":2,"endian":"neutral","elemTypes":"?","data":"AQACAA=="}})",
     ""},
};

TEST(JsonDeserializer, GivesTheErrorOfBadData) {
  for (const DataCase& c : kDataCases) EXPECT_EQ(readData(c.data, c.visit), c.error) << c.name;
}

TEST(JsonDeserializer, AllocatesOnlyForTextOfTheRightLength) {
  int allocations = 0;
  std::vector<unsigned char> memory(2);
  const auto visit = [&](IVisitor& v) {
    v.VisitBigDataArray({"uint8", 1, 2, 1, nullptr, 0,
                         [&]() -> void* {
                           ++allocations;
                           return memory.data();
                         }},
                        "p");
  };
  const std::string head =
      R"({"p":{"numOfElems":2,"elemSz":1,"endian":"neutral","elemTypes":"","data":")";
  for (const char* bad : {"", "AQ==", "AQID", "AQIDBA=="}) {
    EXPECT_NE(readData(head + bad + "\"}}", visit), "");
  }
  EXPECT_EQ(allocations, 0);
  EXPECT_EQ(readData(head + "AQI=\"}}", visit), "");
  EXPECT_EQ(allocations, 1);
  EXPECT_EQ(memory, (std::vector<unsigned char>{1, 2}));
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

// ---- There and back ----

enum class Colour : std::int32_t { Red = 3, Green = -7 };

struct Everything {
  bool b = true;
  char c = '\xfe';
  std::int64_t i64 = -9007199254740992;
  float f = 0.1F;
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
    v.VisitMemberI64(i64, "i64");
    v.VisitMemberF32(f, "f");
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

TEST(JsonRoundTrip, GivesEveryValueBackFromCompactAndPrettyText) {
  Everything source;
  source.many.assign(1000000, 0.5);  // a walk by index would take minutes
  for (const bool pretty : {false, true}) {
    const std::string text = test::written([&](IVisitor& v) { source.Visit(v); }, pretty);
    Everything back{false, 0, 0, 0, 0, "", {}, Colour::Red, {}, {}, {}, {}, {}};
    base::JsonVisitingDeSerializer document(text.c_str(), true);
    Probe probe([&](IVisitor& v) { back.Visit(v); });
    ASSERT_TRUE(document.DeserializeIntoExistingObject(probe)) << document.GetErrorDescription();
    EXPECT_EQ(test::written([&](IVisitor& v) { back.Visit(v); }, pretty), text);
    EXPECT_EQ(back.s, source.s);
    EXPECT_EQ(back.d, source.d);
    EXPECT_EQ(back.c, source.c);
    EXPECT_EQ(back.many.size(), source.many.size());
  }
}

}  // namespace
