#include "planex/model/point_mapping.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <random>
#include <vector>

#include "planex/foundation/matrix_inverse.h"
#include "planex/model/skewed_pose.h"
#include "tests/support/instruction_sets.h"
#include "tests/support/model_builders.h"
#include "tests/support/warning_capture.h"

namespace datafusion::planex {
namespace {

using cmnalg::Vec;
using test::matrix;
using test::plainModel;
using testing::ElementsAre;
using testing::IsEmpty;
using Model = CalibrationModel;
using System = CoordinateSystem;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr System kPixel = System::Pixel;
constexpr System kCalibrated = System::Calibrated;
constexpr System kAligned = System::Aligned;

template <typename T>
using Plane = etl::Vector<Vec<2, T>>;
template <typename T>
using Space = etl::Vector<Vec<3, T>>;

// ---- Values worked out by hand.

struct PlaneCase {
  const char* name;
  std::function<void(Model&)> change;  // of a model that maps every point to itself
  System from, to;
  Vec<2, double> in, want;
};

void setLens(Model& m, std::size_t index) { m.LensCoefficients[index] = 1; }
void liftThenDouble(Model& m) {
  m.setSheetCurve(0, 0, 10, 0, 0, 0);
  m.Pose = matrix(3, 4, {2, 0, 0, 0, 0, 1, 0, 0, 0, 0, 2, 0});
}

const PlaneCase kPlaneCases[] = {
    // clang-format off
    {"NormalisesByFocalLengthAndCentre",
     [](Model& m) { m.FocalLength = 500, m.LensCenter = {320, 240}; }, kPixel, kCalibrated,
     {820, 240}, {1, 0}},
    {"DenormalisesByFocalLengthAndCentre",
     [](Model& m) { m.FocalLength = 500, m.LensCenter = {320, 240}; }, kCalibrated, kPixel,
     {1, -0.5}, {820, -10}},
    // At (2, 3) r2 = 13, one coefficient at a time.
    {"RadialOfR2", [](Model& m) { setLens(m, 0); }, kPixel, kCalibrated, {2, 3}, {28, 42}},
    {"RadialOfR4", [](Model& m) { setLens(m, 1); }, kPixel, kCalibrated, {2, 3}, {340, 510}},
    {"RadialOfR6", [](Model& m) { setLens(m, 2); }, kPixel, kCalibrated, {2, 3}, {4396, 6594}},
    {"TangentialC3", [](Model& m) { setLens(m, 3); }, kPixel, kCalibrated, {2, 3}, {14, 34}},
    {"TangentialC4", [](Model& m) { setLens(m, 4); }, kPixel, kCalibrated, {2, 3}, {23, 15}},
    {"ScheimpflugX", [](Model& m) { setLens(m, 5); }, kPixel, kCalibrated, {2, 3}, {15, 3}},
    {"ScheimpflugY", [](Model& m) { setLens(m, 6); }, kPixel, kCalibrated, {2, 3}, {2, 16}},
    {"HomographyUsesOldXForNewY",
     [](Model& m) { m.Homography = matrix(3, 3, {0, 1, 5, 1, 0, 0, 0, 0, 1}); }, kPixel,
     kCalibrated, {2, 3}, {8, 2}},
    {"HomographyDividesByW",
     [](Model& m) { m.Homography = matrix(3, 3, {1, 0, 0, 0, 1, 0, 1, 0.5, 0.5}); }, kPixel,
     kCalibrated, {2, 3}, {0.5, 0.75}},
    {"InverseHomography",
     [](Model& m) { m.Homography = matrix(3, 3, {2, 0, 1, 0, 4, 0, 0, 0, 1}); }, kCalibrated,
     kPixel, {7, 8}, {3, 2}},
    // d = (3 - 1) (1 + 0.5 * 2) = 4: 2 + 10 + 2 * 4 + 3 * 16 + 4 * 64
    {"SheetCurve", [](Model& m) { m.setSheetCurve(1, 0.5, 10, 2, 3, 4); }, kPixel, kCalibrated,
     {3, 2}, {3, 324}},
    {"LongerSheetCurveUsesItsFirstSix",
     [](Model& m) { m.SheetCurve = {1, 0.5, 10, 2, 3, 4, 99, 99}; }, kPixel, kCalibrated, {3, 2},
     {3, 324}},
    {"InverseSheetCurve", [](Model& m) { m.setSheetCurve(1, 0, 10, 2, 3, 4); }, kCalibrated,
     kPixel, {3, 60}, {3, 2}},
    {"AlignsWithRowsAndColumnsOfXAndZ",
     [](Model& m) { m.Pose = matrix(4, 4, {0, 9, 1, 5, 9, 9, 9, 9, -2, 9, 0, 7, 0, 0, 0, 1}); },
     kCalibrated, kAligned, {2, 3}, {8, 3}},
    {"AlignsBack",
     [](Model& m) { m.Pose = matrix(4, 4, {0, 9, 1, 5, 9, 9, 9, 9, -2, 9, 0, 7, 0, 0, 0, 1}); },
     kAligned, kCalibrated, {8, 3}, {2, 3}},
    {"AlignmentDividesByTheLastElement",
     [](Model& m) { m.Pose = matrix(4, 4, {1, 0, 0, 6, 0, 1, 0, 0, 0, 0, 1, 2, 5, 5, 5, 4}); },
     kCalibrated, kAligned, {2, 6}, {2, 2}},
    {"PoseOfThreeRows",
     [](Model& m) { m.Pose = matrix(3, 4, {1, 0, 0, 6, 0, 1, 0, 0, 0, 0, 1, 2}); }, kAligned,
     kCalibrated, {2, 6}, {-4, 4}},
    {"PixelToAlignedPassesTheSheetCurve", liftThenDouble, kPixel, kAligned, {2, 3}, {4, 26}},
    {"AlignedToPixel", liftThenDouble, kAligned, kPixel, {4, 26}, {2, 3}},
    // clang-format on
};

TEST(PointMapping, HandWorkedValuesInThePlane) {
  for (const PlaneCase& row : kPlaneCases) {
    SCOPED_TRACE(row.name);
    Model model = plainModel();
    row.change(model);
    Plane<double> points = {row.in};
    ASSERT_TRUE(mapPoints<double>(model, points, points, row.from, row.to));
    EXPECT_DOUBLE_EQ(points[0].x, row.want.x);
    EXPECT_DOUBLE_EQ(points[0].y, row.want.y);
  }
}

TEST(PointMapping, HandWorkedValuesInSpace) {
  Model model = plainModel();
  model.Homography = matrix(3, 3, {2, 0, 0, 0, 4, 0, 0, 0, 1});
  model.Pose = matrix(4, 4, {1, 2, 3, 4, 0, 5, 0, 6, 0, 0, 7, 8, 0, 0, 0, 1});
  model.Skew = {-1, 2, 0};  // a = 0.5: the first column gains half the second
  model.SkewMode = SkewMode::XZ_NOT_IN_LIGHT_PLANE;
  const struct {
    System from, to;
    Vec<3, double> in, want;
  } cases[] = {
      {kPixel, kCalibrated, {1, 10, 2}, {2, 105, 8}},
      {kCalibrated, kPixel, {2, 105, 8}, {1, 10, 2}},
      {kCalibrated, kAligned, {2, 105, 8}, {2 * 2 + 210 + 24 + 4, 2 * 2.5 + 525 + 6, 64}},
      {kAligned, kCalibrated, {242, 536, 64}, {2, 105, 8}},
      {kPixel, kAligned, {1, 10, 2}, {242, 536, 64}},
      {kAligned, kPixel, {242, 536, 64}, {1, 10, 2}},
  };
  for (const auto& row : cases) {
    Space<double> points = {row.in};
    ASSERT_TRUE(mapPoints<double>(model, points, points, row.from, row.to, 5, 10));
    EXPECT_NEAR(points[0].x, row.want.x, 1e-12);
    EXPECT_NEAR(points[0].y, row.want.y, 1e-12);
    EXPECT_NEAR(points[0].z, row.want.z, 1e-12);
  }
}

// ---- Against plain loops over the formulas, bit for bit.

/// The formulas for one point; every step leaves its result in T.
template <typename T>
class Reference {
 public:
  explicit Reference(const Model& model) : m_(model), e_(skewedPose(model)) {
    cmnalg::math::Inverse(hBack_, m_.Homography);
    a_ = inPlaneAlignment(e_);
    cmnalg::math::Inverse(aBack_, a_);
    cmnalg::math::Inverse(eBack_, e_);
  }

