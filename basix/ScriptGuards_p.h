#pragma once

// Library functions that run in C, out of reach of the instruction hook, replaced by versions
// that charge their cost to the evaluation before they run.

#include <cstddef>

struct lua_State;

namespace tvl::script {

/**
 * log10 of the worst number of steps Lua's matcher may take for `pattern` over a subject of
 * `length` bytes. `scansAll` for gmatch and gsub, which go on after the first match; `plain`
 * for a search without pattern items.
 */
double patternCostLog10(const char* pattern, size_t patternLength, size_t length, bool scansAll,
                        bool plain);

/// Replaces the library functions that can run long in C with guarded versions; the libraries
/// must be open.
void guardLibraries(lua_State* L);

} // namespace tvl::script
