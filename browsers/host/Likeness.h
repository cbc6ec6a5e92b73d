#pragma once

#include <string>
#include <string_view>

namespace corvane::browsers {

// Whether a title or an address in the browser may be the form that it gave to one of ours: equal texts for
// all forms of one value that browsers are known to make.

/// White space and control characters are one, and what browsers cut off is left out.
std::string likenessOfTitle(std::string_view title);
/// Letters of scheme and host in lower case, the host as IDNA has it, escapes resolved, without a slash at
/// the end.
std::string likenessOfAddress(std::string_view address);

}  // namespace corvane::browsers
