// lexsim: a Lexary Server simulator answering the nvsoap service from in-memory state.
#include <signal.h>

#include <cstdio>
#include <fstream>
#include <sstream>

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

bool WriteFileAtomically(const std::string& path, const std::string& text) {
  std::string tmp = path + ".tmp";
  {
    std::ofstream out(tmp, std::ios::binary | std::ios::trunc);
    if (!(out << text) || !out.flush()) return false;
  }
  return std::rename(tmp.c_str(), path.c_str()) == 0;
}

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
      if (!state.LoadAccounts(text)) {
        std::fprintf(stderr, "lexsim: malformed state file %s\n", opts.state_file.c_str());
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
  std::string url;
  if (!server.Start(&url, &error)) {
    std::fprintf(stderr, "lexsim: %s\n", error.c_str());
    return 1;
  }
  std::printf("%s\n", url.c_str());
  std::fflush(stdout);
  log.Write("listening on " + url);

  server.Run();

  if (!opts.state_file.empty()) {
    std::string text;
    {
      auto lock = state.Lock();
      text = state.SaveAccounts();
    }
    if (!WriteFileAtomically(opts.state_file, text)) {
      std::fprintf(stderr, "lexsim: cannot write state file %s\n", opts.state_file.c_str());
      return 1;
    }
  }
  log.Write("stopped");
  return 0;
}
