# planex_build_flags: how every target of this project is compiled. Nothing of it reaches callers.
add_library(planex_build_flags INTERFACE)

# The same bits on every machine and at every optimisation level: no contraction of a * b + c to
# a fused operation, and no vectorised sums in Eigen. The two -fno flags let loops vectorise and
# change no result: floating-point exceptions and errno are not read anywhere. -fopenmp-simd heeds
# loops marked `omp simd` and opens no parallel region.
target_compile_options(
  planex_build_flags
  INTERFACE -ffp-contract=off
            -fno-trapping-math
            -fno-math-errno
            -fopenmp-simd
            $<$<CONFIG:Release>:-O2>
            -Wall
            -Wextra
            -Wpedantic
            -Wconversion
            -Wshadow
            $<$<BOOL:${PLANEX_WERROR}>:-Werror>)
target_compile_definitions(planex_build_flags INTERFACE EIGEN_DONT_VECTORIZE EIGEN_MPL2_ONLY)

# A list for -fsanitize, in library and tests alike; the first report ends the program.
set(PLANEX_SANITIZE "" CACHE STRING "Sanitizers to build with, such as address,undefined")
if(PLANEX_SANITIZE)
  target_compile_options(planex_build_flags INTERFACE -fsanitize=${PLANEX_SANITIZE}
                         -fno-sanitize-recover=all -fno-omit-frame-pointer
                         # Instrumented code of the standard library gives false reports.
                         $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>
                         # Instrumented loops are not vectorised; nobody expects them to be.
                         $<$<CXX_COMPILER_ID:Clang>:-Wno-pass-failed>)
  target_link_options(planex_build_flags INTERFACE -fsanitize=${PLANEX_SANITIZE})
endif()

# A fault that slips through ends the process instead of running on: a smashed stack, an overrun
# buffer of known size, a misused container, a changed table of functions.
option(PLANEX_HARDEN "Harden release builds" ON)
if(PLANEX_HARDEN AND NOT PLANEX_SANITIZE)
  set(harden -fstack-protector-strong -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2 -D_GLIBCXX_ASSERTIONS)
  if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64")
    list(APPEND harden -fcf-protection)
  endif()
  target_compile_options(planex_build_flags INTERFACE "$<$<CONFIG:Release>:${harden}>")
  target_link_options(planex_build_flags INTERFACE "$<$<CONFIG:Release>:-Wl,-z,relro,-z,now>")
endif()

# Standards are set per target, not globally, so that a parent project keeps its own.
function(planex_set_target_defaults target)
  target_link_libraries(${target} PRIVATE planex_build_flags)
  set_target_properties(
    ${target}
    PROPERTIES C_STANDARD 99
               C_STANDARD_REQUIRED ON
               C_EXTENSIONS OFF
               CXX_STANDARD 17
               CXX_STANDARD_REQUIRED ON
               CXX_EXTENSIONS OFF
               C_VISIBILITY_PRESET hidden
               CXX_VISIBILITY_PRESET hidden
               VISIBILITY_INLINES_HIDDEN ON)
endfunction()
