#pragma once

#include <string>
#include <string_view>

namespace corvane::loomerctl {

/// The style sheet and the script of a page; the files of these names in this folder.
extern const std::string_view kReportStyle;
extern const std::string_view kReportScript;

/// A page up to the start of its body. Its policy lets a browser apply that style sheet, run that script, and
/// do nothing else: no other one, no connection, no frame, no form.
std::string pageBegin(std::string_view title);
/// The end of the body, with the script, and of the page.
std::string pageEnd();

}  // namespace corvane::loomerctl
