// lexsim on the wire: each test starts its own lexsim and calls it through the generated
// client functions (or raw HTTP where the request must be malformed).
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <fstream>
#include <thread>

#include "crypto.h"
#include "lexsim_process.h"
#include "soapH.h"

namespace {

const std::string kAdminHash = lexsim::PasswordHash("admin", "admin");
const std::string kAdminLicence = "admin " + kAdminHash;

/// A client context with bounded waits; it records the response's Server header.
class Client {
 public:
  Client() : soap_(soap_new1(SOAP_C_UTFSTRING | SOAP_IO_KEEPALIVE)) {
    soap_->connect_timeout = 5;
    soap_->recv_timeout = 30;
    soap_->send_timeout = 30;
    soap_->user = this;
    next_parsehdr_ = soap_->fparsehdr;
    soap_->fparsehdr = [](struct soap* s, const char* key, const char* val) {
      auto* self = static_cast<Client*>(s->user);
      if (key && val && !strcmp(key, "Server")) self->server_header = val;
      if (key && val && !strcasecmp(key, "Content-Encoding")) self->content_encoding = val;
      return self->next_parsehdr_(s, key, val);
    };
  }
  ~Client() {
    soap_destroy(soap_);
    soap_end(soap_);
    soap_free(soap_);
  }
  struct soap* operator->() const {
    return soap_;
  }
  struct soap* get() const {
    return soap_;
  }
  std::string* Str(const std::string& s) {
    auto* p = soap_new_std__string(soap_);
    *p = s;
    return p;
  }
  /// The NvsoapException of the last fault, or nullptr.
  const nv__NvsoapException* Detail() const {
    if (!soap_->fault) return nullptr;
    SOAP_ENV__Detail* d =
        soap_->fault->detail ? soap_->fault->detail : soap_->fault->SOAP_ENV__Detail;
    return d ? d->nv__NvsoapException_ : nullptr;
  }
  std::string FaultErr() const { return Detail() ? Detail()->err : "(no detail)"; }

  int Echo(const std::string& url, std::string* licence, nv__TestEchoResponse& r,
           const std::string* select = nullptr, const std::string* reqgroup = nullptr) {
    std::string* sel = select ? Str(*select) : nullptr;
    std::string* grp = reqgroup ? Str(*reqgroup) : nullptr;
    return soap_call_nv__TestEcho(soap_, url.c_str(), "", licence, Str("lexsim-test"), grp, sel,
                                  nullptr, nullptr, nullptr, r);
  }

  std::string server_header;
  std::string content_encoding;

