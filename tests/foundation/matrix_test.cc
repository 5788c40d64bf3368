#include "planex/foundation/matrix.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "planex/infra/json_deserializer.h"
#include "planex/infra/json_serializer.h"
#include "tests/foundation/counting_allocator.h"
#include "tests/support/warning_capture.h"

namespace cmnalg {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kNegative[] =
    "Cannot create matrix: Number of rows and columns must be non-negative.";
constexpr char kPitch[] = "Cannot create matrix: Line pitch is set smaller than the matrix width.";
constexpr char kMemory[] = "Cannot create matrix: Memory allocation failed.";

struct ShapeCase {
  const char* name;
  int rows, cols, pitch;
  const char* warning;  ///< null: created
};
const ShapeCase kShapes[] = {
    {"PitchFromWidth", 2, 3, 0, nullptr},
    {"PitchAboveWidth", 2, 3, 5, nullptr},
    {"NegativeCols", 3, -1, 0, kNegative},
    {"NegativeBeforePitch", -1, 3, 2, kNegative},
    {"SmallPitch", 3, 3, 2, kPitch},
    {"ProductBeyondInt", 65536, 32768, 0, kMemory},
    {"PitchProductBeyondInt", 65536, 1, 32768, kMemory},
    {"LargestSizes", INT_MAX, INT_MAX, 0, kMemory},
};

TEST(Matrix, IsCreatedOrRefusedWithOneWarning) {
  for (const ShapeCase& c : kShapes) {
    SCOPED_TRACE(c.name);
    CountingAllocator allocator;
    Matrix<double> matrix = Matrix<double>::Identity(2, 2);
    const WarningCapture log;
    EXPECT_EQ(matrix.Create(c.rows, c.cols, c.pitch, allocator), c.warning == nullptr);
    if (c.warning == nullptr) {
      EXPECT_THAT(log.Messages(), IsEmpty());
      EXPECT_EQ(matrix.Height(), c.rows);
      EXPECT_EQ(matrix.Width(), c.cols);
      EXPECT_EQ(matrix.Pitch(), c.pitch == 0 ? c.cols : c.pitch);
    } else {
      EXPECT_THAT(log.Messages(), ElementsAre(c.warning));
      EXPECT_THAT(log.Loggers(), ElementsAre("Matrix"));
      EXPECT_EQ(matrix[1][1], 1) << "a refused creation changes nothing";
      EXPECT_EQ(allocator.requests, 0);
    }
  }
}

TEST(Matrix, ReusesOwnStorageOfTheSameCount) {
  CountingAllocator allocator;
  {
    Matrix<float> matrix;
    ASSERT_TRUE(matrix.Create(2, 6, 0, allocator));
    const float* storage = matrix.Data();
    matrix[0][5] = 7;
    ASSERT_TRUE(matrix.Create(3, 2, 4, allocator));
    EXPECT_EQ(matrix.Data(), storage);
    EXPECT_EQ(matrix.Data()[5], 7);
    EXPECT_EQ(allocator.requests, 1);
    ASSERT_TRUE(matrix.Create(3, 2, 0, allocator));
    EXPECT_EQ(allocator.requests, 2);
    EXPECT_EQ(allocator.live, 1);
  }
  EXPECT_EQ(allocator.live, 0);
}

TEST(Matrix, KeepsItsElementsWhenMemoryIsShort) {
  CountingAllocator allocator;
  Matrix<double> matrix;
  ASSERT_TRUE(matrix.Create(1, 1, 0, allocator));
  matrix[0][0] = 4;
  allocator.fails = true;
  const WarningCapture log;
  EXPECT_FALSE(matrix.Create(2, 2, 0, allocator));
  EXPECT_THAT(log.Messages(), ElementsAre(kMemory));
  Matrix<double> target = Matrix<double>::Identity(3, 3);
  EXPECT_THROW(target = matrix, std::bad_alloc);
  EXPECT_EQ(target.Width(), 3);
  EXPECT_EQ(matrix[0][0], 4);
}

TEST(Matrix, ViewsExternalElementsWithoutFreeingThem) {
  double elements[] = {1, 2, -1, 3, 4, -1};
  Matrix<double> view;
  ASSERT_TRUE(view.CreateExternal(elements, 2, 2, 3));
  Matrix<double> copy = view;
  EXPECT_EQ(copy.Pitch(), 2) << "copies have no padding";
  view[1][0] = 9;
  EXPECT_EQ(elements[3], 9);
  EXPECT_EQ(copy[1][0], 3) << "copies are deep";
  ASSERT_TRUE(view.Create(2, 2, 3));
  EXPECT_NE(view.Data(), elements) << "external storage is never reused";
  const WarningCapture log;
  EXPECT_FALSE(view.CreateExternal(nullptr, 1, 1));
  EXPECT_THAT(log.Messages(), ElementsAre(kMemory));
}

TEST(Matrix, SelfAssignmentKeepsAndMovingEmpties) {
  Matrix<double> matrix = Matrix<double>::Identity(2, 3);
  Matrix<double>& same = matrix;
  matrix = same;
  matrix = std::move(same);
  EXPECT_EQ(matrix[1][1], 1);
  const Matrix<double> target = std::move(matrix);
  EXPECT_EQ(target.Width(), 3);
  EXPECT_TRUE(matrix.IsEmpty());  // NOLINT(*-use-after-move,*Move): the state promised
}

TEST(Matrix, MultipliesInOrder) {
  const double a[] = {1, 2, 3, 4, 5, 6};
  const double b[] = {1, 0, 0, 1, 10, 100};
  const auto left = Matrix<double>::FromRows(2, 3, a);
  const auto right = Matrix<double>::FromRows(3, 2, b);
  const Matrix<double> product = left * right;
  EXPECT_THAT(std::vector<double>(product.Data(), product.Data() + 4),
              ElementsAre(31, 302, 64, 605));
  EXPECT_TRUE((left * left).IsEmpty());
}

// ------------------------------------------------------------------------------- documents

struct Holder final : etl::IVisitable {
  Matrix<double> matrix = Matrix<double>::Identity(2, 2);
  const char* GetClassName() const override { return "Holder"; }
  void Visit(etl::IVisitor& visitor) override { matrix.Visit(visitor, "M"); }
  std::unique_ptr<etl::IVisitable> CloneVisitable() const override { return nullptr; }
};

std::string holding(const std::string& rows) {
  return R"({"class":"Holder","data":{"M":)" + rows + "}}";
}

TEST(MatrixDocument, WritesRowsWithoutPadding) {
  Holder holder;
  double elements[] = {1, 0.1, -1, 3, 4, -1};
  ASSERT_TRUE(holder.matrix.CreateExternal(elements, 2, 2, 3));
  etl::MemoryOutStream stream;
  ASSERT_TRUE(base::JsonVisitingSerializer(stream, false).Serialize(holder));
  EXPECT_EQ(stream.GetText(), holding("[[1,0.10000000000000001],[3,4]]"));
}

constexpr char kRagged[] = "Serialized array size mismatch while de-serializing class 'Holder'";

struct RowsCase {
  const char* name;
  const char* text;
  int rows, cols;     ///< of the matrix afterwards; 2 x 2 before
  const char* error;  ///< null: read
};
const RowsCase kRows[] = {
    {"ThreeByOne", "[[1],[2],[3]]", 3, 1, nullptr},
    {"EmptyOuterLeavesIt", "[]", 2, 2, nullptr},
    {"EmptyRows", "[[],[]]", 2, 0, nullptr},
    {"ShorterRow", "[[1,2,3],[4,5]]", 2, 2, kRagged},
    {"LongerRow", "[[1],[2,3]]", 2, 2, kRagged},
    {"RowAfterEmptyRow", "[[],[1]]", 2, 2, kRagged},
    {"NoArrayOfArrays", "[1,2]", 2, 2,
     "Could not find array beginning bracket for member 'M' of class 'Holder'"},
};

TEST(MatrixDocument, AreReadOrRefused) {
  for (const RowsCase& c : kRows) {
    SCOPED_TRACE(c.name);
    Holder holder;
    base::JsonVisitingDeSerializer document(holding(c.text).c_str(), false);
    document.DeserializeIntoExistingObject(holder);
    EXPECT_EQ(document.GetErrorDescription(), c.error == nullptr ? "" : c.error);
    EXPECT_EQ(holder.matrix.Height(), c.rows);
    EXPECT_EQ(holder.matrix.Width(), c.cols);
  }
}

TEST(MatrixDocument, AsksForNoMoreThanTheTextHolds) {
  // Announces 40000 x 40000 elements, 12.8 GB, with 80000 in the text.
  std::string rows = "[[0";
  for (int i = 1; i < 40000; ++i) rows += ",0";
  rows += "]";
  for (int i = 1; i < 40000; ++i) rows += ",[]";
  CountingAllocator allocator;
  Holder holder;
  ASSERT_TRUE(holder.matrix.Create(1, 1, 0, allocator));
  const std::string text = holding(rows + "]");
  base::JsonVisitingDeSerializer document(text.c_str(), false);
  EXPECT_FALSE(document.DeserializeIntoExistingObject(holder));
  EXPECT_EQ(document.GetErrorDescription(), kRagged);
  EXPECT_EQ(allocator.live, 1);
}

}  // namespace
}  // namespace cmnalg
