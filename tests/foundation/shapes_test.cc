#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <limits>
#include <string>
#include <vector>

#include "planex/foundation/box.h"
#include "planex/foundation/polyline.h"
#include "planex/foundation/rectangle.h"

namespace cmnalg {
namespace {

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kLargest = std::numeric_limits<double>::max();
const double kPi = std::acos(-1.0);

TEST(Rectangle, CornersRunCounterClockwiseFromTheLowest) {
  struct Case {
    const char* name;
    shape::Rectangle rectangle;
    Vec<2, double> want[4];
  };
  const double r = 2 * std::sqrt(2.0);
  const Case kCases[] = {
      {"Upright", {{10, 20}, 4, 2, 0}, {{8, 19}, {12, 19}, {12, 21}, {8, 21}}},
      {"QuarterTurn", {{10, 20}, 4, 2, kPi / 2}, {{11, 18}, {11, 22}, {9, 22}, {9, 18}}},
      {"EighthTurn", {{0, 0}, 4, 4, kPi / 4}, {{0, -r}, {r, 0}, {0, r}, {-r, 0}}},
  };
  for (const Case& c : kCases) {
    SCOPED_TRACE(c.name);
    const auto corners = c.rectangle.GetCorners();
    for (std::size_t i = 0; i < 4; ++i) {
      EXPECT_NEAR(corners[i].x, c.want[i].x, 1e-14);  // rounding of sine and cosine
      EXPECT_NEAR(corners[i].y, c.want[i].y, 1e-14);
    }
  }
}

TEST(Rectangle, IsValidAsksEveryField) {
  EXPECT_TRUE((shape::Rectangle{{-1, -2}, 0, 0, -7}.IsValid()));
  EXPECT_EQ(shape::Rectangle{}.Width + shape::Rectangle{}.Height, 0);
  const shape::Rectangle kInvalid[] = {
      {{kNan, 0}, 1, 1, 0}, {{0, kInf}, 1, 1, 0}, {{0, 0}, -1, 1, 0},  {{0, 0}, 1, -1, 0},
      {{0, 0}, kNan, 1, 0}, {{0, 0}, 1, kInf, 0}, {{0, 0}, 1, 1, kNan}};
  for (const shape::Rectangle& rectangle : kInvalid) {
    EXPECT_FALSE(rectangle.IsValid()) << &rectangle - kInvalid;
  }
}

TEST(Polyline, BoundingBox) {
  struct Case {
    const char* name;
    etl::Vector<Vec<2, double>> points;
    shape::Rectangle want;
  };
  const Case kCases[] = {
      {"NegativeOnly", {{-3, -8}, {-1, -2}, {-2, -4}}, {{-2, -5}, 2, 6, 0}},
      {"OnePoint", {{3, 4}}, {{3, 4}, 0, 0, 0}},
      {"NanIsLeftOut", {{kNan, 1}, {2, kNan}, {4, 5}}, {{3, 3}, 2, 4, 0}},
      {"NoNumberInY", {{1, kNan}, {2, kNan}}, {{1.5, kNan}, 1, kNan, 0}},
      {"Empty", {}, {{kNan, kNan}, kNan, kNan, 0}},
      {"LargeCenterIsFinite", {{kLargest, 0}, {kLargest, 1}}, {{kLargest, 0.5}, 0, 1, 0}},
      {"Infinite", {{-kInf, 0}, {kInf, 0}}, {{kNan, 0}, kInf, 0, 0}},
  };
  const auto same = [](double a, double b) { return a == b || (std::isnan(a) && std::isnan(b)); };
  for (const Case& c : kCases) {
    SCOPED_TRACE(c.name);
    const shape::Rectangle box = shape::Polyline{c.points}.GetBoundingBox();
    EXPECT_PRED2(same, box.Center.x, c.want.Center.x);
    EXPECT_PRED2(same, box.Center.y, c.want.Center.y);
    EXPECT_PRED2(same, box.Width, c.want.Width);
    EXPECT_PRED2(same, box.Height, c.want.Height);
    EXPECT_EQ(box.Rotation, 0);
  }
}

TEST(ApplyTransform, DividesForStoredHomographyOnly) {
  const double values[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 0, 0, 0, 1.000001};
  auto matrix = Matrix<double>::FromRows(4, 4, values);
  math::Transform<3, double> transform;
  ASSERT_TRUE(transform.Create3D(matrix, math::TransformType::AFFINE));
  EXPECT_EQ(math::ApplyTransform(transform, {1, 10, 100}), (Vec<3, double>{325, 773, 1221}));

  matrix[3][0] = 3;
  matrix[3][1] = 0.5;
  matrix[3][2] = -0.01;
  matrix[3][3] = -2;
  ASSERT_TRUE(transform.Create3D(matrix, math::TransformType::HOMOGRAPHY));
  const Vec<3, double> point = math::ApplyTransform(transform, {1, 10, 100});  // w = 5
  EXPECT_EQ(point, (Vec<3, double>{325.0 / 5, 773.0 / 5, 1221.0 / 5}));
}

TEST(Box, FromCornersIsCentredBetweenThem) {
  const shape3d::Box box = shape3d::Box::FromCorners({1, 10, -4}, {3, 4, 8});
  EXPECT_EQ(box.Size, (Vec<3, double>{2, -6, 12}));
  EXPECT_TRUE(box.Pose.IsTranslation());
  EXPECT_EQ(math::ApplyTransform(box.Pose, {0, 0, 0}), (Vec<3, double>{2, 7, 2}));
  EXPECT_EQ(math::ApplyTransform(box.Pose, {1, 1, 1}), (Vec<3, double>{3, 8, 3}));

  const shape3d::Box empty = shape3d::Box::FromCorners({kNan, 0, 0}, {0, 0, kInf});
  EXPECT_TRUE(std::isnan(math::ApplyTransform(empty.Pose, {0, 0, 0}).x));
  EXPECT_EQ(empty.Size.z, kInf);
}

}  // namespace
}  // namespace cmnalg
