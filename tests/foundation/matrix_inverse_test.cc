#include "planex/foundation/matrix_inverse.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "planex/foundation/line_fit.h"
#include "tests/support/warning_capture.h"

namespace cmnalg::math {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr double kInf = std::numeric_limits<double>::infinity();

struct InverseCase {
  const char* name;
  int size;
  std::vector<double> in;
  std::vector<double> want;  ///< exact; empty: refused, silently
};
const InverseCase kInverses[] = {
    {"ZeroPivotFirst", 2, {0, 2, 4, 0}, {0, 0.25, 0.5, 0}},
    {"TranslationIsExact", 3, {1, 0, 5.1, 0, 1, -7.3, 0, 0, 1}, {1, 0, -5.1, 0, 1, 7.3, 0, 0, 1}},
    {"MixedUnitsInRows", 2, {0x1p-60, -0x1p-60, 1, 1}, {0x1p59, 0.5, -0x1p59, 0.5}},
    {"MixedUnitsInColumns", 2, {0x1p-60, 1, -0x1p-60, 1}, {0x1p59, -0x1p59, 0.5, 0.5}},
    {"Zero", 3, std::vector<double>(9, 0.0), {}},
    {"RankTwo", 3, {1, 2, 3, 4, 5, 6, 7, 8, 9}, {}},
    {"RankTwoByRounding", 3, {0.1, 0.2, 0.3, 0.4, 0.5, 0.6, 0.7, 0.8, 0.9}, {}},
    {"EqualRowsOfFour", 4, {1, 2, 3, 4, 5, 6, 7, 8, 1, 2, 3, 4, 0, 0, 0, 1}, {}},
    {"NotANumber", 2, {1, 0, 0, std::nan("")}, {}},
    {"Infinite", 2, {1, 0, 0, kInf}, {}},
    {"ResultOverflows", 2, {1, 0, 0, 5e-324}, {}},
};

class Inverting : public testing::TestWithParam<InverseCase> {};

TEST_P(Inverting, GivesTheInverseOrFalse) {
  const InverseCase& c = GetParam();
  const auto in = Matrix<double>::FromRows(c.size, c.size, c.in.data());
  Matrix<double> out = Matrix<double>::Identity(1, 1);
  const WarningCapture log;
  EXPECT_EQ(Inverse(out, in), !c.want.empty());
  EXPECT_THAT(log.Messages(), IsEmpty());
  if (c.want.empty()) {
    EXPECT_EQ(out.Width(), 1) << "untouched on failure";
    return;
  }
  for (int r = 0; r < c.size; ++r) {
    for (int col = 0; col < c.size; ++col) {
      // One rounding in 1 / pivot, none elsewhere in these matrices.
      EXPECT_DOUBLE_EQ(out[r][col], c.want[static_cast<std::size_t>(r * c.size + col)])
          << r << ", " << col;
    }
  }
}
INSTANTIATE_TEST_SUITE_P(All, Inverting, testing::ValuesIn(kInverses),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(Inverse, TimesTheMatrixIsTheIdentity) {
  std::mt19937 random(7);
  std::uniform_real_distribution<double> element(-1, 1);
  for (int i = 0; i < 200; ++i) {
    const int n = i % 2 == 0 ? 3 : 4;
    Matrix<double> in;
    ASSERT_TRUE(in.Create(n, n, n + i % 3));
    for (int r = 0; r < n; ++r) {
      for (int c = 0; c < n; ++c) in[r][c] = element(random) + (r == c ? 2 : 0);
    }
    // Columns in units far apart, as in a homography from pixels.
    for (int r = 0; r < n; ++r) in[r][0] *= 1e-6;
    Matrix<double> out;
    ASSERT_TRUE(Inverse(out, in));
    const Matrix<double> product = out * in;
    for (int r = 0; r < n; ++r) {
      for (int c = 0; c < n; ++c) {
        // The rows of `out` are as far apart in size as the columns of `in`.
        const double unit = (r == 0 ? 1e6 : 1) * (c == 0 ? 1e-6 : 1);
        // Condition numbers here stay below some hundreds: 1e-16 times that, and a margin.
        EXPECT_NEAR(product[r][c], r == c ? 1 : 0, 1e-12 * unit);
      }
    }
  }
}

TEST(Inverse, KeepsAnAffineBottomRowExact) {
  const double pose[] = {0.36, 0.48, -0.8, 3.3, -0.8, 0.6, 0, 0.7,
                         0.48, 0.64, 0.6,  1e3, 0,    0,   0, 1};
  Matrix<double> out;
  ASSERT_TRUE(Inverse(out, Matrix<double>::FromRows(4, 4, pose)));
  EXPECT_THAT(std::vector<double>(out[3], out[3] + 4), ElementsAre(0, 0, 0, 1));
  EXPECT_NEAR(out[0][1], -0.8, 1e-15) << "transpose of the rotation";
}

TEST(Inverse, RefusesWhatDoesNotFitAFloat) {
  const float tiny[] = {1e-39F};
  Matrix<float> out;
  EXPECT_FALSE(Inverse(out, Matrix<float>::FromRows(1, 1, tiny)));
}

TEST(Inverse, WarnsOfWrongSizes) {
  Matrix<double> square = Matrix<double>::Identity(3, 3);
  Matrix<double> out;
  const WarningCapture log;
  EXPECT_FALSE(Inverse(out, Matrix<double>::Identity(3, 4)));
  EXPECT_FALSE(Inverse(out, Matrix<double>()));
  EXPECT_FALSE(Inverse(square, square));
  EXPECT_THAT(log.Messages(), ElementsAre("Input or output matrix is not correct size.",
                                          "Input or output matrix is not correct size.",
                                          "Input matrix cannot be the same as the output matrix."));
}

TEST(ToMatrix, WritesOneColumnAPoint) {
  Matrix<double> matrix;
  ASSERT_TRUE(toMatrix(Vec<3, double>{1, 2, 3}, matrix, true));
  EXPECT_THAT(std::vector<double>(matrix.Data(), matrix.Data() + 4), ElementsAre(1, 2, 3, 1));
  const etl::Vector<Vec<2, double>> points = {{1, 2}, {3, 4}, {5, 6}};
  ASSERT_TRUE(toMatrix(points, matrix, false));
  EXPECT_EQ(matrix.Height(), 2);
  EXPECT_THAT(std::vector<double>(matrix.Data(), matrix.Data() + 6), ElementsAre(1, 3, 5, 2, 4, 6));
}

TEST(LineFit, AsksForSpreadInZ) {
  for (const double distance : {0.031, 0.032}) {  // of two points, whose determinant is its square
    LineFit fit;
    fit.Add(10, 3);
    fit.Add(10 + distance, 4);
    double slope = -7;
    double intercept = -7;
    const bool spread = distance > 0.0315;
    ASSERT_EQ(fit.Solve(slope, intercept), spread);
    EXPECT_NEAR(slope, spread ? 1 / distance : -7, 1e-6);
    EXPECT_NEAR(intercept, spread ? 3 - 10 / distance : -7, 1e-6);
  }
}

}  // namespace
}  // namespace cmnalg::math
