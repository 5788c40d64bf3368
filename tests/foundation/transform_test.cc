#include "planex/foundation/transform.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <string>

#include "planex/infra/class_repository.h"
#include "planex/infra/json_deserializer.h"
#include "planex/infra/json_serializer.h"
#include "tests/support/warning_capture.h"

namespace cmnalg::math {
namespace {

using testing::ElementsAre;
using Type = TransformType;

const double kNaN = std::nan("");

template <std::size_t Count>
struct ClassCase {
  const char* name;
  Type want;
  std::array<double, Count> m;
};
const ClassCase<9> kPlane[] = {
    {"Identity", Type::IDENTITY, {1, 0, 0, 0, 1, 0, 0, 0, 1}},
    {"BottomWithinTolerance", Type::IDENTITY, {1, 0, 0, 0, 1, 0, 0, 0, 1.000001}},
    {"BottomOutsideTolerance", Type::HOMOGRAPHY, {1, 0, 0, 0, 1, 0, 0, 0, 1.0001}},
    {"BottomTestIsExact", Type::HOMOGRAPHY, {1, 0, 0, 0, 1, 0, 1e-12, 0, 1}},
    {"BottomTestOfSecondIsExact", Type::HOMOGRAPHY, {1, 0, 0, 0, 1, 0, 0, -1e-12, 1}},
    {"TranslationIsExact", Type::TRANSLATION, {1, 0, 0, 0, 1, 1e-300, 0, 0, 1}},
    {"TranslationAlongFirst", Type::TRANSLATION, {1, 0, -2, 0, 1, 0, 0, 0, 1}},
    {"Reflection", Type::RIGID, {-1, 0, 5, 0, 1, 0, 0, 0, 1}},
    {"Rotation", Type::RIGID, {0.6, -0.8, 0, 0.8, 0.6, 0, 0, 0, 1}},
    {"OffDiagonalIsExact", Type::RIGID, {1, 1e-12, 0, 0, 1, 0, 0, 0, 1}},
    {"LowerOffDiagonalIsExact", Type::RIGID, {1, 0, 0, 1e-12, 1, 0, 0, 0, 1}},
    {"DiagonalWithinTolerance", Type::IDENTITY, {1 + 4e-6, 0, 0, 0, 1 + 4e-6, 0, 0, 0, 1}},
    {"Scale", Type::SIMILARITY, {2, 0, 0, 0, 2, 0, 0, 0, 1}},
    {"UnequalScales", Type::AFFINE, {2, 0, 0, 0, 3, 0, 0, 0, 1}},
    {"ShearHasCorrelatedRows", Type::AFFINE, {0.6, 0.8, 0, 0.8, 0.6, 0, 0, 0, 1}},
    {"NaNInLinearPart", Type::AFFINE, {1, 0, 0, 0, kNaN, 0, 0, 0, 1}},
    {"NaNInTranslation", Type::TRANSLATION, {1, 0, kNaN, 0, 1, 0, 0, 0, 1}},
    {"NaNInBottom", Type::HOMOGRAPHY, {1, 0, 0, 0, 1, 0, kNaN, 0, 1}},
    {"NaNInLast", Type::HOMOGRAPHY, {1, 0, 0, 0, 1, 0, 0, 0, kNaN}},
};
const ClassCase<16> kSpace[] = {
    {"PoseLike",
     Type::RIGID,
     {0.36, 0.48, -0.8, 3.3, -0.8, 0.6, 0, 0.7, 0.48, 0.64, 0.6, 9, 0, 0, 0, 1}},
    {"PoseLikeScaled",
     Type::SIMILARITY,
     {0.72, 0.96, -1.6, 3.3, -1.6, 1.2, 0, 0.7, 0.96, 1.28, 1.2, 9, 0, 0, 0, 1}},
    {"ThirdAxisScaled", Type::AFFINE, {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 2, 0, 0, 0, 0, 1}},
    {"ThirdRowCorrelated", Type::AFFINE, {1, 0, 0, 0, 0, 1, 0, 0, 0, 1, 1, 0, 0, 0, 0, 1}},
    {"ThirdBottomElement", Type::HOMOGRAPHY, {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 1e-9, 1}},
    {"ThirdTranslation", Type::TRANSLATION, {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 4, 0, 0, 0, 1}},
    {"Identity", Type::IDENTITY, {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1}},
};

template <int N, std::size_t Count>
void expectClass(const ClassCase<Count>& c) {
  SCOPED_TRACE(c.name);
  const auto matrix = Matrix<double>::FromRows(N + 1, N + 1, c.m.data());
  Transform<N, double> transform;
  ASSERT_TRUE(transform.Create(matrix, Type::HOMOGRAPHY));
  EXPECT_EQ(transform.GetType(), Type::HOMOGRAPHY) << "the declared type is authoritative";
  EXPECT_EQ(transform.GetTypeNumerical(), c.want);
  if (c.want == Type::IDENTITY) return;
  const WarningCapture log;
  const auto narrower = static_cast<Type>(static_cast<int>(c.want) - 1);
  EXPECT_TRUE(transform.Create(matrix, c.want));
  EXPECT_FALSE(transform.Create(matrix, narrower));
  EXPECT_EQ(transform.GetType(), c.want);
  EXPECT_THAT(log.Messages(),
              ElementsAre("The matrix represents a transform more general than the desired "
                          "transform type, check transform matrix or adjust the desired type."));
}

TEST(Transform, ClassifiesItsMatrix) {
  for (const auto& c : kPlane) expectClass<2>(c);
  for (const auto& c : kSpace) expectClass<3>(c);
}

TEST(Transform, RefusesMatricesOfOtherSizes) {
  Transform<2, double> transform;
  const WarningCapture log;
  EXPECT_FALSE(transform.Create2D(Matrix<double>::Identity(4, 4), Type::HOMOGRAPHY));
  EXPECT_FALSE(transform.Create2D(Matrix<double>::Identity(2, 3), Type::HOMOGRAPHY));
  EXPECT_THAT(log.Messages(), ElementsAre("Input matrix is not correct size.",
                                          "Input matrix is not correct size."));
  EXPECT_THAT(log.Loggers(), ElementsAre("Matrix", "Matrix"));
}

TEST(Transform, QueriesCompareForEquality) {
  Transform<3, double> transform;
  EXPECT_TRUE(transform.IsIdentity());
  ASSERT_TRUE(transform.Create3D(Matrix<double>::Identity(4, 4), Type::RIGID));
  EXPECT_TRUE(transform.IsRigid());
  EXPECT_FALSE(transform.IsSimilarity());
  EXPECT_FALSE(transform.IsIdentity());
}

TEST(TransformDocument, RoundTripsByClassName) {
  const double m[] = {0.6, -0.8, 5, 0.8, 0.6, 0, 0, 0, 1};
  Transform<2, double> transform;
  ASSERT_TRUE(transform.Create(Matrix<double>::FromRows(3, 3, m), Type::SIMILARITY));
  etl::MemoryOutStream stream;
  ASSERT_TRUE(base::JsonVisitingSerializer(stream, false).Serialize(transform));
  const std::string text(stream.GetText());
  EXPECT_EQ(text, R"({"class":"Transform2D","data":{"Type":"SIMILARITY","Matrix":)"
                  "[[0.59999999999999998,-0.80000000000000004,5],"
                  "[0.80000000000000004,0.59999999999999998,0],[0,0,1]]}}");
  base::JsonVisitingDeSerializer document(text.c_str(), false);
  const auto object = document.DeserializeObject();
  const auto* copy = dynamic_cast<const Transform<2, double>*>(object.get());
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(copy->GetType(), Type::SIMILARITY);
  EXPECT_EQ(copy->GetMatrix()[0][1], -0.8);
  const auto clone = copy->CloneVisitable();
  etl::MemoryOutStream cloned;
  ASSERT_TRUE(base::JsonVisitingSerializer(cloned, false).Serialize(*clone));
  EXPECT_EQ(cloned.GetText(), text);
}

TEST(TransformDocument, RefusesWhatIsNoTransform) {
  const struct {
    const char* type;
    const char* matrix;
    const char* error;
  } rows[] = {
      {"RIGIDITY", "[[1,0,7],[0,1,0],[0,0,1]]",
       "Data field 'Type' of class 'Transform2D' not found or out or range"},
      {"RIGID", "[[1,7],[0,1]]",
       "Serialized array size mismatch while de-serializing class 'Transform2D'"},
  };
  for (const auto& row : rows) {
    const std::string text = std::string(R"({"class":"Transform2D","data":{"Type":")") + row.type +
                             R"(","Matrix":)" + row.matrix + "}}";
    Transform<2, double> transform;
    base::JsonVisitingDeSerializer document(text.c_str(), false);
    EXPECT_FALSE(document.DeserializeIntoExistingObject(transform));
    EXPECT_EQ(document.GetErrorDescription(), row.error);
    EXPECT_EQ(transform.GetTypeNumerical(), Type::IDENTITY);
    EXPECT_TRUE(transform.IsIdentity());
  }
}

}  // namespace
}  // namespace cmnalg::math
