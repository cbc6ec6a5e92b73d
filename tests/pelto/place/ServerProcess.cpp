#include "tests/pelto/place/ServerProcess.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <pwd.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace corvane {

namespace {

constexpr std::chrono::milliseconds kPause{20};
constexpr std::chrono::seconds kPatience{60};

const passwd* otherUser() {
  if (::geteuid() != 0) return nullptr;
  if (const passwd* user = ::getpwnam("nobody")) return user;
  throw std::runtime_error("there is no user to run a server as");
}

void giveTo(const passwd* user, const std::string& path) {
  if (user && ::chown(path.c_str(), user->pw_uid, user->pw_gid) != 0)
    throw std::runtime_error("can't give away " + path);
}

bool listens(int port) {
  const int probe = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const bool is = ::connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  ::close(probe);
  return is;
}

// In the new process.
void becomeOrEnd(const std::string& log, const passwd* user) {
  const int file = ::open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
  const int nothing = ::open("/dev/null", O_RDONLY);
  ::setsid();  // an interrupt from the terminal goes to the test alone
  // Another user's process forgets what it gets when the test is killed.
  const bool isReady = file >= 0 && nothing >= 0 && ::dup2(nothing, 0) == 0 && ::dup2(file, 1) == 1 &&
                       ::dup2(file, 2) == 2 &&
                       (!user || (::setgid(user->pw_gid) == 0 && ::setuid(user->pw_uid) == 0)) &&
                       ::prctl(PR_SET_PDEATHSIG, SIGTERM) == 0;
  if (!isReady) ::_exit(127);
}

}  // namespace

ServerProcess::ServerProcess() {
  std::filesystem::create_directory(_directory / "data");
  giveTo(otherUser(), _directory.path());
  giveTo(otherUser(), _directory / "data");
}

ServerProcess::~ServerProcess() { stop(); }

void ServerProcess::write(const std::string& name, const std::string& contents) const {
  std::ofstream(_directory / name) << contents;
  giveTo(otherUser(), _directory / name);
}

bool ServerProcess::start(const std::vector<std::string>& arguments, int port) {
  _process = std::make_unique<ChildProcess>(
      arguments, [logPath = _directory / "log", user = otherUser()] { becomeOrEnd(logPath, user); });
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (!listens(port)) {
    if (_process->hasEnded()) {
      _process.reset();
      return false;
    }
    if (std::chrono::steady_clock::now() > deadline)
      throw std::runtime_error(arguments[0] + " does not answer: " + log());
    std::this_thread::sleep_for(kPause);
  }
  return true;
}

void ServerProcess::stop() {
  if (!_process) return;
  _process->signal(SIGTERM);
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (!_process->hasEnded()) {
    if (std::chrono::steady_clock::now() > deadline) ::kill(-_process->number(), SIGKILL);
    std::this_thread::sleep_for(kPause);
  }
  _process.reset();
}

std::string ServerProcess::log() const {
  std::ostringstream text;
  text << std::ifstream(_directory / "log").rdbuf();
  return text.str();
}

}  // namespace corvane