  void map(Vec<2, T>& p, System from, System to) const {
    if (from == kPixel) toCalibrated(p.x, p.y);
    if (from == kAligned) project(aBack_, p.x, p.y);
    if (to == kPixel) toPixel(p.x, p.y);
    if (to == kAligned) project(a_, p.x, p.y);
  }

  void map(Vec<3, T>& p, System from, System to, double offset, double scale) const {
    if (from == kPixel) {
      toCalibrated(p.x, p.z);
      p.y = static_cast<T>(p.y * scale + offset);
    }
    if (from == kAligned) transform(eBack_, p);
    if (to == kAligned) transform(e_, p);
    if (to == kPixel) {
      toPixel(p.x, p.z);
      p.y = static_cast<T>((p.y - offset) / scale);
    }
  }

 private:
  using Matrix = cmnalg::Matrix<double>;

  static void project(const Matrix& h, T& px, T& py) {
    const double x = px;
    const double y = py;
    const double w = h[2][0] * x + h[2][1] * y + h[2][2];
    px = static_cast<T>((h[0][0] * x + h[0][1] * y + h[0][2]) / w);
    py = static_cast<T>((h[1][0] * x + h[1][1] * y + h[1][2]) / w);
  }

  static void transform(const Matrix& m, Vec<3, T>& p) {
    const double x = p.x;
    const double y = p.y;
    const double z = p.z;
    p.x = static_cast<T>(m[0][0] * x + m[0][1] * y + m[0][2] * z + m[0][3]);
    p.y = static_cast<T>(m[1][0] * x + m[1][1] * y + m[1][2] * z + m[1][3]);
    p.z = static_cast<T>(m[2][0] * x + m[2][1] * y + m[2][2] * z + m[2][3]);
  }

