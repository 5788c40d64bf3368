#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "planex/infra/class_repository.h"
#include "planex/model/calibration_model.h"
#include "tests/support/model_builders.h"
#include "tests/support/warning_capture.h"

namespace datafusion::planex {
namespace {

using test::readJson;
using test::replaced;
using test::toJson;
using testing::ElementsAre;
using testing::HasSubstr;

std::string emptyImage(const std::string& name, const std::string& type) {
  return "\"" + name +
         R"(":{"class":"Image","data":{"PixelSize":{"x":1,"y":1,"z":1},)"
         R"("Origin":{"x":0,"y":0,"z":0},"HandleZeroPixels":"Default","Data":{"ImageType":")" +
         type + R"(","Width":0,"Height":0,"Pixels":{"numOfElems":0,"elemSz":4,"endian":"little",)" +
         R"("elemTypes":")" + type + R"(","data":""}}}})";
}

std::string defaultDocument() {
  return R"({"class":"Image.Planex.Model","data":{"FileVersion":2,)"
         R"("CurrentState":"UNCALIBRATED","SkewMode":"XZ_IN_LIGHT_PLANE",)"
         R"("CalibrationError":1.7976931348623157e+308,)"
         R"("CalibrationErrorMax":1.7976931348623157e+308,)"
         R"("AlignmentError":1.7976931348623157e+308,)"
         R"("AlignmentErrorMax":1.7976931348623157e+308,"FocalLength":10000,)"
         R"("SensorSize":{"x":0,"y":0},"LensCenter":{"x":-1,"y":-1},"Skew":{"x":0,"y":1,"z":0},)"
         R"("Homography":[[1,0,0],[0,1,0],[0,0,1]],)"
         R"("Pose":[[1,0,0,0],[0,1,0,0],[0,0,1,0],[0,0,0,1]],)"
         R"("LensCoefficients":[0,0,0,0,0,0,0],"SheetCurve":[],"CalibratedRegion":{)" +
         emptyImage("PointCount", "int32") + "," + emptyImage("AverageResidualX", "float32") + "," +
         emptyImage("AverageResidualZ", "float32") + "," +
         emptyImage("MaximumResidualX", "float32") + "," +
         emptyImage("MaximumResidualZ", "float32") + "}}}";
}

/// A model in which no two members have the same value, with a filled region.
CalibrationModel fullModel() {
  std::mt19937 random(7);
  CalibrationModel model = test::randomModel(random);
  model.CurrentState = ModelState::ALIGNED_3D;
  model.SkewMode = SkewMode::XZ_NOT_IN_LIGHT_PLANE;
  model.CalibrationError = 0.1;
  model.CalibrationErrorMax = 0.2;
  model.AlignmentError = 0.3;
  model.AlignmentErrorMax = 0.4;
  model.CalibratedRegion.Resize(3, 2);
  model.CalibratedRegion.Update({{-5, 1}, {7, 7}, {-2, 3}}, {{0.1, -3}, {0.5, 0.2}, {-3, 1}});
  return model;
}

TEST(ModelDocument, DefaultModelIsWrittenInFull) {
  CalibrationModel model;
  EXPECT_EQ(toJson(model), defaultDocument());
}

TEST(ModelDocument, ReadingRestoresEveryMember) {
  CalibrationModel model = fullModel();
  const std::string text = toJson(model);
  CalibrationModel read;
  ASSERT_EQ(readJson(text, read), "");
  EXPECT_EQ(toJson(read), text);
  EXPECT_EQ(read.CurrentState, ModelState::ALIGNED_3D);
  EXPECT_EQ(read.SensorSize, model.SensorSize);
  EXPECT_EQ(read.LensCoefficients, model.LensCoefficients);
  EXPECT_EQ(read.SheetCurve, model.SheetCurve);
  cmnalg::Image want;
  cmnalg::Image got;
  ASSERT_TRUE(model.CalibratedRegion.GetAverageResiduals(want, want));
  ASSERT_TRUE(read.CalibratedRegion.GetAverageResiduals(got, got));
  EXPECT_EQ(got.GetPixel(0, 0), want.GetPixel(0, 0));

  base::JsonVisitingDeSerializer byName(text.c_str(), false);
  const auto created = byName.DeserializeObject();
  ASSERT_NE(dynamic_cast<CalibrationModel*>(created.get()), nullptr);
  EXPECT_EQ(toJson(dynamic_cast<CalibrationModel&>(*created)), text);
}

TEST(ModelDocument, ReadingReplacesSharedRegionsOnly) {
  CalibrationModel model = fullModel();
  CalibrationModel copy = model;
  ASSERT_EQ(readJson(defaultDocument(), copy), "");
  EXPECT_TRUE(model.CalibratedRegion.IsValid());
  EXPECT_FALSE(copy.CalibratedRegion.IsValid());
}

TEST(ModelDocument, EveryMemberMustBeThere) {
  for (const char* member : {"FileVersion",
                             "CurrentState",
                             "SkewMode",
                             "CalibrationError",
                             "CalibrationErrorMax",
                             "AlignmentError",
                             "AlignmentErrorMax",
                             "FocalLength",
                             "SensorSize",
                             "LensCenter",
                             "Skew",
                             "Homography",
                             "Pose",
                             "LensCoefficients",
                             "SheetCurve",
                             "CalibratedRegion",
                             "PointCount",
                             "AverageResidualX",
                             "AverageResidualZ",
                             "MaximumResidualX",
                             "MaximumResidualZ"}) {
    const std::string quoted = std::string("\"") + member + "\"";
    CalibrationModel model;
    const std::string error = readJson(replaced(defaultDocument(), quoted, "\"-\""), model);
    EXPECT_THAT(error, HasSubstr(std::string("'") + member + "'"));
    EXPECT_THAT(error, HasSubstr("'Image.Planex.Model'"));
  }
}

struct EditCase {
  const char* name;
  const char* from;
  const char* to;
  const char* error;  ///< empty: it is read
};
constexpr const char* kSizeText =
    "Serialized array size mismatch while de-serializing class 'Image.Planex.Model'";
const EditCase kEdits[] = {
    {"FocalLengthMissing", "\"FocalLength\"", "\"Other\"",
     "Data field 'FocalLength' of class 'Image.Planex.Model' not found or out or range"},
    {"FocalLengthIsText", ":10000", ":\"long\"",
     "Data field 'FocalLength' of class 'Image.Planex.Model' not not a number"},
    {"SizeIsNoInteger", "\"SensorSize\":{\"x\":0", "\"SensorSize\":{\"x\":0.5",
     "Data field 'x' of class 'Image.Planex.Model' not found or out or range"},
    {"SizeBeyondItsType", "\"SensorSize\":{\"x\":0", "\"SensorSize\":{\"x\":2147483648",
     "Data field 'x' of class 'Image.Planex.Model' not found or out or range"},
    {"SixLensCoefficients", "[0,0,0,0,0,0,0]", "[0,0,0,0,0,0]", kSizeText},
    {"EightLensCoefficients", "[0,0,0,0,0,0,0]", "[0,0,0,0,0,0,0,0]", kSizeText},
    {"RaggedHomography", "[0,1,0],[0,0,1]],\"Pose\"", "[0,1],[0,0,1]],\"Pose\"", kSizeText},
    {"HomographyOfOtherSize", "[[1,0,0],[0,1,0],[0,0,1]]", "[[1,0,0,5]]", ""},
    {"SheetCurveOfThree", "\"SheetCurve\":[]", "\"SheetCurve\":[1,2,3]", ""},
    {"WrongClass", "Image.Planex.Model", "Image",
     "Attempt to deserialize a 'Image' type into a 'Image.Planex.Model' object"},
    {"RegionImageOfWrongType", "\"ImageType\":\"int32\"", "\"ImageType\":\"float32\"",
     "Data field 'PointCount' of class 'Image.Planex.Model' not found or out or range"},
    {"RegionImageOfWrongClass", "\"AverageResidualX\":{\"class\":\"Image\",\"data\":{",
     "\"AverageResidualX\":{\"class\":\"Transform2D\",\"data\":{\"Type\":\"IDENTITY\","
     "\"Matrix\":[[1,0,0],[0,1,0],[0,0,1]],",
     "Wrong subclass instance during visiting"},
    {"RegionImageOfUnknownClass", "\"AverageResidualX\":{\"class\":\"Image\"",
     "\"AverageResidualX\":{\"class\":\"Picture\"",
     "Could not create class 'Picture' at run-time: Not registered with the classes repository"},
};

TEST(ModelDocument, EditedDocumentsAreReadOrRefused) {
  for (const EditCase& row : kEdits) {
    SCOPED_TRACE(row.name);
    CalibrationModel model;
    EXPECT_EQ(readJson(replaced(defaultDocument(), row.from, row.to), model), row.error);
  }
}

TEST(ModelDocument, ShapesAreKeptAsTheyStand) {
  CalibrationModel model;
  std::string text = replaced(defaultDocument(), "[[1,0,0],[0,1,0],[0,0,1]]", "[[1,0,0,5]]");
  text = replaced(text, "\"SheetCurve\":[]", "\"SheetCurve\":[1,2,3]");
  text = replaced(text, "\"Pose\":[[1,0,0,0],[0,1,0,0],[0,0,1,0],[0,0,0,1]]", "\"Pose\":[]");
  ASSERT_EQ(readJson(text, model), "");
  EXPECT_EQ(model.Homography.Width(), 4);
  EXPECT_EQ(model.Homography.Height(), 1);
  EXPECT_EQ(model.Pose.Height(), 4) << "an empty outer array leaves the matrix";
  EXPECT_THAT(model.SheetCurve, ElementsAre(1, 2, 3));
}

TEST(ModelDocument, NothingIsReadBehindTheFirstError) {
  CalibrationModel model = fullModel();
  const CalibrationModel before = model;
  const std::string text = replaced(defaultDocument(), "[0,0,0,0,0,0,0]", "[0,0,0,0,\"x\",0,0]");
  EXPECT_EQ(readJson(text, model),
            "Data field 'LensCoefficients' of class 'Image.Planex.Model' not not a number");
  EXPECT_EQ(model.FocalLength, 10000);
  EXPECT_EQ(model.Pose[0][0], 1);
  EXPECT_EQ(model.LensCoefficients, before.LensCoefficients);
  EXPECT_EQ(model.SheetCurve, before.SheetCurve);
  EXPECT_TRUE(model.CalibratedRegion.IsValid());
}

struct NameCase {
  const char* from;
  const char* to;
  int state, skewMode;
};
const NameCase kNames[] = {
    {"UNCALIBRATED", "CALIBRATED", 1, 0},
    {"UNCALIBRATED", "CALIBRATED_ALIGNED_2D", 2, 0},
    {"UNCALIBRATED", "CALIBRATED_ALIGNED_3D", 3, 0},
    {"UNCALIBRATED", "ALIGNED_2D", 4, 0},
    {"UNCALIBRATED", "ALIGNED_3D", 5, 0},
    {"XZ_IN_LIGHT_PLANE", "Z_NOT_IN_LIGHT_PLANE", 0, 1},
    {"XZ_IN_LIGHT_PLANE", "XZ_NOT_IN_LIGHT_PLANE", 0, 2},
};

TEST(ModelDocument, StatesAndModesAreWrittenByName) {
  for (const NameCase& row : kNames) {
    const std::string text = replaced(defaultDocument(), row.from, row.to);
    CalibrationModel model;
    ASSERT_EQ(readJson(text, model), "");
    EXPECT_EQ(static_cast<int>(model.CurrentState), row.state);
    EXPECT_EQ(static_cast<int>(model.SkewMode), row.skewMode);
    EXPECT_EQ(toJson(model), text);
  }
  CalibrationModel model = fullModel();
  const std::string unknown = replaced(replaced(defaultDocument(), "UNCALIBRATED", "calibrated"),
                                       "XZ_IN_LIGHT_PLANE", "XZ_IN_LIGHT_PLANE ");
  ASSERT_EQ(readJson(unknown, model), "");
  EXPECT_EQ(model.CurrentState, ModelState::UNCALIBRATED);
  EXPECT_EQ(model.SkewMode, SkewMode::XZ_IN_LIGHT_PLANE);
}

TEST(ModelDocument, EarlierVersionsHaveNeitherSheetCurveNorRegion) {
  const WarningCapture log;
  base::Logger& logger = base::Logger::Get("Image.Planex.Model");
  logger.SetLevel(base::INFO);
  base::Logger::GetRoot().GetHandler("CalibrationLibLogHandler")->SetLevel(base::INFO);
  CalibrationModel full = fullModel();
  CalibrationModel model = fullModel();
  EXPECT_EQ(readJson(replaced(toJson(full), "\"FileVersion\":2", "\"FileVersion\":1"), model), "");
  EXPECT_TRUE(model.SheetCurve.empty());
  cmnalg::Image count;
  ASSERT_TRUE(model.CalibratedRegion.GetPointCount(count));
  EXPECT_EQ(count.GetWidth(), 0);
  const std::string written = toJson(model);
  EXPECT_EQ(readJson(written, model), "");
  EXPECT_THAT(written, testing::Not(HasSubstr("SheetCurve")));

  EXPECT_EQ(readJson(replaced(toJson(full), "\"FileVersion\":2", "\"FileVersion\":3"), model), "");
  EXPECT_EQ(model.SheetCurve, full.SheetCurve);
  EXPECT_THAT(log.Messages(),
              testing::ElementsAreArray(std::vector<std::string>(
                  3,
                  "The file version does not match match the expected number. The process will "
                  "continue, but the result may be incomplete.")));
  logger.SetLevel(base::INHERIT);
}

TEST(ModelDocument, NullImagesStayNull) {
  std::string text = defaultDocument();
  const std::string image = emptyImage("PointCount", "int32");
  text = replaced(text, image, "\"PointCount\":null");
  CalibrationModel model = fullModel();
  ASSERT_EQ(readJson(text, model), "");
  EXPECT_EQ(toJson(model), text);

  CalibratedRegion& region = model.CalibratedRegion;
  cmnalg::Image untouched;
  untouched.PixelSize = {7, 7, 7};
  cmnalg::shape::Rectangle area;
  EXPECT_FALSE(region.IsValid());
  EXPECT_FALSE(region.GetPointCount(untouched));
  EXPECT_FALSE(region.GetRegion(area));
  EXPECT_EQ(untouched.PixelSize, (cmnalg::Vec<3, double>{7, 7, 7}));
  EXPECT_FALSE(region.Update({{0, 0}, {1, 1}}, {{0, 0}, {1, 1}}));
  ASSERT_TRUE(region.Resize(2, 2));
  EXPECT_TRUE(region.Update({{0, 0}, {1, 1}}, {{0, 0}, {1, 1}}));

  text = replaced(defaultDocument(), emptyImage("AverageResidualZ", "float32"),
                  "\"AverageResidualZ\":null");
  ASSERT_EQ(readJson(text, model), "");
  EXPECT_FALSE(region.GetAverageResiduals(untouched, untouched));
  EXPECT_TRUE(region.GetMaximumResiduals(untouched, untouched));
  EXPECT_FALSE(region.IsValid());
}

TEST(ModelDocument, ImagesOfDifferentSizesMakeARegionInvalid) {
  CalibrationModel wide = fullModel();
  CalibrationModel model = fullModel();
  wide.CalibratedRegion.Resize(4, 4);
  const std::string other = toJson(wide);
  const std::string text = toJson(model);
  const std::size_t from = text.find("\"MaximumResidualZ\"");
  const std::string mixed = text.substr(0, from) + other.substr(other.find("\"MaximumResidualZ\""));
  ASSERT_EQ(readJson(mixed, model), "");
  EXPECT_FALSE(model.CalibratedRegion.IsValid());
  EXPECT_FALSE(model.CalibratedRegion.Update({{0, 0}, {1, 1}}, {{0, 0}, {1, 1}}));
  EXPECT_EQ(toJson(model), mixed);
}

}  // namespace
}  // namespace datafusion::planex
