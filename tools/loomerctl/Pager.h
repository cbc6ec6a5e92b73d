#pragma once

#include <sys/types.h>

#include "tools/loomerctl/Output.h"

namespace corvane::loomerctl {

/// Has the user's pager ($PAGER, a command of the shell) show what is written to an output that is a
/// terminal, from here on and until this object goes, which waits for the user to leave the pager. Without a
/// terminal or a pager it does nothing; where the pager cannot be started, neither.
class Pager {
 public:
  explicit Pager(Output& out);
  ~Pager();
  Pager(const Pager&) = delete;
  Pager& operator=(const Pager&) = delete;

 private:
  void start(const char* command);

  Output& _out;
  int _terminal = -1;  ///< the output's own descriptor while the pager runs
  pid_t _process = -1;
};

}  // namespace corvane::loomerctl
