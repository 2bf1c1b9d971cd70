// Hostile input on the wire: thousands of random and mutated requests over raw loopback sockets.
// lexsim must answer each with HTTP or close, never crash or wedge, and still serve a
// valid TestEcho afterwards. The seed is fixed; LEXSIM_FUZZ_SEED replays another one.
#include <gtest/gtest.h>
#include <zlib.h>

#include <atomic>
#include <cstdlib>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "lexsim_process.h"

namespace {

#if defined(__SANITIZE_THREAD__)
// ThreadSanitizer looks for races, which a fifth of the cases meet as often; the
// other builds run them all.
constexpr int kCases = 2000;
#else
constexpr int kCases = 10000;
#endif
constexpr int kClientThreads = 4;

std::string Gzip(const std::string& data) {
  z_stream z{};
  deflateInit2(&z, Z_BEST_COMPRESSION, Z_DEFLATED, 15 + 16, 9, Z_DEFAULT_STRATEGY);
  std::string out(deflateBound(&z, data.size()), '\0');
  z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data.data()));
  z.avail_in = static_cast<uInt>(data.size());
  z.next_out = reinterpret_cast<Bytef*>(out.data());
  z.avail_out = static_cast<uInt>(out.size());
  deflate(&z, Z_FINISH);
  out.resize(z.total_out);
  deflateEnd(&z);
  return out;
}

// Kinds: byte flips, spliced bodies (new and old length), random bytes, truncation, huge
// lengths, broken chunking, deep and wide XML, bad headers, compressed bodies, pipelining.
constexpr int kKinds = 13;

/// Makes the requests: each is a function of the case number and a seeded generator.
struct Generator {
  Generator(const std::string& valid, uint64_t seed) : seed_(seed) {
    size_t split = valid.find("\r\n\r\n");
    head_ = valid.substr(0, split + 4);
    body_ = valid.substr(split + 4);
    line_ = head_.substr(0, head_.find("\r\n") + 2);
    // The header lines other than Content-Length, to rebuild requests around new bodies.
    std::string lines = head_.substr(line_.size());
    for (size_t pos; (pos = lines.find("\r\n")) != std::string::npos && pos > 0; lines.erase(0, pos + 2))
      if (lines.compare(0, 15, "Content-Length:") != 0) headers_ += lines.substr(0, pos + 2);
    bomb_ = Gzip(Envelope("<nv:TestEcho><str>" + std::string(40u << 20, 'A') + "</str></nv:TestEcho>"));
  }

