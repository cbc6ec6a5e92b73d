#include "tests/store/StoreTest.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"
#include "tests/fakes/Files.h"

namespace corvane {

FileLockerAction RecordingDelegate::fileLockerActionForApparentlyAbandonedLock(CorvaneFileLocker& locker,
                                                                               const Dictionary& lockInfo,
                                                                               unsigned attempt) {
  EXPECT_TRUE(implementsAction) << "asked although it does not implement the call";
  callers.push_back(&locker);
  attempts.push_back(attempt);
  infos.push_back(lockInfo);
  if (whileAnswering) whileAnswering();
  if (attempts.size() > answers.size()) {
    ADD_FAILURE() << "asked more often than expected, attempt " << attempt;
    return FileLockerAction::giveUp;
  }
  return answers[attempts.size() - 1];
}

void RecordingDelegate::fileLockerLockWasStolen(CorvaneFileLocker& locker, const Dictionary* lockInfo) {
  EXPECT_TRUE(implementsStolen) << "told although it does not implement the call";
  callers.push_back(&locker);
  thefts.push_back(lockInfo ? std::optional(*lockInfo) : std::nullopt);
  if (raised) throw *raised;
}

StoreTest::StoreTest() {
  platform.makeDirectories(guarded);
  platform.process.processes = {{kLivingProcess, ProcessInfo::Liveness::alive},
                                {kDeadProcess, ProcessInfo::Liveness::gone},
                                {kUndeterminedProcess, ProcessInfo::Liveness::undetermined}};
  // The switch is read once in a process, so all tests of the program run with diagnostics on.
  platform.preferences.domains["com.keldra.Corvane"].set("SCLog", "YES");
}

void StoreTest::TearDown() {
  EXPECT_EQ(listing(guarded), leftOnDisk) << "in the guarded directory, at the end";
}

void StoreTest::putLock(const Dictionary& details) const {
  const std::string bytes = writeXmlPropertyList(details);
  putLockBytes(&bytes);
}

void StoreTest::putLockBytes(const std::string* bytes) const {
  std::filesystem::create_directory(lockDirectory);
  if (bytes) writeFile(lockFile, *bytes);
}

std::optional<Dictionary> StoreTest::lockOnDisk() const {
  if (!std::filesystem::exists(lockFile)) return std::nullopt;
  return *readPropertyList(contentsOf(lockFile)).as<Dictionary>();
}

std::string StoreTest::contentsOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  EXPECT_TRUE(file) << path;
  return {std::istreambuf_iterator<char>(file), {}};
}

void StoreTest::writeFile(const std::string& path, const std::string& contents) {
  std::ofstream file(path, std::ios::binary);
  file << contents << std::flush;
  EXPECT_TRUE(file) << path;
}

Date StoreTest::dateOf(const std::string& path) {
  std::error_code error;
  const auto attributes = LinuxFileSystem().attributes(path, error);
  EXPECT_TRUE(attributes) << path << ": " << error.message();
  return attributes ? attributes->modificationDate : Date();
}

void StoreTest::setDate(const std::string& path, double seconds) {
  EXPECT_FALSE(setModificationDate(path, Date{seconds})) << path;
}

std::vector<std::string> StoreTest::listing(const std::string& directory) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(directory)) {
    names.push_back(entry.path().lexically_relative(directory).string() + (entry.is_directory() ? "/" : ""));
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::string StoreTest::raisedBy(const std::function<void()>& call) {
  try {
    call();
  } catch (const PlatformException& exception) {
    return exception.name() + ": " + exception.reason();
  }
  return "";
}

Dictionary detailsOf(const Value& processId, const Value& hostname) {
  return {{kLockFileUsername, "Other User"},
          {kLockFileDate, Date{700'000'000.0}},
          {kLockFileProcessName, "browser"},
          {kLockFileProcessID, processId},
          {kLockFileHostname, hostname}};
}

std::string readByPython(const std::string& path, const std::string& flavour) {
  const std::string command = std::string(CORVANE_PYTHON) +
                              " -c \"import plistlib, sys\n"
                              "with open(sys.argv[1], 'rb') as file:\n"
                              "    print(dict(sorted(plistlib.load(file, fmt=plistlib." +
                              flavour + ").items())))\" '" + path + "' 2>&1";
  FILE* pipe = popen(command.c_str(), "r");
  if (!pipe) return "popen failed";
  std::string output;
  char buffer[4096];
  for (std::size_t count; (count = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;)
    output.append(buffer, count);
  pclose(pipe);  // a failure of Python shows in the text
  return output;
}

}  // namespace corvane
