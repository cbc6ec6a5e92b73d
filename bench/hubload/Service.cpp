#include "bench/hubload/Service.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "CorvaneSyncClient/platform/foundation/Uuid.h"
#include "tests/pelto/PostgresServer.h"

namespace corvane::hubload {

namespace {

// Letters and digits that nobody guesses.
std::string randomWord() {
  std::string word = newUuidString();
  std::erase(word, '-');
  std::transform(word.begin(), word.end(), word.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
  return word;
}

// The address with another user, and with another server where `via` names one.
std::string urlOf(const std::string& address, const std::string& via, const std::string& user,
                  const std::string& password) {
  constexpr std::string_view kMark = "://";
  const std::size_t mark = address.find(kMark);
  if (mark == std::string::npos) throw std::runtime_error("the address is no postgresql:// URL");
  const std::size_t begin = mark + kMark.size();
  const std::size_t end = std::min(address.find_first_of("/?", begin), address.size());
  const std::string authority = address.substr(begin, end - begin);
  const std::string servers = authority.substr(authority.rfind('@') + 1);
  return "postgresql://" + user + ":" + password + "@" + (via.empty() ? servers : via) + address.substr(end);
}

}  // namespace

Effort effortSoFar(const std::string& administratorUrl, const std::string& prefix) {
  // A connection's counters arrive when it ends.
  const std::string others = "SELECT count(*) FROM pg_stat_activity WHERE left(usename, " +
                             std::to_string(prefix.size()) + ") = '" + prefix + "'";
  for (int tries = 0; tries < 250 && runSql(administratorUrl, others) != "0"; ++tries)
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  std::istringstream text(runSql(
      administratorUrl,
      "SELECT sum(blks_hit + blks_read) || ' ' || sum(tup_returned + tup_fetched) FROM pg_stat_database"
      " WHERE datname = current_database() OR datid = 0"));
  Effort effort;
  if (!(text >> effort.pages >> effort.rows)) throw std::runtime_error("the server tells no statistics");
  return effort;
}

Accounts::Accounts(std::string administratorUrl, const std::string& via, int count)
    : _administratorUrl(std::move(administratorUrl)), _prefix("load_" + randomWord().substr(0, 12) + "_") {
  const std::string password = randomWord();
  for (int i = 0; i < count; ++i)
    _urls.push_back(urlOf(_administratorUrl, via, _prefix + std::to_string(i), password));
  runSql(_administratorUrl, "SELECT count(corvane_hub.add_account(('" + _prefix + "' || n)::name, '" +
                                password + "')) FROM generate_series(0, " + std::to_string(count - 1) +
                                ") AS n");
}

Accounts::~Accounts() {
  try {
    runSql(_administratorUrl,
           "SELECT count(corvane_hub.remove_account(role)) FROM corvane_hub.accounts WHERE left(role, " +
               std::to_string(_prefix.size()) + ") = '" + _prefix + "'");
  } catch (const PostgresError& error) {
    std::fprintf(stderr, "corvane-hubload: the accounts %s… could not be removed: %s\n", _prefix.c_str(),
                 error.what());
  }
}

std::vector<std::int64_t> Accounts::liveRecords() const {
  std::istringstream text(runSql(
      _administratorUrl, "SELECT string_agg(a.live_records::text, ' ' ORDER BY n) FROM generate_series(0, " +
                             std::to_string(_urls.size() - 1) +
                             ") AS n JOIN corvane_hub.accounts a ON a.role = '" + _prefix + "' || n"));
  std::vector<std::int64_t> counts;
  std::int64_t count = 0;
  while (text >> count) counts.push_back(count);
  return counts;
}

}  // namespace corvane::hubload
