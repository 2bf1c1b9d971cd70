// The "windows" comms layer: HTTP(S) through libcurl underneath gSOAP.
//
// gSOAP still writes the whole request (headers included) and parses the
// whole reply, so hooks, Basic authentication, DIME and compression behave
// as on gSOAP's own sockets; libcurl carries the bytes, keeps connections
// alive and checks certificates.
#pragma once

#include <memory>
#include <string>

#include "client/local_data.h"
#include "client/transport.h"

typedef void CURL;
struct soap;

namespace lexctl {

struct TlsRules;

class CurlTransport : public Transport {
 public:
  CurlTransport();
  ~CurlTransport() override;
  CurlTransport(const CurlTransport&) = delete;
  CurlTransport& operator=(const CurlTransport&) = delete;

  /// Makes a freshly built context send through this transport.
  void Attach(struct soap* soap, const TransportSettings& settings, int ssl_mode) override;
  /// Appends libcurl's trace (headers and data) to file; "" stops it.
  void SetTrace(const std::string& file) override;

  // Called by the context's I/O hooks.
  int Open(struct soap* soap, const char* endpoint);
  int Send(const char* data, size_t size);
  int Perform(struct soap* soap);
  size_t Receive(char* data, size_t size);

 private:
  void Configure();
  void SetCallOptions(struct soap* soap);
  void ClearReply();
  /// The reply's head as gSOAP expects it, from libcurl's headers.
  void BuildReplyHead(bool decoded);

  CURL* curl_ = nullptr;  // made on first use: start-up never pays for libcurl
  TransportSettings settings_;
  int ssl_mode_ = kSslFull;
  bool configured_ = false;
  std::string ca_file_;
  std::string ca_problem_;  // a CA file or folder that is set but cannot be read
  std::string url_;
  std::string request_;
  bool request_sized_ = false;
  std::string reply_headers_;
  std::string reply_body_;
  std::string reply_;
  size_t reply_pos_ = 0;
  bool reply_too_large_ = false;
  std::string trace_path_;
  FILE* trace_ = nullptr;
  std::unique_ptr<TlsRules> tls_rules_;

  friend size_t CurlWrite(char*, size_t, size_t, void*);
  friend size_t CurlHeader(char*, size_t, size_t, void*);
  friend int CurlTrace(CURL*, int, char*, size_t, void*);
};

}  // namespace lexctl
