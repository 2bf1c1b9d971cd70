#include "client/tls_checks.h"

#include <arpa/inet.h>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "client/local_data.h"

namespace lexctl {

int VerifyIgnoringDates(int ok, X509_STORE_CTX* store) {
  if (!ok) {
    int error = X509_STORE_CTX_get_error(store);
    if (error == X509_V_ERR_CERT_HAS_EXPIRED || error == X509_V_ERR_CERT_NOT_YET_VALID) {
      X509_STORE_CTX_set_error(store, X509_V_OK);
      return 1;
    }
  }
  return ok;
}

namespace {

// 0 when path is a file that can be opened for reading, else an errno value.
int FileProblem(const std::string& path) {
  int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return errno;
  struct stat info;
  int problem = fstat(fd, &info) != 0 ? errno : S_ISDIR(info.st_mode) ? EISDIR : 0;
  close(fd);
  return problem;
}

// 0 when path is a folder whose entries can be listed, else an errno value.
int FolderProblem(const std::string& path) {
  DIR* dir = opendir(path.c_str());
  if (!dir) return errno;
  closedir(dir);
  return 0;
}

}  // namespace

std::string CaFileFor(const TransportSettings& settings) {
  if (!settings.ssl_ca_file.empty() && FileProblem(settings.ssl_ca_file) == 0) return settings.ssl_ca_file;
  return settings.ssl_ca_dir.empty() ? "/etc/ssl/certs/ca-certificates.crt" : "";
}

std::string UnreadableCaSetting(const TransportSettings& settings) {
  const std::string& file = settings.ssl_ca_file;
  if (!file.empty()) {
    int problem = FileProblem(file);
    bool fallback = file == kDefaultCaFile && problem == ENOENT;
    if (problem && !fallback) return "cannot read CA file " + file + " (" + strerror(problem) + ")";
  }
  const std::string& dir = settings.ssl_ca_dir;
  if (!dir.empty()) {
    if (int problem = FolderProblem(dir)) return "cannot read CA folder " + dir + " (" + strerror(problem) + ")";
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

bool IsIpAddress(const std::string& host) {
  unsigned char buffer[16];
  return inet_pton(AF_INET, host.c_str(), buffer) == 1 || inet_pton(AF_INET6, host.c_str(), buffer) == 1;
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
