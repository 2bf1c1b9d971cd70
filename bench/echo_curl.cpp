// libcurl alone: keep-alive POSTs of one request body in a loop, with no SOAP
// work, the ceiling of any layer built on libcurl. Prints calls per second.
// Usage: bench_echo_curl URL CALLS BODY_FILE [HEADER...]
#include <curl/curl.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

namespace {

size_t Discard(char*, size_t size, size_t count, void*) { return size * count; }

}  // namespace

int main(int argc, char** argv) {
  if (argc < 4) {
    std::fprintf(stderr, "Usage: %s URL CALLS BODY_FILE [HEADER...]\n", argv[0]);
    return 2;
  }
  std::ifstream in(argv[3], std::ios::binary);
  std::string body((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  long calls = std::atol(argv[2]);
  curl_global_init(CURL_GLOBAL_DEFAULT);
  CURL* easy = curl_easy_init();
  curl_slist* headers = curl_slist_append(nullptr, "Accept:");  // as wrk: only the given headers
  for (int i = 4; i < argc; ++i) headers = curl_slist_append(headers, argv[i]);
  // Parsed once, as the windows layer does.
  CURLU* url = curl_url();
  if (curl_url_set(url, CURLUPART_URL, argv[1], 0) != CURLUE_OK) return 2;
  curl_easy_setopt(easy, CURLOPT_CURLU, url);
  curl_easy_setopt(easy, CURLOPT_HTTPHEADER, headers);
  curl_easy_setopt(easy, CURLOPT_POSTFIELDS, body.data());
  curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
  curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, Discard);
  curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
  // The multi interface, as the windows layer drives libcurl.
  CURLM* multi = curl_multi_init();
  auto start = std::chrono::steady_clock::now();
  for (long i = 0; i < calls; ++i) {
    curl_multi_add_handle(multi, easy);
    int running = 1;
    while (running) {
      if (curl_multi_perform(multi, &running) != CURLM_OK) return 1;
      if (running) curl_multi_poll(multi, nullptr, 0, 1000, nullptr);
    }
    CURLMsg* msg;
    int left;
    while ((msg = curl_multi_info_read(multi, &left)))
      if (msg->msg == CURLMSG_DONE && msg->data.result != CURLE_OK) return 1;
    curl_multi_remove_handle(multi, easy);
  }
  std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
  std::printf("%.0f\n", calls / took.count());
  return 0;
}
