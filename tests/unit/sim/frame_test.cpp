// In-process tests of lexsim's credential checks, select keys and account store.
#include "frame.h"

#include <gtest/gtest.h>

#include "crypto.h"
#include "state.h"

namespace lexsim {
namespace {

TEST(Crypto, HmacAndPasswordHash) {
  // RFC 2202-style published vector for HMAC-SHA1.
  EXPECT_EQ(HmacSha1Hex("key", "The quick brown fox jumps over the lazy dog"),
            "de7c9b85b8b78aa6bc8a7a36f70a90701c9db4d9");
  EXPECT_NE(PasswordHash("u", "p"), PasswordHash("p", "u"));
  EXPECT_TRUE(IsPasswordHash(std::string(40, 'A')));
  EXPECT_FALSE(IsPasswordHash(std::string(39, 'a')));
  EXPECT_FALSE(IsPasswordHash(std::string(39, 'a') + "g"));
}

TEST(Crypto, PercentDecodeUndoesClientEncoding) {
  EXPECT_EQ(PercentDecode("a%20b"), "a b");
  EXPECT_EQ(PercentDecode("group%2Fuser"), "group/user");
  // Bytes of 0x80 and above arrive widened as a signed char would print them.
  EXPECT_EQ(PercentDecode("%FFFFFFC3%FFFFFFA9t%FFFFFFE9"), "\xC3\xA9t\xE9");
  EXPECT_EQ(PercentDecode("100%"), "100%");
  EXPECT_EQ(PercentDecode("%zz"), "%zz");
}

TEST(SelectKeys, WordsAndValues) {
  std::string text = "strict  rmax=500 runas=bob a=b=c empty=";
  SelectKeys keys(&text);
  ASSERT_EQ(keys.items().size(), 5u);
  EXPECT_TRUE(keys.Has("STRICT"));
  EXPECT_EQ(keys.Value("rmax"), "500");
  EXPECT_EQ(keys.Value("a"), "b=c");
  EXPECT_EQ(keys.Value("empty"), "");
  EXPECT_EQ(keys.Value("strict"), "");
  EXPECT_FALSE(keys.Value("missing").has_value());
  EXPECT_TRUE(SelectKeys(nullptr).items().empty());
}

class Licence : public ::testing::Test {
 protected:
  void SetUp() override {
    lock_ = state_.Lock();
    Account bob;
    bob.userid = "bob";
    bob.pwhash = PasswordHash("bob", "secret");
    bob.api_allowed = api::kTestEcho;
    state_.PutUser(bob);
    Account open;
    open.userid = "open";
    state_.PutUser(open);
  }
  Caller Check(const std::string& licence) {
    token_.clear();
    return CheckLicence(state_, licence, conn_, now_, &token_);
  }
  std::string ErrOf(const std::string& licence) {
    try {
      Check(licence);
    } catch (const Fault& f) {
      return f.err;
    }
    return "accepted";
  }

  State state_;
  std::unique_lock<std::mutex> lock_;
  Conn conn_;
  std::string token_;
  std::time_t now_ = 1000000;
};

TEST_F(Licence, UserAndHash) {
  std::string hash = PasswordHash("bob", "secret");
  EXPECT_EQ(Check("bob " + hash).userid, "bob");
  std::string upper;
  for (char c : hash) upper += static_cast<char>(toupper(c));
  EXPECT_EQ(Check("bob " + upper).userid, "bob");
  EXPECT_EQ(ErrOf("bob " + PasswordHash("bob", "wrong")), err::kAuth);
  EXPECT_EQ(ErrOf("nobody " + hash), err::kAuth);
  EXPECT_EQ(ErrOf("bob  " + hash), err::kAuth);
  EXPECT_EQ(ErrOf("bob " + hash + " x y"), err::kAuth);
  EXPECT_TRUE(
      Check(std::string(kSeedUserId) + " " + PasswordHash(kSeedUserId, kSeedPassword)).super);
}

TEST_F(Licence, UserAloneNeedsNoPasswordOrTrustedHeader) {
  EXPECT_EQ(Check("open").userid, "open");
  EXPECT_EQ(ErrOf("bob"), err::kAuth);
  conn_.trusted_user = "bob";
  EXPECT_EQ(ErrOf("bob"), err::kAuth) << "the trusted header counts only from loopback";
  conn_.loopback = true;
  EXPECT_EQ(Check("bob").userid, "bob");
  EXPECT_EQ(ErrOf("open2"), err::kAuth);
  conn_.trusted_user = "someone-else";
  EXPECT_EQ(ErrOf("bob"), err::kAuth);
}

TEST_F(Licence, FullSessionRotatesTokenOnEveryRequest) {
  std::string hash = PasswordHash("bob", "secret");
  SessionRec& s = state_.NewSession("bob", "full", "127.0.0.1", now_);
  std::string key = s.key, first = s.token;
  Caller c = Check("bob " + HmacSha1Hex(hash, first) + " " + key);
  EXPECT_EQ(c.session_key, key);
  std::string second = token_;
  EXPECT_FALSE(second.empty());
  EXPECT_NE(second, first);
  // The used token is spent; the fault hands back the one to use next.
  EXPECT_EQ(ErrOf("bob " + HmacSha1Hex(hash, first) + " " + key), err::kAuth);
  std::string third = token_;
  EXPECT_NE(third, second);
  EXPECT_EQ(Check("bob " + HmacSha1Hex(hash, third) + " " + key).userid, "bob");
}

TEST_F(Licence, LoginSessionKeepsItsToken) {
  std::string hash = PasswordHash("bob", "secret");
  SessionRec& s = state_.NewSession("bob", "login", "127.0.0.1", now_);
  std::string key = s.key, token = s.token;
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(Check("bob " + HmacSha1Hex(hash, token) + " " + key).userid, "bob");
    EXPECT_TRUE(token_.empty());
  }
  EXPECT_EQ(ErrOf("alice " + HmacSha1Hex(hash, token) + " " + key), err::kSession);
  EXPECT_EQ(ErrOf("bob " + HmacSha1Hex(hash, token) + " nosuchkey"), err::kSession);
}

TEST_F(Licence, SessionExpiresWhenIdle) {
  std::string hash = PasswordHash("bob", "secret");
  SessionRec& s = state_.NewSession("bob", "login", "127.0.0.1", now_);
  std::string key = s.key, token = s.token;
  now_ += kSessionExpireSecs + 1;
  EXPECT_EQ(ErrOf("bob " + HmacSha1Hex(hash, token) + " " + key), err::kSession);
}

TEST(StateStore, RequestGroupsAreNewOnce) {
  State s;
  auto lock = s.Lock();
  std::string g1 = s.NewRequestGroup(), g2 = s.NewRequestGroup();
  EXPECT_NE(g1, g2);
  EXPECT_TRUE(s.KnownRequestGroup(g1));
  EXPECT_FALSE(s.KnownRequestGroup("never-issued"));
}

}  // namespace
}  // namespace lexsim
