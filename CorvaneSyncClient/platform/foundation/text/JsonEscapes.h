#pragma once

#include <cstddef>
#include <string>

namespace corvane {

/// Looks at the escape of a JSON text (RFC 8259) whose backslash stands at `at`. Half of a surrogate pair
/// that stands alone, which strict readers refuse, is replaced by U+FFFD. Answers how many bytes to go on by;
/// never beyond the text's end by more than one.
std::size_t repairJsonEscape(std::string& text, std::size_t at);

}  // namespace corvane
