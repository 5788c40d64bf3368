#include "planex/report/view_sources.h"

// PLANEX_VIEW_... are names of files, from CMake. The assembler takes their bytes as they are.
#define PLANEX_VIEW_FILE(name, path)                                                \
  __asm__(                                                                          \
      ".pushsection .rodata\n"                                                      \
      ".globl planex_view_" #name "\n.hidden planex_view_" #name                    \
      "\n"                                                                          \
      "planex_view_" #name ":\n.incbin \"" path                                     \
      "\"\n"                                                                        \
      ".globl planex_view_" #name "_end\n.hidden planex_view_" #name                \
      "_end\n"                                                                      \
      "planex_view_" #name "_end:\n.popsection\n");                                 \
  extern "C" __attribute__((visibility("hidden"))) const char planex_view_##name[]; \
  extern "C" __attribute__((visibility("hidden"))) const char planex_view_##name##_end[]

PLANEX_VIEW_FILE(body, PLANEX_VIEW_BODY);
PLANEX_VIEW_FILE(style, PLANEX_VIEW_STYLE);
PLANEX_VIEW_FILE(script, PLANEX_VIEW_SCRIPT);
PLANEX_VIEW_FILE(three, PLANEX_VIEW_THREE);
PLANEX_VIEW_FILE(licence, PLANEX_VIEW_LICENCE);

namespace planex::report {
namespace {

std::string_view between(const char* begin, const char* end) {
  return {begin, static_cast<std::size_t>(end - begin)};
}

}  // namespace

const ViewSources& viewSources() {
  static const ViewSources sources = {between(planex_view_body, planex_view_body_end),
                                      between(planex_view_style, planex_view_style_end),
                                      between(planex_view_script, planex_view_script_end),
                                      between(planex_view_three, planex_view_three_end),
                                      between(planex_view_licence, planex_view_licence_end)};
  return sources;
}

}  // namespace planex::report
