#include "tools/cli/batch.h"

#include <planex/io/failure.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <new>
#include <system_error>
#include <thread>

namespace planex::tools {
namespace {

/// @return what went wrong; empty for nothing
std::string attempt(const std::function<void(std::size_t i)>& body, std::size_t i) {
  try {
    body(i);
    return {};
  } catch (const std::bad_alloc&) {
    return "the memory is used up; process fewer rows at a time with --block";
  } catch (const std::exception& error) {
    return error.what();
  }
}

}  // namespace

void forEachOf(const std::vector<std::string>& names, int jobs,
               const std::function<void(std::size_t i)>& body) {
  std::atomic<std::size_t> next{0};
  std::vector<char> failed(names.size());
  const auto work = [&] {
    for (std::size_t i = 0; (i = next++) < names.size();) {
      const std::string complaint = attempt(body, i);
      failed[i] = complaint.empty() ? 0 : 1;
      if (failed[i] == 0) continue;
      std::fprintf(stderr, "planex: %s\n", io::inOneLine(complaint).c_str());
    }
  };
  std::vector<std::thread> threads;
  const auto most = std::min(static_cast<std::size_t>(jobs), names.size());
  try {
    while (threads.size() + 1 < most) threads.emplace_back(work);
  } catch (const std::system_error&) {  // fewer threads do it, too
  }
  work();
  for (std::thread& thread : threads) thread.join();

  const auto count = std::count(failed.begin(), failed.end(), 1);
  if (count == 0) return;
  std::string list;
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (failed[i] != 0) list += (list.empty() ? "" : ", ") + names[i];
  }
  throw io::Failure(std::to_string(count) + " of " + std::to_string(names.size()) +
                    " range images failed with status 1, see above: " + list);
}

std::string withStemOf(std::string text, const std::string& file) {
  const std::string stem = std::filesystem::path(file).stem().string();
  for (std::size_t place = 0; (place = text.find("{}", place)) != std::string::npos;) {
    text.replace(place, 2, stem);
    place += stem.size();
  }
  return text;
}

}  // namespace planex::tools
