#include "CorvaneSyncClient/platform/pelto/place/PlaceAddress.h"

#include <curl/curl.h>

#include <algorithm>
#include <map>
#include <memory>
#include <new>

#include "CorvaneSyncClient/platform/foundation/Message.h"
#include "CorvaneSyncClient/platform/pelto/place/HttpText.h"

namespace corvane::pelto {

namespace {

constexpr std::size_t kLongestAddress = 2000;

Message forms() {
  return Message(
      "Give a directory (/mnt/share/bookmarks), a WebDAV folder (https://USER@HOST/FOLDER), a bucket "
      "(s3://BUCKET/PREFIX?region=REGION or ?endpoint=https://HOST), or a corvane-hub (hub://HOST).");
}

[[noreturn]] void refuse(const Message& cause, const Message& remedy = forms()) {
  throw PlaceAddressException(sentences(Message("The address can't be used: %1.", cause), remedy));
}

using Options = std::map<std::string, std::string>;

// A URL in its parts; those that it does not have are empty.
struct Parts {
  std::string scheme, user, host, path;
  Options options;
};

// A "%" that no two digits follow is somebody's mistake.
std::string decoded(std::string_view text) {
  for (std::size_t percent = text.find('%'); percent != std::string_view::npos;
       percent = text.find('%', percent + 1)) {
    const std::string_view mark = text.substr(percent, 3);
    if (mark.size() != 3 || percentDecoded(mark).size() != 1)
      refuse(Message("there is a % without two digits in it"));
  }
  std::string bytes = percentDecoded(text);
  if (std::any_of(bytes.begin(), bytes.end(),
                  [](char character) { return (character >= 0 && character < ' ') || character == '\x7f'; }))
    refuse(Message("there is a control character in it"));
  return bytes;
}

Options optionsIn(std::string_view query) {
  Options options;
  while (!query.empty()) {
    const std::string_view option = query.substr(0, query.find('&'));
    query.remove_prefix(std::min(query.size(), option.size() + 1));
    const std::size_t equal = option.find('=');
    if (equal == std::string_view::npos || equal == 0 || equal + 1 == option.size())
      refuse(Message("what follows the ? is not of the form NAME=VALUE"));
    if (!options.emplace(decoded(option.substr(0, equal)), decoded(option.substr(equal + 1))).second)
      refuse(Message("it says one thing twice after the ?"));
  }
  return options;
}

// The path in its plain form, without a slash at its end.
std::string plainPath(std::string path) {
  while (!path.empty() && path.back() == '/') path.pop_back();
  for (std::size_t begin = 0; begin < path.size();) {
    const std::size_t end = std::min(path.find('/', begin + 1), path.size());
    const std::string part = path.substr(begin + 1, end - begin - 1);
    if (part.empty() || part == "." || part == "..") refuse(Message("a part of its path is empty, . or .."));
    begin = end;
  }
  return path;
}

struct UrlDeleter {
  void operator()(CURLU* url) const { curl_url_cleanup(url); }
};

std::string partOf(CURLU* url, CURLUPart part) {
  char* text = nullptr;
  if (curl_url_get(url, part, &text, 0) != CURLUE_OK) return {};  // the URL has no such part
  std::string copy = text;
  curl_free(text);
  return copy;
}

Parts partsOf(const std::string& text) {
  const std::unique_ptr<CURLU, UrlDeleter> url(curl_url());
  if (!url) throw std::bad_alloc();
  // libcurl looks for the host behind further slashes.
  if (text.find(":///") != std::string::npos) refuse(Message("it names no host"));
  if (curl_url_set(url.get(), CURLUPART_URL, text.c_str(), CURLU_NON_SUPPORT_SCHEME | CURLU_PATH_AS_IS) !=
      CURLUE_OK)
    refuse(Message("it is no well-formed URL"));
  if (!partOf(url.get(), CURLUPART_PASSWORD).empty()) {
    refuse(Message("there is a password in it, which would stay in the shell's history"),
           Message("Leave it out; it is asked for."));
  }
  if (!partOf(url.get(), CURLUPART_FRAGMENT).empty())
    refuse(Message("there is a # in it"), Message("Write %1 for it.", "%23"));
  Parts parts;
  parts.scheme = partOf(url.get(), CURLUPART_SCHEME);
  parts.user = decoded(partOf(url.get(), CURLUPART_USER));
  parts.host = partOf(url.get(), CURLUPART_HOST);
  const std::string port = partOf(url.get(), CURLUPART_PORT);
  const char* const usual = parts.scheme == "http" ? "80" : parts.scheme == "s3" ? "" : "443";
  if (!port.empty() && port != usual) parts.host += ':' + port;
  parts.path = plainPath(decoded(partOf(url.get(), CURLUPART_PATH)));
  parts.options = optionsIn(partOf(url.get(), CURLUPART_QUERY));
  return parts;
}

// Lower-case letters, for which hosts' names and buckets' stand, digits, and `others`.
bool isMadeOf(std::string_view text, std::string_view others) {
  return std::all_of(text.begin(), text.end(), [&](char character) {
    return (character >= 'a' && character <= 'z') || (character >= '0' && character <= '9') ||
           others.find(character) != std::string_view::npos;
  });
}

// The origin, "https://host:port", with the name in the form in which it is sent.
void setOrigin(PlaceAddress& address, const std::string& scheme, std::string host) {
  for (char& character : host) {
    if (character >= 'A' && character <= 'Z') character = static_cast<char>(character - 'A' + 'a');
  }
  if (host.empty() || !isMadeOf(host, ".-_:[]"))
    refuse(Message("its host's name is none that is sent over the network"),
           Message("Write it with a-z, 0-9, . and - alone."));
  const std::size_t colon = host.rfind(':'), bracket = host.rfind(']');
  const bool hasPort = colon != std::string::npos && (bracket == std::string::npos || colon > bracket);
  if (scheme == "http" && !isLoopbackHost(hasPort ? host.substr(0, colon) : host)) {
    refuse(Message("it sends everything in the clear, and the server is another computer"),
           Message("Give its address with https."));
  }
  address.host = host;
  address.origin = scheme + "://" + host;
}

std::string taken(Options& options, const std::string& name) {
  const auto found = options.find(name);
  if (found == options.end()) return {};
  std::string value = std::move(found->second);
  options.erase(found);
  return value;
}

void setDirectory(PlaceAddress& address, std::string path) {
  address.kind = PlaceAddress::Kind::directory;
  address.path = plainPath(std::move(path));
  if (address.path.empty())
    refuse(Message("it is the root of all files"), Message("Give a directory of its own."));
}

void setWebDav(PlaceAddress& address, Parts& parts) {
  address.kind = PlaceAddress::Kind::webDav;
  address.user = parts.user;
  setOrigin(address, parts.scheme, parts.host);
}

void setHub(PlaceAddress& address, Parts& parts) {
  address.kind = PlaceAddress::Kind::hub;
  if (!parts.user.empty())
    refuse(Message("a hub knows no names"), Message("Leave out what stands before the @."));
  const std::string tls = taken(parts.options, "tls");
  if (!tls.empty() && tls != "no") refuse(Message("tls can be no alone"), Message("Leave it out."));
  setOrigin(address, tls == "no" ? "http" : "https", parts.host);
}

void setEndpoint(PlaceAddress& address, const std::string& endpoint) {
  if (endpoint.empty()) {
    if (address.region.empty()) refuse(Message("it says neither where the bucket is nor in which region"));
    setOrigin(address, "https", "s3." + address.region + ".amazonaws.com");
    return;
  }
  const Parts parts = partsOf(endpoint);
  if (parts.scheme != "https" && parts.scheme != "http") refuse(Message("its endpoint is no https:// URL"));
  if (!parts.user.empty() || !parts.path.empty() || !parts.options.empty())
    refuse(Message("its endpoint is more than a host"),
           Message("Give endpoint=https://HOST or https://HOST:PORT."));
  setOrigin(address, parts.scheme, parts.host);
  if (address.region.empty()) address.region = "us-east-1";  // what servers of one region call theirs
}

void setS3(PlaceAddress& address, Parts& parts) {
  address.kind = PlaceAddress::Kind::s3;
  if (!parts.user.empty())
    refuse(Message("a bucket's address takes no name"), Message("The key's name is asked for."));
  address.bucket = parts.host;
  if (address.bucket.size() < 3 || address.bucket.size() > 63 || !isMadeOf(address.bucket, ".-"))
    refuse(Message("it names no bucket: 3 to 63 of a-z, 0-9, . and -"));
  const std::string endpoint = taken(parts.options, "endpoint"), style = taken(parts.options, "style");
  address.region = taken(parts.options, "region");
  if (address.region.size() > 64 || !isMadeOf(address.region, "-"))
    refuse(Message("its region is none"),
           Message("Give it as the provider writes it, such as eu-central-1."));
  if (!style.empty() && style != "path" && style != "host")
    refuse(Message("its style is neither path nor host"), Message("Leave it out."));
  setEndpoint(address, endpoint);
  // A certificate for all names under a host's holds for names without a dot.
  const bool isUsual = endpoint.empty() && address.bucket.find('.') == std::string::npos;
  address.isBucketInHost = style == "host" || (style.empty() && isUsual);
  if (address.isBucketInHost)
    setOrigin(address, address.origin.substr(0, address.origin.find(':')),
              address.bucket + '.' + address.host);
}

}  // namespace

PlaceAddress parsePlaceAddress(std::string_view text) {
  if (text.empty()) refuse(Message("it is empty"));
  if (text.size() > kLongestAddress)
    refuse(Message("it is longer than %1 bytes", std::to_string(kLongestAddress)));
  if (std::any_of(text.begin(), text.end(), [](char c) { return (c >= 0 && c < ' ') || c == '\x7f'; }))
    refuse(Message("there is a control character in it"));
  PlaceAddress address;
  if (text.front() == '/') {
    setDirectory(address, std::string(text));
    return address;
  }
  if (text.starts_with("file://")) {
    if (!text.starts_with("file:///"))
      refuse(Message("it names a computer, and files are on this one"), Message("Write file:///…"));
    setDirectory(address, decoded(text.substr(7)));
    return address;
  }
  if (text.find("://") == std::string_view::npos)
    refuse(Message("it begins neither with / nor with a scheme"));
  Parts parts = partsOf(std::string(text));
  address.path = parts.path;
  address.certificates = taken(parts.options, "ca");
  if (!address.certificates.empty() && address.certificates.front() != '/')
    refuse(Message("ca is not the whole path of a file"), Message("Begin it with /."));
  if (parts.scheme == "https" || parts.scheme == "http") {
    setWebDav(address, parts);
  } else if (parts.scheme == "s3") {
    setS3(address, parts);
  } else if (parts.scheme == "hub") {
    setHub(address, parts);
  } else {
    refuse(Message("its scheme is not known"));
  }
  if (!parts.options.empty()) refuse(Message("it says something after the ? that is not known"));
  return address;
}

Message PlaceAddress::description() const {
  switch (kind) {
    case Kind::directory:
      return Message("the directory %1", path);
    case Kind::webDav:
      return Message("the folder %1 at %2", path.empty() ? "/" : path, host);
    case Kind::s3:
      return Message("the bucket %1 at %2", bucket, host);
    case Kind::hub:
      break;
  }
  return Message("the hub at %1", host);
}

}  // namespace corvane::pelto
