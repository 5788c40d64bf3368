#pragma once

#ifdef __cplusplus
extern "C" {
#endif

/// Runs the whole chain from a C99 translation unit, through all sixteen functions.
/// @return null, or the name of the first function that did not do its work
const char* callEveryFunctionFromC(const char* document, const char* path);

#ifdef __cplusplus
}
#endif
