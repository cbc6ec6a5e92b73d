#include <curl/curl.h>

#include <cstdarg>

#include "CorvaneSyncClient/platform/pelto/seal/ServiceLibrary.h"

// The functions of libcurl, which is loaded when the first of them is called. Nobody without an account calls
// one, and libcurl stands on thirty further libraries: to load and bind them takes longer than a session of a
// thousand bookmarks.
//
// Nothing is linked with libcurl itself; a function that is not defined here is missing at the link. Where
// libcurl cannot be loaded, every function raises PlatformException.

namespace corvane {

namespace {

// By the names that it has with OpenSSL and with GnuTLS.
LoadedFunction curlFunction(const char* name) {
  return pelto::serviceFunction({"libcurl.so.4", "libcurl-gnutls.so.4"}, name);
}

// What a function takes first: `curl_url_get` takes a handle that is const in newer versions.
template <typename Result, typename First, typename... Others>
First firstOf(Result (*)(First, Others...));

}  // namespace

}  // namespace corvane

// A function of libcurl, found at its first call. In parentheses, since libcurl makes macros of some.
#define CORVANE_CURL(function)                                                 \
  static decltype(&(function)) const found = corvane::curlFunction(#function); \
  return found

extern "C" {

CURLcode(curl_global_init_mem)(long flags, curl_malloc_callback allocate, curl_free_callback release,
                               curl_realloc_callback reallocate, curl_strdup_callback duplicate,
                               curl_calloc_callback allocateZeroed) {
  CORVANE_CURL(curl_global_init_mem)(flags, allocate, release, reallocate, duplicate, allocateZeroed);
}
time_t(curl_getdate)(const char* text, const time_t* unused) { CORVANE_CURL(curl_getdate)(text, unused); }
void(curl_free)(void* memory) { CORVANE_CURL(curl_free)(memory); }
curl_slist*(curl_slist_append)(curl_slist* list, const char* text) {
  CORVANE_CURL(curl_slist_append)(list, text);
}
void(curl_slist_free_all)(curl_slist* list) { CORVANE_CURL(curl_slist_free_all)(list); }

CURLU*(curl_url)() { CORVANE_CURL(curl_url)(); }
void(curl_url_cleanup)(CURLU* url) { CORVANE_CURL(curl_url_cleanup)(url); }
CURLUcode(curl_url_get)(decltype(corvane::firstOf(&(curl_url_get))) url, CURLUPart part, char** text,
                        unsigned flags) {
  CORVANE_CURL(curl_url_get)(url, part, text, flags);
}
CURLUcode(curl_url_set)(CURLU* url, CURLUPart part, const char* text, unsigned flags) {
  CORVANE_CURL(curl_url_set)(url, part, text, flags);
}

CURL*(curl_easy_init)() { CORVANE_CURL(curl_easy_init)(); }
void(curl_easy_cleanup)(CURL* handle) { CORVANE_CURL(curl_easy_cleanup)(handle); }
CURLcode(curl_easy_pause)(CURL* handle, int what) { CORVANE_CURL(curl_easy_pause)(handle, what); }
const char*(curl_easy_strerror)(CURLcode code) { CORVANE_CURL(curl_easy_strerror)(code); }

CURLM*(curl_multi_init)() { CORVANE_CURL(curl_multi_init)(); }
CURLMcode(curl_multi_cleanup)(CURLM* multi) { CORVANE_CURL(curl_multi_cleanup)(multi); }
CURLMcode(curl_multi_add_handle)(CURLM* multi, CURL* handle) {
  CORVANE_CURL(curl_multi_add_handle)(multi, handle);
}
CURLMcode(curl_multi_remove_handle)(CURLM* multi, CURL* handle) {
  CORVANE_CURL(curl_multi_remove_handle)(multi, handle);
}
CURLMcode(curl_multi_perform)(CURLM* multi, int* running) {
  CORVANE_CURL(curl_multi_perform)(multi, running);
}
CURLMsg*(curl_multi_info_read)(CURLM* multi, int* left) { CORVANE_CURL(curl_multi_info_read)(multi, left); }
CURLMcode(curl_multi_poll)(CURLM* multi, curl_waitfd* more, unsigned count, int milliseconds, int* ready) {
  CORVANE_CURL(curl_multi_poll)(multi, more, count, milliseconds, ready);
}

// Each is called with one more argument, a pointer or an integer as wide as one, which every convention of
// our machines passes alike. What precedes it is an enumeration for whoever calls, and an integer here, since
// only behind one may a list of arguments begin.
static_assert(sizeof(long) == sizeof(void*) && sizeof(curl_off_t) == sizeof(void*));
#define CORVANE_CURL_VARIADIC(function, object, What, what) \
  va_list arguments;                                        \
  va_start(arguments, what);                                \
  void* const argument = va_arg(arguments, void*);          \
  va_end(arguments);                                        \
  CORVANE_CURL(function)(object, static_cast<What>(what), argument)

CURLcode setOption(CURL* handle, int option, ...) __asm__("curl_easy_setopt");
CURLcode setOption(CURL* handle, int option, ...) {
  CORVANE_CURL_VARIADIC(curl_easy_setopt, handle, CURLoption, option);
}
CURLcode getInfo(CURL* handle, int info, ...) __asm__("curl_easy_getinfo");
CURLcode getInfo(CURL* handle, int info, ...) {
  CORVANE_CURL_VARIADIC(curl_easy_getinfo, handle, CURLINFO, info);
}
CURLMcode setMultiOption(CURLM* multi, int option, ...) __asm__("curl_multi_setopt");
CURLMcode setMultiOption(CURLM* multi, int option, ...) {
  CORVANE_CURL_VARIADIC(curl_multi_setopt, multi, CURLMoption, option);
}

}  // extern "C"
