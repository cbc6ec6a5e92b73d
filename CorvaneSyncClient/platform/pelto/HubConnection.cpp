#include "CorvaneSyncClient/platform/pelto/HubConnection.h"

#include <libpq-fe.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <optional>
#include <utility>

#include "CorvaneSyncClient/platform/foundation/BigEndian.h"
#include "CorvaneSyncClient/platform/foundation/Uuid.h"
#include "CorvaneSyncClient/platform/foundation/text/Ascii.h"
#include "CorvaneSyncClient/platform/foundation/text/Utf8.h"
#include "CorvaneSyncClient/platform/pelto/HostLookup.h"
#include "CorvaneSyncClient/platform/pelto/Hub.h"

// libpq is only called in its non-blocking mode; the waiting is done here. libpq itself keeps SIGPIPE away
// from the process.

namespace corvane::pelto {

namespace {

using std::chrono::steady_clock;

// What went wrong, and what to do about it.
struct Problem {
  std::string what;
  std::string remedy;
};

constexpr const char* kLater = "Nothing was lost here; sync again later.";

// libpq takes parameters that the address does not set from variables such as PGHOSTADDR, PGSERVICE and
// PGSSLMODE. Removing the variables is the only way to prevent that, since an empty parameter counts as not
// set.
void forgetEnvironment() {
  std::vector<std::string> names;
  for (char** variable = environ; variable && *variable; ++variable) {
    const std::string_view text(*variable);
    if (text.starts_with("PG")) names.emplace_back(text.substr(0, text.find('=')));
  }
  for (const std::string& name : names) ::unsetenv(name.c_str());
}

std::string secondsText(double seconds) {
  const std::string text = std::to_string(std::lround(seconds * 10));
  const std::string whole = text.size() > 1 ? text.substr(0, text.size() - 1) : "0";
  return (text.back() == '0' ? whole : whole + '.' + text.back()) + (whole == "1" ? " second" : " seconds");
}

// The first line of a message of the server or of libpq, without control characters and the full stop.
std::string firstLine(std::string_view message) {
  std::string line(message.substr(0, message.find('\n')));
  for (char& c : line) {
    if (static_cast<unsigned char>(c) < ' ' || c == '\x7f') c = ' ';
  }
  while (line.ends_with('.') || line.ends_with(' ')) line.pop_back();
  return line;
}

// The error code in a verbose message such as "connection to … failed: FATAL:  28P01: no such user"; empty
// when the message is not from a server. Removes the code and what precedes it from `message`.
std::string takeSqlState(std::string_view& message) {
  constexpr std::string_view kMark = ":  ";
  for (std::size_t at = message.find(kMark); at != std::string_view::npos; at = message.find(kMark, at + 1)) {
    const std::string_view state = message.substr(at + kMark.size(), 5);
    const std::string_view rest = message.substr(std::min(at + kMark.size() + 5, message.size()));
    const bool isState = state.size() == 5 && std::all_of(state.begin(), state.end(), [](char c) {
                           return isAsciiDigit(c) || (c >= 'A' && c <= 'Z');
                         });
    if (!isState || !rest.starts_with(": ")) continue;
    message = rest.substr(2);
    return std::string(state);
  }
  return {};
}

bool mentions(std::string_view message, std::string_view word) {
  return message.find(word) != std::string_view::npos;
}

bool isRefusal(const std::string& state) { return state.starts_with("28") || state == "42501"; }

// A serialisation failure, for example on a standby server whose primary has removed rows that are being
// read, or a deadlock.
bool isConflict(std::string_view state) { return state == "40001" || state == "40P01"; }

// Whether the other addresses of the service would give the same answer.
bool isFinal(const std::string& state) { return isRefusal(state) || state == "3D000"; }

Problem connectionProblem(const std::string& state, std::string_view message) {
  if (isRefusal(state)) {
    return {"the server refused the user: " + firstLine(message),
            "Check the account's name and password and the server's pg_hba.conf, and set the account again."};
  }
  if (state == "3D000") {
    return {"there is no such database: " + firstLine(message),
            "Check the database in the account's address, or set the service up: docs/hub.md."};
  }
  if (!state.empty()) return {"the server refused: " + firstLine(message), kLater};

  constexpr std::string_view kIntroduction = "failed: ";
  const std::size_t introduction = message.find(kIntroduction);
  if (introduction != std::string_view::npos) message.remove_prefix(introduction + kIntroduction.size());
  const std::string cause = firstLine(message);
  if (mentions(message, "password")) {
    return {"the server wants a password: " + cause, "Set the account again with its password."};
  }
  if (mentions(message, "SSL") || mentions(message, "certificate")) {
    return {"TLS did not succeed: " + cause,
            "Check the server's certificate and host name, and sslrootcert in the account's address. Nothing "
            "was sent."};
  }
  return {"it can't be reached: " + cause, kLater};
}

constexpr const char* kMakeRoom =
    "Delete bookmarks that nobody needs, or have the account's limit raised: docs/hub.md.";
constexpr const char* kReport = "That is a mistake of this program: please report it.";
constexpr const char* kMoreThanAsked = "it gives more than was asked for";

// What the service refuses by one of its constraints.
struct Refusal {
  const char* constraint;
  const char* what;
  const char* remedy;
};
constexpr Refusal kRefusals[] = {
    {"accounts_record_limit", "the account is full: it holds as many records as it may", kMakeRoom},
    {"accounts_byte_limit", "the account is full: it holds as much text as it may", kMakeRoom},
    {"accounts_tombstone_limit", "the account is full: it remembers as many deletions as it may", kMakeRoom},
    {"records_length", "a bookmark is too long: its name and address have more than 1048576 bytes", kReport},
    {"records_kind", "a bookmark was to become a folder, or a folder a bookmark", kReport},
};

Problem statementProblem(const std::string& state, const PGresult* result, double seconds) {
  const char* primary = PQresultErrorField(result, PG_DIAG_MESSAGE_PRIMARY);
  const char* constraint = PQresultErrorField(result, PG_DIAG_CONSTRAINT_NAME);
  const std::string message = firstLine(primary ? primary : "it gave no reason");
  for (const Refusal& refusal : kRefusals) {
    if (constraint && std::string_view(constraint) == refusal.constraint)
      return {refusal.what, refusal.remedy};
  }
  if (state == "42P01" || state == "42883" || state == "42703" || state == "3F000") {
    return {"its database holds no bookmarks service: " + message, "Set it up: docs/hub.md."};
  }
  if (state == "42501") {
    return {"the user has no account there: " + message, "Have the account made: docs/hub.md."};
  }
  if (state == "57014") return {"it took longer than " + secondsText(seconds), kLater};
  if (state == "55P03") return {"an earlier change of this account has not ended there", kLater};
  if (state.starts_with("57P") || state == "25P03") return {"the server cut it off: " + message, kLater};
  return {"the server says: " + message + " (" + state + ")",
          "Nothing was lost here; sync again, and if it keeps failing, tell whoever runs the server."};
}

}  // namespace

PlatformException hubException(const HubAddress& address, const std::string& purpose, const std::string& what,
                               const std::string& remedy) {
  return PlatformException(DotPeltoException, "Can't " + purpose + " at the online service (" +
                                                  address.description() + "): " + what + ". " + remedy);
}

HubRows::HubRows(pg_result* result, const HubAddress& address) : _result(result), _address(address) {}

void HubRows::Deleter::operator()(pg_result* result) const { PQclear(result); }

int HubRows::count() const { return PQntuples(_result.get()); }

bool HubRows::isNull(int row, int column) const { return PQgetisnull(_result.get(), row, column) == 1; }

std::size_t HubRows::length(int row, int column) const {
  return static_cast<std::size_t>(PQgetlength(_result.get(), row, column));
}

// The value's bytes. Requires `size` of them unless that is -1.
const char* HubRows::value(int row, int column, int size) const {
  if (row < PQntuples(_result.get()) && column < PQnfields(_result.get()) &&
      (size < 0 || PQgetlength(_result.get(), row, column) == size))
    return PQgetvalue(_result.get(), row, column);
  throw hubException(_address, "understand the answer", "it is not of the form that was asked for",
                     "Tell whoever runs the server.");
}

std::int64_t HubRows::big(int row, int column) const {
  return static_cast<std::int64_t>(loadBigEndian(value(row, column, 8), 8));
}

std::int32_t HubRows::integer(int row, int column) const {
  return static_cast<std::int32_t>(loadBigEndian(value(row, column, 4), 4));
}

bool HubRows::boolean(int row, int column) const { return *value(row, column, 1) != 0; }

String HubRows::textOfBytes(int row, int column) const {
  if (isNull(row, column)) return String();
  const char* bytes = value(row, column, -1);
  return repairedUtf8({bytes, static_cast<std::size_t>(PQgetlength(_result.get(), row, column))});
}

String HubRows::uuid(int row, int column) const {
  if (isNull(row, column)) return String();
  UuidBytes bytes;
  std::copy_n(value(row, column, bytes.size()), bytes.size(), bytes.begin());
  return uuidString(bytes);
}

namespace {

constexpr const char* kConnect = "connect";

// The parameters of one attempt in libpq's form.
class Parameters {
 public:
  Parameters(const HubAddress& address, const HubHost& host) {
    for (const auto& [name, value] : address.parameters) add(name.c_str(), value);
    add("host", host.name);
    add("hostaddr", host.address);
    add("port", host.port);
    add("client_encoding", "UTF8");
    add("application_name", "corvanetool");
    // Passwords and client certificates come only from the account, and not from the files in which libpq
    // looks for them by default. It ignores a path that cannot exist, but would warn on standard error about
    // one that is not a plain file.
    constexpr const char* kNoFile = "/dev/null/none";
    add("passfile", kNoFile);
    for (const char* name : {"sslcert", "sslkey"}) {
      if (address.parameter(name).empty()) add(name, kNoFile);
    }
    add("gssencmode", "disable");  // it would replace TLS, which verifies the server
    _names.push_back(nullptr);
    _values.push_back(nullptr);
  }
  const char* const* names() const { return _names.data(); }
  const char* const* values() const { return _values.data(); }