  /// The request of case i, and how to end the connection after sending it.
  std::string Make(int i, Ending* ending) const {
    std::mt19937_64 rng(seed_ * 1000003 + static_cast<uint64_t>(i));
    *ending = rng() % 8 == 0 ? Ending::kReset : Ending::kHalfClose;
    auto pick = [&](size_t n) { return n ? static_cast<size_t>(rng() % n) : 0; };
    std::string full = head_ + body_;
    switch (i % kKinds) {
      case 0:
      case 1: {
        size_t from = i % kKinds ? head_.size() : 0;
        for (int k = 0, n = 1 + static_cast<int>(rng() % 8); k < n; ++k)
          full[from + pick(full.size() - from)] = static_cast<char>(rng());
        return full;
      }
      case 2: return Post(Splice(rng, body_));
      case 3: return head_ + Splice(rng, body_);  // Content-Length now wrong
      case 4: {
        std::string r(pick(4096) + 1, '\0');
        for (char& c : r) c = static_cast<char>(rng());
        return rng() % 2 ? "POST /nvsoap/nvsoap.cgi HTTP/1.1\r\n" + r : r;
      }
      case 5: return full.substr(0, pick(full.size()));
      case 6: {
        static const char* kLengths[] = {"33554433", "4294967296", "9223372036854775807",
                                         "18446744073709551616", "-1", "99999999999999999999999",
                                         "0x10", "1e9", ""};
        return line_ + headers_ + "Content-Length: " + kLengths[pick(9)] + "\r\n\r\n" +
               body_.substr(0, pick(body_.size()));
      }
      case 7: {
        std::string b;
        for (size_t at = 0; at < body_.size();) {
          std::string chunk = body_.substr(at, 1 + pick(300));
          at += chunk.size();
          char size[32];
          std::snprintf(size, sizeof size, "%zx", chunk.size());
          std::string line = size;
          switch (rng() % 10) {
            case 0: line = "ffffffffffffffff"; break;
            case 1: line = "-5"; break;
            case 2: line = "zz"; break;
            case 3: line = std::to_string(chunk.size() + 1000); break;
            case 4: line += ";ext=" + std::string(pick(3000), 'e'); break;
            default: break;
          }
          b += line + (rng() % 12 ? "\r\n" : "\n") + chunk + (rng() % 12 ? "\r\n" : "");
        }
        return line_ + headers_ + "Transfer-Encoding: chunked\r\n\r\n" + b + (rng() % 2 ? "0\r\n\r\n" : "");
      }
      case 8: {
        std::string tag = rng() % 2 ? "str" : "a", open, close;
        for (size_t k = 0, depth = 10 + pick(100000); k < depth; ++k) {
          open += "<" + tag + ">";
          close += "</" + tag + ">";
        }
        return Post(Envelope("<nv:TestEcho>" + open + (rng() % 2 ? close : "") + "</nv:TestEcho>"));
      }
      case 9: {
        size_t n = 1 + pick(20000);
        std::string inner;
        switch (rng() % 4) {
          case 0:
            for (size_t k = 0; k < n; ++k) inner += "<str>x</str>";
            break;
          case 1:
            for (size_t k = 0; k < n * 3; ++k) inner += " a" + std::to_string(k) + "=\"v\"";
            inner = "<str" + inner + ">x</str>";
            break;
          case 2: inner = "<str>" + std::string(n * 100, 'y') + "</str>"; break;
          default: inner = "<" + std::string(n, 'n') + ">x</" + std::string(n, 'n') + ">";
        }
        return Post(Envelope("<nv:TestEcho>" + inner + "</nv:TestEcho>"));
      }
      case 10: {
        std::string many;
        switch (rng() % 7) {
          case 0: return "GET / HTTP/1.1\r\nHost: x\r\n\r\n";
          case 1: return "POST " + std::string(100000, '/') + " HTTP/1.1\r\n\r\n";
          case 2: return line_ + "X: " + std::string(200000, 'h') + "\r\n\r\n" + body_;
          case 3:
            for (int k = 0; k < 20000; ++k) many += "X-" + std::to_string(k) + ": v\r\n";
            return Post(body_, many);
          case 4: return Post(body_, "Authorization: Basic " + std::string(pick(9000), '=') +
                                         "\r\nAuthorization: Basic !!!\r\n");
          case 5: return Post(body_, "Content-Type: application/dime\r\n");
          default: return "\r\n\r\n\r\nPOST\r\n\r\n";
        }
      }
      case 11: {
        const std::string gz = "Content-Encoding: gzip\r\n";
        if (rng() % 100 == 0) return Post(bomb_, gz);  // slow: rare
        switch (rng() % 4) {
          case 0: {  // attribute floods hide inside compression as well
            std::string attrs;
            for (size_t k = 0, n = pick(5000); k < n; ++k) attrs += " a" + std::to_string(k) + "=\"\"";
            return Post(Gzip(Envelope("<nv:TestEcho><str" + attrs + ">x</str></nv:TestEcho>")), gz);
          }
          case 1: {
            std::string z = Gzip(body_);
            z[pick(z.size())] = static_cast<char>(rng());
            return Post(z, gz);
          }
          case 2: return Post(Gzip(body_).substr(0, pick(200)), gz);
          default: return Post(body_, "Content-Encoding: deflate\r\n");
        }
      }
      default: {
        std::string r;
        for (int k = 0, n = 1 + static_cast<int>(rng() % 5); k < n; ++k) r += full;
        return r + (rng() % 2 ? full.substr(0, pick(full.size())) : std::string(pick(300), 'Q'));
      }
    }
  }

  std::string Post(const std::string& body, const std::string& extra = "") const {
    return line_ + headers_ + extra + "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
  }

