// lexsim's transports through the generated client: HTTPS with a throw-away CA made by the
// openssl command, DIME attachments both ways, gzip both ways, keep-alive and many clients.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <strings.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "lexsim_process.h"
#include "soapH.h"

namespace {

namespace fs = std::filesystem;

/// A client context that counts connections and bytes and records the content headers.
class Client {
 public:
  /// ca: PEM file of the CA to trust for https; empty trusts nothing.
  explicit Client(const std::string& ca = "", bool tls = false)
      : soap_(soap_new1(SOAP_C_UTFSTRING | SOAP_IO_KEEPALIVE)) {
    soap_->connect_timeout = 5;
    soap_->recv_timeout = 30;
    soap_->send_timeout = 30;
    soap_->user = this;
    if (tls) {
      tls_ok_ = soap_ssl_client_context(
                    soap_, SOAP_SSL_REQUIRE_SERVER_AUTHENTICATION | SOAP_SSL_NO_DEFAULT_CA_PATH,
                    nullptr, nullptr, ca.empty() ? nullptr : ca.c_str(), nullptr,
                    nullptr) == SOAP_OK;
    }
    next_open_ = soap_->fopen;
    next_send_ = soap_->fsend;
    next_recv_ = soap_->frecv;
    next_parsehdr_ = soap_->fparsehdr;
    next_posthdr_ = soap_->fposthdr;
    soap_->fopen = [](struct soap* s, const char* endpoint, const char* host, int port) {
      Self(s)->connects++;
      return Self(s)->next_open_(s, endpoint, host, port);
    };
    soap_->fsend = [](struct soap* s, const char* buf, size_t len) {
      Self(s)->sent += len;
      return Self(s)->next_send_(s, buf, len);
    };
    soap_->frecv = [](struct soap* s, char* buf, size_t len) {
      size_t n = Self(s)->next_recv_(s, buf, len);
      Self(s)->received += n;
      return n;
    };
    soap_->fparsehdr = [](struct soap* s, const char* key, const char* val) {
      if (key && val && !strcasecmp(key, "Content-Type")) Self(s)->response_type = val;
      if (key && val && !strcasecmp(key, "Content-Encoding")) Self(s)->response_encoding = val;
      if (key && val && !strcasecmp(key, "Server")) Self(s)->server = val;
      return Self(s)->next_parsehdr_(s, key, val);
    };
    soap_->fposthdr = [](struct soap* s, const char* key, const char* val) {
      if (key && val && !strcasecmp(key, "Content-Type")) Self(s)->request_type = val;
      if (key && val && !strcasecmp(key, "Content-Encoding")) Self(s)->request_encoding = val;
      return Self(s)->next_posthdr_(s, key, val);
    };
  }
  ~Client() {
    soap_destroy(soap_);
    soap_end(soap_);
    soap_free(soap_);
  }
  struct soap* get() const {
    return soap_;
  }
  bool tls_ok() const { return tls_ok_; }

  /// TestEcho with the given values; the response lives until the next Reset().
  int Echo(const std::string& url, const std::string* str, LONG64* num, xsd__base64Binary* bin,
           nv__TestEchoResponse& r) {
    sent = received = 0;
    response_type.clear();
    response_encoding.clear();
    request_type.clear();
    request_encoding.clear();
    // A literal service inlines binaries unless DIME output is asked for.
    if (bin && (bin->id || bin->type))
      soap_set_omode(soap_, SOAP_ENC_DIME);
    else
      soap_clr_omode(soap_, SOAP_ENC_DIME);
    std::string* s = nullptr;
    if (str) {
      s = soap_new_std__string(soap_);
      *s = *str;
    }
    return soap_call_nv__TestEcho(soap_, url.c_str(), "", nullptr, nullptr, nullptr, nullptr, s,
                                  num, bin, r);
  }
  void Reset() {
    soap_destroy(soap_);
    soap_end(soap_);
  }
  std::string Error() {
    char buf[512];
    soap_sprint_fault(soap_, buf, sizeof buf);
    return buf;
  }

  int connects = 0;
  size_t sent = 0, received = 0;
  std::string response_type, response_encoding, request_type, request_encoding, server;

 private:
  static Client* Self(struct soap* s) { return static_cast<Client*>(s->user); }

