#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "tools/corvane-hub/ComputerToken.h"
#include "tools/corvane-hub/FolderWatch.h"
#include "tools/corvane-hub/HubFailure.h"
#include "tools/corvane-hub/HubService.h"
#include "tools/corvane-hub/ObjectFiles.h"
#include "tools/corvane-hub/RequestHead.h"
#include "tools/corvane-hub/Transport.h"

namespace corvane::hubserver {

/// What is sent for a request: a line of text, an object, or a listing.
struct Answer {
  int status = 200;
  std::string text;     ///< without its line feed; empty for none
  std::string headers;  ///< further ones, each with its line end
  std::optional<OpenObject> object;
  std::unique_ptr<FolderListing> listing;
};

/// One client's connection: takes requests one after another and answers each before it reads the next. A
/// state machine that moves whenever the socket, the disk, a watch or the clock says so. Lives as long as
/// `HubService::connections` holds it or a callback is to come.
class Connection : public std::enable_shared_from_this<Connection>, private FolderWatch::Waiter {
 public:
  Connection(HubService& service, Transport transport);
  ~Connection() override;

  void start();
  /// To be called about once a second: ends what takes too long.
  void tick(TimePoint now);
  /// To be called when tokens may have ceased to be good: ends what goes on in their name.
  void checkToken();
  /// To be called once when the server ends: what runs is finished, what waits is told.
  void stop();

 private:
  enum class State { handshake, head, body, disk, waiting, sending, lingering, closed };

  // The machine.
  void advance();
  bool step();
  void await(Progress::State wanted);
  void arrive(Progress::State direction);
  void resume();
  void close();
  void allow(std::chrono::seconds time);
  bool pass(const Progress& progress);

  // One step each; whether there may be another one at once.
  bool shakeHands();
  bool readHead();
  bool readBody();
  bool sendMore();
  bool discard();
  void noticePeer();

  // What is sent.
  void answer(Answer answer);
  void refuse(int status, std::string text, std::string headers = {});
  std::string headOf(const Answer& answer) const;
  bool refill();
  void finish();

  // The requests (ConnectionRequests.cpp).
  void begin(std::string_view head);
  bool authenticate();
  void dispatch();
  void get(const ObjectTarget& target);
  void waitFor(const ObjectTarget& target);
  void sendObject(OpenObject object);
  void list(const ListTarget& target);
  void beginUpload(const ObjectTarget& target);
  void storeUpload();
  void answerStored(Stored stored);
  void remove(const ObjectTarget& target);
  template <typename Work, typename Done>
  void onDisk(Work work, Done done);
  void fail(const HubFailure& failure);
  Standing standing() const;
  void leaveAccount();
  void nameAppeared() override;

  HubService& _service;
  Transport _transport;
  State _state = State::handshake;
  TimePoint _deadline;
  bool _awaitsRead = false;
  bool _awaitsWrite = false;
  std::string _input;  // what came and belongs to no request yet

  // Of the request that runs.
  RequestHead _head;
  std::optional<ComputerToken> _token;
  std::optional<ObjectTarget> _target;
  std::unique_ptr<Upload> _upload;
  bool _closes = false;  // after the answer

  // Of the answer that is sent.
  std::string _output;
  std::optional<OpenObject> _object;
  std::uint64_t _sent = 0;  // of the object
  std::unique_ptr<FolderListing> _listing;

  std::string _account;  // in which this connection is counted; empty before the first good token
};

}  // namespace corvane::hubserver
