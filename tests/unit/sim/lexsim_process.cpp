#include "lexsim_process.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <stdexcept>
#include <thread>

constexpr auto kStartTimeout = std::chrono::seconds(10);
constexpr auto kStopTimeout = std::chrono::seconds(15);
constexpr int kSocketTimeoutSecs = 15;
constexpr size_t kMaxReply = 1 << 16;

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
  auto deadline = std::chrono::steady_clock::now() + kStartTimeout;
  while (line.find('\n') == std::string::npos) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    pollfd p{out[0], POLLIN, 0};
    char buf[256];
    ssize_t n = 0;
    if (left.count() <= 0 || poll(&p, 1, static_cast<int>(left.count())) <= 0 ||
        (n = read(out[0], buf, sizeof buf)) <= 0)
      break;
    line.append(buf, static_cast<size_t>(n));
  }
  close(out[0]);
  if (line.find('\n') == std::string::npos) {
    Stop();
    throw std::runtime_error("lexsim did not print its address");
  }
  url_ = line.substr(0, line.find('\n')) + "/nvsoap/nvsoap.cgi";
}

int LexsimProcess::Stop(int signal) {
  if (pid_ <= 0) return -1;
  kill(pid_, signal);
  int status = 0;
  auto deadline = std::chrono::steady_clock::now() + kStopTimeout;
  pid_t done = 0;
  while ((done = waitpid(pid_, &status, WNOHANG)) == 0 && std::chrono::steady_clock::now() < deadline)
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  if (done == 0) {
    kill(pid_, SIGKILL);
    waitpid(pid_, &status, 0);
  }
  pid_ = -1;
  return done != 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

RawReply RawExchange(int port, const std::string& request, Ending ending) {
  RawReply out;
  int fd = socket(AF_INET, SOCK_STREAM, 0);
  if (fd < 0) return out;
  timeval tv{kSocketTimeoutSecs, 0};
  setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
  setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &tv, sizeof tv);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_port = htons(static_cast<uint16_t>(port));
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
    close(fd);
    return out;
  }
  out.connected = true;
  // The server may answer and close before it has read everything; that is fine.
  for (size_t sent = 0; sent < request.size();) {
    ssize_t n = send(fd, request.data() + sent, request.size() - sent, MSG_NOSIGNAL);
    if (n <= 0) break;
    sent += static_cast<size_t>(n);
  }
  if (ending == Ending::kReset) {
    linger l{1, 0};
    setsockopt(fd, SOL_SOCKET, SO_LINGER, &l, sizeof l);
    close(fd);
    return out;
  }
  if (ending == Ending::kHalfClose) shutdown(fd, SHUT_WR);
  char buf[8192];
  ssize_t n;
  while ((n = recv(fd, buf, sizeof buf, 0)) > 0 && out.text.size() < kMaxReply)
    out.text.append(buf, static_cast<size_t>(n));
  out.timed_out = n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK);
  close(fd);
  return out;
}

std::string Envelope(const std::string& body) {
  return "<?xml version=\"1.0\"?><SOAP-ENV:Envelope "
         "xmlns:SOAP-ENV=\"http://schemas.xmlsoap.org/soap/envelope/\" "
         "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" "
         "xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\" "
         "xmlns:nv=\"http://schemas.lexary.net/nvsoap/2/schema\"><SOAP-ENV:Body>" +
         body + "</SOAP-ENV:Body></SOAP-ENV:Envelope>";
}
