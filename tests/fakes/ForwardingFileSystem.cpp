#include "tests/fakes/ForwardingFileSystem.h"

#include <algorithm>

namespace corvane {

namespace {

// In the system category, as the real file system's errors are.
std::error_code systemError(std::errc code) { return {static_cast<int>(code), std::system_category()}; }

}  // namespace

bool isMutating(FileOperation operation) {
  switch (operation) {
    case FileOperation::makeDirectory:
    case FileOperation::remove:
    case FileOperation::rename:
    case FileOperation::renameWithoutReplacing:
    case FileOperation::moveAside:
    case FileOperation::copy:
    case FileOperation::write:
    case FileOperation::writeAtomically:
    case FileOperation::writeNewAtomically:
      return true;
    default:
      return false;
  }
}

void ForwardingFileSystem::fail(FileOperation operation, int n, std::errc code) {
  _failures[operation][count(operation) + n] = code;
}

void ForwardingFileSystem::failAlways(FileOperation operation, std::errc code) {
  _alwaysFailing[operation] = code;
}

void ForwardingFileSystem::before(FileOperation operation, int n, std::function<void()> hook) {
  _hooks[operation][count(operation) + n] = std::move(hook);
}

void ForwardingFileSystem::heal() {
  _failures.clear();
  _alwaysFailing.clear();
  _hooks.clear();
  intercept = nullptr;
}

int ForwardingFileSystem::count(FileOperation operation) const {
  const auto found = _counts.find(operation);
  return found == _counts.end() ? 0 : found->second;
}

int ForwardingFileSystem::mutationCount() const {
  return static_cast<int>(
      std::count_if(calls.begin(), calls.end(), [](const Call& call) { return isMutating(call.operation); }));
}

std::error_code ForwardingFileSystem::enter(FileOperation operation, const std::string& path,
                                            const std::string& target) {
  const Call call{operation, ++_counts[operation], path, target};
  calls.push_back(call);
  if (intercept) {
    if (const std::error_code error = intercept(call)) return error;
  }
  if (const auto hook = _hooks[operation].find(call.number); hook != _hooks[operation].end()) {
    const std::function<void()> action = hook->second;  // it may name further hooks, or heal
    action();
  }
  if (const auto failure = _failures[operation].find(call.number); failure != _failures[operation].end()) {
    return systemError(failure->second);
  }
  if (const auto failure = _alwaysFailing.find(operation); failure != _alwaysFailing.end()) {
    return systemError(failure->second);
  }
  return {};
}

std::optional<FileAttributes> ForwardingFileSystem::attributes(const std::string& path,
                                                               std::error_code& error) {
  error = enter(FileOperation::attributes, path);
  return error ? std::nullopt : _files.attributes(path, error);
}

std::optional<FileAttributes> ForwardingFileSystem::ownAttributes(const std::string& path,
                                                                  std::error_code& error) {
  error = enter(FileOperation::ownAttributes, path);
  return error ? std::nullopt : _files.ownAttributes(path, error);
}

std::optional<std::string> ForwardingFileSystem::symbolicLinkDestination(const std::string& path) {
  if (enter(FileOperation::symbolicLinkDestination, path)) return std::nullopt;
  return _files.symbolicLinkDestination(path);
}

std::error_code ForwardingFileSystem::makeDirectory(const std::string& path, unsigned mode) {
  if (const std::error_code error = enter(FileOperation::makeDirectory, path)) return error;
  return _files.makeDirectory(path, mode);
}

std::error_code ForwardingFileSystem::remove(const std::string& path) {
  if (const std::error_code error = enter(FileOperation::remove, path)) return error;
  return _files.remove(path);
}

std::error_code ForwardingFileSystem::rename(const std::string& from, const std::string& to) {
  if (const std::error_code error = enter(FileOperation::rename, from, to)) return error;
  return _files.rename(from, to);
}

std::error_code ForwardingFileSystem::renameWithoutReplacing(const std::string& from, const std::string& to) {
  if (const std::error_code error = enter(FileOperation::renameWithoutReplacing, from, to)) return error;
  return _files.renameWithoutReplacing(from, to);
}

std::error_code ForwardingFileSystem::moveAside(const std::string& path, std::string& aside) {
  if (const std::error_code error = enter(FileOperation::moveAside, path)) return error;
  return _files.moveAside(path, aside);
}

std::unique_ptr<FileSystem::Hold> ForwardingFileSystem::hold(const std::string& path,
                                                             std::error_code& error) {
  error = enter(FileOperation::hold, path);
  return error ? nullptr : _files.hold(path, error);
}

std::error_code ForwardingFileSystem::copy(const std::string& from, const std::string& to) {
  if (const std::error_code error = enter(FileOperation::copy, from, to)) return error;
  return _files.copy(from, to);
}

std::error_code ForwardingFileSystem::read(const std::string& path, std::string& contents) {
  if (const std::error_code error = enter(FileOperation::read, path)) return error;
  return _files.read(path, contents);
}

std::error_code ForwardingFileSystem::write(const std::string& path, std::string_view contents) {
  if (const std::error_code error = enter(FileOperation::write, path)) return error;
  return _files.write(path, contents);
}

std::error_code ForwardingFileSystem::writeAtomically(const std::string& path, const Contents& contents) {
  if (const std::error_code error = enter(FileOperation::writeAtomically, path)) return error;
  return _files.writeAtomically(path, contents);
}

std::error_code ForwardingFileSystem::writeNewAtomically(const std::string& path, std::string_view contents) {
  if (const std::error_code error = enter(FileOperation::writeNewAtomically, path)) return error;
  return _files.writeNewAtomically(path, contents);
}

std::optional<FileSystem::Volume> ForwardingFileSystem::volume(const std::string& path) {
  if (enter(FileOperation::volume, path)) return std::nullopt;
  return _files.volume(path);
}

}  // namespace corvane
