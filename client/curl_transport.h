// The "windows" comms layer: HTTP(S) through libcurl underneath gSOAP.
//
// gSOAP still writes the whole request (headers included) and parses the
// whole reply, so hooks, Basic authentication, DIME and compression behave
// as on gSOAP's own sockets; libcurl carries the bytes, keeps connections
// alive and checks certificates. Both bodies stream through bounded
// buffers, so a document of any size passes in little memory.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "client/local_data.h"
#include "client/transport.h"

typedef void CURL;
typedef void CURLM;
struct Curl_URL;
struct curl_slist;
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
  int Send(struct soap* soap, const char* data, size_t size);
  int Perform(struct soap* soap);
  size_t Receive(struct soap* soap, char* data, size_t size);
  /// Goes back to offset of the body, for a resend; false when that part is gone.
  bool Rewind(long long offset);

 private:
  void Configure();
  void SetCallOptions(struct soap* soap);
  void ClearReply();
  /// The reply's head as gSOAP expects it, from libcurl's headers.
  void BuildReplyHead(bool decoded);
  /// Starts the transfer once the request's head is in; the body follows
  /// through Feed. length: its Content-Length, -1 for none.
  void StartTransfer(struct soap* soap, size_t head_end, long long length);
  /// Hands libcurl one piece of the body and returns once it has taken it.
  void Feed(const char* data, size_t size);
  /// Runs the transfer until done() holds or it ends.
  template <typename Done>
  void Drive(Done done);
  /// Fails the call with what ended the transfer.
  int TransferError(struct soap* soap);
  void EndTransfer();

  // What SetCallOptions last gave libcurl.
  struct CallOptions {
    std::string url;
    int connect_timeout;
    int recv_timeout;
    bool keep_alive;
    bool compress;
    std::string proxy;
    bool trace;
    bool operator==(const CallOptions&) const = default;
  };

  CURLM* multi_ = nullptr;
  curl_slist* headers_ = nullptr;  // kept while the request's own headers stay the same
  std::string header_lines_;       // what headers_ was made from
  std::optional<CallOptions> call_options_;
  Curl_URL* url_handle_ = nullptr;  // the URL parsed once, not on every transfer
  bool started_ = false;   // the easy handle is in multi_
  bool finished_ = false;  // and libcurl is done with it
  bool replying_ = false;  // the request is out; gSOAP reads the reply
  int result_ = 0;         // its CURLcode then
  std::string setup_error_;
  int setup_status_ = 0;
  char error_text_[256] = "";
  const char* feed_ = nullptr;  // the piece of the body libcurl is taking
  size_t feed_left_ = 0;
  std::string replay_;  // the body's start, for a resend
  bool replay_whole_ = true;
  size_t read_pos_ = 0;  // of the body, as libcurl reads it
  bool send_paused_ = false;
  bool recv_paused_ = false;
  bool dime_reply_ = false;  // attachments are not bound by the XML's limit
  unsigned long long reply_seen_ = 0;
  unsigned long long moved_ = 0;  // grows with every byte or event, for the time-out
  long long idle_limit_ms_ = 0;   // nothing moving for this long ends the call

  CURL* curl_ = nullptr;  // made on first use: start-up never pays for libcurl
  TransportSettings settings_;
  int ssl_mode_ = kSslFull;
  bool configured_ = false;
  std::string ca_file_;
  std::string ca_problem_;  // a CA file or folder that is set but cannot be read
  std::string url_;
  std::string request_;  // its head, until the transfer starts; all of it when whole_
  bool whole_ = false;
  std::string reply_headers_;
  std::string reply_body_;
  std::string reply_;
  size_t reply_pos_ = 0;  // of the body, which reply_body_ queues
  size_t head_pos_ = 0;   // of the head, in reply_
  bool reply_too_large_ = false;
  std::string trace_path_;
  FILE* trace_ = nullptr;
  std::unique_ptr<TlsRules> tls_rules_;

  friend size_t CurlWrite(char*, size_t, size_t, void*);
  friend size_t CurlRead(char*, size_t, size_t, void*);
  friend size_t CurlHeader(char*, size_t, size_t, void*);
  friend int CurlTrace(CURL*, int, char*, size_t, void*);
};

}  // namespace lexctl
