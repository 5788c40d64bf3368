#include "planex/foundation/matrix.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "planex/foundation/line_fit.h"
#include "planex/foundation/matrix_inverse.h"
#include "tests/support/counting_allocator.h"
#include "tests/support/documents.h"
#include "tests/support/log_capture.h"

namespace cmnalg {
namespace {

using testing::ElementsAre;

Matrix<double> square(const std::vector<double>& values) {
  const auto size = static_cast<int>(std::lround(std::sqrt(values.size())));
  return Matrix<double>::FromRows(size, size, values.data());
}

std::vector<double> elementsOf(const Matrix<double>& matrix) {
  std::vector<double> elements;
  for (int r = 0; r < matrix.Height(); ++r) {
    elements.insert(elements.end(), matrix[r], matrix[r] + matrix.Width());
  }
  return elements;
}

TEST(Matrix, IsRefusedWithOneWarningAndKept) {
  const std::string start = "WARNING: Cannot create matrix: ";
  const std::string negative = start + "Number of rows and columns must be non-negative.";
  const std::string pitch = start + "Line pitch is set smaller than the matrix width.";
  const std::string memory = start + "Memory allocation failed.";
  const struct {
    int rows, cols, pitch;
    std::string warning;
  } kCases[] = {
      {3, -1, 0, negative},      {-1, 3, 2, negative},      {3, 3, 2, pitch},
      {65536, 32768, 0, memory}, {65536, 1, 32768, memory}, {INT_MAX, INT_MAX, 0, memory},
      {3, 2, 0, memory},
  };
  CountingAllocator none;
  none.fails = true;
  for (const auto& c : kCases) {
    Matrix<double> matrix = Matrix<double>::Identity(2, 2);
    test::LogCapture log;
    EXPECT_FALSE(matrix.Create(c.rows, c.cols, c.pitch, none));
    EXPECT_FALSE(matrix.CreateExternal(nullptr, c.rows, c.cols, c.pitch));
    EXPECT_EQ(log.TakeOne("Matrix"), c.warning + " | " + c.warning);
    EXPECT_THAT(elementsOf(matrix), ElementsAre(1, 0, 0, 1));
    EXPECT_EQ(none.requests, c.rows == 3 && c.cols == 2 ? 1 : 0);
  }
  EXPECT_TRUE(Matrix<double>().Create(0, 3, 0, none)) << "without elements there is no memory";
}

TEST(Matrix, ReusesCopiesMovesAndMultiplies) {
  CountingAllocator memory;
  Matrix<double> matrix;
  ASSERT_TRUE(matrix.Create(2, 6, 0, memory));
  matrix[0][5] = 7;
  ASSERT_TRUE(matrix.Create(3, 2, 4, memory));
  EXPECT_EQ(matrix[1][1], 7);
  EXPECT_EQ(memory.requests, 1);
  ASSERT_TRUE(matrix.Create(3, 2, 0, memory));
  EXPECT_EQ(memory.requests, 2);
  Matrix<double> target = Matrix<double>::Identity(2, 3);
  memory.fails = true;
  EXPECT_THROW(target = matrix, std::bad_alloc);
  EXPECT_THAT(elementsOf(target), ElementsAre(1, 0, 0, 0, 1, 0));
  matrix = std::move(target);
  EXPECT_EQ(matrix.Width(), 3);
  // NOLINTNEXTLINE(*-use-after-move,*Move): the state promised
  EXPECT_TRUE(target.IsEmpty() && target.Pitch() == 0);
  EXPECT_EQ(memory.live, 0);

  double elements[] = {1, 2, -1, 3, 4, -1};
  Matrix<double> lent;
  ASSERT_TRUE(lent.CreateExternal(elements, 2, 2, 3));
  matrix = std::move(lent);
  const Matrix<double> copy = matrix;
  EXPECT_EQ(copy.Pitch(), 2) << "copies have no padding";
  elements[3] = 9;
  EXPECT_THAT(elementsOf(matrix), ElementsAre(1, 2, 9, 4));
  EXPECT_THAT(elementsOf(copy), ElementsAre(1, 2, 3, 4));
  memory.fails = false;
  ASSERT_TRUE(matrix.Create(2, 2, 3, memory));
  EXPECT_NE(matrix.Data(), elements) << "external storage is never reused";
  matrix = Matrix<double>();
  EXPECT_EQ(memory.live, 0);

  const double a[] = {1, 2, 3, 4, 5, 6};
  const double b[] = {1, 0, 0, 1, 10, 100};
  const auto left = Matrix<double>::FromRows(2, 3, a);
  EXPECT_THAT(elementsOf(left * Matrix<double>::FromRows(3, 2, b)), ElementsAre(31, 302, 64, 605));
  EXPECT_TRUE((left * left).IsEmpty());
}

// ---- Documents ----

struct Holder final : etl::IVisitable {
  Matrix<double> matrix = Matrix<double>::Identity(2, 2);
  const char* GetClassName() const override { return "Holder"; }
  void Visit(etl::IVisitor& visitor) override { matrix.Visit(visitor, "M"); }
  std::unique_ptr<etl::IVisitable> CloneVisitable() const override { return nullptr; }
};

std::string holding(const std::string& rows) {
  return R"({"class":"Holder","data":{"M":)" + rows + "}}";
}

TEST(Matrix, IsReadOrRefused) {
  const std::string ragged = "Serialized array size mismatch while de-serializing class 'Holder'";
  // Announces 40000 x 40000 elements, 12.8 GB, with 80000 in the text.
  std::string huge = "[[0";
  for (int i = 1; i < 40000; ++i) huge += ",0";
  huge += "]";
  for (int i = 1; i < 40000; ++i) huge += ",[]";
  const struct {
    std::string text;
    int rows, cols;  ///< of the matrix afterwards; 2 x 2 before
    std::string error;
  } kCases[] = {
      {"[[1],[2],[3]]", 3, 1, ""},       {"[]", 2, 2, ""},           {"[[],[]]", 2, 0, ""},
      {"[[1,2,3],[4,5]]", 2, 2, ragged}, {huge + "]", 2, 2, ragged},
  };
  for (const auto& c : kCases) {
    Holder holder;
    EXPECT_EQ(test::readJson(holding(c.text), holder), c.error);
    EXPECT_TRUE(holder.matrix.Height() == c.rows && holder.matrix.Width() == c.cols) << c.error;
  }
  Holder holder;
  double elements[] = {1, 0.1, -1, 3, 4, -1};
  ASSERT_TRUE(holder.matrix.CreateExternal(elements, 2, 2, 3));
  EXPECT_EQ(test::toJson(holder), holding("[[1,0.10000000000000001],[3,4]]"));
}

// ---- Inverses ----

TEST(Inverse, IsGivenOrRefusedInSilence) {
  const struct {
    std::vector<double> in, want;  ///< but for roundings; empty: refused
  } kCases[] = {
      {{2, 1, 1, 1, 3, 2, 1, 0, 0}, {0, 0, 1, -2, 1, 3, 3, -1, -5}},
      {{0x1p-60, -0x1p-60, 1, 1}, {0x1p59, 0.5, -0x1p59, 0.5}},  // rows of different units
      {{0x1p-60, 1, -0x1p-60, 1}, {0x1p59, -0x1p59, 0.5, 0.5}},
      {{0.1, 0.2, 0.3, 0.4, 0.5, 0.6, 0.7, 0.8, 0.9}, {}},
      {{1, 0, 0, std::nan("")}, {}},
      {{1, 0, 0, 5e-324}, {}},  // the result overflows
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(&c - kCases);
    Matrix<double> out = Matrix<double>::Identity(1, 1);
    test::LogCapture log;
    EXPECT_EQ(math::Inverse(out, square(c.in)), !c.want.empty());
    EXPECT_EQ(log.TakeOne(), "");
    const std::vector<double> got = elementsOf(out);
    EXPECT_THAT(got, testing::SizeIs(c.want.empty() ? 1 : c.want.size()));
    for (std::size_t i = 0; i < c.want.size(); ++i) {
      EXPECT_NEAR(got[i], c.want[i], 1e-15 * std::abs(c.want[i]) + 1e-15) << i;
    }
  }
  const float tiny[] = {1e-39F};
  Matrix<float> single;
  EXPECT_FALSE(math::Inverse(single, Matrix<float>::FromRows(1, 1, tiny)));
}

TEST(Inverse, WarnsOfWrongSizes) {
  Matrix<double> unit = Matrix<double>::Identity(3, 3);
  Matrix<double> out;
  test::LogCapture log;
  for (const auto& wrong : {Matrix<double>::Identity(3, 4), Matrix<double>()}) {
    EXPECT_FALSE(math::Inverse(out, wrong));
    EXPECT_EQ(log.TakeOne(), "WARNING: Input or output matrix is not correct size.");
  }
  EXPECT_FALSE(math::Inverse(unit, unit));
  EXPECT_EQ(log.TakeOne(), "WARNING: Input matrix cannot be the same as the output matrix.");
}

TEST(ToMatrix, WritesOneColumnAPoint) {
  Matrix<double> matrix;
  ASSERT_TRUE(math::toMatrix(Vec<3, double>{1, 2, 3}, matrix, true));
  EXPECT_THAT(elementsOf(matrix), ElementsAre(1, 2, 3, 1));
  const etl::Vector<Vec<2, double>> points = {{1, 2}, {3, 4}, {5, 6}};
  ASSERT_TRUE(math::toMatrix(points, matrix, false));
  EXPECT_EQ(matrix.Width(), 3);
  EXPECT_THAT(elementsOf(matrix), ElementsAre(1, 3, 5, 2, 4, 6));
  ASSERT_TRUE(math::toMatrix(points, matrix, true));
  EXPECT_THAT(elementsOf(matrix), ElementsAre(1, 3, 5, 2, 4, 6, 1, 1, 1));
}

TEST(LineFit, AsksForSpreadInZ) {
  for (const double distance : {0.031, 0.032}) {  // of two points, whose determinant is its square
    math::LineFit fit;
    fit.Add(10, 3);
    fit.Add(10 + distance, 4);
    double slope = -7;
    double intercept = slope;
    EXPECT_EQ(fit.Solve(slope, intercept), distance == 0.032);
    EXPECT_EQ(slope == -7 && intercept == slope, distance != 0.032);
  }
}

}  // namespace
}  // namespace cmnalg
