#include <cjson/cJSON.h>
#include <gtest/gtest.h>
#include <locale.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "planex/infra/allocator.h"
#include "planex/infra/base64.h"
#include "planex/infra/class_repository.h"
#include "planex/infra/count_members_visitor.h"
#include "planex/infra/json_deserializer.h"
#include "planex/infra/json_serializer.h"
#include "planex/infra/out_stream.h"
#include "planex/infra/sub_object.h"

/// Stands in for the C library's: a decimal comma wherever a thread has no locale of its own, as
/// in a process that called setlocale for a country that has one.
extern "C" __attribute__((visibility("default"))) struct lconv* localeconv() noexcept {
  static char comma[] = ",", point[] = ".", none[] = "";
  static struct lconv conventions {};
  conventions.decimal_point = uselocale(nullptr) == LC_GLOBAL_LOCALE ? comma : point;
  conventions.thousands_sep = conventions.grouping = none;
  return &conventions;
}

namespace {

using base::JsonVisitingDeSerializer;
using etl::ArrayType;
using etl::IVisitor;

using Members = std::function<void(IVisitor&)>;

void visitX(IVisitor& v) {
  std::int32_t x = 1;
  v.VisitMemberI32(x, "x");
}

/// Its members are what the test says.
struct Probe final : etl::IVisitable {
  explicit Probe(Members asked = visitX) : members(std::move(asked)) {}
  const char* GetClassName() const override { return "Probe"; }
  void Visit(IVisitor& visitor) override { members(visitor); }
  std::unique_ptr<etl::IVisitable> CloneVisitable() const override { return nullptr; }