 private:
  struct soap* soap_;
  int (*next_parsehdr_)(struct soap*, const char*, const char*);
};

/// Sends raw bytes to the server and returns everything it answers until it closes.
std::string RawExchange(int port, const std::string& request) {
  int fd = socket(AF_INET, SOCK_STREAM, 0);
  timeval tv{15, 0};
  setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_port = htons(static_cast<uint16_t>(port));
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  std::string reply;
  if (connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0) {
    size_t sent = 0;
    while (sent < request.size()) {
      ssize_t n = send(fd, request.data() + sent, request.size() - sent, MSG_NOSIGNAL);
      if (n <= 0) break;
      sent += static_cast<size_t>(n);
    }
    char buf[4096];
    ssize_t n;
    while ((n = recv(fd, buf, sizeof buf, 0)) > 0) reply.append(buf, static_cast<size_t>(n));
  }
  close(fd);
  return reply;
}

std::string Post(const std::string& body, const std::string& extra_headers = "") {
  return "POST /nvsoap/nvsoap.cgi HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Type: text/xml\r\n" +
         extra_headers + "Content-Length: " + std::to_string(body.size()) +
         "\r\nConnection: close\r\n\r\n" + body;
}

std::string Envelope(const std::string& body) {
  return "<?xml version=\"1.0\"?><SOAP-ENV:Envelope "
         "xmlns:SOAP-ENV=\"http://schemas.xmlsoap.org/soap/envelope/\" "
         "xmlns:nv=\"http://schemas.lexary.net/nvsoap/2/schema\"><SOAP-ENV:Body>" +
         body + "</SOAP-ENV:Body></SOAP-ENV:Envelope>";
}

std::string StatusLine(const std::string& reply) { return reply.substr(0, reply.find("\r\n")); }

TEST(WireEcho, AnonymousEchoesEveryValue) {
  LexsimProcess sim;
  Client c;
  unsigned char bytes[] = {0, 1, 0xfe, 0xff, 'x'};
  xsd__base64Binary bin;
  bin.__ptr = bytes;
  bin.__size = sizeof bytes;
  LONG64 num = -1234567890123LL;
  nv__TestEchoResponse r;
  ASSERT_EQ(soap_call_nv__TestEcho(c.get(), sim.url().c_str(), "", nullptr, nullptr, nullptr,
                                   nullptr, c.Str("h\xC3\xA9llo \xE2\x82\xAC"), &num, &bin, r),
            SOAP_OK);
  ASSERT_TRUE(r.str && r.num && r.bin);
  EXPECT_EQ(*r.str, "h\xC3\xA9llo \xE2\x82\xAC");
  EXPECT_EQ(*r.num, num);
  ASSERT_EQ(r.bin->__size, 5);
  EXPECT_EQ(0, memcmp(r.bin->__ptr, bytes, 5));
  EXPECT_EQ(c.server_header.rfind("Lexary-Server/", 0), 0u) << c.server_header;
  EXPECT_EQ(r.error, nullptr);
  EXPECT_EQ(r.token, nullptr);

  nv__TestEchoResponse empty;
  ASSERT_EQ(c.Echo(sim.url(), nullptr, empty), SOAP_OK);
  EXPECT_EQ(empty.str, nullptr) << "absent values stay absent";
  EXPECT_EQ(empty.num, nullptr);
  EXPECT_EQ(empty.bin, nullptr);
}

TEST(WireEcho, KeepAliveAndGzipBothWays) {
  LexsimProcess sim;
  Client c;
  soap_set_omode(c.get(), SOAP_ENC_ZLIB);
  for (int i = 0; i < 150; ++i) {  // past gSOAP's default limit of 100 per connection
    nv__TestEchoResponse r;
    ASSERT_EQ(
        soap_call_nv__TestEcho(c.get(), sim.url().c_str(), "", nullptr, nullptr, nullptr, nullptr,
                               c.Str(std::string(2000, 'a' + i % 26)), nullptr, nullptr, r),
        SOAP_OK)
        << "call " << i;
    ASSERT_TRUE(r.str);
    EXPECT_EQ(*r.str, std::string(2000, 'a' + i % 26));
    soap_destroy(c.get());
    soap_end(c.get());
  }
  EXPECT_EQ(c.content_encoding, "gzip") << "the answer came compressed";

  // gSOAP clients always offer gzip; drop the offer as a client with compression off does.
  Client plain;
  static int (*next_posthdr)(struct soap*, const char*, const char*) = plain->fposthdr;
  plain->fposthdr = [](struct soap* s, const char* key, const char* val) {
    if (key && !strcasecmp(key, "Accept-Encoding")) return SOAP_OK;
    return next_posthdr(s, key, val);
  };
  nv__TestEchoResponse r;
  ASSERT_EQ(plain.Echo(sim.url(), nullptr, r), SOAP_OK);
  EXPECT_EQ(plain.content_encoding, "") << "only clients that accept gzip get it";
}

TEST(WireCredentials, LicenceFormsAreChecked) {
  LexsimProcess sim;
  Client c;
  nv__TestEchoResponse ok;
  EXPECT_EQ(c.Echo(sim.url(), c.Str(kAdminLicence), ok), SOAP_OK);

  struct Case {
    std::string licence;
    const char* err;
  } bad[] = {
      {"admin " + lexsim::PasswordHash("admin", "wrong"), "AUTH_FAILED"},
      {"nobody " + lexsim::PasswordHash("nobody", "admin"), "AUTH_FAILED"},
      {"admin", "AUTH_FAILED"},
      {"admin " + kAdminHash + " nosuchsession", "SESSION_INVALID"},
  };
  for (const Case& k : bad) {
    nv__TestEchoResponse r;
    EXPECT_EQ(c.Echo(sim.url(), c.Str(k.licence), r), SOAP_CLI_FAULT) << k.licence;
    EXPECT_EQ(c.FaultErr(), k.err) << k.licence;
    ASSERT_NE(c.Detail(), nullptr);
    EXPECT_FALSE(c.Detail()->msg.empty());
  }

  // Only TestEcho is open to anonymous callers.
  nv__GetUserListResponse list;
  EXPECT_EQ(soap_call_nv__GetUserList(c.get(), sim.url().c_str(), "", nullptr, nullptr, nullptr,
                                      nullptr, nullptr, list),
            SOAP_CLI_FAULT);
  EXPECT_EQ(c.FaultErr(), "AUTH_FAILED");
}

TEST(WireSession, BasicAuthFullSessionRotatesTokensUntilEnded) {
  LexsimProcess sim;
  Client c;
  nv__CreateSessionResponse none;
  EXPECT_EQ(soap_call_nv__CreateSession(c.get(), sim.url().c_str(), "", nullptr, nullptr, nullptr,
                                        c.Str("full"), none),
            SOAP_CLI_FAULT);
  EXPECT_EQ(c.FaultErr(), "AUTH_FAILED");

  c->userid = "admin";
  c->passwd = "0000000000000000000000000000000000000000";
  nv__CreateSessionResponse wrong;
  EXPECT_EQ(soap_call_nv__CreateSession(c.get(), sim.url().c_str(), "", nullptr, nullptr, nullptr,
                                        c.Str("full"), wrong),
            SOAP_CLI_FAULT);

  c->userid = "admin";
  c->passwd = kAdminHash.c_str();
  nv__CreateSessionResponse s;
  ASSERT_EQ(soap_call_nv__CreateSession(c.get(), sim.url().c_str(), "", nullptr, nullptr, nullptr,
                                        c.Str("full"), s),
            SOAP_OK);
  c->userid = c->passwd = nullptr;
  ASSERT_TRUE(s.session && s.token && s.expireSecs && s.lifetimeHours);
  EXPECT_GT(*s.expireSecs, 0);
  EXPECT_GT(*s.lifetimeHours, 0);
  std::string key = *s.session, token = *s.token;
  auto licence = [&](const std::string& t) {
    return c.Str("admin " + lexsim::HmacSha1Hex(kAdminHash, t) + " " + key);
  };

  nv__TestEchoResponse r1;
  ASSERT_EQ(c.Echo(sim.url(), licence(token), r1), SOAP_OK);
  ASSERT_TRUE(r1.token);
  std::string next = *r1.token;
  EXPECT_NE(next, token);

  nv__TestEchoResponse stale;
  EXPECT_EQ(c.Echo(sim.url(), licence(token), stale), SOAP_CLI_FAULT) << "a spent token";
  ASSERT_NE(c.Detail(), nullptr);
  ASSERT_NE(c.Detail()->token, nullptr) << "the fault carries a fresh token";
  next = *c.Detail()->token;

  nv__TestEchoResponse r2;
  ASSERT_EQ(c.Echo(sim.url(), licence(next), r2), SOAP_OK);
  ASSERT_TRUE(r2.token);

  nv__EndSessionResponse end;
  ASSERT_EQ(soap_call_nv__EndSession(c.get(), sim.url().c_str(), "", licence(*r2.token), nullptr,
                                     nullptr, nullptr, end),
            SOAP_OK);
  nv__TestEchoResponse after;
  EXPECT_EQ(c.Echo(sim.url(), licence(*r2.token), after), SOAP_CLI_FAULT);
  EXPECT_EQ(c.FaultErr(), "SESSION_INVALID");

  nv__EndSessionResponse outside;
  EXPECT_EQ(soap_call_nv__EndSession(c.get(), sim.url().c_str(), "", c.Str(kAdminLicence), nullptr,
                                     nullptr, nullptr, outside),
            SOAP_CLI_FAULT)
      << "EndSession needs a session";
}

TEST(WireSession, LoginSessionAndPercentEncodedUser) {
  LexsimProcess sim;
  Client c;
  c->userid = "%61dmin";  // "admin", percent-encoded as a client may send it
  c->passwd = kAdminHash.c_str();
  nv__CreateSessionResponse s;
  ASSERT_EQ(soap_call_nv__CreateSession(c.get(), sim.url().c_str(), "", nullptr, nullptr, nullptr,
                                        nullptr, s),
            SOAP_OK);
  c->userid = c->passwd = nullptr;
  ASSERT_TRUE(s.session && s.token);
  std::string* licence =
      c.Str("admin " + lexsim::HmacSha1Hex(kAdminHash, *s.token) + " " + *s.session);
  for (int i = 0; i < 3; ++i) {
    nv__TestEchoResponse r;
    ASSERT_EQ(c.Echo(sim.url(), licence, r), SOAP_OK) << "the login token stays valid";
  }
  nv__CreateSessionResponse bad;
  c->userid = "admin";
  c->passwd = kAdminHash.c_str();
  EXPECT_EQ(soap_call_nv__CreateSession(c.get(), sim.url().c_str(), "", nullptr, nullptr, nullptr,
                                        c.Str("sometimes"), bad),
            SOAP_CLI_FAULT);
  EXPECT_EQ(c.FaultErr(), "INVALID_ARGUMENT");
}

TEST(WireSession, TrustedHeaderFromLoopback) {
  LexsimProcess sim({"--trust-header", "X-Lexctl-User"});
  Client c;
  nv__TestEchoResponse plain;
  EXPECT_EQ(c.Echo(sim.url(), c.Str("admin"), plain), SOAP_CLI_FAULT);

  c->http_extra_header = "X-Lexctl-User: admin";
  nv__TestEchoResponse trusted;
  EXPECT_EQ(c.Echo(sim.url(), c.Str("admin"), trusted), SOAP_OK);

  c->http_extra_header = "X-Lexctl-User: admin";
  nv__CreateSessionResponse s;
  EXPECT_EQ(soap_call_nv__CreateSession(c.get(), sim.url().c_str(), "", nullptr, nullptr, nullptr,
                                        c.Str("login"), s),
            SOAP_OK);
  EXPECT_TRUE(s.session);
}

TEST(WirePassword, ChangePasswordTakesEffectAndPersists) {
  char path[] = "/tmp/lexsim-state-XXXXXX";
  int fd = mkstemp(path);
  ASSERT_GE(fd, 0);
  close(fd);
  std::remove(path);
  std::string new_hash = lexsim::PasswordHash("admin", "n3w");
  {
    LexsimProcess sim({"--state", path});
    Client c;
    nv__ChangePasswordResponse bad;
    EXPECT_EQ(soap_call_nv__ChangePassword(c.get(), sim.url().c_str(), "", c.Str(kAdminLicence),
                                           nullptr, nullptr, nullptr, c.Str("n3w"), bad),
              SOAP_CLI_FAULT)
        << "a clear-text password is refused";
    EXPECT_EQ(c.FaultErr(), "INVALID_ARGUMENT");

    nv__ChangePasswordResponse ok;
    ASSERT_EQ(soap_call_nv__ChangePassword(c.get(), sim.url().c_str(), "", c.Str(kAdminLicence),
                                           nullptr, nullptr, nullptr, c.Str(new_hash), ok),
              SOAP_OK);
    nv__TestEchoResponse old_pw;
    EXPECT_EQ(c.Echo(sim.url(), c.Str(kAdminLicence), old_pw), SOAP_CLI_FAULT);
    nv__TestEchoResponse new_pw;
    EXPECT_EQ(c.Echo(sim.url(), c.Str("admin " + new_hash), new_pw), SOAP_OK);
    EXPECT_EQ(sim.Stop(), 0) << "SIGTERM ends lexsim cleanly";
  }
  {
    LexsimProcess sim({"--state", path});
    Client c;
    nv__TestEchoResponse r;
    EXPECT_EQ(c.Echo(sim.url(), c.Str("admin " + new_hash), r), SOAP_OK);
  }
  std::remove(path);
}

TEST(WireFrame, RequestGroupsAndSelectKeys) {
  LexsimProcess sim;
  Client c;
  std::string group = "fresh";
  nv__TestEchoResponse r;
  ASSERT_EQ(c.Echo(sim.url(), nullptr, r, nullptr, &group), SOAP_OK);
  ASSERT_TRUE(r.error);
  ASSERT_EQ(r.error->item.size(), 1u);
  EXPECT_EQ(r.error->item[0].key, "reqgroup");
  std::string issued = r.error->item[0].err;

  nv__TestEchoResponse again;
  ASSERT_EQ(c.Echo(sim.url(), nullptr, again, nullptr, &issued), SOAP_OK);
  EXPECT_EQ(again.error, nullptr) << "a known group draws no warning";

  std::string keys = "nosuchkey=1 sim.warn=careful";
  nv__TestEchoResponse warned;
  ASSERT_EQ(c.Echo(sim.url(), nullptr, warned, &keys), SOAP_OK);
  ASSERT_TRUE(warned.error);
  ASSERT_EQ(warned.error->item.size(), 1u) << "unknown keys are passed over";
  EXPECT_EQ(warned.error->item[0].key, "sim.warn");
  EXPECT_EQ(warned.error->item[0].err, "careful");

  std::string strict = "strict sim.warn=careful";
  nv__TestEchoResponse faulted;
  EXPECT_EQ(c.Echo(sim.url(), nullptr, faulted, &strict), SOAP_CLI_FAULT);
  EXPECT_EQ(c.FaultErr(), "STRICT");

  std::string fault = "sim.fault=QUOTA";
  nv__TestEchoResponse f;
  EXPECT_EQ(c.Echo(sim.url(), nullptr, f, &fault), SOAP_CLI_FAULT);
  EXPECT_EQ(c.FaultErr(), "QUOTA");

  std::string http = "sim.http=503";
  nv__TestEchoResponse h;
  EXPECT_EQ(c.Echo(sim.url(), nullptr, h, &http), 503);

  std::string slow = "delay=5000 rmax=10";
  nv__TestEchoResponse t;
  EXPECT_EQ(c.Echo(sim.url(), nullptr, t, &slow), SOAP_CLI_FAULT);
  EXPECT_EQ(c.FaultErr(), "TIMEOUT");

  std::string delay = "delay=20";
  nv__TestEchoResponse d;
  EXPECT_EQ(c.Echo(sim.url(), nullptr, d, &delay), SOAP_OK);
}

TEST(WireHttp, OtherPathsAndBadRequests) {
  LexsimProcess sim;
  Client c;
  nv__TestEchoResponse r;
  EXPECT_EQ(soap_call_nv__TestEcho(c.get(), sim.UrlWithPath("/other.cgi").c_str(), "", nullptr,
                                   nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, r),
            404);

  std::string echo = Envelope("<nv:TestEcho><str>abc</str></nv:TestEcho>");
  EXPECT_NE(RawExchange(sim.port(), Post(echo)).find("<str>abc</str>"), std::string::npos);
  // The absolute form of the request target, as sent through proxies, names the same service.
  std::string absolute = Post(echo);
  absolute.replace(5, 0, "http://127.0.0.1:" + std::to_string(sim.port()));
  EXPECT_NE(RawExchange(sim.port(), absolute).find("<str>abc</str>"), std::string::npos) << absolute;
  std::string elsewhere = Post(echo);
  elsewhere.replace(5, 0, "http://127.0.0.1:" + std::to_string(sim.port()) + "/other");
  EXPECT_NE(RawExchange(sim.port(), elsewhere).find(" 404 "), std::string::npos);

  std::string garbage = RawExchange(sim.port(), Post("this is <not xml"));
  EXPECT_NE(garbage.find("Fault>"), std::string::npos) << garbage;

  std::string truncated = Post(echo.substr(0, echo.size() / 2));
  std::string reply = RawExchange(sim.port(), truncated);
  EXPECT_NE(reply.find("Fault>"), std::string::npos) << reply;

  std::string deep;
  for (int i = 0; i < 500; ++i) deep += "<a>";
  std::string nested =
      RawExchange(sim.port(), Post(Envelope("<nv:TestEcho><str>" + deep + "</str></nv:TestEcho>")));
  EXPECT_NE(nested.find("Fault>"), std::string::npos) << StatusLine(nested);

  std::string unknown = RawExchange(sim.port(), Post(Envelope("<nv:NoSuchOperation/>")));
  EXPECT_NE(unknown.find("Fault>"), std::string::npos) << StatusLine(unknown);

  std::string huge =
      "POST /nvsoap/nvsoap.cgi HTTP/1.1\r\nHost: x\r\nContent-Type: text/xml\r\n"
      "Content-Length: 999999999999\r\n\r\n" +
      echo;
  std::string big = RawExchange(sim.port(), huge);
  EXPECT_TRUE(big.rfind("HTTP/1.1 4", 0) == 0 || big.find("Fault>") != std::string::npos)
      << StatusLine(big);

  nv__TestEchoResponse still;
  EXPECT_EQ(c.Echo(sim.url(), nullptr, still), SOAP_OK) << "lexsim survived all of it";
}

TEST(WireConcurrency, ParallelClientsAllAnswered) {
  LexsimProcess sim({"--threads", "4"});
  constexpr int kThreads = 8, kCalls = 40;
  std::atomic<int> ok{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t)
    threads.emplace_back([&, t] {
      Client c;
      for (int i = 0; i < kCalls; ++i) {
        std::string text = std::to_string(t) + ":" + std::to_string(i);
        nv__TestEchoResponse r;
        if (soap_call_nv__TestEcho(c.get(), sim.url().c_str(), "", c.Str(kAdminLicence), nullptr,
                                   nullptr, nullptr, c.Str(text), nullptr, nullptr, r) == SOAP_OK &&
            r.str && *r.str == text)
          ++ok;
        soap_destroy(c.get());
        soap_end(c.get());
        // Close now and then so that connections come and go while others stay.
        if (i % 10 == 9) soap_closesock(c.get());
      }
    });
  for (auto& th : threads) th.join();
  EXPECT_EQ(ok, kThreads * kCalls);
}

}  // namespace
