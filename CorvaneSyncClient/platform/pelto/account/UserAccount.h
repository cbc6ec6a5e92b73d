#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "CorvaneSyncClient/platform/pelto/Hub.h"
#include "CorvaneSyncClient/platform/pelto/account/Account.h"
#include "CorvaneSyncClient/platform/pelto/place/Place.h"
#include "CorvaneSyncClient/platform/system/ServiceScope.h"

namespace corvane::pelto {

/// The path of the current user's account.
std::string userAccountPath();

/// The current user's account; absent when none is set. Raises DotPeltoException.
std::optional<Account> userAccount();

/// The service that the account names. It connects at the first call on the hub. Any answer of the service,
/// even a refusal to push, is noted as `reached` beside the current user's account, provided that it is still
/// the same account; at most once a day, so that a sync that finds nothing new writes nothing. A failure to
/// note it goes to the system log.
std::unique_ptr<Hub> hubOf(const Account& account);

/// The place of an account, for one exchange of at most `seconds`. Nothing is sent yet.
/// Raises PlaceAddressException.
std::unique_ptr<Place> placeOf(const Account& account, double seconds);

/// Whether this computer syncs the data class with the account from now on. Nothing happens when
/// the user has replaced or removed that account meanwhile. Raises DotPeltoException.
void enableDataClass(const Account& account, const String& dataClass, bool enabled);

/// Makes the hub of an account without connecting.
using HubMaker = std::function<std::unique_ptr<Hub>(const Account&)>;

/// Makes another maker current, for `hubOf` to use.
using HubMakerScope = ServiceScope<HubMaker>;

}  // namespace corvane::pelto
