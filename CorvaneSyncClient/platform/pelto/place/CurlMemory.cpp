#include "CorvaneSyncClient/platform/pelto/place/CurlMemory.h"

#include <curl/curl.h>
#include <malloc.h>
#include <sodium.h>
#include <string.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>

namespace corvane::pelto {

namespace {

// libcurl keeps copies of what proves who asks, and of what it sends and receives.
void freeWiped(void* memory) {
  if (memory) sodium_memzero(memory, ::malloc_usable_size(memory));
  std::free(memory);
}

void* reallocateWiped(void* memory, std::size_t size) {
  void* const larger = std::malloc(size);
  if (!larger || !memory) return larger;
  std::memcpy(larger, memory, std::min(size, ::malloc_usable_size(memory)));
  freeWiped(memory);
  return larger;
}

}  // namespace

void initialiseCurl() {
  static const CURLcode result = curl_global_init_mem(CURL_GLOBAL_DEFAULT, std::malloc, freeWiped,
                                                      reallocateWiped, ::strdup, std::calloc);
  if (result != CURLE_OK) throw std::bad_alloc();  // it fails for nothing else
}

}  // namespace corvane::pelto
