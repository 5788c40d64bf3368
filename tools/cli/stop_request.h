#pragma once

namespace planex::tools {

/// While it lives, Ctrl-C and SIGTERM ask for an end in good order once. The second signal does
/// what it did before: it ends the program, without the files that are not complete.
class StopRequest {
 public:
  StopRequest();
  ~StopRequest();
  StopRequest(const StopRequest&) = delete;
  StopRequest& operator=(const StopRequest&) = delete;

  /// Whether one of them came; on any thread.
  static bool isMade();
};

}  // namespace planex::tools