  void toCalibrated(T& u, T& v) const {
    u = static_cast<T>((u - m_.LensCenter.x) / m_.FocalLength);
    v = static_cast<T>((v - m_.LensCenter.y) / m_.FocalLength);
    const double x = u;
    const double y = v;
    const std::array<double, 7>& c = m_.LensCoefficients;
    const double r2 = x * x + y * y;
    const double radial = 1 + r2 * (c[0] + r2 * (c[1] + r2 * c[2]));
    u = static_cast<T>(x * radial + 2 * c[3] * x * y + c[4] * (r2 + 2 * (x * x)) + c[5] * r2);
    v = static_cast<T>(y * radial + c[3] * (r2 + 2 * (y * y)) + 2 * c[4] * x * y + c[6] * r2);
    project(m_.Homography, u, v);
    if (m_.SheetCurve.empty()) return;
    const etl::Vector<double>& s = m_.SheetCurve;
    const double d = (u - s[0]) * (1 + s[1] * v);
    v = static_cast<T>(v + s[2] + s[3] * d + s[4] * (d * d) + s[5] * (d * d * d));
  }

  void toPixel(T& px, T& pz) const {
    if (!m_.SheetCurve.empty()) {
      const etl::Vector<double>& s = m_.SheetCurve;
      const double a = px - s[0];
      double z = pz;
      for (int i = 0; i < 10; ++i) {
        const double t = 1 + s[1] * z;
        const double d = a * t;
        const double g = z + s[3] * d + s[4] * (d * d) + s[5] * (d * d * d) + s[2] - pz;
        const double slope = 1 + s[1] * s[3] * a + 2 * s[1] * s[4] * (a * a) * t +
                             3 * s[1] * s[5] * (a * a * a) * (t * t);
        z = z - g / slope;
      }
      pz = static_cast<T>(z);
    }
    project(hBack_, px, pz);
    const std::array<double, 7>& c = m_.LensCoefficients;
    double x = px;
    double y = pz;
    for (int i = 0; i < 100; ++i) {
      const double r2 = x * x + y * y;
      const double radial = 1 + r2 * (c[0] + r2 * (c[1] + r2 * c[2]));
      const double xn = (px - (2 * c[3] * x * y + c[4] * (r2 + 2 * (x * x)) + c[5] * r2)) / radial;
      const double yn = (pz - (c[3] * (r2 + 2 * (y * y)) + 2 * c[4] * x * y + c[6] * r2)) / radial;
      const bool settled = std::abs(xn - x) < 1e-5 && std::abs(yn - y) < 1e-5;
      x = xn;
      y = yn;
      if (settled) break;
    }
    px = static_cast<T>(m_.FocalLength * static_cast<T>(x) + m_.LensCenter.x);
    pz = static_cast<T>(m_.FocalLength * static_cast<T>(y) + m_.LensCenter.y);
  }