  // Inserts XML-ish tokens, deletes or repeats spans of the body.
  static std::string Splice(std::mt19937_64& rng, std::string b) {
    static const std::string kTokens[] = {
        "<", "</", ">", "/>", "&", "&amp;", "&#0;", "&#x110000;", "&bogus;", "]]>",
        "<![CDATA[", "<!--", "-->", "<?xml version=\"1.0\"?>", "xmlns:x=\"urn:x\" ",
        " xsi:type=\"nv:DicEntryNotFound\"", " xsi:type=\"xsd:int\"", " href=\"#a\"",
        " id=\"a\"", " href=\"cid:nothing\"", "<nv:TestEcho>", "</SOAP-ENV:Body>",
        "<SOAP-ENV:Header><x SOAP-ENV:mustUnderstand=\"1\"/></SOAP-ENV:Header>",
        "<num>99999999999999999999999</num>", "<num>-</num>", "<bin>!!!!</bin>", "<bin>=",
        "\xC3", "\xFF\xFE", "\xED\xA0\x80", std::string(1, '\0'), "\x01",
        "<!DOCTYPE a [<!ENTITY x \"xxxxxxxx\">]>", "&x;"};
    for (int k = 0, edits = 1 + static_cast<int>(rng() % 6); k < edits; ++k) {
      size_t at = rng() % (b.size() + 1);
      switch (rng() % 4) {
        case 0: b.insert(at, kTokens[rng() % std::size(kTokens)]); break;
        case 1: b.erase(at, rng() % 40); break;
        case 2: {
          std::string span = b.substr(at, rng() % 200);
          b.insert(at, span + span);
          break;
        }
        default: b.insert(at, std::string(rng() % 5000, "ax<\"&"[rng() % 5]));
      }
    }
    return b;
  }

  uint64_t seed_;
  std::string head_, body_, line_, headers_, bomb_;
};

TEST(Fuzz, HostileRequestsLeaveLexsimServing) {
  uint64_t seed = 20260611;
  if (const char* s = std::getenv("LEXSIM_FUZZ_SEED")) seed = std::strtoull(s, nullptr, 10);
  SCOPED_TRACE("LEXSIM_FUZZ_SEED=" + std::to_string(seed));

  // A small request limit keeps the 40 MB gzip bomb a refused request.
  LexsimProcess sim({"--max-request", "32"});
  // A TestEcho as the generated client sends it; every request of the run is made from it.
  const std::string body = Envelope(
      "<nv:TestEcho><str>fuzz me &lt;&amp;&gt; \xC3\xA9</str><num>1234567890123</num>"
      "<bin>AAEC/v8=</bin></nv:TestEcho>");
  const std::string valid =
      "POST /nvsoap/nvsoap.cgi HTTP/1.1\r\nHost: 127.0.0.1\r\nUser-Agent: gSOAP/2.8\r\n"
      "Content-Type: text/xml; charset=utf-8\r\nContent-Length: " + std::to_string(body.size()) +
      "\r\nConnection: keep-alive\r\nSOAPAction: \"\"\r\n\r\n" + body;
  auto serving = [&] {
    std::string reply = RawExchange(sim.port(), valid, Ending::kHalfClose).text;
    return reply.rfind("HTTP/1.1 200", 0) == 0 && reply.find("1234567890123") != std::string::npos;
  };
  ASSERT_TRUE(serving());

  Generator gen(valid, seed);
  std::atomic<int> next{0};
  int unreachable = 0;
  std::mutex mu;
  std::vector<std::string> bad, stuck;  // answers that were not HTTP; requests lexsim sat on
  std::vector<std::thread> threads;
  for (int t = 0; t < kClientThreads; ++t)
    threads.emplace_back([&] {
      for (int i; (i = next++) < kCases;) {
        Ending ending;
        std::string request = gen.Make(i, &ending);
        RawReply o = RawExchange(sim.port(), request, ending);
        std::string name = "case " + std::to_string(i) + " (kind " + std::to_string(i % kKinds) + ")";
        std::lock_guard<std::mutex> lock(mu);
        if (!o.connected)
          ++unreachable;
        else if (o.timed_out)
          stuck.push_back(name);
        else if (!o.text.empty() && o.text.rfind("HTTP/1.", 0) != 0)
          bad.push_back(name + ": " + o.text.substr(0, 80));
      }
    });
  for (auto& th : threads) th.join();

  EXPECT_EQ(unreachable, 0) << "lexsim stopped accepting connections";
  EXPECT_TRUE(stuck.empty()) << stuck.size() << " requests got no answer and no close, first: " << stuck.front();
  EXPECT_TRUE(bad.empty()) << bad.size() << " answers were not HTTP, first: " << bad.front();
  EXPECT_TRUE(serving()) << "lexsim no longer answers a valid TestEcho";
  EXPECT_EQ(sim.Stop(), 0) << "lexsim did not stop cleanly";
}

}  // namespace
