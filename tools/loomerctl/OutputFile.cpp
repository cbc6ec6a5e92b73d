#include "tools/loomerctl/OutputFile.h"

#include <system_error>

#include "CorvaneSyncClient/platform/system/Messages.h"
#include "CorvaneSyncClient/platform/system/Platform.h"
#include "tools/loomerctl/Invocation.h"

namespace corvane::loomerctl {

void writeOutputFile(const std::string& path, std::string_view bytes) {
  FileSystem& files = Platform::current().files;
  const auto present = files.attributesIfKnown(path);
  const bool isStream = present && present->kind == FileKind::other;
  const std::error_code error = isStream ? files.write(path, bytes) : files.writeAtomically(path, bytes);
  if (error) throw Refused{tr("Cannot write %1: %2.", path, error.message())};
}

}  // namespace corvane::loomerctl
