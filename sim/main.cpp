// lexsim: a Lexary Server simulator answering the nvsoap service from in-memory state.
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
#include "sys.h"

namespace {

void Stop() { lexsim::Server::Stop(); }

bool ReadFile(const std::string& path, std::string* text) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return false;
  std::ostringstream s;
  s << in.rdbuf();
  *text = s.str();
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
      lexsim::BlockStopSignals();
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
    if (!lexsim::WriteFileAtomically(path_, text)) {
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

  lexsim::InstallStopHandler(Stop);

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
