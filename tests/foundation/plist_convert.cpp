// plist_convert IN OUT binary|xml: reads a property list of any flavour and writes it in the one named.

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"

int main(int count, char** arguments) {
  if (count != 4) return 2;
  try {
    std::ifstream in(arguments[1], std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    const corvane::Value value = corvane::readPropertyList(bytes);
    std::ofstream out(arguments[2], std::ios::binary);
    out << (std::string(arguments[3]) == "xml" ? corvane::writeXmlPropertyList(value)
                                               : corvane::writeBinaryPropertyList(value));
    out.close();
    return in && out ? 0 : 1;
  } catch (const corvane::PlatformException& exception) {
    std::fprintf(stderr, "%s\n", exception.what());
    return 1;
  }
}
