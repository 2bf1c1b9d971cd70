#pragma once
/// lexsim's HTTP(S) front: the listening socket, the accept loop and the worker pool.

#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "frame.h"
#include "shell/version.h"

namespace lexsim {

/// The one path the service answers on; everything else gets 404.
inline constexpr const char* kServicePath = "/nvsoap/nvsoap.cgi";
/// Value of the "Server" response header.
inline constexpr const char* kServerHeader = "Lexary-Server/" LEXCTL_VERSION " lexsim";

class Server {
 public:
  explicit Server(const Env& env);
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  /// Binds the listening socket and loads the TLS key; on success *address is
  /// the scheme, host and port, without the service path.
  bool Start(std::string* address, std::string* error);
  /// Accepts connections and hands them to the workers until Stop(); then drains them.
  void Run();
  /// Safe from a signal handler.
  static void Stop();

 private:
  struct Pending {
    SOAP_SOCKET socket;
    std::string peer;
  };
  void Worker(size_t slot, struct soap* soap);
  void Configure(struct soap* soap) const;
  void WakeIdleConnections();

  const Env& env_;
  struct soap* master_ = nullptr;
  bool tls_ = false;
  std::vector<std::thread> workers_;
  std::mutex mu_;
  std::condition_variable cv_;
  std::deque<Pending> queue_;
  bool draining_ = false;
  std::vector<SOAP_SOCKET> active_;  ///< each worker's current socket, guarded by mu_
};

}  // namespace lexsim
