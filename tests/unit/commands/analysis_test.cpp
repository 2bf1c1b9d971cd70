// The parse listing on replies that lack what it expects.
#include "commands/translate/analysis.h"

#include <gtest/gtest.h>

#include <string>

#include "capture.h"
#include "shell/exec_thread.h"
#include "soapH.h"

namespace lexctl {
namespace {

TEST(ParseListing, PrintsWhatAReplyLacksAsEmpty) {
  struct soap* soap = soap_new();
  auto str = [soap](const std::string& text) {
    std::string* s = soap_new_std__string(soap);
    *s = text;
    return s;
  };
  nv__SourceBlockArray sent;
  sent.item.resize(2);
  std::string long_text = std::string(80, 'a') + ".";
  sent.item[0].text = str("Hi. " + long_text);
  sent.item[1].text = str("never answered");
  nv__TextBlockArray received;
  received.item.resize(1);
  nv__TextBlock& block = received.item[0];
  block.error = str("partial");
  block.parts = soap_new_nv__SentenceArray(soap);
  block.parts->item.resize(2);
  nv__Sentence& bare = block.parts->item[0];  // no type, no loc, a word with nothing
  bare.words = soap_new_nv__WordArray(soap);
  bare.words->item.resize(1);
  nv__Sentence& whole = block.parts->item[1];
  whole.type = str("M");
  whole.loc = str("4 81");
  whole.org = str("A.");

  ExecThread thread("t", false);
  testing::Capture out(thread);
  std::string listing = ParseListing(thread, sent, &received);
  EXPECT_EQ(out.Take(), "Number of response blocks does not match request blocks!!!!\n");
  EXPECT_EQ(listing,
            "Block 1\n"
            "  err: partial\n"
            "  org: Hi. " +
                std::string(67, 'a') + "\n     : " + std::string(13, 'a') + ".\n" +
                " Unknown (-1, -1)\n"
                "  org: ][\n"
                "  Words:\n"
                "  1 loc:        pos:        did:          word: [] base: []\n"
                " Machine Translation (4, 81)\n"
                "  org: [" +
                std::string(70, 'a') + "\n     : " + std::string(10, 'a') + ".\n" +
                "  ORG: ]A.[\n"
                "  Words:\n");
  soap_destroy(soap);
  soap_end(soap);
  soap_free(soap);
}

}  // namespace
}  // namespace lexctl