  struct soap* soap_;
  bool tls_ok_ = true;
  SOAP_SOCKET (*next_open_)(struct soap*, const char*, const char*, int);
  int (*next_send_)(struct soap*, const char*, size_t);
  size_t (*next_recv_)(struct soap*, char*, size_t);
  int (*next_parsehdr_)(struct soap*, const char*, const char*);
  int (*next_posthdr_)(struct soap*, const char*, const char*);
};

std::vector<unsigned char> RandomBytes(size_t n, unsigned seed) {
  std::mt19937 rng(seed);
  std::vector<unsigned char> v(n);
  for (auto& b : v) b = static_cast<unsigned char>(rng());
  return v;
}

/// Wraps bytes as a binary value; with attach set it travels as a DIME attachment.
xsd__base64Binary Binary(std::vector<unsigned char>& bytes, bool attach) {
  xsd__base64Binary b{};
  b.__ptr = bytes.data();
  b.__size = static_cast<int>(bytes.size());
  if (attach) {
    static char kId[] = "lexsim-test-attachment";
    static char kType[] = "application/octet-stream";
    b.id = kId;
    b.type = kType;
  }
  return b;
}

bool SameBytes(const xsd__base64Binary* b, const std::vector<unsigned char>& want) {
  return b && b->__ptr && b->__size == static_cast<int>(want.size()) &&
         std::memcmp(b->__ptr, want.data(), want.size()) == 0;
}

// ---- HTTPS ---------------------------------------------------------------------------

/// A CA and a server certificate for 127.0.0.1 made once for the suite in a temp dir.
class Tls : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    char tmpl[] = "/tmp/lexsim-tls-XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    dir_ = tmpl;
    const std::string d = dir_.string();
    const std::string ec = "-newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes";
    std::string script =
        "openssl req -x509 " + ec + " -keyout ca.key -out ca.pem -days 2 -subj '/CN=lexsim test CA' "
        "-addext basicConstraints=critical,CA:TRUE -addext keyUsage=keyCertSign,cRLSign && "
        "openssl req " + ec + " -keyout other-ca.key -out other-ca.pem -x509 -days 2 "
        "-subj '/CN=unrelated CA' && "
        "openssl req " + ec + " -keyout server.key -out server.csr -subj '/CN=127.0.0.1' && "
        "printf 'subjectAltName=IP:127.0.0.1,DNS:localhost\\nbasicConstraints=CA:FALSE\\n' "
        "> ext.cnf && "
        "openssl x509 -req -in server.csr -CA ca.pem -CAkey ca.key -CAcreateserial -days 2 "
        "-extfile ext.cnf -out server.pem";
    script = "( " + script + " ) >openssl.log 2>&1";
    ASSERT_EQ(std::system(("cd '" + d + "' && " + script).c_str()), 0)
        << "openssl failed; see " << d << "/openssl.log";
  }
  static void TearDownTestSuite() {
    std::error_code ec;
    if (!dir_.empty()) fs::remove_all(dir_, ec);
  }
  static std::vector<std::string> ServerArgs() {
    return {"--tls-cert", (dir_ / "server.pem").string(), "--tls-key",
            (dir_ / "server.key").string()};
  }
  static std::string Ca() { return (dir_ / "ca.pem").string(); }
  static std::string OtherCa() { return (dir_ / "other-ca.pem").string(); }

  static fs::path dir_;
};
fs::path Tls::dir_;

TEST_F(Tls, EchoOverHttpsWithTrustedCa) {
  LexsimProcess sim(ServerArgs());
  ASSERT_EQ(sim.url().rfind("https://127.0.0.1:", 0), 0u) << sim.url();
  Client c(Ca(), true);
  ASSERT_TRUE(c.tls_ok());
  std::string str = "h\xC3\xA9llo over TLS";
  LONG64 num = -9007199254740993LL;
  auto bytes = RandomBytes(3000, 1);
  xsd__base64Binary bin = Binary(bytes, false);
  nv__TestEchoResponse r;
  ASSERT_EQ(c.Echo(sim.url(), &str, &num, &bin, r), SOAP_OK) << c.Error();
  ASSERT_TRUE(r.str && r.num);
  EXPECT_EQ(*r.str, str);
  EXPECT_EQ(*r.num, num);
  EXPECT_TRUE(SameBytes(r.bin, bytes));
  EXPECT_EQ(c.server.rfind("Lexary-Server/", 0), 0u) << c.server;
}

