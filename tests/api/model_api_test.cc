#include <gmock/gmock.h>
#include <unistd.h>

#include <cmath>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "planex/api/handle_registry.h"
#include "planex/model/model_file.h"
#include "planex/model/model_recovery.h"
#include "tests/api/api_test.h"

namespace test {
namespace {

class ModelFile : public ApiTest {
 protected:
  ~ModelFile() override { std::filesystem::remove(path_); }

  bool Read(const char* path) { return createModelFromFilePath(path, &model_); }
  void Write(const std::string& bytes) { std::ofstream(path_, std::ios::binary) << bytes; }

  static std::string exported(uint32_t model) {
    std::vector<char> text(1 << 16);
    EXPECT_TRUE(createJsonFromModel(model, text.data(), text.size()));
    return text.data();
  }

  const std::string path_ =
      ::testing::TempDir() + "planex_model_file_" + std::to_string(::getpid()) + ".json";
  uint32_t model_ = 77;
};

TEST_F(ModelFile, ReadsUpToTheFirstNul) {
  // Longer than what is read at a time.
  const std::string document =
      with(kModelDocument, "\"data\"", std::string(200000, ' ') + "\"data\"");
  for (const std::string& tail : {std::string(), std::string("\0 rest", 6)}) {
    Write(document + tail);
    EXPECT_TRUE(Read(path_.c_str()));
    EXPECT_EQ(exported(model_), exported(makeModel()));
    EXPECT_NE(exported(model_).find("\n  "), std::string::npos) << "indented";
  }
}

TEST_F(ModelFile, IsWrittenAsItIsRead) {
  using datafusion::planex::readModel;
  using datafusion::planex::writeModel;
  datafusion::planex::CalibrationModel model, back;
  Write(kModelDocument);
  ASSERT_TRUE(readModel(path_, model));
  model.FocalLength = 1 / 3.0;
  ASSERT_TRUE(writeModel(path_, model));
  ASSERT_TRUE(readModel(path_, back));
  EXPECT_EQ(back.FocalLength, model.FocalLength);
  EXPECT_EQ(back.SheetCurve, model.SheetCurve);

  model.Skew.x = NAN;
  EXPECT_FALSE(writeModel(path_, model));
  EXPECT_EQ(log.TakeOne(),
            "WARNING: " + path_ + ": not written: the model holds what no document can.");
  model.Skew.x = 0;
  model.FocalLength = -1;
  const std::string link = path_ + ".link";
  std::filesystem::create_symlink(path_, link);
  EXPECT_FALSE(writeModel(link, model));
  EXPECT_EQ(log.TakeOne(), "WARNING: " + link + ": cannot be written.");
  EXPECT_FALSE(writeModel(link + std::string("2\0\n", 3), model));
  EXPECT_EQ(log.TakeOne(), "WARNING: " + link + "2??: cannot be written.");
  std::filesystem::remove(link);
  ASSERT_TRUE(readModel(path_, back));
  EXPECT_EQ(back.FocalLength, 1 / 3.0) << "as it was";
  ASSERT_TRUE(writeModel(path_, model));
  const struct {
    std::string path, text;
  } refused[] = {{path_, path_ + ": has a negative error figure or focal length."},
                 {link, link + ": cannot be read."}};
  for (const auto& row : refused) {
    EXPECT_FALSE(readModel(row.path, back));
    EXPECT_EQ(log.TakeOne(), "WARNING: " + row.text);
  }
  Write("{}");
  EXPECT_FALSE(readModel(path_, back));
  EXPECT_THAT(log.TakeOne(),
              ::testing::StartsWith("WARNING: " + path_ + ": is no model document. "));
  EXPECT_EQ(back.FocalLength, 1 / 3.0) << "untouched";
}

TEST_F(ModelFile, RefusesWhatIsNoRegularFile) {
  const char* const paths[] = {nullptr, "", "/", "/dev/zero", "/nonexistent/model.json"};
  for (const char* path : paths) {
    EXPECT_FALSE(Read(path));
    EXPECT_EQ(model_, 77u);
    EXPECT_EQ(log.TakeOne(), "SEVERE: Not able to open calibration file");
  }
  EXPECT_FALSE(createModelFromFilePath(nullptr, nullptr));
  EXPECT_EQ(log.TakeOne(), "SEVERE: Not able to open calibration file") << "before other checks";
  Write("");
  EXPECT_FALSE(Read(path_.c_str()));
  EXPECT_EQ(model_, 0u);
  EXPECT_EQ(log.TakeOne(), "SEVERE: The json buffer does not contain valid json");
}

TEST_F(ApiTest, DeepNestingIsRefused) {
  for (const std::size_t levels : {98U, 99U, 5000000U}) {  // below two of the document
    const std::string array = std::string(levels, '[') + std::string(levels, ']');
    const std::string member = R"("{\"[[\\": )" + array + ", \"FileVersion\"";
    uint32_t model = 77;
    const std::string document = with(kModelDocument, "\"FileVersion\"", member);
    EXPECT_EQ(createModelFromJson((document + std::string(101, '[')).c_str(), &model),
              levels == 98);
  }
}

TEST(HandleRegistry, PassesOverZeroAndLivingHandlesWhenItWraps) {
  tavik::planex::HandleRegistry<int> registry("", "");
  EXPECT_EQ(registry.insert(10), 1U);
  registry.setNextHandle(4294967295U);
  EXPECT_EQ(registry.insert(20), 4294967295U);
  EXPECT_EQ(registry.insert(30), 2U);
  EXPECT_EQ(registry.copyOf(1), 10);
}

TEST(ModelRecovery, TakesLinearTime) {
  constexpr std::size_t kLength = 64 << 20;
  std::string keywords;
  keywords.reserve(kLength);
  while (keywords.size() < kLength) keywords += "SensorSize";
  const std::string texts[] = {keywords, "SensorSize" + std::string(kLength, '1'),
                               std::string(kLength, 'S'), keywords + "1" + keywords};
  const std::clock_t start = std::clock();  // of this process: others may keep it waiting
  for (const std::string& text : texts) datafusion::planex::findOnlySensorSize(text);
  EXPECT_LT((std::clock() - start) / CLOCKS_PER_SEC, 10);
}

}  // namespace
}  // namespace test
