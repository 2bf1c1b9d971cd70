// The buffer-at-a-time base64 reader against the library's own reader: the
// same text, arriving in the same pieces, must give the same bytes, the same
// error and leave the same markup for the parser.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>

#include "base64_in.h"
#include "soapH.h"

namespace {

struct Feed {
  std::string text;
  size_t pos = 0;
  size_t piece = 0;  // bytes per read; 0 for as many as fit
};

size_t ReadFeed(struct soap* soap, char* buf, size_t size) {
  auto* feed = static_cast<Feed*>(soap->user);
  size_t n = std::min(size, feed->text.size() - feed->pos);
  if (feed->piece) n = std::min(n, feed->piece);
  memcpy(buf, feed->text.data() + feed->pos, n);
  feed->pos += n;
  return n;
}

struct Outcome {
  bool ok = false;
  std::string bytes;
  int error = 0;
  soap_wchar next = 0;  // what the parser sees after the value
  bool operator==(const Outcome&) const = default;
};

Outcome Read(const std::string& text, size_t piece, bool ours, long long length = 0) {
  struct soap* soap = soap_new();
  Feed feed{text, 0, piece};
  soap->user = &feed;
  soap->frecv = ReadFeed;
  soap->length = length;
  int size = -1;
  unsigned char* data = ours ? LexGetBase64(soap, &size) : soap_getbase64(soap, &size, 0);
  Outcome out;
  out.ok = data != nullptr;
  if (data) out.bytes.assign(reinterpret_cast<char*>(data), static_cast<size_t>(size));
  out.error = soap->error;
  if (data) out.next = soap_get(soap);
  soap_end(soap);
  soap_free(soap);
  return out;
}

// Text made of pieces (padding, blanks, references, CDATA, comments, bad
// characters, markup) that ends at an end tag, a child element or nowhere.
TEST(Base64Reader, AgreesWithTheLibraryOnRandomText) {
  std::mt19937 random(20261125);
  const std::string pieces[] = {"QUJD", "ZGVm", "Zw==", "aA=", "=", " ", "\n", "\t", "&#65;", "&amp;",
                                "<![CDATA[WFla]]>", "<!--c-->", "+/+/", "9", "*", "\x80", "</x>", "<y>"};
  for (int round = 0; round < 3000; ++round) {
    std::string text;
    int count = static_cast<int>(random() % 12);
    for (int i = 0; i < count; ++i) text += pieces[random() % std::size(pieces)];
    if (random() % 8) text += "</end>";
    size_t piece = random() % 8;
    SCOPED_TRACE(text + " in pieces of " + std::to_string(piece));
    ASSERT_EQ(Read(text, piece, true), Read(text, piece, false));
  }
}

TEST(Base64Reader, LargeValuesWithAndWithoutAKnownLength) {
  std::string bytes;
  std::mt19937 random(7);
  for (int i = 0; i < (3 << 20) + 2; ++i) bytes += static_cast<char>(random());
  struct soap* soap = soap_new();
  std::string text = soap_s2base64(soap, reinterpret_cast<const unsigned char*>(bytes.data()), nullptr,
                                   static_cast<int>(bytes.size()));
  text += "</data>";
  soap_end(soap);
  soap_free(soap);
  Outcome expected{true, bytes, 0, Read("</data>", 0, false).next};
  // Unknown length, a length that bounds the value, and one that does not
  // (a compressed reply): all the same bytes.
  for (long long length : {0LL, static_cast<long long>(text.size()), 2LL << 20}) {
    SCOPED_TRACE(length);
    EXPECT_EQ(Read(text, 0, true, length), expected);
  }
  EXPECT_EQ(Read(text, 4093, true, static_cast<long long>(text.size())), expected);
}

}  // namespace
