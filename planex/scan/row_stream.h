#pragma once

#include <functional>
#include <memory>

#include "planex/infra/export.h"
#include "planex/io/ordered_work.h"
#include "planex/scan/row_blocks.h"

namespace planex::scan {

/// A block of rows on its way from a file, through a computation, into files. One object serves one
/// block after the other.
class PLANEX_EXPORT RowBlock {
 public:
  virtual ~RowBlock();
  /// Reads rows first ... first + count - 1; on one thread, block by block.
  void readRows(int first, int count);
  /// Computes what becomes of them; on any thread, beside other blocks.
  virtual void process() = 0;

  /// @{
  /// The rows read last.
  int first() const { return first_; }
  int count() const { return count_; }
  /// @}

 protected:
  RowBlock() = default;
  /// @cond
  RowBlock(const RowBlock&) = default;
  RowBlock& operator=(const RowBlock&) = default;
  virtual void read() = 0;
  /// For read(): fewer rows came than were asked for.
  void shrink(int count) { count_ = count; }
  /// @endcond

 private:
  int first_ = 0, count_ = 0;
};

/// Streams rows through blocks: reading, computing and writing go on at the same time, with as many
/// blocks in memory as keep the workers of the pool busy. What comes out does not depend on the
/// number of workers. A block that reads no rows ends the stream: where nobody knows how many there
/// will be, the rows end at the largest int.
///
/// @param makeBlock makes the objects that blocks pass through
/// @param write     takes the blocks in their order, on the calling thread
/// An exception in any of them ends the stream and is thrown here: that of the earliest block.
PLANEX_EXPORT void streamRows(io::WorkerPool& pool, const RowBlocks& rows,
                              const std::function<std::unique_ptr<RowBlock>()>& makeBlock,
                              const std::function<void(const RowBlock& block)>& write);

/// The same for blocks of one class.
template <typename Block, typename Make, typename Write>
void streamRows(io::WorkerPool& pool, const RowBlocks& rows, const Make& makeBlock,
                const Write& write) {
  streamRows(pool, rows, makeBlock,
             [&write](const RowBlock& block) { write(static_cast<const Block&>(block)); });
}

}  // namespace planex::scan
