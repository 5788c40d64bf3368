#pragma once

#include <planex/io/model_check.h>

#include <string>
#include <vector>

namespace planex::tools {

/// What is wrong with a model document: what `planex check` prints and `planex report` shows.
struct ModelFindings {
  std::vector<io::Fault> faults;
  /// How the C interface reads the document all the same; empty where it reads as others do, or not
  /// at all.
  std::string recovery;

  /// "no faults", or what is to be done.
  std::string sentence() const;
};

/// The form of the document comes first: what its numbers mean is only asked of a sound one.
/// Warnings of the library are lost behind a document that cannot be read.
ModelFindings findingsOf(const std::string& document);

}  // namespace planex::tools
