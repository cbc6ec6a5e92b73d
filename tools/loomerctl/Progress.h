#pragma once

#include <cstddef>
#include <string>

#include "tools/loomerctl/Output.h"

namespace corvane::loomerctl {

/// One line that says what is being done for as long as this object lives, where standard error is a
/// terminal; nothing elsewhere. Gone before anything else is written there, if the object is.
class Progress {
 public:
  /// `err` outlives this object.
  explicit Progress(Output& err) : _err(err) {}
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  /// From now on that is being done.
  void say(const std::string& text);

 private:
  Output& _err;
  bool _isShown = false;
};

}  // namespace corvane::loomerctl