  Members members;
};

const bool registered = etl::registerClass<Probe>("Probe");

/// Reads a document with this "data", names as they are written. @return the error, "" when there
/// is none
std::string readData(const std::string& data, const Members& members) {
  JsonVisitingDeSerializer document((R"({"class":"Probe","data":)" + data + "}").c_str(), true);
  Probe probe(members);
  document.DeserializeIntoExistingObject(probe);
  return document.GetErrorDescription();
}

// ---- Whole documents ----

TEST(Json, ChecksTheDocument) {
  const std::string parse = "Can not parse JSON";
  const std::string elements =
      "There need to be exact two elements for objects: 'class' and 'data'";
  const std::string noData = "Could not find 'data' field on object";
  const auto nested = [](std::size_t arrays) {
    return R"({"class":"Probe","data":{"y":[],"w":"","z":)" + std::string(arrays, '[') +
           std::string(arrays, ']') + R"(,"x":2}})";
  };
  const std::string deepest = nested(98), tooDeep = nested(99);
  const struct {
    const char* text;
    std::string error;
    const char* errorForExisting = nullptr;  ///< null: the same
  } kCases[] = {
      {"{\"class\":\"Probe\",", parse},
      {"", parse},
      {tooDeep.c_str(), parse},
      {deepest.c_str(), ""},
      {"[]", "JSON sequence is not of 'object' type"},
      {R"({"class":"Probe"})", elements},
      {R"({"class":7,"data":{}})", "Could not find JSON 'class' field for object"},
      {R"({"class":"Other","date":{}})",
       "A class with name Other is not registered with the classes repository",
       "Attempt to deserialize a 'Other' type into a 'Probe' object"},
      {R"({"class":"Probe","date":{}})", noData},
      {R"({"class":"Probe","data":[1]})", noData},
      {"\xEF\xBB\xBF {\"Data\":{\"y\":[],\"X\":3,\"x\":\"second\"},\"CLASS\":\"Probe\"} trailing",
       ""},
  };
  for (const auto& c : kCases) {
    const std::string text = c.text;
    SCOPED_TRACE(text);
    Probe existing;
    JsonVisitingDeSerializer filling(c.text, false);
    const std::string error = c.errorForExisting != nullptr ? c.errorForExisting : c.error;
    EXPECT_EQ(filling.DeserializeIntoExistingObject(existing), error.empty());
    EXPECT_EQ(filling.GetErrorDescription(), error);
    for (const std::string& end : {std::string(), std::string(1, '\0'), std::string("\0,\"", 3)}) {
      etl::Buffer bytes(text.begin(), text.end());
      bytes.insert(bytes.end(), end.begin(), end.end());
      JsonVisitingDeSerializer document(bytes, false);
      EXPECT_EQ(document.DeserializeObject() != nullptr, c.error.empty());
      EXPECT_EQ(document.GetErrorDescription(), c.error) << "with " << end.size() << " more";
    }
  }
  JsonVisitingDeSerializer none(nullptr, false);
  EXPECT_EQ(none.DeserializeObject(), nullptr);
  EXPECT_EQ(none.GetErrorDescription(), "Out of memory or invalid JSON format");
  EXPECT_NE(readData(R"({"X":3})", visitX), "") << "exact names on request";
}

TEST(Json, ReadsABorrowedDocument) {
  const std::unique_ptr<cJSON, void (*)(cJSON*)> root(
      cJSON_Parse(R"({"class":"Probe","data":{"x":4}})"), cJSON_Delete);
  JsonVisitingDeSerializer document(*root, false);
  EXPECT_NE(document.DeserializeObject(), nullptr);
  EXPECT_NE(document.DeserializeObject(), nullptr);
}

TEST(Json, ParsesUnderTheCLocaleAndPutsTheFormerBack) {
  const locale_t former = uselocale(nullptr);
  double number = 0;
  EXPECT_EQ(readData(R"({"n":0.5})", [&](IVisitor& v) { v.VisitMemberF64(number, "n"); }), "");
  EXPECT_EQ(number, 0.5);
  EXPECT_EQ(uselocale(nullptr), former);
  ASSERT_STREQ(localeconv()->decimal_point, ",") << "the check above would see nothing";
}

// ---- Members ----

std::string fieldError(const std::string& name, const std::string& what = "found or out or range") {
  return "Data field '" + name + "' of class 'Probe' not " + what;
}

/// Refuses texts for a member and leaves it alone.
template <typename T>
void expectRefused(void (IVisitor::*visit)(T&, const char*),
                   std::initializer_list<const char*> texts) {
  for (const std::string text : texts) {
    T value = 42;
    const bool isNumber = text[0] != 't' && text[0] != '"';
    EXPECT_EQ(readData("{\"n\":" + text + "}", [&](IVisitor& v) { (v.*visit)(value, "n"); }),
              fieldError("n", isNumber ? "found or out or range" : "not a number"));
    EXPECT_EQ(value, T{42}) << text;
  }
}

TEST(Json, KeepsNumbersWithinTheirType) {
  expectRefused(&IVisitor::VisitMemberI8, {"-129", "128", "1.5", "true"});
  expectRefused(&IVisitor::VisitMemberC, {"-129", "128"});
  expectRefused(&IVisitor::VisitMemberI16, {"-32769", "32768"});
  expectRefused(&IVisitor::VisitMemberUI8, {"-1", "256"});
  expectRefused(&IVisitor::VisitMemberUI16, {"-1", "65536"});
  expectRefused(&IVisitor::VisitMemberUI32, {"-1", "4294967296"});
  expectRefused(&IVisitor::VisitMemberI64, {"-9223372036854778000", "9223372036854778000"});
  expectRefused(&IVisitor::VisitMemberUI64, {"-1", "18446744073709556000"});
  // Half a step above the largest float.
  expectRefused(&IVisitor::VisitMemberF32, {"3.4028235677973366e+38", "-3.4028235677973366e+38"});
  expectRefused(&IVisitor::VisitMemberF64, {"1e999", "\"1\""});
  float single = 1;
  EXPECT_EQ(readData(R"({"n":1e-60})", [&](IVisitor& v) { v.VisitMemberF32(single, "n"); }), "");
  EXPECT_EQ(single, 0.0F);
}

bool allocated = false;  // pixels

/// Calls to a visitor, a letter each.
void play(IVisitor& v, const std::string& calls) {
  static std::int32_t number = 1;
  static bool flag = false;
  static double values[3] = {};
  static unsigned char bytes[2] = {};
  static etl::String text;
  static std::shared_ptr<etl::IVisitable> object;
  static std::size_t count;
  static const auto visitPixels = [](IVisitor& to, std::size_t rows, std::size_t elems,
                                     void* data) {
    const auto allocate = [data] { return allocated = true, data; };
    to.VisitBigDataArray({"t", 2, elems, rows, data, 2, allocate}, "p");
  };
  static const std::map<char, void (*)(IVisitor&)> kCalls = {
      {'x', [](IVisitor& to) { to.VisitMemberI32(number, "x"); }},
      {'w', [](IVisitor& to) { to.VisitMemberS(text, "w"); }},
      {'f', [](IVisitor& to) { to.VisitMemberB(flag, "f"); }},
      {'k', [](IVisitor& to) { to.VisitMemberByteArray(bytes, 2, "k"); }},
      {'o', [](IVisitor& to) { to.VisitSubObjectVisitable(object, "o"); }},
      {'{', [](IVisitor& to) { to.BeginVisiting("Probe"); }},
      {'}', [](IVisitor& to) { to.EndVisiting("Probe"); }},
      {'B', [](IVisitor& to) { to.BeginVisitingBaseClass("Base"); }},
      {'b', [](IVisitor& to) { to.EndVisitingBaseClass("Base"); }},
      {'S', [](IVisitor& to) { to.BeginVisitingSubObject("s", ""); }},
      {'s', [](IVisitor& to) { to.EndVisitingSubObject("s", ""); }},
      {'[', [](IVisitor& to) { to.BeginVisitingArray(ArrayType::Primitives, count, "a"); }},
      {']', [](IVisitor& to) { to.EndVisitingArray(ArrayType::Primitives); }},
      {'<', [](IVisitor& to) { to.BeginVisitingArray(ArrayType::Arrays, count, "a"); }},
      {'>', [](IVisitor& to) { to.EndVisitingArray(ArrayType::Arrays); }},
      {',', [](IVisitor& to) { to.VisitArraySeparator(); }},
      {'p', [](IVisitor& to) { to.VisitPodArray(values); }},
      {'g', [](IVisitor& to) { visitPixels(to, 1, 2, values); }},
      {'n', [](IVisitor& to) { visitPixels(to, 1, 2, nullptr); }},
      {'r', [](IVisitor& to) { visitPixels(to, SIZE_MAX / 2 + 1, 2, values); }},
      {'e', [](IVisitor& to) { visitPixels(to, 1, SIZE_MAX / 2 + 1, values); }},
      {'m', [](IVisitor& to) { to.SetArraySizeMismatch(); }},
      {'!', [](IVisitor& to) { to.SetError("first"); }}};
  number = 1;
  count = 1;
  text = "\"\\\b\f\n\r\t\x1f/\x7f\xc3\xa9";
  values[0] = 0.1;
  for (const char call : calls) kCalls.at(call)(v);
}

constexpr char kArrays[] = "EndVisitingArray() mismatch";
constexpr char kNesting[] = "Nested EndVisiting() mismatch";

/// Two pixels, with one piece of their text replaced.
std::string pixels(const std::string& piece, const std::string& replacement) {
  std::string text =
      R"({"p":{"numOfElems":2,"elemSz":2,"endian":"little","elemTypes":"?","data":"AQACAA=="}})";
  return text.replace(text.find(piece), piece.size(), replacement);
}

TEST(Json, ReadsWhatIsVisitedOrGivesTheFirstError) {
  const std::string inClass = " while de-serializing class 'Probe'";
  const std::string noArray =
      "Could not find array beginning bracket for member 'a' of class 'Probe'";
  const std::string beyond = "Array element out of bounds" + inClass;
  const std::string mismatch = "Serialized array size mismatch" + inClass;
  const std::string noClass = "Could not find 'class' name field for member ";
  const std::string noObject =
      "'object' fields must be either 'null' or JSON 'object' in member 'o'";
  const std::string unknown =
      "Could not create class 'None' at run-time: Not registered with the classes repository";
  const std::string noBytes = "Problems decoding BASE64 'data' field of member ";
  const struct {
    const char* calls;
    std::string data, error;
  } kCases[] = {
      {"x]m!w", "{}", fieldError("x")},
      {"w", R"({"w":1})", fieldError("w")},
      {"f", R"({"f":1})", fieldError("f")},
      {"Sxs", R"({"x":1,"s":{}})", fieldError("x")},

      {"o", R"({"o":1})", noObject},
      {"o", R"({"o":{"data":{}}})", noClass + "'o'"},
      {"o", R"({"o":{"class":"None","data":{}}})", unknown},
      {"o", R"({"o":{"class":"Probe","data":{}}})", fieldError("x")},
      {"Bxb", R"({"baseClass":[1]})", fieldError("baseClass")},
      {"Bxb", R"({"baseClass":{"data":{"x":1}}})", noClass + "'baseClass'"},
      {"Bxb", R"({"baseClass":{"class":"Else","data":{"x":1}}})",
       "Attempt to deserialize a 'Else' type into a 'Base' object"},

      {"k", R"({"k":"QUI"})", noBytes + "'k'" + inClass},
      {"k", R"({"k":"QUJD"})", mismatch},
      {"[p]", "{}", noArray},
      {"[p]", R"({"a":[1,"2"]})", fieldError("a", "not a number")},
      {"[pp]", R"({"a":[1]})", beyond},
      {"[]", R"({"a":[1]})", mismatch},
      {"[[", R"({"a":[[1]]})", kArrays},
      {"[,", R"({"a":[1]})", kArrays},
      {"p", "{}", kArrays},
      {"[", R"({"a":[]})", kNesting},
      {"<[p],[p]>", R"({"a":[1,2]})", noArray},
      {"<[p][p]>", R"({"a":[[1]]})", beyond},
      {"}x", R"({"x":1})", kNesting},

      {"g", pixels("\"data\"", "\"date\""), "No 'data' field found for big data array" + inClass},
      {"g", pixels("endian", "Indian"), "Serialized array 'endian' not specified" + inClass},
      {"g", pixels("little", "big"), "Unknown 'endian' type: 'big'" + inClass},
      {"g", pixels("\"?\"", "1"), "Serialized array 'elemTypes' parse error" + inClass},
      {"g", pixels("2,\"elemSz\":2,", "3,\"elemSz\":2,"), mismatch},
      {"g", pixels("AQACAA==", "AQ CAA=="), noBytes + "'p'" + inClass},
      {"n", pixels("", ""), "No memory for big data array" + inClass},
      {"r", pixels("2", "0"), mismatch},
      {"e", pixels("2", "9223372036854775808"), mismatch},
  };
  for (const auto& c : kCases) {
    allocated = false;
    EXPECT_EQ(readData(c.data, [&](IVisitor& v) { play(v, c.calls); }), c.error)
        << c.calls << " of " << c.data;
    EXPECT_FALSE(allocated && c.error == mismatch) << c.data;
  }
}

TEST(Json, WritesNothingOfWhatIsVisitedUnevenly) {
  constexpr char kBigData[] = "Big data array of invalid size";
  const struct {
    const char *calls, *error;
  } kCases[] = {{"]", kArrays},        {"[p>", kArrays},
                {"[]", kArrays},       {"[[", kArrays},
                {"<p", kArrays},       {"p", kArrays},
                {"[", kNesting},       {"[x", kNesting},
                {"<o", kNesting},      {"{", kNesting},
                {"Bss", kNesting},     {"}x", kNesting},
                {"!xw[p]o]", "first"}, {"m", "Serialized array size mismatch"},
                {"n", kBigData},       {"r", kBigData},
                {"e", kBigData}};
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.calls);
    etl::MemoryOutStream stream;
    base::JsonVisitingSerializer serializer(stream, false);
    Probe probe([&](IVisitor& v) { play(v, c.calls); });
    EXPECT_FALSE(serializer.Serialize(probe));
    EXPECT_EQ(serializer.GetErrorDescription(), c.error);
    EXPECT_TRUE(stream.GetText().empty() || c.calls[0] == '}') << "which ends the document";
  }
}

