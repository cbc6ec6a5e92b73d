#include "tools/corvane-hub/HubService.h"

namespace corvane::hubserver {

bool HubService::enterAccount(const std::string& account) {
  int& count = connectionsOfAccounts[account];
  if (count >= kConnectionsOfAccount) return false;
  ++count;
  return true;
}

void HubService::leaveAccount(const std::string& account) {
  const auto count = connectionsOfAccounts.find(account);
  if (--count->second == 0) connectionsOfAccounts.erase(count);
}

}  // namespace corvane::hubserver
