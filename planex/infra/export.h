#pragma once

/// Marks a function or class as part of the library's interface.
///
/// All code is compiled with hidden visibility, so that what is not marked stays out of the
/// dynamic symbol table. Valid C and C++.
#define PLANEX_EXPORT __attribute__((visibility("default")))

/// Marks a private member template of an exported class: whether the compiler emits or inlines one
/// of its instances must not show in the dynamic symbol table.
#define PLANEX_HIDDEN __attribute__((visibility("hidden")))
