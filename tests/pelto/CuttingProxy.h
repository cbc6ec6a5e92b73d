#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace corvane {

/// A relay to a PostgreSQL server that counts the messages of its clients and, at one of them, does
/// something and cuts the connection; it may be slow. One connection at a time. What goes through it must not
/// be encrypted.
class CuttingProxy {
 public:
  enum class Moment {
    before,   ///< the server never sees the message; the client's connection is reset
    after,    ///< the server has answered it, the client never hears of that; the connection is closed
    endless,  ///< the client hears the rows of the server's answer again and again, until it closes
  };

  explicit CuttingProxy(int serverPort);
  ~CuttingProxy();
  CuttingProxy(const CuttingProxy&) = delete;
  CuttingProxy& operator=(const CuttingProxy&) = delete;

  /// The same URL through this relay.
  std::string through(const std::string& url) const;

  /// Begins to count anew. At the message of that number, from 1, `action` is called in the relay's thread
  /// and the connection is cut; 0: never.
  void cutAt(int message, Moment moment = Moment::before, std::function<void()> action = {});
  /// From that message on nothing is carried any more, and both sides' connections stay open, until the next
  /// call of `cutAt`.
  void fallSilentAt(int message);
  /// From here on the line carries so many bytes in a hundredth of a second, one way or the other; 0: any.
  void slowDownTo(int bytes) { _bytesAtOnce = bytes; }
  /// Messages since then, those that end a connection in order not counted.
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
  std::mutex _mutex;  ///< guards what follows
  int _cut = 0;
  bool _isSilent = false;
  bool _isStopping = false;
  std::condition_variable _changed;
  Moment _moment = Moment::before;
  std::function<void()> _action;
  std::thread _thread;
};

}  // namespace corvane
