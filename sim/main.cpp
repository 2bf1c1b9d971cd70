// lexsim: a Lexary Server simulator answering the nvsoap service from in-memory state.
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <fstream>
#include <mutex>
#include <sstream>
#include <thread>

#include "log.h"
#include "options.h"
#include "server.h"
#include "state.h"

namespace {

void OnStopSignal(int) { lexsim::Server::Stop(); }

bool ReadFile(const std::string& path, std::string* text) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return false;
  std::ostringstream s;
  s << in.rdbuf();
  *text = s.str();
  return true;
}

// The old file stays whole until the new one is on disk: a crash mid-write loses nothing.
bool WriteFileAtomically(const std::string& path, const std::string& text) {
  std::string tmp = path + ".tmp";
  int fd = open(tmp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (fd < 0) return false;
  size_t done = 0;
  while (done < text.size()) {
    ssize_t n = write(fd, text.data() + done, text.size() - done);
    if (n <= 0) {
      close(fd);
      std::remove(tmp.c_str());
      return false;
    }
    done += static_cast<size_t>(n);
  }
  bool ok = fsync(fd) == 0;
  ok = close(fd) == 0 && ok;
  if (!ok || std::rename(tmp.c_str(), path.c_str()) != 0) {
    std::remove(tmp.c_str());
    return false;
  }
  return true;
}

// Writes the state file whenever requests may have changed the store, at most once a
// second, and once more at the end.
class StateSaver {
 public:
  StateSaver(lexsim::State& state, std::string path) : state_(state), path_(std::move(path)) {}

  void Start() {
    saved_ = state_.changes();
    thread_ = std::thread([this] {
      // Stop signals belong to the thread that serves.
      sigset_t stop;
      sigemptyset(&stop);
      sigaddset(&stop, SIGTERM);
      sigaddset(&stop, SIGINT);
      pthread_sigmask(SIG_BLOCK, &stop, nullptr);
      std::unique_lock<std::mutex> hold(mu_);
      while (!cv_.wait_for(hold, std::chrono::seconds(1), [this] { return stop_; })) {
        hold.unlock();
        SaveIfChanged();
        hold.lock();
      }
    });
  }

  /// Stops the thread and writes the final state; false when that write failed.
  bool Finish() {
    if (thread_.joinable()) {
      {
        std::lock_guard<std::mutex> hold(mu_);
        stop_ = true;
      }
      cv_.notify_all();
      thread_.join();
    }
    return SaveIfChanged(true);
  }

 private:
  bool SaveIfChanged(bool always = false) {
    uint64_t now = state_.changes();
    if (!always && now == saved_) return true;
    std::string text;
    {
      auto lock = state_.Lock();
      text = state_.Serialize();
    }
    if (!WriteFileAtomically(path_, text)) {
      std::fprintf(stderr, "lexsim: cannot write state file %s\n", path_.c_str());
      return false;
    }
    saved_ = now;
    return true;
  }

  lexsim::State& state_;
  std::string path_;
  uint64_t saved_ = 0;
  std::thread thread_;
  std::mutex mu_;
  std::condition_variable cv_;
  bool stop_ = false;
};

}  // namespace

int main(int argc, char** argv) {
  lexsim::Options opts;
  std::string error;
  std::vector<std::string> args(argv + 1, argv + argc);
  for (const std::string& a : args)
    if (a == "--help" || a == "-h") {
      std::fputs(lexsim::kUsage, stdout);
      return 0;
    } else if (a == "--version") {
      std::printf("lexsim %s\n", lexsim::kVersion);
      return 0;
    }
  if (!lexsim::ParseOptions(args, &opts, &error)) {
    std::fprintf(stderr, "lexsim: %s\n%s", error.c_str(), lexsim::kUsage);
    return 2;
  }

  lexsim::State state;
  if (!opts.state_file.empty()) {
    std::string text;
    if (ReadFile(opts.state_file, &text)) {
      auto lock = state.Lock();
      if (!state.Deserialize(text, &error)) {
        std::fprintf(stderr, "lexsim: malformed state file %s: %s\n", opts.state_file.c_str(),
                     error.c_str());
        return 1;
      }
    }
  }
  lexsim::Logger log;
  if (!opts.log_file.empty() && !log.Open(opts.log_file)) {
    std::fprintf(stderr, "lexsim: cannot open log file %s\n", opts.log_file.c_str());
    return 1;
  }

  // A client dropping a connection mid-reply must not kill the server.
  signal(SIGPIPE, SIG_IGN);
  struct sigaction sa {};
  sa.sa_handler = OnStopSignal;
  sigemptyset(&sa.sa_mask);
  sigaction(SIGTERM, &sa, nullptr);
  sigaction(SIGINT, &sa, nullptr);

  lexsim::Env env{state, opts, log};
  lexsim::Server server(env);
  std::string address;
  if (!server.Start(&address, &error)) {
    std::fprintf(stderr, "lexsim: %s\n", error.c_str());
    return 1;
  }
  StateSaver saver(state, opts.state_file);
  if (!opts.state_file.empty()) saver.Start();
  // The first line is what "setopt server" takes; the client adds the path.
  std::printf("%s\nEndpoint path: %s\n", address.c_str(), lexsim::kServicePath);
  std::fflush(stdout);
  log.Write("listening on " + address + lexsim::kServicePath);

  server.Run();

  if (!opts.state_file.empty() && !saver.Finish()) return 1;
  log.Write("stopped");
  return 0;
}
