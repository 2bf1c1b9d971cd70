// The engine printer on replies lexsim never sends: members left out,
// user dictionaries for the listing modes, odd property types.
#include "commands/admin/engine_printer.h"

#include <gtest/gtest.h>

#include "capture.h"
#include "soapH.h"

namespace lexctl {
namespace {

class EnginePrinter : public ::testing::Test {
 protected:
  EnginePrinter() : soap_(soap_new()), out_(thread_) {}
  ~EnginePrinter() override {
    soap_destroy(soap_);
    soap_end(soap_);
    soap_free(soap_);
  }
  std::string* S(const char* text) {
    std::string* s = soap_new_std__string(soap_);
    *s = text;
    return s;
  }
  template <typename T>
  T* N(T value) {
    T* p = static_cast<T*>(soap_malloc(soap_, sizeof(T)));
    *p = value;
    return p;
  }
  nv__Dictionary Dic(LONG64 did, LONG64* type, const char* owner) {
    nv__Dictionary d;
    d.soap_default(soap_);
    d.did = did;
    d.type = type;
    d.ownerid = owner ? S(owner) : nullptr;
    d.subject = S("Subj");
    d.display = S("Name");
    return d;
  }

  struct soap* soap_;
  ExecThread thread_{"_main_", true};
  testing::Capture out_;
};

TEST_F(EnginePrinter, MissingMembersPrintWhatThereIs) {
  auto* engines = soap_new_req_nv__EngineArray(soap_);
  nv__Engine bare;
  bare.soap_default(soap_);  // not even an EID
  nv__Engine bridge;
  bridge.soap_default(soap_);
  bridge.eid = S("B-1");
  bridge.from = S("ja");
  bridge.inter = S("en");
  bridge.to = S("ko");
  bridge.eidLeft = S("L-1");
  bridge.eidRight = S("");  // empty counts as absent
  bridge.validity = soap_new_req_nv__Validity(soap_);
  bridge.validity->to = S("2030-01-01T00:00:00Z");
  bridge.type = N(0x6);
  bridge.dictionaryInfo = soap_new_req_nv__DictionaryInfo(soap_);
  bridge.dictionaryInfo->limits = soap_new_req_nv__DictionaryLimits(soap_);
  bridge.dictionaryInfo->limits->tech = N<LONG64>(3);
  bridge.dictionaryInfo->formats = soap_new_req_nv__FormatArray(soap_);
  nv__Format format;
  format.soap_default(soap_);
  format.api = N<LONG64>(0x8000);
  bridge.dictionaryInfo->formats->item.push_back(format);
  format.api = nullptr;
  format.format = S("odd");
  bridge.dictionaryInfo->formats->item.push_back(format);
  bridge.dictionaryInfo->list = soap_new_req_nv__DictionaryArray(soap_);
  bridge.dictionaryInfo->list->item.push_back(Dic(10001, N<LONG64>(0x40), nullptr));
  bridge.profiles = soap_new_req_nv__ProfileArray(soap_);
  nv__Profile profile;
  profile.soap_default(soap_);
  profile.profile = S("p");
  bridge.profiles->item.push_back(profile);
  profile.properties = soap_new_req_nv__PropertyArray(soap_);
  nv__Property property;
  property.soap_default(soap_);
  property.key = S("k");
  profile.properties->item.push_back(property);
  bridge.profiles->item.push_back(profile);
  engines->item = {bare, bridge};

  PrintEngines(thread_, engines, kEngineFull);
  EXPECT_EQ(out_.Take(),
            "\n"
            " ( -> ), ''\n"
            "\n"
            "B-1 (ja -> en -> ko), ''\n"
            "Bridge Left:  L-1 (ja -> en)\n"
            "Validity:     From: UNLIMITED, To: 2030-01-01T00:00:00Z\n"
            "Type Flags:   0x6\n"
            "    MEMORY  BRIDGE\n"
            "Dictionaries:\n"
            " - Limits: Tech = 3, User = 0, Total = 0\n"
            " - Formats:\n"
            "    DICTIONARY_EXPORT    = \n"
            "                         = odd\n"
            " - Available:\n"
            "   DID     TM TYPE         OWNER               SUBJECT       DISPLAY-NAME\n"
            "   10001   TM UNKNOWN                          Subj          Name\n"
            "Profile:  (p)\n"
            "Profile:  (p)\n"
            "    KEY                                                      RO DEFAULT VALUE\n"
            "    k" + std::string(54 + 2 + 1 + 2, ' ') + "\n");

  PrintEngines(thread_, nullptr, kEngineList);
  PrintEngines(thread_, engines, kEngineList);
  EXPECT_EQ(out_.Take(), "\n\n ( -> ), ''\nB-1 (ja -> en -> ko), ''\n2 engines\n");
}

TEST_F(EnginePrinter, DictionaryListingsSplitAtDid10000) {
  auto* engines = soap_new_req_nv__EngineArray(soap_);
  nv__Engine engine;
  engine.soap_default(soap_);
  engine.eid = S("E-1");
  engine.dictionaryInfo = soap_new_req_nv__DictionaryInfo(soap_);
  engine.dictionaryInfo->list = soap_new_req_nv__DictionaryArray(soap_);
  engine.dictionaryInfo->list->item = {Dic(1, N<LONG64>(0x1), "system"), Dic(101, N<LONG64>(0x2), "system"),
                                       Dic(9999, N<LONG64>(0x10), "bob"), Dic(10000, nullptr, "amy"),
                                       Dic(10002, N<LONG64>(0x100), "amy")};
  nv__Engine no_info;
  no_info.soap_default(soap_);
  engines->item = {engine, no_info};
  const std::string header =
      "\nEID          DID    TYPE         OWNER               SUBJECT       DISPLAY-NAME\n";
  PrintEngines(thread_, engines, kEngineUserDics);
  EXPECT_EQ(out_.Take(), header +
                             "E-1          10000               amy                 Subj          Name\n"
                             "E-1          10002  USER_SHARED  amy                 Subj          Name\n");
  PrintEngines(thread_, engines, kEngineTechDics);
  EXPECT_EQ(out_.Take(), header +
                             "E-1          101    TECHNICAL    system              Subj          Name\n"
                             "E-1          9999   USER         bob                 Subj          Name\n");
}

TEST_F(EnginePrinter, PropertyDefinitions) {
  auto* defs = soap_new_req_nv__PropertyList(soap_);
  PrintPropertyDefs(thread_, nullptr);
  PrintPropertyDefs(thread_, defs);
  EXPECT_EQ(out_.Take(), "");
  nv__PropertyDef def;
  def.soap_default(soap_);
  def.key = S("style");
  def.display = S("Style");
  def.type = S("C");
  def.values = soap_new_req_nv__PropertyValues(soap_);
  nv__PropertyValue value;
  value.soap_default(soap_);
  value.value = S("plain");
  def.values->item.push_back(value);
  defs->item.push_back(def);
  def.type = S("Q");  // unknown to the client: shown as sent
  def.values = nullptr;
  defs->item.push_back(def);
  def.type = nullptr;
  defs->item.push_back(def);
  PrintPropertyDefs(thread_, defs);
  EXPECT_EQ(out_.Take(),
            "\nProperty Details:\n"
            "\n   'style', Type: CHOICE\n   Style\n     Value: 'plain', Display: ''\n"
            "\n   'style', Type: Q\n   Style\n"
            "\n   'style', Type: \n   Style\n");
}

}  // namespace
}  // namespace lexctl
