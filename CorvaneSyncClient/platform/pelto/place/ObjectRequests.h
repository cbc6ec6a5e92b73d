#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "CorvaneSyncClient/platform/pelto/place/HttpClient.h"
#include "CorvaneSyncClient/platform/pelto/place/Place.h"

namespace corvane::pelto {

// The requests that all places over HTTP have in common.

/// Asks for an object, but not again for the copy that the reader has.
HttpRequest getRequest(const GetRequest& request, std::string url);
/// What the answer to it says. Raises as `HttpClient::fail` for an answer that says neither.
GetAnswer getAnswer(const HttpClient& client, const HttpRequest& request, HttpAnswer answer);

/// Writes an object whose name has one writer. `bytes` has to stay.
HttpRequest putRequest(const std::string& name, std::string_view bytes, std::string url);
/// As `putRequest`, but only where there is none of that name.
HttpRequest putNewRequest(const std::string& name, std::string_view bytes, std::string url);
/// What the answer to that one says, or 412 and the like for one that another condition made. Raises as
/// `HttpClient::fail` where the place has not made it.
Made madeBy(const HttpClient& client, const HttpRequest& request, const HttpAnswer& answer);

/// Removes an object.
HttpRequest removeRequest(const std::string& name, std::string url);

/// Raises as `HttpClient::fail` for the first answer that is neither good nor `alsoGood`, a status.
void requireGood(const HttpClient& client, const std::vector<HttpRequest>& requests,
                 const std::vector<HttpAnswer>& answers, int alsoGood = 0);

}  // namespace corvane::pelto
