#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "planex/infra/class_repository.h"
#include "planex/model/calibration_model.h"
#include "tests/support/log_capture.h"
#include "tests/support/model_builders.h"
#include "tests/support/model_documents.h"

namespace datafusion::planex {
namespace {

using test::readJson;
using test::toJson;
using test::with;
using testing::HasSubstr;

std::string emptyImage(const std::string& name, const std::string& type) {
  return "\"" + name +
         R"(":{"class":"Image","data":{"PixelSize":{"x":1,"y":1,"z":1},)"
         R"("Origin":{"x":0,"y":0,"z":0},"HandleZeroPixels":"Default","Data":{"ImageType":")" +
         type + R"(","Width":0,"Height":0,"Pixels":{"numOfElems":0,"elemSz":4,"endian":"little",)" +
         R"("elemTypes":")" + type + R"(","data":""}}}})";
}

/// Of a model that nothing was done to.
const std::string kDocument =
    R"({"class":"Image.Planex.Model","data":{"FileVersion":2,)"
    R"("CurrentState":"UNCALIBRATED","SkewMode":"XZ_IN_LIGHT_PLANE",)"
    R"("CalibrationError":1.7976931348623157e+308,"CalibrationErrorMax":1.7976931348623157e+308,)"
    R"("AlignmentError":1.7976931348623157e+308,"AlignmentErrorMax":1.7976931348623157e+308,)"
    R"("FocalLength":10000,"SensorSize":{"x":0,"y":0},"LensCenter":{"x":-1,"y":-1},)"
    R"("Skew":{"x":0,"y":1,"z":0},"Homography":[[1,0,0],[0,1,0],[0,0,1]],)"
    R"("Pose":[[1,0,0,0],[0,1,0,0],[0,0,1,0],[0,0,0,1]],)"
    R"("LensCoefficients":[0,0,0,0,0,0,0],"SheetCurve":[],"CalibratedRegion":{)" +
    emptyImage("PointCount", "int32") + "," + emptyImage("AverageResidualX", "float32") + "," +
    emptyImage("AverageResidualZ", "float32") + "," + emptyImage("MaximumResidualX", "float32") +
    "," + emptyImage("MaximumResidualZ", "float32") + "}}}";

CalibrationModel filledModel() {
  CalibrationModel model = test::fullModel();
  model.CalibrationError = 0.1;
  model.CalibrationErrorMax = 0.2;
  model.AlignmentError = 0.3;
  model.AlignmentErrorMax = 0.4;
  model.CalibratedRegion.Resize(3, 2);
  model.CalibratedRegion.Update({{-5, 1}, {7, 7}, {-2, 3}}, {{0.1, -3}, {0.5, 0.2}, {-3, 1}});
  return model;
}

TEST(ModelDocument, IsWrittenAndReadInFull) {
  CalibrationModel model;
  EXPECT_EQ(toJson(model), kDocument);

  CalibrationModel filled = filledModel();
  const std::string text = toJson(filled);
  CalibrationModel copy = filled;
  ASSERT_EQ(readJson(kDocument, copy), "");
  EXPECT_EQ(toJson(copy), kDocument);
  EXPECT_EQ(toJson(filled), text) << "reading replaces what it shares";
  base::JsonVisitingDeSerializer byName(text.c_str(), false);
  const auto created = byName.DeserializeObject();
  ASSERT_NE(dynamic_cast<CalibrationModel*>(created.get()), nullptr);
  EXPECT_EQ(toJson(dynamic_cast<CalibrationModel&>(*created)), text);
}

TEST(ModelDocument, EveryMemberMustBeThere) {
  std::istringstream members(
      "FileVersion CurrentState SkewMode CalibrationError CalibrationErrorMax AlignmentError "
      "AlignmentErrorMax FocalLength SensorSize LensCenter Skew Homography Pose LensCoefficients "
      "SheetCurve CalibratedRegion PointCount AverageResidualX AverageResidualZ MaximumResidualX "
      "MaximumResidualZ");
  for (std::string member; members >> member;) {
    CalibrationModel model;
    const std::string error = readJson(with(kDocument, '"' + member + '"', "\"-\""), model);
    EXPECT_THAT(error, HasSubstr("'" + member + "' of class 'Image.Planex.Model'"));
  }
}

constexpr const char* kSize =
    "Serialized array size mismatch while de-serializing class 'Image.Planex.Model'";

TEST(ModelDocument, EditedDocumentsAreRefused) {
  const struct {
    const char *from, *to, *error;
  } rows[] = {
      {"\"SensorSize\":{\"x\":0", "\"SensorSize\":{\"x\":0.5",
       "Data field 'x' of class 'Image.Planex.Model' not found or out or range"},
      {"[0,0,0,0,0,0,0]", "[0,0,0,0,0,0]", kSize},
      {"[0,0,0,0,0,0,0]", "[0,0,0,0,0,0,0,0]", kSize},
      {"\"ImageType\":\"int32\"", "\"ImageType\":\"float32\"",
       "Data field 'PointCount' of class 'Image.Planex.Model' not found or out or range"},
      {"\"AverageResidualX\":{\"class\":\"Image\",\"data\":{",
       "\"AverageResidualX\":{\"class\":\"Transform2D\",\"data\":{\"Type\":\"IDENTITY\","
       "\"Matrix\":[[1,0,0],[0,1,0],[0,0,1]],",
       "Wrong subclass instance during visiting"},
      {"[0,0,0,0,0,0,0]", "[0,0,0,0,\"x\",0,0]",
       "Data field 'LensCoefficients' of class 'Image.Planex.Model' not not a number"},
  };
  CalibrationModel model;
  for (const auto& row : rows) {
    model = filledModel();
    EXPECT_EQ(readJson(with(kDocument, row.from, row.to), model), row.error);
  }
  EXPECT_EQ(model.FocalLength, 10000);
  EXPECT_EQ(model.LensCoefficients, filledModel().LensCoefficients);
  EXPECT_EQ(model.SheetCurve, filledModel().SheetCurve) << "nothing is read behind an error";
}

TEST(ModelDocument, StatesAndModesAreWrittenByName) {
  const char* const states[] = {"UNCALIBRATED",          "CALIBRATED", "CALIBRATED_ALIGNED_2D",
                                "CALIBRATED_ALIGNED_3D", "ALIGNED_2D", "ALIGNED_3D"};
  const char* const modes[] = {"XZ_IN_LIGHT_PLANE", "Z_NOT_IN_LIGHT_PLANE",
                               "XZ_NOT_IN_LIGHT_PLANE"};
  for (int i = 0; i < 6; ++i) {
    const std::string text = with(with(kDocument, states[0], states[i]), modes[0], modes[i % 3]);
    CalibrationModel model;
    ASSERT_EQ(readJson(text, model), "");
    EXPECT_EQ(static_cast<int>(model.CurrentState), i);
    EXPECT_EQ(static_cast<int>(model.SkewMode), i % 3);
    EXPECT_EQ(toJson(model), text);
  }
  CalibrationModel model = filledModel();
  ASSERT_EQ(readJson(with(with(kDocument, states[0], "calibrated"), modes[0], "-"), model), "");
  EXPECT_EQ(toJson(model), kDocument) << "an unknown name stands for the first";
  model.CurrentState = ModelState{9};
  EXPECT_THAT(toJson(model), HasSubstr("\"CurrentState\":\"\""));
  EXPECT_EQ(model.CurrentState, ModelState{9}) << "written, not changed";
}

TEST(ModelDocument, EarlierVersionsHaveNeitherSheetCurveNorRegion) {
  test::LogCapture log(base::INFO);
  base::Logger& logger = base::Logger::Get("Image.Planex.Model");
  logger.SetLevel(base::INFO);
  CalibrationModel model = filledModel();
  const auto sheetCurve = model.SheetCurve;
  const std::string text = toJson(model);
  for (const bool later : {false, true}) {
    const char* const version = later ? "\"FileVersion\":3" : "\"FileVersion\":1";
    EXPECT_EQ(readJson(with(text, "\"FileVersion\":2", version), model), "");
    EXPECT_EQ(model.SheetCurve, later ? sheetCurve : etl::Vector<double>());
    EXPECT_EQ(model.CalibratedRegion.IsValid(), later);
    EXPECT_EQ(toJson(model).find("SheetCurve") < text.size(), later);
    EXPECT_EQ(log.TakeOne(),
              "INFO: The file version does not match match the expected number. The process will "
              "continue, but the result may be incomplete.");
  }
  logger.SetLevel(base::INHERIT);
}

TEST(ModelDocument, RegionsThatDoNotFitTogetherAreInvalid) {
  CalibrationModel model = filledModel();
  CalibratedRegion& region = model.CalibratedRegion;
  const std::string large = toJson(model);
  const auto updates = [&region] { return region.Update({{0, 0}, {1, 1}}, {{0, 0}, {1, 1}}); };
  cmnalg::Image image;
  cmnalg::shape::Rectangle area;
  std::string text =
      with(kDocument, emptyImage("AverageResidualZ", "float32"), "\"AverageResidualZ\":null");
  ASSERT_EQ(readJson(text, model), "");
  EXPECT_EQ(toJson(model), text);
  EXPECT_FALSE(region.GetAverageResiduals(image, image));
  EXPECT_TRUE(region.GetMaximumResiduals(image, image));
  text = with(kDocument, emptyImage("PointCount", "int32"), "\"PointCount\":null");
  ASSERT_EQ(readJson(text, model), "");
  EXPECT_FALSE(region.GetPointCount(image) || region.GetRegion(area) || updates());
  ASSERT_TRUE(region.Resize(2, 2));
  EXPECT_TRUE(updates());

  const std::string small = toJson(model);
  const std::string split = "\"MaximumResidualZ\"";
  text = small.substr(0, small.find(split)) + large.substr(large.find(split));
  ASSERT_EQ(readJson(text, model), "");
  EXPECT_FALSE(region.IsValid() || updates());
  EXPECT_EQ(toJson(model), text);
}

}  // namespace
}  // namespace datafusion::planex
