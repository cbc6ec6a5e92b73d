#pragma once

#include <string>
#include <vector>

namespace corvane {

/// The statements that this process ran on stores since the last call, and that look through a whole table
/// for each row of another: what takes a moment with a hundred rows, and hours with a hundred thousand. Of
/// each its text and its plan. Looks at every statement once in a process. Raises std::logic_error for a
/// statement that the store at `storePath` cannot explain.
std::vector<std::string> takeNestedScans(const std::string& storePath);

}  // namespace corvane