TEST_F(Tls, UntrustedAndPlainClientsAreRefusedWithoutHarm) {
  LexsimProcess sim(ServerArgs());
  std::string str = "x";
  {
    Client untrusted(OtherCa(), true);
    nv__TestEchoResponse r;
    EXPECT_NE(untrusted.Echo(sim.url(), &str, nullptr, nullptr, r), SOAP_OK)
        << "a certificate from a CA the client does not trust must be refused";
  }
  {
    Client plain;
    std::string http = "http" + sim.url().substr(5);
    nv__TestEchoResponse r;
    EXPECT_NE(plain.Echo(http, &str, nullptr, nullptr, r), SOAP_OK);
  }
  Client c(Ca(), true);
  nv__TestEchoResponse r;
  ASSERT_EQ(c.Echo(sim.url(), &str, nullptr, nullptr, r), SOAP_OK) << c.Error();
  ASSERT_TRUE(r.str);
  EXPECT_EQ(*r.str, "x");
  EXPECT_EQ(sim.Stop(), 0) << "lexsim stops cleanly after refused handshakes";
}

TEST_F(Tls, KeepAliveAndGzipBothWaysOverHttps) {
  LexsimProcess sim(ServerArgs());
  Client c(Ca(), true);
  soap_set_omode(c.get(), SOAP_ENC_ZLIB);
  // Past gSOAP's default of 100 requests per connection.
  for (int i = 0; i < 120; ++i) {
    std::string str(20000, static_cast<char>('a' + i % 26));
    nv__TestEchoResponse r;
    ASSERT_EQ(c.Echo(sim.url(), &str, nullptr, nullptr, r), SOAP_OK) << "call " << i << c.Error();
    ASSERT_TRUE(r.str);
    ASSERT_EQ(*r.str, str);
    // Repetitive text shrinks far below its size only when both directions are compressed.
    ASSERT_LT(c.sent, 5000u) << "request went uncompressed";
    ASSERT_LT(c.received, 5000u) << "response came uncompressed";
    ASSERT_EQ(c.response_encoding, "gzip");
    c.Reset();
  }
  EXPECT_EQ(c.connects, 1) << "every call after the first reused the connection";
}

TEST_F(Tls, ConcurrentClientsGetTheirOwnAnswers) {
  LexsimProcess sim(ServerArgs());
  constexpr int kClients = 8, kCalls = 20;
  std::atomic<int> good{0};
  std::vector<std::string> failures(kClients);
  std::vector<std::thread> threads;
  for (int t = 0; t < kClients; ++t) {
    threads.emplace_back([&, t] {
      Client c(Ca(), true);
      if (t % 2) soap_set_omode(c.get(), SOAP_ENC_ZLIB);
      for (int i = 0; i < kCalls; ++i) {
        std::string str = "client " + std::to_string(t) + " call " + std::to_string(i);
        LONG64 num = t * 1000 + i;
        auto bytes = RandomBytes(100 + t * 37 + i, t * 100 + i);
        xsd__base64Binary bin = Binary(bytes, false);
        nv__TestEchoResponse r;
        if (c.Echo(sim.url(), &str, &num, &bin, r) != SOAP_OK) {
          failures[t] = c.Error();
          return;
        }
        if (r.str && *r.str == str && r.num && *r.num == num && SameBytes(r.bin, bytes)) ++good;
        c.Reset();
      }
    });
  }
  for (auto& th : threads) th.join();
  for (int t = 0; t < kClients; ++t) EXPECT_EQ(failures[t], "") << "client " << t;
  EXPECT_EQ(good.load(), kClients * kCalls);
}

// ---- DIME ----------------------------------------------------------------------------

