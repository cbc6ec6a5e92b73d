#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "CorvaneSyncClient/platform/pelto/Account.h"
#include "CorvaneSyncClient/platform/pelto/Hub.h"
#include "CorvaneSyncClient/platform/system/ServiceScope.h"

namespace corvane::pelto {

/// Where the current user's account is kept.
std::string userAccountPath();

/// The current user's account; nothing when none is set. Raises DotPeltoException.
std::optional<Account> userAccount();

/// The way to the service that the account names. Nobody is asked before the first call on the hub. That the
/// service answered, also with no, is noted as `reached` beside the current user's account if that still
/// is this one; at most once a day, so that a sync that finds nothing new writes nothing either. Where
/// it cannot be noted, the system log says so.
std::unique_ptr<Hub> hubOf(const Account& account);

/// Makes the hub of an account, contacting nobody.
using HubMaker = std::function<std::unique_ptr<Hub>(const Account&)>;

/// Makes another maker current: `hubOf` uses it. Without any, hubs are PostgreSQL servers.
using HubMakerScope = ServiceScope<HubMaker>;

}  // namespace corvane::pelto
