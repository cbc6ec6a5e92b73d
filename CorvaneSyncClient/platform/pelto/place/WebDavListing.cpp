#include "CorvaneSyncClient/platform/pelto/place/WebDavListing.h"

#include <algorithm>
#include <charconv>

#include "CorvaneSyncClient/platform/foundation/Message.h"
#include "CorvaneSyncClient/platform/pelto/place/HttpText.h"
#include "CorvaneSyncClient/platform/pelto/place/XmlElements.h"

namespace corvane::pelto {

namespace {

// The path of an absolute URL or of a path, without a slash at its end.
std::string pathIn(const std::string& href) {
  const std::size_t authority = href.find("://");
  std::size_t begin = 0;
  if (authority != std::string::npos && authority < href.find('/')) begin = href.find('/', authority + 3);
  if (begin == std::string::npos) return {};
  std::string path = href.substr(begin, href.find_first_of("?#", begin) - begin);
  while (!path.empty() && path.back() == '/') path.pop_back();
  return percentDecoded(path);
}

class WebDavListingBuilder {
 public:
  void begin(const XmlPath& path) {
    if (path.size() == 1 && path[0] != "DAV: multistatus") throw XmlException(Message("it is no listing"));
    if (path.size() == 2 && path[1] == "DAV: response") _entries.emplace_back();
    if (isProperty(path, 6) && path[4] == "DAV: resourcetype" && path[5] == "DAV: collection")
      _entries.back().entry.isCollection = true;
  }

  void end(const XmlPath& path, const std::string& text) {
    if (path.size() == 3 && path[1] == "DAV: response" && path[2] == "DAV: href")
      _entries.back().path = pathIn(text);
    if (!isProperty(path, 5) || text.empty()) return;
    if (path[4] == "DAV: getlastmodified") _entries.back().entry.date = dateFromHttp(text);
    if (path[4] == "DAV: getcontentlength") {
      const auto [last, error] =
          std::from_chars(text.data(), text.data() + text.size(), _entries.back().entry.bytes);
      if (error != std::errc() || last != text.data() + text.size())
        throw XmlException(Message("a length that is no number"));
    }
  }

  // The collection itself is what all others lie directly in: their paths are one part longer.
  std::vector<WebDavEntry> finish() {
    const auto own = std::min_element(
        _entries.begin(), _entries.end(),
        [](const auto& one, const auto& other) { return one.path.size() < other.path.size(); });
    std::vector<WebDavEntry> entries;
    for (auto& [path, entry] : _entries) {
      if (path != own->path) {
        const std::size_t slash = path.rfind('/');
        if (slash != own->path.size() || !path.starts_with(own->path))
          throw XmlException(Message("it lists what does not lie there"));
        entry.name = path.substr(slash + 1);
      }
      entries.push_back(std::move(entry));
    }
    return entries;
  }

 private:
  struct Found {
    std::string path;
    WebDavEntry entry;
  };

  static bool isProperty(const XmlPath& path, std::size_t depth) {
    return path.size() == depth && path[1] == "DAV: response" && path[2] == "DAV: propstat" &&
           path[3] == "DAV: prop";
  }

  std::vector<Found> _entries;
};

}  // namespace

std::vector<WebDavEntry> readWebDavListing(std::string_view bytes) {
  WebDavListingBuilder builder;
  readXml(bytes, {[&](const XmlPath& path) { builder.begin(path); },
                  [&](const XmlPath& path, const std::string& text) { builder.end(path, text); }});
  return builder.finish();
}

}  // namespace corvane::pelto
