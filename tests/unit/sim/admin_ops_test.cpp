// Engines, dictionaries, entries and users on the wire: each test starts a lexsim and
// calls it through the generated client functions.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "crypto.h"
#include "lexsim_process.h"
#include "soapH.h"

namespace {

class Admin : public WireFixture {
 protected:
  int* I(int v) {
    auto* p = static_cast<int*>(soap_malloc(soap_, sizeof(int)));
    *p = v;
    return p;
  }
  bool* B(bool v) {
    auto* p = static_cast<bool*>(soap_malloc(soap_, sizeof(bool)));
    *p = v;
    return p;
  }
  std::string* Lic(const std::string& user) {
    return S(user + " " + lexsim::PasswordHash(user, user == "admin" ? "admin" : "pw"));
  }
  const char* url() const { return sim_.url().c_str(); }

  /// Creates an ordinary user whose password is "pw"; asserts success.
  void MakeUser(const std::string& id, const std::string& tpl = "", const std::string& keys = "") {
    auto* u = soap_new_nv__UserUpdate(soap_);
    u->userid = S(id);
    u->username = S("User " + id);
    u->password = S(lexsim::PasswordHash(id, "pw"));
    nv__CreateUserResponse r;
    ASSERT_EQ(soap_call_nv__CreateUser(soap_, url(), "", Lic("admin"), nullptr, nullptr, Sel(keys),
                                       nullptr, u, tpl.empty() ? nullptr : S(tpl), r),
              SOAP_OK)
        << FaultErr();
  }

  int CreateDic(const std::string& user, const std::string& eid, LONG64 type, LONG64* did,
                const std::string& subject = "test") {
    auto* disp = soap_new_nv__DisplayTextArray(soap_);
    nv__DisplayText t;
    t.lang = S("en");
    t.text = S("Dic of " + user);
    disp->item.push_back(t);
    nv__CreateDictionaryResponse r;
    int rc = soap_call_nv__CreateDictionary(soap_, url(), "", Lic(user), nullptr, nullptr, nullptr,
                                            S(eid), L(type), nullptr, S(subject), disp, nullptr, r);
    if (rc == SOAP_OK) *did = r.dic->did;
    return rc;
  }

  nv__DictionaryDetail* Detail(const std::string& user, LONG64 did) {
    nv__UpdateDictionaryInfoResponse r;
    if (soap_call_nv__UpdateDictionaryInfo(soap_, url(), "", Lic(user), nullptr, nullptr, nullptr,
                                           did, nullptr, nullptr, nullptr, nullptr, nullptr,
                                           r) != SOAP_OK)
      return nullptr;
    return r.dic;
  }

  /// Adds native-format entries; returns the results.
  std::vector<nv__AddEntryResult> Add(const std::string& user, LONG64 did,
                                      const std::vector<std::string>& sources,
                                      const std::string& keys = "", bool expect_ok = true) {
    auto* a = soap_new_nv__DicEntryArray(soap_);
    for (const std::string& s : sources) {
      auto* e = soap_new_nv__DicEntryEngine(soap_);
      e->source = S(s);
      a->item.push_back(e);
    }
    nv__AddDictionaryEntryResponse r;
    int rc = soap_call_nv__AddDictionaryEntry(soap_, url(), "", Lic(user), nullptr, nullptr,
                                              Sel(keys), did, nullptr, a, r);
    if (expect_ok) {
      EXPECT_EQ(rc, SOAP_OK) << FaultErr();
    }
    if (rc != SOAP_OK) return {};
    return r.entries ? r.entries->item : std::vector<nv__AddEntryResult>{};
  }

  std::vector<nv__DicEntry*> Range(const std::string& user, LONG64 did, bool expect_ok = true) {
    nv__GetDictionaryEntryResponse r;
    int rc = soap_call_nv__GetDictionaryEntry(soap_, url(), "", Lic(user), nullptr, nullptr,
                                              nullptr, did, nullptr, L(0), L(-1), nullptr, r);
    if (expect_ok) {
      EXPECT_EQ(rc, SOAP_OK) << FaultErr();
    }
    if (rc != SOAP_OK) return {};
    return r.entries ? r.entries->item : std::vector<nv__DicEntry*>{};
  }

  nv__DictionaryImportResponse Import(const std::string& user, LONG64 did, const std::string& text,
                                      const std::string& keys, int* rc) {
    auto* data = soap_new_nv__DictionaryDataArray(soap_);
    nv__DictionaryData d;
    d.filename = S("words.native");
    d.filedata = soap_new_xsd__base64Binary(soap_);
    d.filedata->__ptr = static_cast<unsigned char*>(soap_malloc(soap_, text.size() + 1));
    std::copy(text.begin(), text.end(), d.filedata->__ptr);
    d.filedata->__size = static_cast<int>(text.size());
    data->item.push_back(d);
    nv__DictionaryImportResponse r;
    *rc = soap_call_nv__DictionaryImport(soap_, url(), "", Lic(user), nullptr, nullptr, Sel(keys),
                                         did, nullptr, nullptr, data, r);
    return r;
  }

  std::string Export(const std::string& user, LONG64 did) {
    nv__DictionaryExportResponse r;
    EXPECT_EQ(soap_call_nv__DictionaryExport(soap_, url(), "", Lic(user), nullptr, nullptr, nullptr,
                                             did, nullptr, nullptr, r),
              SOAP_OK)
        << FaultErr();
    if (!r.data || r.data->item.empty() || !r.data->item[0].filedata) return "";
    const auto* b = r.data->item[0].filedata;
    return std::string(reinterpret_cast<const char*>(b->__ptr), static_cast<size_t>(b->__size));
  }

  nv__User* GetUser(const std::string& caller, const std::string& id, const std::string& keys,
                    int* rc = nullptr) {
    auto* ids = soap_new_nv__StringArray(soap_);
    ids->item.push_back(id);
    nv__GetUserResponse r;
    int c = soap_call_nv__GetUser(soap_, url(), "", Lic(caller), nullptr, nullptr, Sel(keys), nullptr,
                                  nullptr, ids, r);
    if (rc) *rc = c;
    return c == SOAP_OK && r.users && !r.users->item.empty() ? &r.users->item[0] : nullptr;
  }

