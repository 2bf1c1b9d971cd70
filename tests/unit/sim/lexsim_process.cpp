#include "lexsim_process.h"

#include "soapH.h"

#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <stdexcept>
#include <thread>

namespace {

constexpr int kStartTimeoutMs = 10000;
constexpr int kStopTimeoutMs = 15000;

}  // namespace

LexsimProcess::LexsimProcess(std::vector<std::string> args) {
  int out[2];
  if (pipe(out) != 0) throw std::runtime_error("pipe failed");
  args.insert(args.begin(), {LEXSIM_PATH, "--port", "0"});
  pid_ = fork();
  if (pid_ < 0) throw std::runtime_error("fork failed");
  if (pid_ == 0) {
    dup2(out[1], 1);
    close(out[0]);
    close(out[1]);
    std::vector<char*> argv;
    for (std::string& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    execv(argv[0], argv.data());
    _exit(127);
  }
  close(out[1]);
  std::string line;
  auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kStartTimeoutMs);
  while (line.find('\n') == std::string::npos) {
    int left = static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                    deadline - std::chrono::steady_clock::now())
                                    .count());
    pollfd p{out[0], POLLIN, 0};
    if (left <= 0 || poll(&p, 1, left) <= 0) break;
    char buf[256];
    ssize_t n = read(out[0], buf, sizeof buf);
    if (n <= 0) break;
    line.append(buf, static_cast<size_t>(n));
  }
  close(out[0]);
  if (line.find('\n') == std::string::npos) {
    Stop();
    throw std::runtime_error("lexsim did not print its address");
  }
  url_ = line.substr(0, line.find('\n')) + "/nvsoap/nvsoap.cgi";
}

LexsimProcess::~LexsimProcess() { Stop(); }

std::string LexsimProcess::UrlWithPath(const std::string& path) const {
  size_t slash = url_.find('/', url_.find("://") + 3);
  return url_.substr(0, slash) + path;
}

int LexsimProcess::port() const {
  size_t colon = url_.rfind(':');
  return std::stoi(url_.substr(colon + 1));
}

int LexsimProcess::Stop() {
  if (pid_ <= 0) return -1;
  kill(pid_, SIGTERM);
  int status = 0;
  auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kStopTimeoutMs);
  pid_t done = 0;
  while ((done = waitpid(pid_, &status, WNOHANG)) == 0 &&
         std::chrono::steady_clock::now() < deadline)
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  if (done == 0) {
    kill(pid_, SIGKILL);
    waitpid(pid_, &status, 0);
    pid_ = -1;
    return -1;
  }
  pid_ = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

WireFixture::WireFixture() : soap_(soap_new1(SOAP_C_UTFSTRING)) {
  soap_->connect_timeout = 5;
  soap_->recv_timeout = 30;
  soap_->send_timeout = 30;
}

WireFixture::~WireFixture() {
  soap_destroy(soap_);
  soap_end(soap_);
  soap_free(soap_);
}

std::string* WireFixture::S(const std::string& s) {
  auto* p = soap_new_std__string(soap_);
  *p = s;
  return p;
}

int64_t* WireFixture::L(int64_t v) {
  auto* p = static_cast<int64_t*>(soap_malloc(soap_, sizeof(int64_t)));
  *p = v;
  return p;
}

const nv__NvsoapException* WireFixture::Detail() const {
  if (!soap_->fault) return nullptr;
  SOAP_ENV__Detail* d = soap_->fault->detail ? soap_->fault->detail : soap_->fault->SOAP_ENV__Detail;
  return d ? d->nv__NvsoapException_ : nullptr;
}

std::string WireFixture::FaultErr() const {
  if (!soap_->fault) return "(no fault)";
  return Detail() ? Detail()->err : "(no detail)";
}

std::string WireFixture::FaultMsg() const { return Detail() ? Detail()->msg : ""; }
