#include <cstdlib>
#include <limits>
#include <memory>
#include <string>
#include <string_view>

// A program with the fault that its argument names.

namespace {

struct Link {
  std::shared_ptr<Link> next;
};

// Two that keep each other, without anybody else who knows them.
[[gnu::noinline]] void leak() {
  auto first = std::make_shared<Link>();
  first->next = std::make_shared<Link>(Link{first});
}

// Whatever the stack below still says of what has leaked.
[[gnu::noinline]] void clearStack() {
  volatile char below[4096];
  for (volatile char& each : below) each = 0;
}

char readAfterTheEnd(const std::string& text) {
  const auto copy = std::make_unique<char[]>(text.size());
  return copy[text.size()];
}

}  // namespace

int main(int argc, char** argv) {
  const std::string_view fault = argc == 2 ? argv[1] : "";
  volatile int most = std::numeric_limits<int>::max();
  if (fault == "leak")
    leak();
  else if (fault == "read")
    return readAfterTheEnd(argv[1]);
  else if (fault == "overflow")
    return most + argc > 0;
  else
    return 2;
  clearStack();
  return EXIT_SUCCESS;
}
