#include "tools/corvane-hub/RequestHead.h"

#include <algorithm>
#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/parser.hpp>
#include <charconv>
#include <limits>

#include "CorvaneSyncClient/platform/foundation/text/Ascii.h"

namespace corvane::hubserver {

namespace {

namespace http = boost::beast::http;
using Parser = http::request_parser<http::empty_body>;
using Fields = http::request<http::empty_body>;

Method methodOf(http::verb verb) {
  switch (verb) {
    case http::verb::get:
      return Method::get;
    case http::verb::put:
      return Method::put;
    case http::verb::delete_:
      return Method::remove;
    default:
      return Method::other;
  }
}

std::string_view viewOf(boost::beast::string_view text) { return {text.data(), text.size()}; }

/// Whether a line goes on in the next one, which RFC 9112 (5.2) lets a server refuse.
bool hasFoldedLine(std::string_view text) {
  return text.find("\r\n ") != std::string_view::npos || text.find("\r\n\t") != std::string_view::npos;
}

bool standsTwice(const Fields& fields) {
  static constexpr http::field kSingle[] = {http::field::host,           http::field::authorization,
                                            http::field::content_length, http::field::expect,
                                            http::field::if_none_match,  http::field::transfer_encoding};
  return std::any_of(std::begin(kSingle), std::end(kSingle),
                     [&](http::field field) { return fields.count(field) > 1; });
}

bool isNumber(std::string_view text) { return std::all_of(text.begin(), text.end(), isAsciiDigit); }

std::string bearerToken(std::string_view authorization) {
  constexpr std::string_view kScheme = "Bearer ";
  if (!boost::beast::iequals(
          boost::beast::string_view(authorization.data(), std::min(authorization.size(), kScheme.size())),
          boost::beast::string_view(kScheme.data(), kScheme.size()))) {
    return {};
  }
  return std::string(authorization.substr(kScheme.size()));
}

/// The value of "wait=SECONDS".
std::optional<std::uint32_t> parsedWait(std::string_view query) {
  constexpr std::string_view kWait = "wait=";
  if (!query.starts_with(kWait)) return {};
  query.remove_prefix(kWait.size());
  std::uint32_t seconds = 0;
  const auto [end, error] = std::from_chars(query.data(), query.data() + query.size(), seconds);
  if (error != std::errc() || end != query.data() + query.size()) return {};
  return seconds;
}

std::string_view withoutBlanks(std::string_view text) {
  const std::size_t first = text.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t") + 1 - first);
}

}  // namespace

std::optional<RequestHead> parsedRequestHead(std::string_view text) {
  if (hasFoldedLine(text)) return {};
  Parser parser;
  parser.header_limit(static_cast<std::uint32_t>(text.size()));
  parser.body_limit(std::numeric_limits<std::uint64_t>::max());  // the body does not come this way
  parser.eager(false);
  boost::beast::error_code error;
  std::size_t used = 0;
  // The request line and the fields are taken in one step each.
  while (!error && used < text.size() && !parser.is_header_done()) {
    used += parser.put(boost::asio::buffer(text.data() + used, text.size() - used), error);
  }
  if (error || !parser.is_header_done() || used != text.size() || standsTwice(parser.get())) return {};
  const Fields& fields = parser.get();
  RequestHead head;
  head.method = methodOf(fields.method());
  head.target = viewOf(fields.target());
  head.isChunked = fields.count(http::field::transfer_encoding) > 0;
  if (fields.count(http::field::content_length) > 0) {
    // Of a list of equal lengths, which Beast takes, another program could take a part.
    if (head.isChunked || !isNumber(viewOf(fields[http::field::content_length]))) return {};
    head.length = parser.content_length().value();
  }
  head.isOldVersion = fields.version() < 11;
  if (!head.isOldVersion && fields.count(http::field::host) == 0) return {};
  head.token = bearerToken(viewOf(fields[http::field::authorization]));
  head.ifNoneMatch = viewOf(fields[http::field::if_none_match]);
  head.expectsContinue =
      !head.isOldVersion && boost::beast::iequals(fields[http::field::expect], "100-continue");
  head.keepsAlive = fields.keep_alive();
  return head;
}

std::optional<std::variant<ObjectTarget, ListTarget>> parsedTarget(std::string_view target) {
  constexpr std::string_view kObject = "/v1/o/";
  constexpr std::string_view kList = "/v1/list/";
  if (target.starts_with(kList)) {
    std::optional<std::string> directory = folderDirectoryOf(target.substr(kList.size()));
    if (!directory) return {};
    return ListTarget{std::move(*directory)};
  }
  if (!target.starts_with(kObject)) return {};
  target.remove_prefix(kObject.size());
  const std::size_t question = target.find('?');
  std::optional<ObjectPath> path = objectPathOf(target.substr(0, question));
  if (!path) return {};
  if (question == std::string_view::npos) return ObjectTarget{std::move(*path), {}};
  const std::optional<std::uint32_t> wait = parsedWait(target.substr(question + 1));
  if (!wait) return {};
  return ObjectTarget{std::move(*path), wait};
}

bool matchesTag(std::string_view ifNoneMatch, std::string_view tag) {
  if (withoutBlanks(ifNoneMatch) == "*") return true;
  while (!ifNoneMatch.empty()) {
    const std::size_t comma = std::min(ifNoneMatch.find(','), ifNoneMatch.size());
    std::string_view one = withoutBlanks(ifNoneMatch.substr(0, comma));
    if (one.starts_with("W/")) one.remove_prefix(2);
    if (one == tag) return true;
    ifNoneMatch.remove_prefix(std::min(comma + 1, ifNoneMatch.size()));
  }
  return false;
}

}  // namespace corvane::hubserver