TEST(Json, WritesOneTextForEveryKind) {
  Probe probe([](IVisitor& v) {
    char code = -128;
    v.VisitMemberC(code, "c");
    for (float number : {0.1F, NAN, HUGE_VALF, -HUGE_VALF}) v.VisitMemberF32(number, "n");
    play(v, "wkBobSxs");
    v.VisitBigDataArray({"t", 1, 0, 0, nullptr, 0, {}}, "p");
  });
  etl::MemoryOutStream stream;
  EXPECT_TRUE(base::JsonVisitingSerializer(stream, false).Serialize(probe));
  EXPECT_EQ(stream.GetText(),
            R"({"class":"Probe","data":{"c":-128,"n":0.100000001,"n":nan,"n":inf,"n":-inf,)"
            R"("w":"\"\\\b\f\n\r\t\u001f/)"
            "\x7f\xc3\xa9"
            R"(","k":"AAA=",)"
            R"("baseClass":{"class":"Base","data":{"o":null}},"s":{"x":1},)"
            R"("p":{"numOfElems":0,"elemSz":1,"endian":"neutral","elemTypes":"t","data":""}}})");
  Probe part([](IVisitor& v) { play(v, "<[p]>g"); });
  etl::MemoryOutStream lines;
  base::JsonVisitingSerializer pretty(lines, true);
  pretty.SetNumOfSignificants(0, 65535);
  pretty.SetVisitingDetails(base::Details::WithoutBigData);
  EXPECT_TRUE(pretty.Serialize(part));
  EXPECT_EQ(lines.GetText(),
            "{\r\n  \"class\": \"Probe\",\r\n  \"data\": {\r\n    \"a\": [\r\n      [\r\n"
            "        0.1000000000000000055511151231257827021182\r\n      ]\r\n    ],\r\n"
            "    \"p\": {\r\n      \"numOfElems\": 2,\r\n      \"elemSz\": 2,\r\n      \"endian\": "
            "\"little\",\r\n"
            "      \"elemTypes\": \"t\",\r\n      \"data\": \"\"\r\n    }\r\n  }\r\n}");
}

