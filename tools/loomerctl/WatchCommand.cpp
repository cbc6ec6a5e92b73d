// `watch`.

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <initializer_list>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <utility>

#include "CorvaneSyncClient/platform/system/Messages.h"
#include "CorvaneSyncClient/platform/system/Platform.h"
#include "CorvaneSyncClient/platform/system/files/FileDescriptor.h"
#include "CorvaneSyncClient/session/ClientIdentity.h"
#include "tools/loomerctl/ChangeWatch.h"
#include "tools/loomerctl/CommandList.h"
#include "tools/loomerctl/LiveScreen.h"
#include "tools/loomerctl/StatusText.h"
#include "tools/loomerctl/SyncState.h"
#include "tools/loomerctl/Text.h"
#include "tools/loomerctl/UserStore.h"

namespace corvane::loomerctl {

namespace {

using namespace loomer;

// A session writes several times within that.
constexpr int kSettlingMilliseconds = 200;
// A run ends without a word when it found nothing to do.
constexpr int kRunningMilliseconds = 1000;
// Locks and clocks get old without an event.
constexpr int kIdleMilliseconds = 60'000;

// The signals that end the command, stop it, or tell of another size of the terminal come as something to
// read, for as long as this object lives, so that none of them meets a terminal half drawn.
class Signals {
 public:
  Signals() {
    sigemptyset(&_set);
    for (const int each : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP, SIGWINCH}) sigaddset(&_set, each);
    sigprocmask(SIG_BLOCK, &_set, &_before);
    _events = FileDescriptor(signalfd(-1, &_set, SFD_NONBLOCK | SFD_CLOEXEC));
    if (!_events)
      throw PlatformException("LoomerctlWatchFailed",
                              tr("cannot wait for signals: %1", lastSystemError().message()));
  }
  ~Signals() { sigprocmask(SIG_SETMASK, &_before, nullptr); }
  Signals(const Signals&) = delete;
  Signals& operator=(const Signals&) = delete;

  int descriptor() const { return _events.number(); }
  // Which one came; nothing for none.
  std::optional<int> take() {
    signalfd_siginfo signal;
    const ssize_t count = retryingInterrupted([&] { return read(_events.number(), &signal, sizeof signal); });
    if (count != static_cast<ssize_t>(sizeof signal)) return std::nullopt;
    return static_cast<int>(signal.ssi_signo);
  }

 private:
  sigset_t _set;
  sigset_t _before;
  FileDescriptor _events;
};

// What is shown of each state.
class Display {
 public:
  virtual ~Display() = default;
  virtual void show(const SyncState& state) = 0;
  // The store cannot be read just now.
  virtual void showProblem(const std::string& problem) = 0;
  // Gives the terminal back to the shell until the user goes on.
  virtual void pause() { raise(SIGSTOP); }
};

// The status on the whole terminal.
class ScreenDisplay : public Display {
 public:
  explicit ScreenDisplay(Output& out) : _out(out), _screen(std::make_unique<LiveScreen>(out)) {}

  void show(const SyncState& state) override {
    const auto size = terminalSize(_out.descriptor()).value_or(TerminalSize());
    Output text = Output::toMemory(_out, size);
    printStatus(text, state);
    _screen->show(text.taken(), size.rows);
  }
  void showProblem(const std::string& problem) override {
    const auto size = terminalSize(_out.descriptor()).value_or(TerminalSize());
    _screen->show(wrapped(printable(problem), size.columns), size.rows);
  }
  void pause() override {
    _screen.reset();
    Display::pause();
    _screen = std::make_unique<LiveScreen>(_out);
  }

 private:
  Output& _out;
  std::unique_ptr<LiveScreen> _screen;
};

// A line for each run that ended, and for each concern that comes or goes.
class LineDisplay : public Display {
 public:
  explicit LineDisplay(Output& out) : _out(out) {}