  int Update(const std::string& caller, nv__UserUpdate* u, nv__UpdateUserResponse& r,
             const std::string& keys = "") {
    return soap_call_nv__UpdateUser(soap_, url(), "", Lic(caller), nullptr, nullptr, Sel(keys),
                                    nullptr, u, r);
  }

  std::vector<std::string> List(const std::string& caller, const std::string& pattern, int* rc) {
    nv__GetUserListResponse r;
    *rc = soap_call_nv__GetUserList(soap_, url(), "", Lic(caller), nullptr, nullptr, nullptr,
                                    S(pattern), r);
    std::vector<std::string> ids;
    if (*rc == SOAP_OK && r.users)
      for (auto& e : r.users->item) ids.push_back(*e.userid);
    return ids;
  }

  std::vector<nv__Engine> Engines(const std::string& user, nv__EngineFilter* f,
                                  const std::string& keys = "", nv__PropertyList** defs = nullptr) {
    nv__GetEngineInfoResponse r;
    EXPECT_EQ(soap_call_nv__GetEngineInfo(soap_, url(), "", Lic(user), nullptr, nullptr, Sel(keys),
                                          nullptr, f, r),
              SOAP_OK)
        << FaultErr();
    if (defs) *defs = r.propdef;
    return r.engines ? r.engines->item : std::vector<nv__Engine>{};
  }

  static std::vector<std::string> Eids(const std::vector<nv__Engine>& v) {
    std::vector<std::string> out;
    for (const auto& e : v) out.push_back(*e.eid);
    return out;
  }