TEST(Base64, TakesTheAlphabetAloneAtEveryPlace) {
  // Padding in the last place leaves two bits of 't' (45) unused that are set: refused like the
  // rest of what is not in the alphabet.
  const std::string good = "QUJDREVGR0hJSktM";
  unsigned char bytes[12];
  for (std::size_t at = 0; at < good.size(); ++at) {
    int accepted = 0;
    for (int c = 0; c < 256; ++c) {
      std::string text = good;
      text[at] = static_cast<char>(c);
      accepted += etl::base64::decode(text, bytes) ? 1 : 0;
    }
    EXPECT_EQ(accepted, 64) << "at " << at;
  }
  for (const char* text : {"QQ=", "Q===", "====", "QQ=Q", "QR==", "QQF=", "QQ==QQ=="}) {
    EXPECT_FALSE(etl::base64::decode(text, bytes)) << text;
  }
}

// ---- Size ----

/// Takes so many pieces, none of them large.
class Pieces final : public etl::OutStream {
 public:
  explicit Pieces(int most) : left(most) {}
  using OutStream::Write;
  bool Write(const void*, std::size_t size) override {
    EXPECT_LT(size, 100000U);
    return --left >= 0;
  }
  int left;
};

TEST(Json, WritesInPiecesAndReadsLongArraysInOneWalk) {
  std::vector<double> values(300000, 0.5);  // a walk by index would take a minute
  Probe probe([&](IVisitor& v) {
    std::size_t count = values.size();
    v.BeginVisitingArray(ArrayType::Primitives, count, "a");
    v.VisitPodArray(values.data());
    v.EndVisitingArray(ArrayType::Primitives);
  });
  Pieces pieces(1000);
  EXPECT_TRUE(base::JsonVisitingSerializer(pieces, false).Serialize(probe));
  Pieces full(0);
  base::JsonVisitingSerializer refused(full, false);
  EXPECT_FALSE(refused.Serialize(probe));
  EXPECT_EQ(refused.GetErrorDescription(), "Could not write to the output stream");
  EXPECT_EQ(full.left, -1) << "asked once";

  etl::MemoryOutStream stream;
  EXPECT_TRUE(base::JsonVisitingSerializer(stream, false).Serialize(probe));
  values.assign(values.size(), 0);
  JsonVisitingDeSerializer document(stream.GetBuffer(), true);
  EXPECT_TRUE(document.DeserializeIntoExistingObject(probe));
  EXPECT_EQ(values, std::vector<double>(values.size(), 0.5));
}

