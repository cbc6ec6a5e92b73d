#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace corvane {

/// A relay to a PostgreSQL server that counts the messages of its clients. At one of them it can run an
/// action and cut the connection, and it can be slow. It relays one connection at a time, which must not be
/// encrypted.
class CuttingProxy {
 public:
  enum class Moment {
    before,   ///< the server never sees the message; the client's connection is reset
    after,    ///< the server answers it, but the client never sees the answer; the connection is closed
    endless,  ///< the client gets the rows of the server's answer again and again, until it closes
  };

  explicit CuttingProxy(int serverPort);
  ~CuttingProxy();
  CuttingProxy(const CuttingProxy&) = delete;
  CuttingProxy& operator=(const CuttingProxy&) = delete;

  /// The URL with this relay as its server.
  std::string through(const std::string& url) const;

  /// Restarts the count. At the message of that number, counted from 1, `action` is called in the relay's
  /// thread and the connection is cut; 0 means never.
  void cutAt(int message, Moment moment = Moment::before, std::function<void()> action = {});
  /// From that message on nothing is relayed, and the connections on both sides stay open, until the next
  /// call of `cutAt`.
  void fallSilentAt(int message);
  /// From now on the line carries that many bytes in a hundredth of a second in each direction; 0: unlimited.
  void slowDownTo(int bytes) { _bytesAtOnce = bytes; }
  /// The number of messages since the count was restarted, without those that end a connection normally.
  int messages() const { return _messages; }

 private:
  void serve();
  void relay(int client, int server);
  std::string carried(int from) const;
  bool carryMessages(std::string& pending, bool& isStarted, int client, int server);
  bool isCut(int number, Moment moment);

  int _serverPort;
  int _listener = -1;
  int _port = 0;
  int _stop[2] = {-1, -1};
  std::atomic<int> _messages = 0;
  std::atomic<int> _bytesAtOnce = 0;
  std::mutex _mutex;  ///< guards the members below
  int _cut = 0;
  bool _isSilent = false;
  bool _isStopping = false;
  std::condition_variable _changed;
  Moment _moment = Moment::before;
  std::function<void()> _action;
  std::thread _thread;
};

}  // namespace corvane
