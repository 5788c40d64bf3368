#include "planex/foundation/transform.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "planex/foundation/box.h"
#include "planex/foundation/polyline.h"
#include "planex/foundation/rectangle.h"
#include "tests/support/documents.h"
#include "tests/support/log_capture.h"
#include "tests/support/model_documents.h"

namespace cmnalg {
namespace {

using Type = math::TransformType;

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

// ---- Transforms ----

template <int N>
void expectClass(Type want, const std::vector<double>& values) {
  const auto matrix = Matrix<double>::FromRows(N + 1, N + 1, values.data());
  math::Transform<N, double> transform;
  ASSERT_TRUE(transform.Create(matrix, Type::HOMOGRAPHY));
  EXPECT_EQ(transform.GetType(), Type::HOMOGRAPHY) << "the declared type is authoritative";
  EXPECT_EQ(transform.GetTypeNumerical(), want);
  if (want == Type::IDENTITY) return;
  test::LogCapture log;
  EXPECT_TRUE(transform.Create(matrix, want));
  EXPECT_FALSE(transform.Create(matrix, static_cast<Type>(static_cast<int>(want) - 1)));
  math::Transform<N, double> assigned;
  assigned = transform;
  EXPECT_EQ(assigned.GetType(), want);
  EXPECT_EQ(assigned.IsIdentity(), want == Type::IDENTITY);
  EXPECT_EQ(assigned.IsTranslation(), want == Type::TRANSLATION);
  EXPECT_EQ(assigned.IsRigid(), want == Type::RIGID);
  EXPECT_EQ(assigned.IsSimilarity(), want == Type::SIMILARITY);
  EXPECT_EQ(assigned.IsHomography(), want == Type::HOMOGRAPHY);
  EXPECT_EQ(log.TakeOne(),
            "WARNING: The matrix represents a transform more general than the desired "
            "transform type, check transform matrix or adjust the desired type.");
}

TEST(Transform, ClassifiesItsMatrix) {
  const struct {
    Type want;
    std::vector<double> values;
  } kCases[] = {
      {Type::IDENTITY, {1, 0, 0, 0, 1, 0, 0, 0, 1.000001}},   // of the bottom: within tolerance,
      {Type::HOMOGRAPHY, {1, 0, 0, 0, 1, 0, 0, 0, 1.0001}},   // outside,
      {Type::HOMOGRAPHY, {1, 0, 0, 0, 1, 0, 1e-12, 0, 1}},    // and exact but for the last
      {Type::TRANSLATION, {1, 0, 0, 0, 1, 1e-300, 0, 0, 1}},  // exact, along either axis
      {Type::RIGID, {0.6, -0.8, 0, 0.8, 0.6, 0, 0, 0, 1}},
      {Type::RIGID, {1, 1e-12, 0, 0, 1, 0, 0, 0, 1}},  // off the diagonal exact,
      {Type::RIGID, {1, 0, 0, 1e-12, 1, 0, 0, 0, 1}},
      {Type::IDENTITY, {1 + 4e-6, 0, 0, 0, 1 + 4e-6, 0, 0, 0, 1}},  // on it not
      {Type::AFFINE, {0.6, 0.8, 0, 0.8, 0.6, 0, 0, 0, 1}},          // correlated rows
      {Type::TRANSLATION, {1, 0, kNan, 0, 1, 0, 0, 0, 1}},
      {Type::HOMOGRAPHY, {1, 0, 0, 0, 1, 0, 0, 0, kNan}},
      {Type::RIGID, {0.36, 0.48, -0.8, 3, -0.8, 0.6, 0, 1, 0.48, 0.64, 0.6, 9, 0, 0, 0, 1}},
      {Type::SIMILARITY, {0.72, 0.96, -1.6, 3, -1.6, 1.2, 0, 1, 0.96, 1.28, 1.2, 9, 0, 0, 0, 1}},
      {Type::AFFINE, {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 2, 0, 0, 0, 0, 1}},  // third axis, row,
      {Type::AFFINE, {1, 0, 0, 0, 0, 1, 0, 0, 0, 1, 1, 0, 0, 0, 0, 1}},  // bottom and shift
      {Type::HOMOGRAPHY, {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 1e-9, 1}},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(&c - kCases);
    c.values.size() == 9 ? expectClass<2>(c.want, c.values) : expectClass<3>(c.want, c.values);
  }
  math::Transform<2, double> transform;
  test::LogCapture log;
  for (const int rows : {3, 4}) {
    EXPECT_FALSE(transform.Create2D(Matrix<double>::Identity(rows, 7 - rows), Type::HOMOGRAPHY));
    EXPECT_EQ(log.TakeOne(), "WARNING: Input matrix is not correct size.");
  }
}

TEST(TransformDocument, IsReadOrRefusedAsAWhole) {
  const std::string good = R"({"class":"Transform2D","data":{"Type":"HOMOGRAPHY","Matrix":)"
                           "[[0.59999999999999998,-0.80000000000000004,5],"
                           "[0.80000000000000004,0.59999999999999998,0],[0,0,1]]}}";
  base::JsonVisitingDeSerializer document(good.c_str(), false);
  const auto object = document.DeserializeObject();
  ASSERT_NE(object, nullptr) << document.GetErrorDescription();
  EXPECT_EQ(test::toJson(*object), good);
  EXPECT_EQ(test::toJson(*object->CloneVisitable()), good);
  const char* const size =
      "Serialized array size mismatch while de-serializing class 'Transform2D'";
  const struct {
    const char *piece, *replacement, *error;
  } kCases[] = {
      {"HOMOGRAPHY", "HOMO", "Data field 'Type' of class 'Transform2D' not found or out or range"},
      {",[0,0,1]", ",[0,0,1],[0,0,1]", size},
  };
  for (const auto& c : kCases) {
    math::Transform<2, double> transform;
    EXPECT_EQ(test::readJson(test::with(good, c.piece, c.replacement), transform), c.error);
    EXPECT_EQ(test::toJson(transform), R"({"class":"Transform2D","data":{"Type":"IDENTITY",)"
                                       R"("Matrix":[[1,0,0],[0,1,0],[0,0,1]]}})");
  }
}

TEST(ApplyTransform, DividesForStoredHomographyOnly) {
  const double values[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 0, 0, 0, 1.000001};
  auto matrix = Matrix<double>::FromRows(4, 4, values);
  math::Transform<3, double> transform;
  ASSERT_TRUE(transform.Create3D(matrix, Type::AFFINE));
  EXPECT_EQ(math::ApplyTransform(transform, {1, 10, 100}), (Vec<3, double>{325, 773, 1221}));
  const double bottom[] = {3, 0.5, -0.01, -2};
  for (int c = 0; c < 4; ++c) matrix[3][c] = bottom[c];
  ASSERT_TRUE(transform.Create3D(matrix, Type::HOMOGRAPHY));
  const Vec<3, double> point = math::ApplyTransform(transform, {1, 10, 100});  // w = 5
  EXPECT_EQ(point, (Vec<3, double>{325.0 / 5, 773.0 / 5, 1221.0 / 5}));
}

// ---- Shapes ----

TEST(Rectangle, IsValidAsksEveryField) {
  EXPECT_TRUE((shape::Rectangle{{-1, -2}, 0, 0, -7}.IsValid()));
  EXPECT_TRUE(shape::Rectangle{}.IsValid());
  const shape::Rectangle kInvalid[] = {
      {{kNan, 0}, 1, 1, 0}, {{0, kInf}, 1, 1, 0}, {{0, 0}, -1, 1, 0},  {{0, 0}, 1, -1, 0},
      {{0, 0}, kInf, 1, 0}, {{0, 0}, 1, kInf, 0}, {{0, 0}, 1, 1, kNan}};
  for (const auto& rectangle : kInvalid) EXPECT_FALSE(rectangle.IsValid()) << &rectangle - kInvalid;
}

TEST(Polyline, HasABoundingBox) {
  constexpr double kLargest = std::numeric_limits<double>::max();
  const struct {
    etl::Vector<Vec<2, double>> points;
    double want[4];  ///< center, width, height
  } kCases[] = {
      {{{kNan, 1}, {2, kNan}, {4, 5}}, {3, 3, 2, 4}},
      {{{kLargest, 0}, {kLargest, 1}}, {kLargest, 0.5, 0, 1}},
      {{{-kInf, 0}, {kInf, 0}}, {kNan, 0, kInf, 0}},
  };
  for (const auto& c : kCases) {
    const shape::Rectangle box = shape::Polyline{c.points}.GetBoundingBox();
    const double got[] = {box.Center.x, box.Center.y, box.Width, box.Height};
    EXPECT_THAT(got, testing::Pointwise(testing::NanSensitiveDoubleEq(), c.want)) << &c - kCases;
    EXPECT_EQ(box.Rotation, 0);
  }
}

}  // namespace
}  // namespace cmnalg
