#pragma once

#include "CorvaneSyncClient/platform/system/FileSystem.h"

namespace corvane {

/// The file system as the kernel offers it. Holds nothing; any number of objects may exist.
class LinuxFileSystem : public FileSystem {
 public:
  std::optional<FileAttributes> attributes(const std::string& path, std::error_code& error) override;
  std::optional<FileAttributes> ownAttributes(const std::string& path, std::error_code& error) override;
  std::optional<std::string> symbolicLinkDestination(const std::string& path) override;
  std::error_code makeDirectory(const std::string& path, unsigned mode) override;
  std::error_code remove(const std::string& path) override;
  std::error_code rename(const std::string& from, const std::string& to) override;
  std::error_code renameWithoutReplacing(const std::string& from, const std::string& to) override;
  std::error_code moveAside(const std::string& path, std::string& aside) override;
  std::unique_ptr<Hold> hold(const std::string& path, std::error_code& error) override;
  std::error_code copy(const std::string& from, const std::string& to) override;
  std::error_code read(const std::string& path, std::string& contents) override;
  std::error_code write(const std::string& path, std::string_view contents) override;
  using FileSystem::writeAtomically;
  std::error_code writeAtomically(const std::string& path, const Contents& contents) override;
  std::error_code writeNewAtomically(const std::string& path, std::string_view contents) override;
  std::optional<Volume> volume(const std::string& path) override;
};

}  // namespace corvane
