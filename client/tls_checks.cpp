#include "client/tls_checks.h"

#include <cerrno>
#include <cstring>

#include "client/local_data.h"
#include "shell/platform.h"

namespace lexctl {

int ForgiveDates(int ok, X509_STORE_CTX* store, decltype(&X509_STORE_CTX_get_error) get_error,
                 decltype(&X509_STORE_CTX_set_error) set_error) {
  if (ok) return ok;
  int error = get_error(store);
  if (error != X509_V_ERR_CERT_HAS_EXPIRED && error != X509_V_ERR_CERT_NOT_YET_VALID) return ok;
  set_error(store, X509_V_OK);
  return 1;
}

int VerifyIgnoringDates(int ok, X509_STORE_CTX* store) {
  return ForgiveDates(ok, store, X509_STORE_CTX_get_error, X509_STORE_CTX_set_error);
}

std::string CaFileFor(const TransportSettings& settings) {
  const std::string& file = settings.ssl_ca_file;
  if (!file.empty() && FileReadError(file.c_str()) == 0) return file;
  return settings.ssl_ca_dir.empty() ? "/etc/ssl/certs/ca-certificates.crt" : "";
}

std::string UnreadableCaSetting(const TransportSettings& settings) {
  const std::string& file = settings.ssl_ca_file;
  if (!file.empty()) {
    int problem = FileReadError(file.c_str());
    bool fallback = file == kDefaultCaFile && problem == ENOENT;
    if (problem && !fallback) return "cannot read CA file " + file + " (" + strerror(problem) + ")";
  }
  const std::string& dir = settings.ssl_ca_dir;
  if (!dir.empty()) {
    int problem = FolderReadError(dir.c_str());
    if (problem) return "cannot read CA folder " + dir + " (" + strerror(problem) + ")";
  }
  return "";
}

std::string HostOf(const std::string& url) {
  size_t start = url.find("://");
  start = start == std::string::npos ? 0 : start + 3;
  if (start < url.size() && url[start] == '[') {
    size_t close = url.find(']', start);
    return url.substr(start + 1, close == std::string::npos ? std::string::npos : close - start - 1);
  }
  size_t end = url.find_first_of(":/", start);
  return url.substr(start, end == std::string::npos ? std::string::npos : end - start);
}

int& LastVerifyError() {
  thread_local int error = X509_V_OK;
  return error;
}

int VerifyNoting(int ok, X509_STORE_CTX* store) {
  if (!ok && LastVerifyError() == X509_V_OK) LastVerifyError() = X509_STORE_CTX_get_error(store);
  return ok;
}

int VerifyNotingIgnoringDates(int ok, X509_STORE_CTX* store) {
  return VerifyNoting(VerifyIgnoringDates(ok, store), store);
}

}  // namespace lexctl
