#pragma once

namespace corvane::loomerctl {

/// The project's version, such as "2.0.0"; CMake knows it.
extern const char* const kVersion;

}  // namespace corvane::loomerctl