TEST(Dime, AttachmentIsAnsweredAsAttachment) {
  LexsimProcess sim;
  Client c;
  for (size_t size : {1u, 4095u, 1u << 20}) {
    auto bytes = RandomBytes(size, static_cast<unsigned>(size));
    xsd__base64Binary bin = Binary(bytes, true);
    std::string str = "with attachment";
    nv__TestEchoResponse r;
    ASSERT_EQ(c.Echo(sim.url(), &str, nullptr, &bin, r), SOAP_OK) << size << c.Error();
    EXPECT_EQ(c.request_type.rfind("application/dime", 0), 0u) << c.request_type;
    EXPECT_EQ(c.response_type.rfind("application/dime", 0), 0u)
        << "the echo comes back as a DIME message: " << c.response_type;
    ASSERT_NE(r.bin, nullptr);
    EXPECT_NE(r.bin->type, nullptr) << "the binary arrived as an attachment";
    if (r.bin->type) {
      EXPECT_STREQ(r.bin->type, "application/octet-stream");
    }
    EXPECT_TRUE(SameBytes(r.bin, bytes)) << size << " bytes";
    ASSERT_TRUE(r.str);
    EXPECT_EQ(*r.str, str);
    c.Reset();
  }
}

TEST(Dime, InlineAndAttachedRequestsMixOnOneConnection) {
  LexsimProcess sim;
  Client c;
  for (int i = 0; i < 12; ++i) {
    bool attach = i % 3 != 2;
    auto bytes = RandomBytes(500 + i, i);
    xsd__base64Binary bin = Binary(bytes, attach);
    nv__TestEchoResponse r;
    ASSERT_EQ(c.Echo(sim.url(), nullptr, nullptr, &bin, r), SOAP_OK) << i << c.Error();
    EXPECT_TRUE(SameBytes(r.bin, bytes)) << i;
    // A plain request after a DIME one must not be answered in DIME.
    EXPECT_EQ(c.response_type.rfind("application/dime", 0) == 0, attach)
        << "call " << i << ": " << c.response_type;
    c.Reset();
  }
  EXPECT_EQ(c.connects, 1);
}

TEST(Dime, CompressedDimeBothWays) {
  LexsimProcess sim;
  Client c;
  soap_set_omode(c.get(), SOAP_ENC_ZLIB);
  std::vector<unsigned char> bytes(200000, 'z');
  xsd__base64Binary bin = Binary(bytes, true);
  nv__TestEchoResponse r;
  ASSERT_EQ(c.Echo(sim.url(), nullptr, nullptr, &bin, r), SOAP_OK) << c.Error();
  EXPECT_TRUE(SameBytes(r.bin, bytes));
  EXPECT_EQ(c.response_encoding, "gzip");
  EXPECT_LT(c.sent, 20000u);
  EXPECT_LT(c.received, 20000u);
}

TEST_F(Tls, DimeOverHttps) {
  LexsimProcess sim(ServerArgs());
  Client c(Ca(), true);
  auto bytes = RandomBytes(70000, 7);
  xsd__base64Binary bin = Binary(bytes, true);
  nv__TestEchoResponse r;
  ASSERT_EQ(c.Echo(sim.url(), nullptr, nullptr, &bin, r), SOAP_OK) << c.Error();
  EXPECT_EQ(c.response_type.rfind("application/dime", 0), 0u) << c.response_type;
  EXPECT_TRUE(SameBytes(r.bin, bytes));
}

// ---- plain HTTP concurrency ----------------------------------------------------------

TEST(Concurrency, MoreClientsThanWorkersAreAllServed) {
  // Four workers and eight keep-alive clients: connections wait in the queue and are
  // served as others close.
  LexsimProcess sim({"--threads", "4"});
  constexpr int kClients = 8, kCalls = 50;
  std::atomic<int> good{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kClients; ++t) {
    threads.emplace_back([&, t] {
      Client c;
      for (int i = 0; i < kCalls; ++i) {
        LONG64 num = (static_cast<LONG64>(t) << 40) + i;
        auto bytes = RandomBytes(64, t * 1000 + i);
        xsd__base64Binary bin = Binary(bytes, i % 4 == 0);
        nv__TestEchoResponse r;
        if (c.Echo(sim.url(), nullptr, &num, &bin, r) != SOAP_OK) return;
        if (r.num && *r.num == num && SameBytes(r.bin, bytes)) ++good;
        c.Reset();
      }
    });
  }
  for (auto& th : threads) th.join();
  EXPECT_EQ(good.load(), kClients * kCalls);
}

}  // namespace