  void show(const SyncState& state) override {
    _problem.clear();
    for (const ClientView& each : state.clients) showClient(each);
    std::set<std::string> concerns;
    for (const Concern& each : state.concerns) concerns.insert(each.text);
    for (const std::string& each : concerns)
      if (!_concerns.contains(each)) line("! " + each);
    for (const std::string& each : _concerns)
      if (!concerns.contains(each)) line(tr("Over: %1", each));
    _concerns = std::move(concerns);
    _out.flush();
  }
  void showProblem(const std::string& problem) override {
    if (std::exchange(_problem, problem) != problem) line("! " + printable(problem));
    _out.flush();
  }

 private:
  void showClient(const ClientView& view) {
    const std::int64_t runs = view.state.sessions + view.failed.all;
    const auto known = _runs.find(view.state.identifier.toString());
    if (known != _runs.end() && known->second == runs) return;
    _runs[view.state.identifier.toString()] = runs;
    if (const auto tried = lastTried(view)) line(nameText(view) + "  " + outcomeText(view), *tried);
  }
  void line(const std::string& text) { line(text, Platform::current().clock.now()); }
  void line(const std::string& text, const Date& date) { _out.write(timeText(date) + "  " + text + '\n'); }

  Output& _out;
  std::map<std::string, std::int64_t> _runs;  // by client
  std::set<std::string> _concerns;
  std::string _problem;
};

class Watch {
 public:
  explicit Watch(Output& out) : _out(out) {
    if (out.terminal()) {
      _display = std::make_unique<ScreenDisplay>(out);
    } else {
      _display = std::make_unique<LineDisplay>(out);
    }
  }

  // Until a signal ends it, or nobody reads the output any more.
  void run() {
    look();
    for (;;) {
      const bool inTime = wait(_isRunning ? kRunningMilliseconds : kIdleMilliseconds);
      if (_isEnded) return;
      if (inTime && !_mustLook && !_changes.take()) continue;
      // What else belongs to it is to come in the same moment.
      if (inTime && !_mustLook) poll(nullptr, 0, kSettlingMilliseconds);
      static_cast<void>(_changes.take());
      look();
    }
  }

 private:
  void look() {
    _mustLook = false;
    const std::string path = storePath();
    _changes.add(path.substr(0, path.rfind('/')));
    _changes.add(bookmarksDirectory());
    try {
      const auto store = openStoreToRead();
      const SyncState state = syncState(*store, _files);
      _isRunning = state.running.has_value();
      _display->show(state);
    } catch (const LoomerStoreException& exception) {
      _display->showProblem(tr(exception.message()));
    } catch (const Refused& refused) {
      _display->showProblem(tr(refused.message()));
    }
  }

  // Whether something came before the time was over.
  bool wait(int milliseconds) {
    // Of the output the system tells, unasked, that nobody reads it any more.
    pollfd events[] = {
        {_changes.descriptor(), POLLIN, 0}, {_signals.descriptor(), POLLIN, 0}, {_out.descriptor(), 0, 0}};
    const int count = poll(events, std::size(events), milliseconds);
    if (count < 0 && errno != EINTR)
      throw PlatformException("LoomerctlWatchFailed",
                              tr("cannot wait for changes: %1", lastSystemError().message()));
    if (events[2].revents != 0) _isEnded = true;
    while (const auto signal = _signals.take()) handle(*signal);
    return count != 0;
  }

  void handle(int signal) {
    if (signal == SIGTSTP) {
      _display->pause();
      _mustLook = true;
    } else if (signal == SIGWINCH) {
      _mustLook = true;
    } else {
      _isEnded = true;
    }
  }

  Output& _out;
  Signals _signals;
  ChangeWatch _changes;
  BookmarksFiles _files;
  std::unique_ptr<Display> _display;
  bool _isRunning = false;
  bool _mustLook = false;
  bool _isEnded = false;
};

}  // namespace

Status watchSyncs(Invocation& run) {
  static_cast<void>(openStore());
  Watch(run.out).run();
  return statusFine;
}

}  // namespace corvane::loomerctl