// ---- Parts ----

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

TEST(CountMembersVisitor, CountsTheOutermostAndKeepsTheFirstError) {
  Probe whole([](IVisitor& v) {
    etl::visitPlainSubObject(v, "sub", "", [](IVisitor& inner) { play(inner, "xx"); });
  });
  etl::MemoryOutStream stream;
  EXPECT_TRUE(Asking(stream, false).Serialize(whole));
  EXPECT_EQ(stream.GetText(), R"({"class":"Probe","data":{"sub":{"x":1,"x":1}}})");
  etl::CountMembersVisitor counter;
  counter.BeginVisiting("Probe");
  whole.Visit(counter);
  // One of each kind; what is inside of others does not count.
  play(counter, "xwfkoBxobSxs[p]<[p],[p]>g");
  etl::Buffer bytes;
  counter.VisitMemberBU(bytes, "b");
  EXPECT_EQ(counter.GetCount(), 12U);
  // It changes nothing, and looks into no other object.
  EXPECT_EQ(counter.GetVisitType(), etl::VisitType::Writing);
  EXPECT_FALSE(counter.RecursionIntoSubObjectsMeaningful());
  counter.EndVisiting("Probe");
  play(counter, "!m");
  EXPECT_EQ(counter.GetErrorDescription(), "first");
}

TEST(Classes, KeepsTheFirstFactoryOfAName) {
  EXPECT_EQ(etl::Classes::New("Whole"), nullptr);
  EXPECT_TRUE(etl::Classes::IsRegistered("Probe") && !etl::Classes::IsRegistered("Whole"));
  EXPECT_TRUE(etl::Classes::Register("Probe", [] { return std::unique_ptr<etl::IVisitable>(); }));
  EXPECT_STREQ(etl::Classes::New("Probe")->GetClassName(), "Probe");
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
