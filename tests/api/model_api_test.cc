#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tests/api/api_test.h"

namespace test {
namespace {

const char* const kInvalidJson = "SEVERE: The json buffer does not contain valid json";
const char* const kInvalidModel = "SEVERE: The json data does not describe a valid model";
const char* const kNoFile = "SEVERE: Not able to open calibration file";

class ModelApi : public ApiTest {
 protected:
  static std::string exported(uint32_t model) {
    std::vector<char> text(1 << 20);
    EXPECT_TRUE(createJsonFromModel(model, text.data(), text.size()));
    return text.data();
  }
};

TEST_F(ModelApi, ExportReadsBackAsTheSameDocument) {
  const std::string first = exported(makeModel());
  EXPECT_EQ(exported(makeModel(first)), first);
  EXPECT_NE(first.find("\"FocalLength\""), std::string::npos);
  EXPECT_NE(first.find('\n'), std::string::npos) << "indented";
}

TEST_F(ModelApi, ExportNeedsRoomForTextAndNul) {
  const uint32_t model = makeModel();
  const std::string text = exported(model);
  std::vector<char> buffer(text.size() + 2, '#');
  EXPECT_FALSE(createJsonFromModel(model, buffer.data(), text.size()));
  EXPECT_EQ(log.TakeOne(), "SEVERE: The provided json buffer is to small for the model");
  EXPECT_EQ(buffer[0], '#');
  EXPECT_TRUE(createJsonFromModel(model, buffer.data(), text.size() + 1));
  EXPECT_EQ(buffer.data(), text);
  EXPECT_EQ(buffer.back(), '#');
}

TEST_F(ModelApi, AcceptsDamagedDocumentsWhoseSensorSizeAgrees) {
  // Reading stops at the focal length of the wrong type, before or after the sensor size was read.
  const std::string noCurve = with(kModelDocument, "\"SheetCurve\"", "\"Other\"");
  const std::string noFocal = with(kModelDocument, "1000.0", "true");
  const struct {
    const char* name;
    std::string text;
    const char* message;  // empty: accepted
  } cases[] = {
      {"missing member behind the size", noCurve, ""},
      {"sizes named twice", with(noCurve, "\"Skew\"", R"("SensorSize": [640, 480], "Skew")"),
       kInvalidJson},
      {"error before the size was read", noFocal, kInvalidJson},
      {"size of the default model", with(noFocal, R"("x": 640, "y": 480)", R"("x": 0, "y": 0)"),
       ""},
      {"recovered but inconsistent", with(noCurve, "0.25", "-0.25"), kInvalidModel},
      {"no JSON with the default size", "SensorSize 0 0", ""},
      {"one run of digits for both", "SensorSize 00", ""},
      {"no JSON", "SensorSize", kInvalidJson},
      {"empty", "", kInvalidJson},
      {"negative focal length", with(kModelDocument, "1000.0", "-1"), kInvalidModel},
      {"deep nesting", std::string(5000000, '['), kInvalidJson},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    uint32_t model = 77;
    EXPECT_EQ(createModelFromJson(c.text.c_str(), &model), *c.message == '\0');
    EXPECT_EQ(model == 0, *c.message != '\0');
    EXPECT_EQ(log.TakeOne(), c.message);
  }
}

class ModelFile : public ModelApi {
 protected:
  ~ModelFile() override { std::filesystem::remove(path_); }

  void write(const std::string& bytes) { std::ofstream(path_, std::ios::binary) << bytes; }

  std::string path_ = ::testing::TempDir() + "planex_model_file_test.json";
};

TEST_F(ModelFile, ReadsUpToTheFirstNul) {
  // Longer than what is read at a time.
  const std::string document =
      with(kModelDocument, "\"data\"", std::string(200000, ' ') + "\"data\"");
  for (const std::string& tail : {std::string(), std::string("\0 rest", 6)}) {
    write(document + tail);
    uint32_t model = 0;
    EXPECT_TRUE(createModelFromFilePath(path_.c_str(), &model));
    EXPECT_EQ(exported(model), exported(makeModel()));
  }
}

TEST_F(ModelFile, RefusesWhatIsNoRegularFile) {
  for (const char* path :
       {static_cast<const char*>(nullptr), "", "/", "/dev/zero", "/nonexistent/model.json"}) {
    uint32_t model = 77;
    EXPECT_FALSE(createModelFromFilePath(path, &model));
    EXPECT_EQ(model, 77u);
    EXPECT_EQ(log.TakeOne(), kNoFile);
  }
  EXPECT_FALSE(createModelFromFilePath(nullptr, nullptr));
  EXPECT_EQ(log.TakeOne(), kNoFile) << "no other check runs before the file is open";
  write("");
  uint32_t model = 77;
  EXPECT_FALSE(createModelFromFilePath(path_.c_str(), &model));
  EXPECT_EQ(model, 0u);
  EXPECT_EQ(log.TakeOne(), kInvalidJson);
}

}  // namespace
}  // namespace test
