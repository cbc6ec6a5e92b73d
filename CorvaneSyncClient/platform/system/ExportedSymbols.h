#pragma once

#include <functional>
#include <string_view>

namespace corvane {

/// Whether a shared library opened with dlopen exports a symbol of its own for which `matches` says yes.
/// Reads the library's dynamic symbol table in memory; false for a library without a GNU hash table.
bool exportsSymbol(void* library, const std::function<bool(std::string_view)>& matches);

}  // namespace corvane
