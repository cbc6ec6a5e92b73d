#include <algorithm>
#include <boost/asio/post.hpp>
#include <exception>
#include <utility>

#include "tools/corvane-hub/Connection.h"
#include "tools/corvane-hub/HubConfiguration.h"
#include "tools/corvane-hub/ServiceLog.h"

namespace corvane::hubserver {

namespace {

const char* const kNothing = "nothing has that name";

}  // namespace

void Connection::begin(std::string_view text) {
  _closes = false;
  std::optional<RequestHead> head = parsedRequestHead(text);
  _head = head ? std::move(*head) : RequestHead{};
  if (!head) return refuse(400, "that is no request of HTTP/1.1");
  try {
    // A body that is not awaited would be taken for the next request.
    const bool hasBody = _head.isChunked || _head.length.value_or(0) > 0;
    if (hasBody && _head.method != Method::put) return refuse(400, "only a PUT has a body");
    _closes = hasBody;
    if (authenticate()) dispatch();
  } catch (const HubFailure& failure) {
    fail(failure);
  }
}

/// Whether a good token came, within what its computer may ask for; answers otherwise.
bool Connection::authenticate() {
  _token = parsedToken(_head.token);
  const Standing standing = _token ? this->standing() : Standing::unknown;
  if (standing == Standing::unknown) {
    refuse(401, "a token is missing or unknown", "WWW-Authenticate: Bearer\r\n");
    return false;
  }
  if (standing == Standing::revoked) {
    refuse(403, "the token has been revoked");
    return false;
  }
  if (_account != _token->account) {
    leaveAccount();
    if (!_service.enterAccount(_token->account)) {
      refuse(429, "the account has too many connections", "Retry-After: 10\r\n");
      return false;
    }
    _account = _token->account;
  }
  if (!_service.rates.take(_token->account + '.' + _token->computer, std::chrono::steady_clock::now())) {
    answer({429, "the computer asks too often", "Retry-After: 2\r\n", {}, {}});
    return false;
  }
  return true;
}

void Connection::dispatch() {
  auto target = parsedTarget(_head.target);
  if (!target) return answer({404, "no object can have that name", {}, {}, {}});
  if (const auto* folder = std::get_if<ListTarget>(&*target)) {
    if (_head.method != Method::get)
      return answer({405, "a listing can be had with GET alone", "Allow: GET\r\n", {}, {}});
    return list(*folder);
  }
  const ObjectTarget& object = std::get<ObjectTarget>(*target);
  switch (_head.method) {
    case Method::get:
      return get(object);
    case Method::put:
      return beginUpload(object);
    case Method::remove:
      return remove(object);
    case Method::other:
      return answer({405, "there are GET, PUT and DELETE", "Allow: GET, PUT, DELETE\r\n", {}, {}});
  }
}

void Connection::get(const ObjectTarget& target) {
  if (std::optional<OpenObject> object =
          openObject(_service.accounts.directoryOf(_token->account), target.path)) {
    return sendObject(std::move(*object));
  }
  if (target.waitSeconds.value_or(0) == 0) return answer({404, kNothing, {}, {}, {}});
  waitFor(target);
}

/// Has the connection told when the name appears, and looks once more, since it may have appeared before
/// that.
void Connection::waitFor(const ObjectTarget& target) {
  const std::string account = _service.accounts.directoryOf(_token->account);
  const std::string objects = account + "/objects";
  const std::string folder = objects + '/' + target.path.directory;
  FolderWatch& watch = _service.watch;
  try {
    if (!watch.add(folder, target.path.file, *this)) {
      // The folder's own name comes first. It may have come just now: then it is watched after all.
      if (!watch.add(objects, target.path.directory, *this)) return answer({404, kNothing, {}, {}, {}});
      watch.add(folder, target.path.file, *this);
    }
  } catch (const NoMoreWatches& failure) {
    if (!std::exchange(_service.saidNoWatches, true)) logLine(Gravity::warning, failure.reason());
    return answer({503, "too many computers wait", "Retry-After: 60\r\n", {}, {}});
  }
  if (std::optional<OpenObject> object = openObject(account, target.path))
    return sendObject(std::move(*object));
  if (_state != State::waiting) {
    _target = target;
    allow(std::min(std::chrono::seconds(*target.waitSeconds), kLongestWait));
    _state = State::waiting;
  }
  await(Progress::State::wantsRead);
}

void Connection::nameAppeared() {
  boost::asio::post(_service.context, [self = shared_from_this()] {
    if (self->_state != State::waiting) return;
    try {
      self->get(*self->_target);
    } catch (const HubFailure& failure) {
      self->fail(failure);
    }
    self->advance();
  });
}

void Connection::sendObject(OpenObject object) {
  std::string headers = "ETag: " + object.tag + "\r\n";
  if (matchesTag(_head.ifNoneMatch, object.tag)) return answer({304, {}, std::move(headers), {}, {}});
  answer({200, {}, std::move(headers), std::move(object), {}});
}

void Connection::list(const ListTarget& target) {
  const std::string account = _service.accounts.directoryOf(_token->account);
  answer({200, {}, {}, {}, std::make_unique<FolderListing>(account, target.directory)});
}

void Connection::beginUpload(const ObjectTarget& target) {
  if (!_head.length) return refuse(411, "a PUT says how long its body is");
  if (*_head.length > kLargestObject)
    return refuse(413, "an object has " + sizeText(kLargestObject) + " at most");
  const std::string account = _service.accounts.directoryOf(_token->account);
  const std::uint64_t quota = _service.accounts.quota(_token->account);
  if (!hasRoom(account, *_head.length, quota)) {
    return refuse(507, "the account is full: it may hold " + sizeText(quota));
  }
  _upload = std::make_unique<Upload>(account);
  _target = target;
  _closes = false;
  _state = State::body;
  allow(kMoveTime + std::chrono::seconds(*_head.length / 1024));
  // A few bytes, which a socket takes whose client has everything that was sent before.
  if (_head.expectsContinue && _input.empty()) pass(_transport.send("HTTP/1.1 100 Continue\r\n\r\n"));
}

/// Does `work` on a thread that may wait for the disk, and then `done` with what it answers on this one.
template <typename Work, typename Done>
void Connection::onDisk(Work work, Done done) {
  _state = State::disk;
  boost::asio::post(_service.disk, [self = shared_from_this(), work = std::move(work), done]() mutable {
    std::optional<decltype(work())> result;
    std::optional<HubFailure> failure;
    try {
      result = work();
    } catch (const HubFailure& caught) {
      failure = caught;
    }
    boost::asio::post(self->_service.context, [self, result, failure, done] {
      if (self->_state != State::disk) return;
      if (failure) {
        self->fail(*failure);
      } else {
        done(*self, *result);
      }
      self->advance();
    });
  });
}

void Connection::storeUpload() {
  const auto work = [&accounts = _service.accounts, token = *_token, path = _target->path,
                     upload = std::shared_ptr<Upload>(std::move(_upload))] {
    return store(accounts.directoryOf(token.account), path, *upload, accounts.quota(token.account),
                 [&] { return accounts.standing(token) == Standing::good; });
  };
  onDisk(work, [](Connection& self, Stored stored) { self.answerStored(stored); });
}

void Connection::answerStored(Stored stored) {
  const bool hadToBeNew = !_head.ifNoneMatch.empty();
  switch (stored) {
    case Stored::made:
      return answer({201, {}, {}, {}, {}});
    case Stored::forbidden:
      return refuse(403, "the token has been revoked");
    case Stored::full:
      return answer({507,
                     "the account is full: it may hold " + sizeText(_service.accounts.quota(_token->account)),
                     {},
                     {},
                     {}});
    case Stored::same:
      if (!hadToBeNew) return answer({204, {}, {}, {}, {}});
      return answer({412, "an object has that name", {}, {}, {}});
    case Stored::different:
      if (!hadToBeNew)
        return answer({409, "another object has that name, and objects are not replaced", {}, {}, {}});
      return answer({412, "an object has that name", {}, {}, {}});
  }
}

void Connection::remove(const ObjectTarget& target) {
  const auto work = [&accounts = _service.accounts, token = *_token, path = target.path] {
    return removeObject(accounts.directoryOf(token.account), path,
                        [&] { return accounts.standing(token) == Standing::good; });
  };
  onDisk(work, [](Connection& self, Removed removed) {
    if (removed == Removed::forbidden) return self.refuse(403, "the token has been revoked");
    self.answer({204, {}, {}, {}, {}});
  });
}

void Connection::fail(const HubFailure& failure) {
  if (failure.isFull()) return refuse(507, "the server's disk is full");
  if (_token && !_service.accounts.has(_token->account)) return refuse(403, "the account has been removed");
  logLine(Gravity::error, failure.reason());
  refuse(500, "the server could not do it; its log says why");
}

Standing Connection::standing() const { return _service.accounts.standing(*_token); }

void Connection::leaveAccount() {
  if (!_account.empty()) _service.leaveAccount(std::exchange(_account, {}));
}

}  // namespace corvane::hubserver