 private:
  // Both must outlive this object: they are literals or parts of the address and the host.
  void add(const char* name, const std::string& value) { add(name, value.c_str()); }
  void add(const char* name, const char* value) {
    _names.push_back(name);
    _values.push_back(value);
  }

  std::vector<const char*> _names;
  std::vector<const char*> _values;
};

struct ConnectionDeleter {
  void operator()(pg_conn* connection) const { PQfinish(connection); }
};
using Connection = std::unique_ptr<pg_conn, ConnectionDeleter>;

// Drives the attempt until it ends; false at the deadline.
bool awaitConnection(pg_conn* connection, Deadline deadline) {
  PostgresPollingStatusType status = PGRES_POLLING_WRITING;
  while (status == PGRES_POLLING_READING || status == PGRES_POLLING_WRITING) {
    const short events = status == PGRES_POLLING_READING ? POLLIN : POLLOUT;
    if (awaitEvents(PQsocket(connection), events, deadline) == 0) return false;
    status = PQconnectPoll(connection);
  }
  return true;
}

// The result of one attempt: a connection or a problem.
struct Attempt {
  Connection connection;
  Problem problem;
  bool isFinal = false;
};

Attempt attemptConnection(const HubAddress& address, const HubHost& host, Deadline deadline) {
  const Parameters parameters(address, host);
  Connection connection(PQconnectStartParams(parameters.names(), parameters.values(), 0));
  if (!connection) throw std::bad_alloc();
  // Makes messages contain the error codes, which a failed connection does not report in any other way.
  PQsetErrorVerbosity(connection.get(), PQERRORS_VERBOSE);
  PQsetNoticeProcessor(
      connection.get(), [](void*, const char*) {}, nullptr);
  if (PQstatus(connection.get()) != CONNECTION_BAD && !awaitConnection(connection.get(), deadline)) {
    return {nullptr, {"it did not answer in time", kLater}, false};
  }
  if (PQstatus(connection.get()) == CONNECTION_OK && PQsetnonblocking(connection.get(), 1) == 0)
    return {std::move(connection), {}, true};
  std::string_view message = PQerrorMessage(connection.get());
  const std::string state = takeSqlState(message);
  return {nullptr, connectionProblem(state, message), isFinal(state)};
}

// The host once for each of its numeric addresses.
std::vector<HubHost> lookedUp(const HubHost& host, Deadline deadline, Problem& problem) {
  if (!host.needsLookup()) return {host};
  const HostAddresses found = lookUpHost(host.name, deadline);
  std::vector<HubHost> hosts;
  for (const std::string& address : found.numeric) hosts.push_back({host.name, address, host.port});
  if (hosts.empty())
    problem = {"the server " + host.name + " can't be found: " + found.problem,
               "Check the network and the account's address. Nothing was lost here; sync again later."};
  return hosts;
}

Attempt connect(const HubAddress& address, Deadline deadline) {
  Attempt last;
  for (std::size_t i = 0; i < address.hosts.size(); ++i) {
    const Deadline hostDeadline = shareOf(deadline, address.hosts.size() - i);
    const std::vector<HubHost> hosts = lookedUp(address.hosts[i], hostDeadline, last.problem);
    for (std::size_t j = 0; j < hosts.size(); ++j) {
      last = attemptConnection(address, hosts[j], shareOf(hostDeadline, hosts.size() - j));
      if (last.connection || last.isFinal) return last;
    }
  }
  return last;
}

}  // namespace

HubConnection::HubConnection(const HubAddress& address, const HubTimeouts& timeouts, Deadline end)
    : _address(address), _timeouts(timeouts), _end(end) {
  forgetEnvironment();
  Attempt attempt = connect(address, std::min(after(timeouts.connect), end));
  if (!attempt.connection)
    throw hubException(address, kConnect, attempt.problem.what, attempt.problem.remedy);
  _connection = attempt.connection.release();
}

HubConnection::~HubConnection() { PQfinish(_connection); }

void HubConnection::run(const std::string& statements, const char* purpose) {
  if (PQsendQuery(_connection, statements.c_str()) == 0) failCutOff(purpose);
  awaitResults(purpose, [](const HubRows&) {});
}

HubRows HubConnection::run(const char* statement, const std::vector<HubValue>& parameters,
                           const char* purpose) {
  std::optional<HubRows> only;
  forEachRow(statement, parameters, purpose, [&](HubRows row) {
    if (only) failMalformed(purpose, kMoreThanAsked);
    only.emplace(std::move(row));
  });
  return only ? std::move(*only) : HubRows(nullptr, _address);
}

void HubConnection::forEachRow(const char* statement, const std::vector<HubValue>& parameters,
                               const char* purpose, const std::function<void(HubRows)>& take) {
  constexpr int kBinary = 1;
  std::vector<Oid> types;
  std::vector<const char*> values;
  std::vector<int> lengths;
  const std::vector<int> formats(parameters.size(), kBinary);
  for (const HubValue& parameter : parameters) {
    if (parameter.bytes.size() > static_cast<std::size_t>(std::numeric_limits<int>::max()))
      throw hubException(_address, purpose, "it is too long for one statement", kReport);
    types.push_back(static_cast<Oid>(parameter.type));
    values.push_back(parameter.isNull ? nullptr : parameter.bytes.data());
    lengths.push_back(static_cast<int>(parameter.bytes.size()));
  }
  if (PQsendQueryParams(_connection, statement, static_cast<int>(parameters.size()), types.data(),
                        values.data(), lengths.data(), formats.data(), kBinary) == 0)
    failCutOff(purpose);
  awaitResults(purpose, take);
}

void HubConnection::awaitSending(Deadline deadline, const char* purpose) {
  while (true) {
    const int left = PQflush(_connection);
    if (left == 0) return;
    if (left < 0) failCutOff(purpose);
    const short events = awaitEvents(PQsocket(_connection), POLLIN | POLLOUT, deadline);
    if (events == 0) failTimedOut(purpose);
    // A server that answers early may stop reading until its answer is read.
    if ((events & POLLIN) != 0 && PQconsumeInput(_connection) == 0) failCutOff(purpose);
  }
}

pg_result* HubConnection::nextResult(Deadline deadline, const char* purpose) {
  while (PQisBusy(_connection) != 0) {
    if (awaitEvents(PQsocket(_connection), POLLIN, deadline) == 0) failTimedOut(purpose);
    if (PQconsumeInput(_connection) == 0) failCutOff(purpose);
  }
  return PQgetResult(_connection);
}

void HubConnection::awaitResults(const char* purpose, const std::function<void(HubRows)>& take) {
  PQsetSingleRowMode(_connection);  // fails only when nothing was sent
  const Deadline deadline = std::min(after(_timeouts.statement), _end);
  awaitSending(deadline, purpose);
  bool isComplete = false;
  while (pg_result* const result = nextResult(deadline, purpose)) {
    HubRows rows(result, _address);
    const ExecStatusType status = PQresultStatus(result);
    isComplete = status == PGRES_COMMAND_OK || status == PGRES_TUPLES_OK;
    if (isComplete) continue;
    if (status == PGRES_SINGLE_TUPLE) {
      take(std::move(rows));
      continue;
    }
    const char* state = PQresultErrorField(result, PG_DIAG_SQLSTATE);
    if (!state) failCutOff(purpose);
    const Problem problem = statementProblem(state, result, _timeouts.statement);
    PlatformException exception = hubException(_address, purpose, problem.what, problem.remedy);
    if (isConflict(state)) throw HubConflict(std::move(exception));
    throw exception;
  }
  if (!isComplete) failCutOff(purpose);
}

void HubConnection::failCutOff(const char* purpose) const {
  throw hubException(_address, purpose,
                     "the connection was cut off: " + firstLine(PQerrorMessage(_connection)), kLater);
}

void HubConnection::failTimedOut(const char* purpose) const {
  const std::string what = steady_clock::now() < _end
                               ? "it took longer than " + secondsText(_timeouts.statement)
                               : "the whole exchange took longer than " + secondsText(_timeouts.exchange);
  throw hubException(_address, purpose, what, kLater);
}

void HubConnection::failMalformed(const char* purpose, const std::string& what) const {
  throw hubException(_address, purpose, what, "Tell whoever runs the server.");
}

}  // namespace corvane::pelto