  const Model& m_;
  Matrix hBack_, a_, aBack_, e_, eBack_;
};

template <typename T>
bool sameBits(T a, T b) {
  return (std::isnan(a) && std::isnan(b)) || (a == b && std::signbit(a) == std::signbit(b));
}

/// A coordinate on the sensor and far around it; some are no numbers at all.
template <typename T>
T anyCoordinate(std::mt19937& random) {
  const int kind = std::uniform_int_distribution<int>(0, 19)(random);
  if (kind == 0) return static_cast<T>(kNaN);
  if (kind == 1) return std::numeric_limits<T>::infinity();
  const double spread = kind < 5 ? 1e5 : 1000;
  return static_cast<T>(std::uniform_real_distribution<double>(-spread, 2 * spread)(random));
}

template <typename T>
class PointMappingOf : public testing::Test {};
using PointTypes = testing::Types<float, double>;
TYPED_TEST_SUITE(PointMappingOf, PointTypes);

TYPED_TEST(PointMappingOf, EveryDirectionGivesTheBitsOfThePlainFormulas) {
  using T = TypeParam;
  std::mt19937 random(11);
  for (const std::size_t count :
       {std::size_t{1}, std::size_t{63}, std::size_t{65}, std::size_t{300}}) {
    Model model = test::randomModel(random);
    if (count == 65) model.SheetCurve.clear();
    if (count == 300) model.LensCoefficients[0] = -2;  // points far out do not settle
    const Reference<T> reference(model);
    Plane<T> plane(count);
    Space<T> space(count);
    for (std::size_t i = 0; i < count; ++i) {
      plane[i] = {anyCoordinate<T>(random), anyCoordinate<T>(random)};
      space[i] = {anyCoordinate<T>(random), anyCoordinate<T>(random), anyCoordinate<T>(random)};
    }
    for (const System from : {kPixel, kCalibrated, kAligned}) {
      for (const System to : {kPixel, kCalibrated, kAligned}) {
        forEachInstructionSet([&](cmnalg::InstructionSet set) {
          Plane<T> gotPlane(3);
          Space<T> gotSpace(2 * count);
          ASSERT_TRUE(mapPoints<T>(model, plane, gotPlane, from, to));
          ASSERT_TRUE(mapPoints<T>(model, space, gotSpace, from, to, -3.3, 0.7));
          ASSERT_EQ(gotPlane.size(), count);
          ASSERT_EQ(gotSpace.size(), count);
          for (std::size_t i = 0; i < count; ++i) {
            Vec<2, T> p = plane[i];
            Vec<3, T> q = space[i];
            if (from != to) {
              reference.map(p, from, to);
              reference.map(q, from, to, -3.3, 0.7);
            }
            ASSERT_TRUE(sameBits(gotPlane[i].x, p.x) && sameBits(gotPlane[i].y, p.y) &&
                        sameBits(gotSpace[i].x, q.x) && sameBits(gotSpace[i].y, q.y) &&
                        sameBits(gotSpace[i].z, q.z))
                << "point " << i << " of " << count << ", " << static_cast<int>(from) << " to "
                << static_cast<int>(to) << ", instruction set " << static_cast<int>(set);
          }
        });
      }
    }
  }
}

TEST(PointMapping, RoundTripsReturnToTheSensor) {
  std::mt19937 random(12);
  for (int i = 0; i < 20; ++i) {
    const Model model = test::randomModel(random);
    // Part of a pixel: the inverse stops at changes below 1e-5 focal lengths.
    const double tolerance = 2e-5 * model.FocalLength;
    Space<double> pixels;
    for (int u = 0; u < 2560; u += 213) {
      for (int v = 0; v < 1000; v += 111) pixels.push_back({u * 1.0, u + v * 1.0, v * 1.0});
    }
    for (const System middle : {kCalibrated, kAligned}) {
      Space<double> points = pixels;
      ASSERT_TRUE(mapPoints<double>(model, points, points, kPixel, middle, 2, 0.1));
      ASSERT_TRUE(mapPoints<double>(model, points, points, middle, kPixel, 2, 0.1));
      for (std::size_t p = 0; p < pixels.size(); ++p) {
        ASSERT_NEAR(points[p].x, pixels[p].x, tolerance);
        ASSERT_NEAR(points[p].y, pixels[p].y, 1e-8);
        ASSERT_NEAR(points[p].z, pixels[p].z, tolerance);
      }
    }
  }
}

TEST(PointMapping, SingleDirectionsAreThoseOfMapPointsInAnyState) {
  std::mt19937 random(13);
  Model model = test::randomModel(random);
  const Plane<double> in = {{100, 200}, {2000, 900}};
  const struct {
    bool (*map)(const Model&, const Plane<double>&, Plane<double>&);
    System from, to;
  } cases[] = {{mapPointsPixToCal<double>, kPixel, kCalibrated},
               {mapPointsCalToPix<double>, kCalibrated, kPixel},
               {mapPointsPixToAligned<double>, kPixel, kAligned},
               {mapPointsAlignedToPix<double>, kAligned, kPixel},
               {mapPointsAlignedToCal<double>, kAligned, kCalibrated}};
  for (const auto& row : cases) {
    Plane<double> want;
    Plane<double> got;
    model.CurrentState = ModelState::CALIBRATED;
    ASSERT_TRUE(mapPoints<double>(model, in, want, row.from, row.to));
    model.CurrentState = ModelState::UNCALIBRATED;
    ASSERT_TRUE(row.map(model, in, got));
    EXPECT_EQ(got, want);
  }
}

TEST(PointMapping, EmptyListsAreMapped) {
  Plane<double> out(3);
  EXPECT_TRUE(mapPoints<double>(plainModel(), {}, out, kPixel, kCalibrated));
  EXPECT_THAT(out, IsEmpty());
}

// ---- Refusals.

constexpr const char* kUncalibrated =
    "Operation failed because it was called with uncalibrated model.";
constexpr const char* kUncalibratedPixels = "mapPoints called with uncalibrated model.";
constexpr const char* kHomography = "Invalid perspective matrix.";
constexpr const char* kPose = "Invalid pose matrix.";
constexpr const char* kSheet = "Invalid sheet curve.";

struct RefusalCase {
  const char* name;
  std::function<void(Model&)> change;
  int from, to;
  const char* plane;  ///< text in 2D, null: accepted
  const char* space;  ///< text in 3D, null: accepted
};

void setState(Model& m, int state) { m.CurrentState = static_cast<ModelState>(state); }
void singularHomography(Model& m) { m.Homography = matrix(3, 3, {1, 2, 0, 2, 4, 0, 0, 0, 1}); }
void singularPose(Model& m) { m.Pose = matrix(3, 4, {1, 0, 1, 0, 0, 1, 0, 0, 1, 0, 1, 0}); }

const RefusalCase kRefusals[] = {
    // clang-format off
    {"State0", [](Model& m) { setState(m, 0); }, 0, 1, kUncalibrated, kUncalibrated},
    {"State0EvenForCopies", [](Model& m) { setState(m, 0); }, 1, 1, kUncalibrated, kUncalibrated},
    {"State0BeforeShapes", [](Model& m) { setState(m, 0), m.SheetCurve = {1}; }, 0, 1,
     kUncalibrated, kUncalibrated},
    {"State4FromPixel", [](Model& m) { setState(m, 4); }, 0, 1, nullptr, kUncalibratedPixels},
    {"State5ToPixel", [](Model& m) { setState(m, 5); }, 2, 0, nullptr, kUncalibratedPixels},
    {"State5BeforeShapes", [](Model& m) { setState(m, 5), m.SheetCurve = {1}; }, 0, 1, kSheet,
     kUncalibratedPixels},
    {"State5CopiesPixels", [](Model& m) { setState(m, 5); }, 0, 0, nullptr, nullptr},
    {"State5Aligns", [](Model& m) { setState(m, 5); }, 1, 2, nullptr, nullptr},
    {"CopiesNeedNoMatrix", [](Model& m) { m.Pose = {}, m.Homography = {}; }, -1, 7, nullptr,
     nullptr},
    {"AnyOtherSystemIsAligned", [](Model& m) { m.Pose = {}; }, 1, -1, kPose, kPose},
    {"WideHomography", [](Model& m) { m.Homography = matrix(3, 4, std::vector<double>(12)); }, 0,
     1, kHomography, kHomography},
    {"PaddedHomography", [](Model& m) { m.Homography.Create(3, 3, 5); }, 0, 1, kHomography,
     kHomography},
    {"SingularHomographyForward", singularHomography, 0, 2, nullptr, nullptr},
    {"SingularHomographyBack", singularHomography, 1, 0, kHomography, kHomography},
    {"NaNHomographyForward", [](Model& m) { m.Homography[0][0] = kNaN; }, 0, 1, nullptr, nullptr},
    {"HomographyIsNotAsked", [](Model& m) { m.Homography = {}; }, 1, 2, nullptr, nullptr},
    {"PoseIsNotAsked", [](Model& m) { m.Pose = {}; }, 1, 0, nullptr, nullptr},
    {"PoseOfTwoRows", [](Model& m) { m.Pose = matrix(2, 4, {1, 0, 0, 0, 0, 1, 0, 0}); }, 1, 2,
     kPose, kPose},
    {"PoseOfFiveRows", [](Model& m) { m.Pose = matrix(5, 4, std::vector<double>(20)); }, 1, 2,
     kPose, kPose},
    {"SingularPoseForward", singularPose, 1, 2, nullptr, nullptr},
    {"SingularPoseBack", singularPose, 2, 1, kPose, kPose},
    {"PoseThatIsSingularInSpaceOnly", [](Model& m) { m.Pose[1][1] = 0; }, 2, 1, nullptr, kPose},
    {"SkewWithoutYBack", [](Model& m) { m.Skew = {1, 0, 0}; }, 2, 0, kPose, kPose},
    {"SheetCurveOfFive", [](Model& m) { m.SheetCurve.resize(5); }, 0, 2, kSheet, kSheet},
    {"SheetCurveOfOneBack", [](Model& m) { m.SheetCurve.resize(1); }, 1, 0, kSheet, kSheet},
    {"SheetCurveIsNotAsked", [](Model& m) { m.SheetCurve.resize(1); }, 1, 2, nullptr, nullptr},
    {"HomographyBeforeSheetCurve", [](Model& m) { m.Homography = {}, m.SheetCurve.resize(1); },
     0, 1, kHomography, kHomography},
    // clang-format on
};

void expectOutcome(bool mapped, const char* text, const WarningCapture& log) {
  EXPECT_EQ(mapped, text == nullptr);
  if (text == nullptr) {
    EXPECT_THAT(log.Messages(), IsEmpty());
  } else {
    EXPECT_THAT(log.Messages(), ElementsAre(text));
    EXPECT_THAT(log.Loggers(), ElementsAre("Image.Calibration.Planex"));
  }
}

TEST(PointMapping, RefusesModelsThatTheDirectionCannotUse) {
  for (const RefusalCase& row : kRefusals) {
    SCOPED_TRACE(row.name);
    Model model = plainModel();
    row.change(model);
    const auto from = static_cast<System>(row.from);
    const auto to = static_cast<System>(row.to);
    {
      const WarningCapture log;
      Plane<float> out = {{7, 7}};
      expectOutcome(mapPoints<float>(model, {{1, 2}, {3, 4}}, out, from, to), row.plane, log);
      EXPECT_EQ(out.size(), row.plane == nullptr ? 2U : 1U);
    }
    {
      const WarningCapture log;
      Space<float> out = {{7, 7, 7}};
      expectOutcome(mapPoints<float>(model, {{1, 2, 3}, {3, 4, 5}}, out, from, to, 0, 1), row.space,
                    log);
      EXPECT_EQ(out.size(), row.space == nullptr ? 2U : 1U);
    }
  }
}

}  // namespace
}  // namespace datafusion::planex