  LexsimProcess sim_;
};

bool Has(const std::vector<std::string>& v, const std::string& s) {
  return std::find(v.begin(), v.end(), s) != v.end();
}

// ---- Engines -------------------------------------------------------------------------

TEST_F(Admin, EnginesAndFilters) {
  auto all = Eids(Engines("admin", nullptr));
  EXPECT_TRUE(Has(all, "QZ-EJ") && Has(all, "QZ-JE") && Has(all, "QZ-JK") && Has(all, "QZ-TM"));
  EXPECT_FALSE(Has(all, "QZ-EK")) << "hidden engines need a HIDDEN type filter";

  auto* f = soap_new_nv__EngineFilter(soap_);
  f->type = I(0x13);
  auto dics = Eids(Engines("admin", f));
  EXPECT_TRUE(Has(dics, "QZ-EK") && Has(dics, "QZ-EJ") && Has(dics, "QZ-TM"));
  EXPECT_FALSE(Has(dics, "QZ-JK")) << "bridges are not DIRECT, MEMORY or HIDDEN";

  f = soap_new_nv__EngineFilter(soap_);
  f->from = S("ja");
  auto from_ja = Engines("admin", f);
  EXPECT_EQ(Eids(from_ja), (std::vector<std::string>{"QZ-JE", "QZ-JK"}));
  const nv__Engine& bridge = from_ja[1];
  ASSERT_TRUE(bridge.inter && bridge.eidLeft && bridge.eidRight);
  EXPECT_EQ(*bridge.inter, "en");
  EXPECT_EQ(*bridge.eidLeft, "QZ-JE");
  EXPECT_EQ(*bridge.eidRight, "QZ-EK");

  f = soap_new_nv__EngineFilter(soap_);
  f->support = I(0x100000 | 0x1);  // TM_EXACT, TRANSLATE
  auto tm_capable = Eids(Engines("admin", f));
  EXPECT_TRUE(Has(tm_capable, "QZ-TM"));
  EXPECT_FALSE(Has(tm_capable, "QZ-JK")) << "the bridge lacks TM_EXACT";
  f = soap_new_nv__EngineFilter(soap_);
  f->type = I(0x2);
  EXPECT_EQ(Eids(Engines("admin", f)), std::vector<std::string>{"QZ-TM"});

  f = soap_new_nv__EngineFilter(soap_);
  f->eid = S("QZ-EF");
  f->type = I(0x10);
  auto retired = Engines("admin", f);
  ASSERT_EQ(retired.size(), 1u);
  ASSERT_TRUE(retired[0].validity && retired[0].validity->to);
  EXPECT_EQ(*retired[0].validity->to, "2010-03-31T23:59:59Z");
}

TEST_F(Admin, EngineDetailsOnRequest) {
  auto* f = soap_new_nv__EngineFilter(soap_);
  f->eid = S("QZ-EJ");
  auto plain = Engines("admin", f);
  ASSERT_EQ(plain.size(), 1u);
  EXPECT_EQ(plain[0].dictionaryInfo, nullptr);
  EXPECT_EQ(plain[0].profiles, nullptr);
  EXPECT_EQ(*plain[0].reverse, "QZ-JE");

  nv__PropertyList* defs = nullptr;
  auto full = Engines("admin", f, "dic profiles propdef", &defs);
  ASSERT_EQ(full.size(), 1u);
  const nv__DictionaryInfo* info = full[0].dictionaryInfo;
  ASSERT_TRUE(info && info->formats && info->limits && info->list);
  EXPECT_EQ(*info->formats->item.at(0).format, "native");
  EXPECT_EQ(*info->limits->tech, 5);
  std::vector<LONG64> dids;
  for (auto& d : info->list->item) dids.push_back(d.did);
  EXPECT_TRUE(std::count(dids.begin(), dids.end(), 1) && std::count(dids.begin(), dids.end(), 101));
  ASSERT_TRUE(full[0].profiles);
  bool readonly_domain = false;
  for (auto& p : full[0].profiles->item)
    if (*p.profile == "business")
      for (auto& q : p.properties->item) readonly_domain |= *q.key == "domain" && *q.readonly;
  EXPECT_TRUE(readonly_domain);
  ASSERT_TRUE(defs);
  bool style = false;
  for (auto& d : defs->item) style |= *d.key == "style" && *d.type == "C" && d.values;
  EXPECT_TRUE(style);
}

TEST_F(Admin, ProfileUpdatesSharedAndOwn) {
  MakeUser("alice");
  auto* add = soap_new_nv__KeyValArray(soap_);
  nv__KeyValPair kv;
  kv.key = "style";
  kv.val = "casual";
  add->item.push_back(kv);
  nv__UpdateEngineProfileResponse r;
  ASSERT_EQ(soap_call_nv__UpdateEngineProfile(soap_, url(), "", Lic("admin"), nullptr, nullptr,
                                              nullptr, S("QZ-EJ"), S("default"), nullptr, add,
                                              nullptr, r),
            SOAP_OK)
      << FaultErr();
  ASSERT_TRUE(r.properties);
  bool casual = false;
  for (auto& p : r.properties->item) casual |= *p.key == "style" && *p.val == "casual";
  EXPECT_TRUE(casual);

  add->item[0].val = "loud";
  EXPECT_NE(soap_call_nv__UpdateEngineProfile(soap_, url(), "", Lic("admin"), nullptr, nullptr,
                                              nullptr, S("QZ-EJ"), S("default"), nullptr, add,
                                              nullptr, r),
            SOAP_OK);
  EXPECT_EQ(FaultErr(), "INVALID_ARGUMENT");

  add->item[0].val = "polite";
  EXPECT_NE(soap_call_nv__UpdateEngineProfile(soap_, url(), "", Lic("alice"), nullptr, nullptr,
                                              nullptr, S("QZ-EJ"), S("default"), nullptr, add,
                                              nullptr, r),
            SOAP_OK);
  EXPECT_EQ(FaultErr(), "ACCESS_DENIED");
  ASSERT_EQ(soap_call_nv__UpdateEngineProfile(soap_, url(), "", Lic("alice"), nullptr, nullptr,
                                              S("overrides"), S("QZ-EJ"), S("default"), nullptr,
                                              add, nullptr, r),
            SOAP_OK)
      << FaultErr();
  auto style_of = [&](const std::string& user) {
    auto* f = soap_new_nv__EngineFilter(soap_);
    f->eid = S("QZ-EJ");
    for (auto& p : Engines(user, f, "profiles").at(0).profiles->item)
      if (*p.profile == "default")
        for (auto& q : p.properties->item)
          if (*q.key == "style") return *q.val;
    return std::string("?");
  };
  EXPECT_EQ(style_of("alice"), "polite");
  EXPECT_EQ(style_of("admin"), "casual");
}

// ---- Dictionaries --------------------------------------------------------------------

TEST_F(Admin, DictionaryLifeCycle) {
  MakeUser("alice");
  MakeUser("bob");
  LONG64 did = 0;
  ASSERT_EQ(CreateDic("alice", "QZ-EJ", 0x100, &did), SOAP_OK) << FaultErr();
  EXPECT_GE(did, 10001);
  Add("alice", did, {"zebra = シマウマ [noun]", "zebra = 縞馬", "lion = ライオン"});
  nv__DictionaryDetail* d = Detail("alice", did);
  ASSERT_TRUE(d);
  EXPECT_EQ(*d->ownerid, "alice");
  EXPECT_EQ(*d->eid, "QZ-EJ");
  EXPECT_EQ(*d->headcount, 2);
  EXPECT_EQ(*d->totalcount, 3);

  // Sharing lets bob read but not change.
  nv__DictionaryExportResponse er;
  EXPECT_NE(soap_call_nv__DictionaryExport(soap_, url(), "", Lic("bob"), nullptr, nullptr, nullptr,
                                           did, nullptr, nullptr, er),
            SOAP_OK);
  EXPECT_EQ(FaultErr(), "ACCESS_DENIED");
  auto* share = soap_new_nv__StringArray(soap_);
  share->item.push_back("bob");
  nv__UpdateDictionaryInfoResponse ur;
  ASSERT_EQ(soap_call_nv__UpdateDictionaryInfo(soap_, url(), "", Lic("alice"), nullptr, nullptr,
                                               nullptr, did, S("zoo"), nullptr, share, nullptr,
                                               nullptr, ur),
            SOAP_OK)
      << FaultErr();
  ASSERT_TRUE(ur.dic->share);
  EXPECT_EQ(ur.dic->share->item, std::vector<std::string>{"bob"});
  EXPECT_EQ(*ur.dic->subject, "zoo");
  EXPECT_NE(Export("bob", did).find("lion = ライオン"), std::string::npos);
  nv__DeleteDictionaryResponse dr;
  EXPECT_NE(soap_call_nv__DeleteDictionary(soap_, url(), "", Lic("bob"), nullptr, nullptr, nullptr,
                                           did, dr),
            SOAP_OK);
  EXPECT_EQ(FaultErr(), "ACCESS_DENIED");

  // A private dictionary cannot be shared.
  LONG64 priv = 0;
  ASSERT_EQ(CreateDic("alice", "QZ-EJ", 0x10, &priv), SOAP_OK);
  EXPECT_NE(soap_call_nv__UpdateDictionaryInfo(soap_, url(), "", Lic("alice"), nullptr, nullptr,
                                               nullptr, priv, nullptr, nullptr, share, nullptr,
                                               nullptr, ur),
            SOAP_OK);
  EXPECT_EQ(FaultErr(), "INVALID_ARGUMENT");

  // Copies: a new one, then onto itself with another type.
  nv__CopyDictionaryResponse cr;
  ASSERT_EQ(soap_call_nv__CopyDictionary(soap_, url(), "", Lic("bob"), nullptr, nullptr, nullptr,
                                         did, nullptr, nullptr, cr),
            SOAP_OK)
      << FaultErr();
  LONG64 copy = *cr.destDid;
  EXPECT_NE(copy, did);
  d = Detail("bob", copy);
  ASSERT_TRUE(d);
  EXPECT_EQ(*d->ownerid, "bob");
  EXPECT_EQ(*d->totalcount, 3);
  EXPECT_EQ(d->share->item.size(), 0u);
  ASSERT_EQ(soap_call_nv__CopyDictionary(soap_, url(), "", Lic("bob"), nullptr, nullptr, nullptr,
                                         copy, L(copy), L(0x10), cr),
            SOAP_OK);
  EXPECT_EQ(*cr.destDid, copy);
  EXPECT_EQ(*Detail("bob", copy)->type, 0x10);

  // Handing over: alice loses the right to change it.
  nv__ChangeDictionaryOwnerResponse or_;
  ASSERT_EQ(soap_call_nv__ChangeDictionaryOwner(soap_, url(), "", Lic("alice"), nullptr, nullptr,
                                                nullptr, did, S("bob"), or_),
            SOAP_OK)
      << FaultErr();
  EXPECT_EQ(*or_.destDid, did);
  EXPECT_EQ(*Detail("bob", did)->ownerid, "bob");
  EXPECT_EQ(Detail("alice", did), nullptr);
  EXPECT_EQ(FaultErr(), "ACCESS_DENIED");

  ASSERT_EQ(soap_call_nv__DeleteDictionary(soap_, url(), "", Lic("bob"), nullptr, nullptr, nullptr,
                                           did, dr),
            SOAP_OK);
  EXPECT_EQ(Detail("bob", did), nullptr);
  EXPECT_EQ(FaultErr(), "NOT_FOUND");
  EXPECT_NE(soap_call_nv__DeleteDictionary(soap_, url(), "", Lic("admin"), nullptr, nullptr, nullptr,
                                           101, dr),
            SOAP_OK) << "technical dictionaries stay";
}

TEST_F(Admin, ImportExportRoundTripAndSourceErrors) {
  MakeUser("alice");
  LONG64 did = 0;
  ASSERT_EQ(CreateDic("alice", "QZ-EJ", 0x10, &did), SOAP_OK);
  const std::string src = "# words\ncat = 猫 [noun]\nthis line is broken\nrun = 走る [verb]\n";
  int rc = 0;
  auto r = Import("alice", did, src, "", &rc);
  ASSERT_EQ(rc, SOAP_OK) << FaultErr();
  EXPECT_FALSE(*r.updated) << "onerror=cancel keeps the dictionary as it was";
  ASSERT_TRUE(r.sourceError);
  ASSERT_EQ(r.sourceError->item.size(), 1u);
  EXPECT_EQ(*r.sourceError->item[0].errline, 3);
  EXPECT_EQ(*r.sourceError->item[0].errcat, "SYNTAX");
  EXPECT_EQ(*r.formatUsed, "native");
  EXPECT_TRUE(Range("alice", did).empty());

  r = Import("alice", did, src, "onerror=continue", &rc);
  ASSERT_EQ(rc, SOAP_OK);
  EXPECT_TRUE(*r.updated);
  EXPECT_EQ(Range("alice", did).size(), 2u);

  // Importing the same again finds duplicates; ondup=ignore says nothing.
  r = Import("alice", did, "cat = 猫 [noun]\n", "", &rc);
  ASSERT_TRUE(r.sourceError);
  EXPECT_EQ(*r.sourceError->item[0].errcode, 6);
  r = Import("alice", did, "cat = 猫 [noun]\n", "ondup=ignore", &rc);
  EXPECT_EQ(r.sourceError, nullptr);

  std::string exported = Export("alice", did);
  LONG64 other = 0;
  ASSERT_EQ(CreateDic("alice", "QZ-EJ", 0x10, &other), SOAP_OK);
  Add("alice", other, {"old = 古い"});
  r = Import("alice", other, exported, "replace", &rc);
  ASSERT_EQ(rc, SOAP_OK);
  EXPECT_TRUE(*r.updated);
  auto a = Range("alice", did), b = Range("alice", other);
  ASSERT_EQ(a.size(), b.size());
  for (size_t i = 0; i < a.size(); ++i)
    EXPECT_EQ(*dynamic_cast<nv__DicEntryEngine*>(a[i])->source,
              *dynamic_cast<nv__DicEntryEngine*>(b[i])->source);
  EXPECT_EQ(Export("alice", other).substr(exported.find('\n')),
            exported.substr(exported.find('\n')));
}

TEST_F(Admin, NormalEntriesIdsErrorsAndDeletion) {
  MakeUser("alice");
  LONG64 did = 0;
  ASSERT_EQ(CreateDic("alice", "QZ-EJ", 0x10, &did), SOAP_OK);
  auto res = Add("alice", did, {"apple = りんご [noun]", "pear = ", "two = 二\nthree = 三"});
  ASSERT_EQ(res.size(), 3u);
  ASSERT_TRUE(res[0].entryid);
  EXPECT_EQ(res[0].entryid->item.size(), 1u);
  ASSERT_TRUE(res[1].error && res[1].sourceError);
  EXPECT_EQ(*res[1].sourceError->item[0].errcode, 3);
  ASSERT_TRUE(res[2].entryid);
  EXPECT_EQ(res[2].entryid->item.size(), 2u);
  std::string apple_id = res[0].entryid->item[0];

  // asfirst puts new entries ahead.
  Add("alice", did, {"zero = 零"}, "asfirst");
  EXPECT_EQ(*dynamic_cast<nv__DicEntryEngine*>(Range("alice", did).at(0))->headword, "zero");

  auto* q = soap_new_nv__DicEntryIdArray(soap_);
  nv__DicEntryId byid, byhead, missing;
  byid.entryid = S(apple_id);
  byhead.headword = S("THREE");
  missing.headword = S("durian");
  q->item = {byid, byhead, missing};
  nv__GetDictionaryEntryResponse gr;
  ASSERT_EQ(soap_call_nv__GetDictionaryEntry(soap_, url(), "", Lic("alice"), nullptr, nullptr,
                                             nullptr, did, nullptr, nullptr, nullptr, q, gr),
            SOAP_OK);
  ASSERT_EQ(gr.entries->item.size(), 3u);
  auto* apple = dynamic_cast<nv__DicEntryEngine*>(gr.entries->item[0]);
  ASSERT_TRUE(apple);
  EXPECT_EQ(*apple->source, "apple = りんご [noun]");
  EXPECT_EQ(*dynamic_cast<nv__DicEntryEngine*>(gr.entries->item[1])->headword, "three");
  auto* nf = dynamic_cast<nv__DicEntryNotFound*>(gr.entries->item[2]);
  ASSERT_TRUE(nf);
  EXPECT_EQ(nf->idx, 2);
  EXPECT_EQ(*nf->headword, "durian");

  auto* del = soap_new_nv__DicEntryIdArray(soap_);
  del->item = {byid};
  nv__DeleteDictionaryEntryResponse dr;
  ASSERT_EQ(soap_call_nv__DeleteDictionaryEntry(soap_, url(), "", Lic("alice"), nullptr, nullptr,
                                                nullptr, did, del, dr),
            SOAP_OK);
  EXPECT_EQ(Range("alice", did).size(), 3u);
  nv__DicEntryId all;
  all.entryid = S("*");
  del->item = {all};
  ASSERT_EQ(soap_call_nv__DeleteDictionaryEntry(soap_, url(), "", Lic("alice"), nullptr, nullptr,
                                                nullptr, did, del, dr),
            SOAP_OK);
  EXPECT_TRUE(Range("alice", did).empty());
}

TEST_F(Admin, MemoryEntriesAndTheirFormat) {
  MakeUser("alice");
  LONG64 did = 0;
  ASSERT_EQ(CreateDic("alice", "QZ-TM", 0x10, &did), SOAP_OK) << FaultErr();
  auto* a = soap_new_nv__DicEntryArray(soap_);
  auto* m = soap_new_nv__DicEntryMemory(soap_);
  m->sentences = soap_new_nv__EntryTextMemoryArray(soap_);
  nv__EntryTextMemory en, ja;
  en.lang = S("en");
  en.text = S("Good morning.");
  ja.lang = S("ja");
  ja.text = S("おはようございます。");
  ja.isKey = B(false);
  m->sentences->item = {en, ja};
  m->weight = I(3);
  m->author = S("kim");
  m->date = S("2024-05-01Z");
  a->item.push_back(m);
  a->item.push_back(soap_new_nv__DicEntryEngine(soap_));  // wrong kind for this dictionary
  nv__AddDictionaryEntryResponse r;
  ASSERT_EQ(soap_call_nv__AddDictionaryEntry(soap_, url(), "", Lic("alice"), nullptr, nullptr,
                                             nullptr, did, nullptr, a, r),
            SOAP_OK)
      << FaultErr();
  ASSERT_EQ(r.entries->item.size(), 2u);
  ASSERT_TRUE(r.entries->item[0].entryid);
  EXPECT_TRUE(r.entries->item[1].error);

  auto got = Range("alice", did);
  ASSERT_EQ(got.size(), 1u);
  auto* e = dynamic_cast<nv__DicEntryMemory*>(got[0]);
  ASSERT_TRUE(e);
  EXPECT_EQ(*e->entryid, r.entries->item[0].entryid->item[0]);
  EXPECT_EQ(*e->weight, 3);
  EXPECT_EQ(*e->date, "2024-05-01T00:00:00Z");
  EXPECT_FALSE(*e->sentences->item[1].isKey);

  std::string text = Export("alice", did);
  EXPECT_NE(text.find("ja = #おはようございます。"), std::string::npos) << text;
  int rc = 0;
  auto ir = Import("alice", did, "[entry]\nen = Good night.\nja = おやすみ。\n[entry]\nweight = x\n",
                   "", &rc);
  ASSERT_EQ(rc, SOAP_OK) << FaultErr();
  EXPECT_FALSE(*ir.updated);
  ASSERT_TRUE(ir.sourceError);
  EXPECT_EQ(*ir.sourceError->item[0].errline, 5);
  nv__DictionaryDetail* d = Detail("alice", did);
  ASSERT_TRUE(d && d->details);
  EXPECT_EQ(*d->headcount, 1);
  EXPECT_EQ(*d->totalcount, 2);
}

// ---- Lookups -------------------------------------------------------------------------

TEST_F(Admin, LookupFindsAnEntryJustAdded) {
  MakeUser("alice");
  LONG64 did = 0;
  ASSERT_EQ(CreateDic("alice", "QZ-EJ", 0x10, &did, "zoo"), SOAP_OK);
  auto* eng = soap_new_nv__EngineSelect(soap_);
  eng->eid = S("QZ-EJ");
  auto* words = soap_new_nv__StringArray(soap_);
  words->item = {"okapi", "hello", "qqqq"};
  nv__LookupEntryResponse r;
  ASSERT_EQ(soap_call_nv__LookupEntry(soap_, url(), "", Lic("alice"), nullptr, nullptr, nullptr,
                                      eng, words, r),
            SOAP_OK)
      << FaultErr();
  ASSERT_TRUE(dynamic_cast<nv__DicEntryNotFound*>(r.entries->item.at(0)));

  Add("alice", did, {"okapi = オカピ [noun]"});
  ASSERT_EQ(soap_call_nv__LookupEntry(soap_, url(), "", Lic("alice"), nullptr, nullptr,
                                      S("rawpos"), eng, words, r),
            SOAP_OK);
  ASSERT_EQ(r.entries->item.size(), 3u);
  auto* hit = dynamic_cast<nv__DicEntryLookup*>(r.entries->item[0]);
  ASSERT_TRUE(hit);
  EXPECT_EQ(hit->idx, 0);
  EXPECT_EQ(*hit->did, std::to_string(did));
  EXPECT_EQ(*hit->txnWord, "オカピ");
  EXPECT_EQ(*hit->orgPos, "N");
  auto* sys = dynamic_cast<nv__DicEntryLookup*>(r.entries->item[1]);
  ASSERT_TRUE(sys);
  EXPECT_EQ(*sys->did, "1");
  auto* nf = dynamic_cast<nv__DicEntryNotFound*>(r.entries->item[2]);
  ASSERT_TRUE(nf);
  EXPECT_EQ(nf->idx, 2);

  nv__LookupFormattedResponse fr;
  ASSERT_EQ(soap_call_nv__LookupFormatted(soap_, url(), "", Lic("alice"), nullptr, nullptr,
                                          S("subject"), nullptr, eng, S("Okapi"), fr),
            SOAP_OK);
  EXPECT_NE(fr.definition->find("オカピ (Noun)  <zoo>"), std::string::npos) << *fr.definition;
  ASSERT_EQ(soap_call_nv__LookupFormatted(soap_, url(), "", Lic("alice"), nullptr, nullptr,
                                          nullptr, nullptr, eng, S("qqqq"), fr),
            SOAP_OK);
  EXPECT_EQ(*fr.definition, "");

  // A "dictionaries" property that leaves the dictionary out hides the entry.
  eng->properties = soap_new_nv__KeyValArray(soap_);
  nv__KeyValPair kv;
  kv.key = "dictionaries";
  kv.val = "101";
  eng->properties->item.push_back(kv);
  ASSERT_EQ(soap_call_nv__LookupEntry(soap_, url(), "", Lic("alice"), nullptr, nullptr, nullptr,
                                      eng, words, r),
            SOAP_OK);
  EXPECT_TRUE(dynamic_cast<nv__DicEntryNotFound*>(r.entries->item.at(0)));

  eng->eid = S("QZ-TM");
  EXPECT_NE(soap_call_nv__LookupEntry(soap_, url(), "", Lic("alice"), nullptr, nullptr, nullptr,
                                      eng, words, r),
            SOAP_OK) << "the memory engine has no LOOKUP support";
}

// ---- Users ---------------------------------------------------------------------------

TEST_F(Admin, CreateFromTemplateCarriesSettings) {
  MakeUser("tpl");
  auto* u = soap_new_nv__UserUpdate(soap_);
  u->userid = S("tpl");
  u->features = S("ECHO TEXT GENG SOAP DCRE");
  u->limits = soap_new_nv__LimitArray(soap_);
  nv__Limit l;
  l.type = S("max.day.chars");
  l.maximum = L(5000);
  u->limits->item.push_back(l);
  u->engines = soap_new_nv__EngineUpdateArray(soap_);
  nv__EngineUpdate eu;
  eu.action = S("set");
  eu.eid = S("QZ-EJ");
  eu.addDicList = S("TECH");
  u->engines->item.push_back(eu);
  nv__UpdateUserResponse ur;
  ASSERT_EQ(Update("admin", u, ur), SOAP_OK) << FaultErr();
  LONG64 own = 0;
  ASSERT_EQ(CreateDic("tpl", "QZ-EJ", 0x10, &own), SOAP_OK);

  MakeUser("copy", "tpl");
  nv__User* c = GetUser("admin", "copy", "features limits engines dic");
  ASSERT_TRUE(c);
  EXPECT_EQ(*c->features, "ECHO GENG TEXT DCRE SOAP");
  ASSERT_TRUE(c->limits);
  EXPECT_EQ(*c->limits->item.at(0).maximum, 5000);
  std::vector<LONG64> dids;
  for (auto& e : c->engines->item)
    if (*e.eid == "QZ-EJ")
      for (auto& d : e.dictionaryInfo->list->item) dids.push_back(d.did);
  EXPECT_EQ(dids, (std::vector<LONG64>{101, 102})) << "the template's own dictionary stays behind";
  EXPECT_EQ(*c->username, "User copy");
}

TEST_F(Admin, UpdateEachArea) {
  MakeUser("carol");
  auto* u = soap_new_nv__UserUpdate(soap_);
  u->userid = S("carol");
  u->features = S("ALL -REST -GAPI");
  u->apiAllowed = L(0x25);
  u->validity = soap_new_nv__Validity(soap_);
  u->validity->from = S("2024-01-01");
  u->validity->to = S("2024-12-31 18:00:00");
  u->iprestrict = soap_new_nv__StringArray(soap_);
  u->iprestrict->item = {"127.0.0.1", "192.168.0.0/255.255.0.0", "[::1]/64", "allv4"};
  u->properties = soap_new_nv__PropertyUpdateArray(soap_);
  nv__PropertyUpdate p1, p2;
  p1.action = S("add");
  p1.key = S("Colour");
  p1.val = S("blue");
  p2.action = S("set");
  p2.key = S("style");
  p2.val = S("polite");
  p2.readonly = B(true);
  u->properties->item = {p1, p2};
  u->engines = soap_new_nv__EngineUpdateArray(soap_);
  nv__EngineUpdate add, del;
  add.action = S("add");
  add.eid = S("QZ-EK");
  add.type = I(0x10);
  add.support = I(0x3);
  add.maxUserDic = L(2);
  del.action = S("del");
  del.eid = S("QZ-JE");
  u->engines->item = {add, del};
  nv__UpdateUserResponse r;
  ASSERT_EQ(Update("admin", u, r, "timezone=+09:00"), SOAP_OK) << FaultErr();

  nv__User* c = GetUser("admin", "carol", "features engines userprop");
  ASSERT_TRUE(c);
  std::string f = *c->features;
  EXPECT_EQ(f.find("REST"), std::string::npos);
  EXPECT_NE(f.find("SOAP"), std::string::npos);
  EXPECT_EQ(*c->apiAllowed, 0x25);
  EXPECT_EQ(*c->validity->from, "2023-12-31T15:00:00Z");
  EXPECT_EQ(*c->validity->to, "2024-12-31T09:00:00Z");
  EXPECT_EQ(c->iprestrict->item.size(), 4u);
  std::map<std::string, std::pair<std::string, bool>> props;
  for (auto& p : c->properties->item) props[*p.key] = {*p.val, *p.readonly};
  EXPECT_EQ(props["colour"], (std::pair<std::string, bool>{"blue", false}));
  EXPECT_EQ(props["style"], (std::pair<std::string, bool>{"polite", true}));
  auto eids = Eids(c->engines->item);
  EXPECT_TRUE(Has(eids, "QZ-EK"));
  EXPECT_FALSE(Has(eids, "QZ-JE"));
  for (auto& e : c->engines->item)
    if (*e.eid == "QZ-EK") {
      EXPECT_EQ(*e.support, 0x3);
      EXPECT_TRUE(*e.type & 0x10);
    }

  // Each malformed area is refused and leaves the account as it was.
  auto refused = [&](nv__UserUpdate* bad) {
    bad->userid = S("carol");
    EXPECT_NE(Update("admin", bad, r), SOAP_OK);
    return FaultErr();
  };
  auto* bad = soap_new_nv__UserUpdate(soap_);
  bad->iprestrict = soap_new_nv__StringArray(soap_);
  bad->iprestrict->item = {"300.1.1.1"};
  EXPECT_EQ(refused(bad), "INVALID_ARGUMENT");
  bad = soap_new_nv__UserUpdate(soap_);
  bad->features = S("ECHO XXXX");
  EXPECT_EQ(refused(bad), "INVALID_ARGUMENT");
  bad = soap_new_nv__UserUpdate(soap_);
  bad->properties = soap_new_nv__PropertyUpdateArray(soap_);
  bad->properties->item = {p1};  // add of an existing key
  EXPECT_EQ(refused(bad), "INVALID_ARGUMENT");
  bad = soap_new_nv__UserUpdate(soap_);
  bad->engines = soap_new_nv__EngineUpdateArray(soap_);
  nv__EngineUpdate many;
  many.action = S("set");
  many.eid = S("QZ-EJ");
  many.maxTechDic = L(1);
  many.addDicList = S("TECH");
  bad->engines->item = {many};
  EXPECT_EQ(refused(bad), "INVALID_ARGUMENT");
  EXPECT_EQ(GetUser("admin", "carol", "features")->features->find("REST"), std::string::npos);

  // Limits: set, then removed with -1.
  auto* lim = soap_new_nv__UserUpdate(soap_);
  lim->userid = S("carol");
  lim->limits = soap_new_nv__LimitArray(soap_);
  nv__Limit l;
  l.type = S("sessions");
  l.maximum = L(3);
  lim->limits->item = {l};
  ASSERT_EQ(Update("admin", lim, r), SOAP_OK);
  EXPECT_EQ(GetUser("admin", "carol", "limits")->limits->item.size(), 1u);
  *l.maximum = -1;
  lim->limits->item = {l};
  ASSERT_EQ(Update("admin", lim, r), SOAP_OK);
  EXPECT_TRUE(GetUser("admin", "carol", "limits")->limits->item.empty());
}

TEST_F(Admin, SessionsAndSessionProperties) {
  MakeUser("dave");
  // The session is opened by HTTP basic auth; its licence is signed with the token.
  soap_->userid = "dave";
  std::string hash = lexsim::PasswordHash("dave", "pw");
  soap_->passwd = hash.c_str();
  nv__CreateSessionResponse cs;
  ASSERT_EQ(soap_call_nv__CreateSession(soap_, url(), "", nullptr, nullptr, nullptr, nullptr, cs),
            SOAP_OK)
      << FaultErr();
  soap_->userid = soap_->passwd = nullptr;
  std::string lic = "dave " + lexsim::HmacSha1Hex(hash, *cs.token) + " " + *cs.session;

  auto* u = soap_new_nv__UserUpdate(soap_);
  u->properties = soap_new_nv__PropertyUpdateArray(soap_);
  nv__PropertyUpdate p;
  p.action = S("set");
  p.key = S("mode");
  p.val = S("draft");
  p.session = B(true);
  u->properties->item = {p};
  nv__UpdateUserResponse r;
  ASSERT_EQ(soap_call_nv__UpdateUser(soap_, url(), "", S(lic), nullptr, nullptr, S("userprop"),
                                     nullptr, u, r),
            SOAP_OK)
      << FaultErr();
  bool seen = false;
  for (auto& q : r.user->properties->item) seen |= *q.key == "mode" && *q.val == "draft";
  EXPECT_TRUE(seen);
  nv__User* admin_view = GetUser("admin", "dave", "sessions userprop");
  ASSERT_TRUE(admin_view && admin_view->sessions);
  ASSERT_EQ(admin_view->sessions->item.size(), 1u);
  EXPECT_EQ(*admin_view->sessions->item[0].type, "login");
  EXPECT_TRUE(admin_view->properties->item.empty()) << "session properties are not global";
}

TEST_F(Admin, DeleteNeedsForceForOwners) {
  MakeUser("erin");
  MakeUser("frank");
  LONG64 did = 0;
  ASSERT_EQ(CreateDic("erin", "QZ-EJ", 0x10, &did), SOAP_OK);
  auto* ids = soap_new_nv__StringArray(soap_);
  ids->item = {"frank", "erin"};
  nv__DeleteUserResponse r;
  EXPECT_NE(soap_call_nv__DeleteUser(soap_, url(), "", Lic("admin"), nullptr, nullptr, nullptr, ids, r),
            SOAP_OK);
  EXPECT_EQ(FaultErr(), "INVALID_ARGUMENT");
  EXPECT_TRUE(GetUser("admin", "frank", "")) << "nothing is deleted when one user fails";
  ASSERT_EQ(soap_call_nv__DeleteUser(soap_, url(), "", Lic("admin"), nullptr, nullptr, S("force"),
                                     ids, r),
            SOAP_OK)
      << FaultErr();
  int rc = 0;
  EXPECT_EQ(GetUser("admin", "erin", "", &rc), nullptr);
  EXPECT_EQ(FaultErr(), "NOT_FOUND");
  EXPECT_EQ(Detail("admin", did), nullptr);
  ids->item = {"admin"};
  EXPECT_NE(soap_call_nv__DeleteUser(soap_, url(), "", Lic("admin"), nullptr, nullptr, S("force"),
                                     ids, r),
            SOAP_OK);
  // With force, as with rm -f, a user that does not exist is no error; without, it is.
  MakeUser("gail");
  ids->item = {"nobody", "gail"};
  EXPECT_NE(
      soap_call_nv__DeleteUser(soap_, url(), "", Lic("admin"), nullptr, nullptr, nullptr, ids, r),
      SOAP_OK);
  EXPECT_EQ(FaultErr(), "NOT_FOUND");
  EXPECT_TRUE(GetUser("admin", "gail", ""));
  ASSERT_EQ(soap_call_nv__DeleteUser(soap_, url(), "", Lic("admin"), nullptr, nullptr, S("force"),
                                     ids, r),
            SOAP_OK)
      << FaultErr();
  EXPECT_EQ(GetUser("admin", "gail", "", &rc), nullptr);
}

TEST_F(Admin, ListPatternsAndGroups) {
  for (const char* id : {"sales/ann", "sales/ben", "dev/cid", "solo"}) MakeUser(id);
  int rc = 0;
  EXPECT_EQ(List("admin", "sales/*", &rc), (std::vector<std::string>{"sales/ann", "sales/ben"}));
  EXPECT_EQ(List("admin", "dev/cid", &rc), std::vector<std::string>{"dev/cid"});
  EXPECT_EQ(List("admin", "dev/ci", &rc), std::vector<std::string>{});
  EXPECT_EQ(List("admin", "*/", &rc), (std::vector<std::string>{"dev/", "sales/"}));
  EXPECT_EQ(List("admin", "", &rc).size(), 5u);

  // An ordinary user sees their own group only. Listing needs the API right first.
  auto* u = soap_new_nv__UserUpdate(soap_);
  u->userid = S("sales/ann");
  u->apiAllowed = L(0x7fffffff);
  nv__UpdateUserResponse ur;
  ASSERT_EQ(Update("admin", u, ur), SOAP_OK);
  EXPECT_EQ(List("sales/ann", "", &rc), (std::vector<std::string>{"sales/ann", "sales/ben"}));
  List("sales/ann", "dev/*", &rc);
  EXPECT_NE(rc, SOAP_OK);
  EXPECT_EQ(FaultErr(), "ACCESS_DENIED");
}

TEST_F(Admin, OrdinaryUsersOnlyTheirOwnThings) {
  MakeUser("gus");
  MakeUser("hal");
  int rc = 0;
  EXPECT_EQ(GetUser("gus", "hal", "", &rc), nullptr);
  EXPECT_EQ(FaultErr(), "ACCESS_DENIED");
  EXPECT_TRUE(GetUser("gus", "gus", ""));

  nv__UpdateUserResponse r;
  auto* other = soap_new_nv__UserUpdate(soap_);
  other->userid = S("hal");
  other->username = S("x");
  EXPECT_NE(Update("gus", other, r), SOAP_OK);
  EXPECT_EQ(FaultErr(), "ACCESS_DENIED");
  auto* raise = soap_new_nv__UserUpdate(soap_);
  raise->apiAllowed = L(0x7fffffff);
  EXPECT_NE(Update("gus", raise, r), SOAP_OK);
  EXPECT_EQ(FaultErr(), "ACCESS_DENIED");
  auto* rename = soap_new_nv__UserUpdate(soap_);
  rename->username = S("Gus G.");
  ASSERT_EQ(Update("gus", rename, r), SOAP_OK) << FaultErr();
  EXPECT_EQ(*r.user->username, "Gus G.");

  // A property the super-user made read-only stays put for its user.
  auto* ro = soap_new_nv__UserUpdate(soap_);
  ro->userid = S("gus");
  ro->properties = soap_new_nv__PropertyUpdateArray(soap_);
  nv__PropertyUpdate p;
  p.action = S("set");
  p.key = S("quota");
  p.val = S("1");
  p.readonly = B(true);
  ro->properties->item = {p};
  ASSERT_EQ(Update("admin", ro, r), SOAP_OK) << FaultErr();
  ro->userid = nullptr;
  p.readonly = nullptr;
  p.val = S("2");
  ro->properties->item = {p};
  EXPECT_NE(Update("gus", ro, r), SOAP_OK);
  EXPECT_EQ(FaultErr(), "ACCESS_DENIED");

  auto* nu = soap_new_nv__UserUpdate(soap_);
  nu->userid = S("jon");
  nv__CreateUserResponse cr;
  // The API mask stops gus before the operation does.
  EXPECT_NE(soap_call_nv__CreateUser(soap_, url(), "", Lic("gus"), nullptr, nullptr, nullptr,
                                     nullptr, nu, nullptr, cr),
            SOAP_OK);
  EXPECT_EQ(FaultErr(), "ACCESS_DENIED");

  LONG64 did = 0;
  ASSERT_EQ(CreateDic("hal", "QZ-EJ", 0x10, &did), SOAP_OK);
  EXPECT_TRUE(Range("gus", did, false).empty());
  EXPECT_EQ(FaultErr(), "ACCESS_DENIED");
  EXPECT_TRUE(Add("gus", did, {"a = b"}, "", false).empty());
  EXPECT_EQ(FaultErr(), "ACCESS_DENIED");
  // runas needs the right to it.
  nv__GetUserResponse gr;
  EXPECT_NE(soap_call_nv__GetUser(soap_, url(), "", Lic("gus"), nullptr, nullptr, S("runas=hal"),
                                  nullptr, nullptr, nullptr, gr),
            SOAP_OK);
  EXPECT_EQ(FaultErr(), "ACCESS_DENIED");
  // The super-user may act for hal on hal's dictionary.
  EXPECT_EQ(Add("admin", did, {"c = d"}, "runas=hal").size(), 1u);
}

}  // namespace
