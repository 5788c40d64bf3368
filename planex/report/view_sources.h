#pragma once

#include <string_view>

namespace planex::report {

/// The files that pages are made of, as they lie in the program.
struct ViewSources {
  std::string_view body;     ///< HTML
  std::string_view style;    ///< CSS
  std::string_view script;   ///< what the page does
  std::string_view three;    ///< the library three.js
  std::string_view licence;  ///< its licence, plain text
};

const ViewSources& viewSources();

}  // namespace planex::report
