#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/system/FileSystem.h"

namespace corvane {

enum class FileOperation {
  attributes,
  ownAttributes,
  symbolicLinkDestination,
  makeDirectory,
  remove,
  rename,
  renameWithoutReplacing,
  moveAside,
  hold,
  copy,
  read,
  write,
  writeAtomically,
  writeNewAtomically,
  volume,
};

/// Whether an operation can change what is on disk.
bool isMutating(FileOperation operation);

/// Passes every operation on to another file system; counts them, and fails or interrupts those that a test
/// names. An operation that is failed does not reach the other file system.
class ForwardingFileSystem : public FileSystem {
 public:
  struct Call {
    FileOperation operation;
    int number;  ///< how many calls of this operation there were, this one included
    std::string path;
    std::string target;  ///< `to` of renames and copy
  };

  /// `files` must outlive this object.
  explicit ForwardingFileSystem(FileSystem& files) : _files(files) {}

  /// Fails the `n`-th call from now (1 is the next) of `operation`.
  void fail(FileOperation operation, int n, std::errc code);
  /// Fails every call of `operation` from now on.
  void failAlways(FileOperation operation, std::errc code);
  /// Calls `hook` before the `n`-th call from now of `operation`; what it throws goes to the operation's
  /// caller.
  void before(FileOperation operation, int n, std::function<void()> hook);
  /// Forgets all failures and hooks.
  void heal();

  int count(FileOperation operation) const;
  /// Calls of operations that can change what is on disk.
  int mutationCount() const;

  /// Called before every operation, prior to the named failures; an error code that it answers fails the
  /// operation.
  std::function<std::error_code(const Call&)> intercept;
  std::vector<Call> calls;  ///< every call, failed ones included

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

 private:
  std::error_code enter(FileOperation operation, const std::string& path, const std::string& target = {});

  FileSystem& _files;
  std::map<FileOperation, int> _counts;
  std::map<FileOperation, std::map<int, std::errc>> _failures;
  std::map<FileOperation, std::errc> _alwaysFailing;
  std::map<FileOperation, std::map<int, std::function<void()>>> _hooks;
};

}  // namespace corvane
