#include "planex/scan/row_stream.h"

#include <algorithm>
#include <cstddef>
#include <exception>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "planex/io/failure.h"

namespace planex::scan {
namespace {

using Blocks = std::vector<std::unique_ptr<RowBlock>>;

/// The thread that reads. It ends when all was read, when reading fails, and when nobody wants
/// more.
class ReaderThread {
 public:
  ReaderThread(io::OrderedWork& work, const RowBlocks& rows, const Blocks& blocks) : work_(work) {
    try {
      thread_ = std::thread([this, rows, &blocks] { run(rows, blocks); });
    } catch (const std::system_error& error) {
      throw io::Failure(std::string("no thread can be started (") + error.what() +
                        "); use fewer with --threads");
    }
  }
  ~ReaderThread() {
    work_.cancel();
    thread_.join();
  }
  ReaderThread(const ReaderThread&) = delete;
  ReaderThread& operator=(const ReaderThread&) = delete;

 private:
  void run(const RowBlocks& rows, const Blocks& blocks) {
    for (int row = rows.first; row < rows.end;) {
      const int index = work_.begin();
      if (index < 0) return;
      RowBlock& block = *blocks[static_cast<std::size_t>(index)];
      try {
        block.readRows(row, std::min(rows.block, rows.end - row));
      } catch (...) {
        work_.fail(std::current_exception());
        return;
      }
      if (block.count() == 0) break;
      row += block.count();
      work_.submit();
    }
    work_.end();
  }

  io::OrderedWork& work_;
  std::thread thread_;
};

}  // namespace

RowBlock::~RowBlock() = default;

void RowBlock::readRows(int first, int count) {
  first_ = first;
  count_ = count;
  read();
}

void streamRows(io::WorkerPool& pool, const RowBlocks& rows,
                const std::function<std::unique_ptr<RowBlock>()>& makeBlock,
                const std::function<void(const RowBlock& block)>& write) {
  const int most = (rows.count() - 1) / rows.block + 1;
  Blocks blocks(static_cast<std::size_t>(std::min(most, io::OrderedWork::slotsFor(&pool))));
  for (auto& block : blocks) block = makeBlock();
  io::OrderedWork work(&pool, static_cast<int>(blocks.size()), [&blocks](int index) {
    blocks[static_cast<std::size_t>(index)]->process();
  });
  const ReaderThread reader(work, rows, blocks);
  for (int index = 0; (index = work.take()) >= 0; work.release()) {
    write(*blocks[static_cast<std::size_t>(index)]);
  }
}

}  // namespace planex::scan
