#pragma once

#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/Message.h"
#include "CorvaneSyncClient/platform/pelto/place/Place.h"
#include "CorvaneSyncClient/platform/system/Deadline.h"
#include "CorvaneSyncClient/platform/system/files/FileDescriptor.h"

namespace corvane::pelto {

/// A directory, such as a mounted share or disk: folders are directories, objects are files. What is written
/// has reached the disk when the call is back, as far as the file system says so. New objects come by
/// link(2), or where there are no links by renameat2(2) without replacing; a file system that has neither is
/// refused.
///
/// The deadline is looked at between files: a system call on a share whose server is gone takes as long as
/// the system lets it.
class DirectoryPlace : public Place {
 public:
  /// The directory has to be there: one that is missing may be a share that is not mounted.
  DirectoryPlace(std::string directory, Deadline deadline);

  Made putNew(const std::string& name, std::string_view bytes) override;
  void put(const std::vector<NamedBytes>& objects) override;
  std::vector<GetAnswer> get(const std::vector<GetRequest>& requests) override;
  std::vector<PlaceObject> list(const std::string& folder) override;
  void remove(const std::vector<std::string>& names) override;
  Message description() const override;
  std::string software() const override;
  std::vector<std::string> caveats() const override;

 private:
  std::string pathOf(std::string_view name) const;
  FileDescriptor folder(std::string_view name, const Message& what) const;
  GetAnswer getOne(const GetRequest& request) const;
  void removeLeftovers(const FileDescriptor& folder, const std::vector<std::string>& names) const;
  void checkTime(const Message& what) const;
  [[noreturn]] void fail(const Message& what, const Message& cause, const Message& remedy) const;
  [[noreturn]] void fail(const Message& what, std::error_code error) const;

  std::string _directory;
  Deadline _deadline;
};

}  // namespace corvane::pelto
