// plist_convert (IN OUT binary|xml)...: reads property lists of any flavour and writes each in the one named.

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"

namespace {

bool convert(const char* source, const char* target, const std::string& flavour) {
  std::ifstream in(source, std::ios::binary);
  const std::string bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  const corvane::Value value = corvane::readPropertyList(bytes);
  std::ofstream out(target, std::ios::binary);
  out << (flavour == "xml" ? corvane::writeXmlPropertyList(value) : corvane::writeBinaryPropertyList(value));
  out.close();
  return in && out;
}

}  // namespace

int main(int count, char** arguments) {
  if (count < 4 || count % 3 != 1) return 2;
  try {
    for (int i = 1; i < count; i += 3) {
      if (!convert(arguments[i], arguments[i + 1], arguments[i + 2])) return 1;
    }
    return 0;
  } catch (const corvane::PlatformException& exception) {
    std::fprintf(stderr, "%s\n", exception.what());
    return 1;
  }
}
