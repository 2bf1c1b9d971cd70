// Dictionaries, their source import and export, their entries, and lookups.

#include <algorithm>
#include <cerrno>
#include <unordered_set>

#include "admin_wire.h"
#include "crypto.h"
#include "dictfmt.h"
#include "frame.h"
#include "sys.h"

using lexsim::Call;
using lexsim::Dictionary;
using lexsim::DictEntry;
using lexsim::OpInfo;
using lexsim::Raise;
using lexsim::State;
namespace api = lexsim::api;
namespace err = lexsim::err;
namespace dtype = lexsim::dtype;
namespace dictfmt = lexsim::dictfmt;

namespace lexsim::admin {

nv__Dictionary MakeDictionaryRow(const Call& call, const Dictionary& d, const std::string& lang) {
  nv__Dictionary row;
  row.did = d.did;
  row.type = call.Long(d.type);
  row.subject = call.Str(d.subject);
  row.ownerid = call.Str(d.owner);
  auto it = d.display.find(lang);
  if (it == d.display.end()) it = d.display.find("en");
  if (it == d.display.end()) it = d.display.begin();
  row.display = call.Str(it == d.display.end() ? "" : it->second);
  row.languages = call.Str(d.languages);
  return row;
}

nv__DictionaryDetail* MakeDictionaryDetail(const Call& call, const Dictionary& d) {
  auto* x = soap_new_nv__DictionaryDetail(call.soap());
  x->eid = call.Str(d.eid);
  x->did = d.did;
  x->type = call.Long(d.type);
  x->subject = call.Str(d.subject);
  x->ownerid = call.Str(d.owner);
  x->languages = call.Str(d.languages);
  x->alldisplay = soap_new_nv__DisplayTextArray(call.soap());
  for (const auto& [lang, text] : d.display) {
    nv__DisplayText t;
    t.lang = call.Str(lang);
    t.text = call.Str(text);
    x->alldisplay->item.push_back(t);
  }
  if (d.shared_type()) {
    x->share = soap_new_nv__StringArray(call.soap());
    x->share->item.assign(d.shares.begin(), d.shares.end());
  }
  x->headcount = call.Long(d.HeadCount());
  x->totalcount = call.Long(d.TotalCount());
  if (d.memory) {
    x->details = soap_new_nv__DicDetailsMemory(call.soap());
    x->details->comment = call.Str(d.comment);
    x->details->vender = call.Str(d.vender);
    if (!d.userdata.empty()) {
      auto* b = soap_new_xsd__base64Binary(call.soap());
      b->__size = static_cast<int>(d.userdata.size());
      b->__ptr = static_cast<unsigned char*>(soap_malloc(call.soap(), d.userdata.size()));
      std::copy(d.userdata.begin(), d.userdata.end(), b->__ptr);
      x->details->userdata = b;
    }
  }
  return x;
}

}  // namespace lexsim::admin

namespace {
constexpr OpInfo kCreateDictionary{"CreateDictionary", api::kCreateDictionary};
constexpr OpInfo kUpdateDictionaryInfo{"UpdateDictionaryInfo", api::kUpdateDictionaryInfo};
constexpr OpInfo kCopyDictionary{"CopyDictionary", api::kCopyDictionary};
constexpr OpInfo kDeleteDictionary{"DeleteDictionary", api::kDeleteDictionary};
constexpr OpInfo kChangeDictionaryOwner{"ChangeDictionaryOwner", api::kChangeDictionaryOwner};
constexpr OpInfo kDictionaryImport{"DictionaryImport", api::kDictionaryImport};
constexpr OpInfo kDictionaryExport{"DictionaryExport", api::kDictionaryExport};
constexpr OpInfo kAddDictionaryEntry{"AddDictionaryEntry", api::kAddDictionaryEntry};
constexpr OpInfo kGetDictionaryEntry{"GetDictionaryEntry", api::kGetDictionaryEntry};
constexpr OpInfo kDeleteDictionaryEntry{"DeleteDictionaryEntry", api::kDeleteDictionaryEntry};
constexpr OpInfo kLookupEntry{"LookupEntry", api::kLookupFormatted};
constexpr OpInfo kLookupFormatted{"LookupFormatted", api::kLookupFormatted};

constexpr size_t kMaxEntriesPerCall = 500;
constexpr int64_t kMaxRange = 1000;
constexpr int64_t kDefaultErrLimit = 100;

bool UserType(int64_t t) {
  return t == dtype::kUser || t == dtype::kLearn || t == dtype::kUserShared ||
         t == dtype::kLearnShared;
}

std::string Bytes(const xsd__base64Binary* b) {
  if (!b || !b->__ptr || b->__size <= 0) return "";
  return std::string(reinterpret_cast<const char*>(b->__ptr), static_cast<size_t>(b->__size));
}

xsd__base64Binary* Binary(const Call& call, const std::string& s) {
  auto* b = soap_new_xsd__base64Binary(call.soap());
  b->__size = static_cast<int>(s.size());
  b->__ptr = static_cast<unsigned char*>(soap_malloc(call.soap(), s.size() + 1));
  std::copy(s.begin(), s.end(), b->__ptr);
  // Clients that send the select key "dime" take binary replies as DIME attachments.
  if (call.keys().Has("dime")) {
    soap_set_omode(call.soap(), SOAP_ENC_DIME);
    b->type = soap_strdup(call.soap(), "application/octet-stream");
  }
  return b;
}

// For clients' own tests: the select key "sim.sparse" answers with the members a reply may
// leave out taken away, and with one entry result too few.
bool Sparse(const Call& call) { return call.keys().Has("sim.sparse"); }

nv__DictionaryDetail* SparseDetail(const Call& call, int64_t did) {
  auto* x = soap_new_nv__DictionaryDetail(call.soap());
  x->did = did;
  return x;
}

// The dictionary, if the target may read it (or write it).
Dictionary& Open(Call& call, int64_t did, const std::string& target, bool write) {
  Dictionary* d = call.state().FindDictionary(did);
  if (!d) Raise(err::kNotFound, "Unknown dictionary: " + std::to_string(did));
  bool ok = write ? call.state().CanWrite(*d, target) : call.state().CanRead(*d, target);
  if (!ok && !call.caller()->super)
    Raise(err::kDenied, std::string(write ? "Not allowed to change" : "Not allowed to use") +
                            " dictionary " + std::to_string(did));
  return *d;
}

void ApplyDisplay(std::map<std::string, std::string>& m, const nv__DisplayTextArray* a) {
  if (!a) return;
  for (const nv__DisplayText& t : a->item) {
    if (!t.lang || t.lang->empty()) Raise(err::kArgument, "Display text without a language");
    if (t.text && !t.text->empty())
      m[*t.lang] = *t.text;
    else
      m.erase(*t.lang);
  }
}

void CheckOwnedLimit(const State& state, const std::string& userid) {
  const lexsim::Account* a = state.FindUser(userid);
  if (!a) return;
  auto it = a->limits.find("dictionaries.owned");
  if (it == a->limits.end() || it->second < 0) return;
  int64_t owned = 0;
  for (const auto& [did, d] : state.dictionaries()) owned += d.owner == userid;
  if (owned >= it->second)
    Raise(err::kDenied, "Limit dictionaries.owned reached (" + std::to_string(it->second) + ")");
}

std::string FormatOf(const Dictionary& d, const std::string* requested) {
  std::string want = d.memory ? dictfmt::kTmText : dictfmt::kNative;
  if (requested && !requested->empty() && !lexsim::EqualsNoCase(*requested, want))
    Raise(err::kArgument, "Format " + *requested + " is not supported by dictionary " +
                              std::to_string(d.did) + "; use " + want);
  return want;
}

std::optional<std::string> Iconv(const std::string& in, const std::string& from,
                                 const std::string& to) {
  iconv_t cd = iconv_open(to.c_str(), from.c_str());
  if (cd == reinterpret_cast<iconv_t>(-1)) return std::nullopt;
  std::string out(in.size() * 4 + 16, '\0');
  char* src = const_cast<char*>(in.data());
  size_t left = in.size();
  char* dst = out.data();
  size_t room = out.size();
  size_t rc = iconv(cd, &src, &left, &dst, &room);
  iconv_close(cd);
  if (rc == static_cast<size_t>(-1)) return std::nullopt;
  out.resize(out.size() - room);
  return out;
}

bool IsUtf8Name(const std::string& e) {
  return e.empty() || lexsim::EqualsNoCase(e, "UTF-8") || lexsim::EqualsNoCase(e, "UTF8") ||
         lexsim::EqualsNoCase(e, "auto");
}

// Entries are duplicates when their texts match ignoring case: this is the text compared.
std::string DupKey(const DictEntry& e, bool memory, bool head_only) {
  if (!memory) {
    std::string k = lexsim::ToLower(e.headword);
    if (!head_only) k += "\x1f" + lexsim::ToLower(e.target);
    return k;
  }
  std::string k;
  for (const lexsim::TmSentence& s : e.sentences)
    if (s.key || !head_only) k += s.lang + "\x1f" + lexsim::ToLower(s.text) + "\x1e";
  return k;
}

nv__SourceError MakeSourceError(const Call& call, const dictfmt::SourceErr& e) {
  nv__SourceError x;
  x.errcode = call.Long(e.code);
  x.errmsg = call.Str(e.msg);
  x.errline = call.Long(e.errline);
  x.srcline = call.Long(e.srcline);
  x.source = call.Str(e.source);
  if (!e.keyword.empty()) x.keyword = call.Str(e.keyword);
  x.errcat = call.Str(e.cat);
  return x;
}

nv__DicEntry* WireEntry(const Call& call, const Dictionary& d, const DictEntry& e) {
  if (!d.memory) {
    auto* x = soap_new_nv__DicEntryEngine(call.soap());
    x->entryid = call.Str(std::to_string(e.id));
    x->headword = call.Str(e.headword);
    x->source = call.Str(dictfmt::FormatNative(e));
    return x;
  }
  auto* x = soap_new_nv__DicEntryMemory(call.soap());
  x->entryid = call.Str(std::to_string(e.id));
  x->sentences = soap_new_nv__EntryTextMemoryArray(call.soap());
  for (const lexsim::TmSentence& s : e.sentences) {
    nv__EntryTextMemory t;
    t.lang = call.Str(s.lang);
    t.text = call.Str(s.text);
    t.isKey = static_cast<bool*>(soap_malloc(call.soap(), sizeof(bool)));
    *t.isKey = s.key;
    x->sentences->item.push_back(t);
  }
  x->isPattern = static_cast<bool*>(soap_malloc(call.soap(), sizeof(bool)));
  *x->isPattern = e.pattern;
  x->weight = static_cast<int*>(soap_malloc(call.soap(), sizeof(int)));
  *x->weight = e.weight;
  x->info = static_cast<int*>(soap_malloc(call.soap(), sizeof(int)));
  *x->info = e.info;
  if (!e.author.empty()) x->author = call.Str(e.author);
  if (!e.title.empty()) x->title = call.Str(e.title);
  if (!e.comment.empty()) x->comment = call.Str(e.comment);
  if (!e.date.empty()) x->date = call.Str(e.date);
  if (!e.userdata.empty()) x->userdata = Binary(call, e.userdata);
  return x;
}

bool HeadMatches(const Dictionary& d, const DictEntry& e, const std::string& head) {
  if (!d.memory) return lexsim::EqualsNoCase(e.headword, head);
  for (const lexsim::TmSentence& s : e.sentences)
    if (s.key && lexsim::EqualsNoCase(s.text, head)) return true;
  return false;
}

std::optional<int64_t> ParseId(const std::string& s) {
  if (s.empty() || s.size() > 18) return std::nullopt;
  for (char c : s)
    if (c < '0' || c > '9') return std::nullopt;
  return std::stoll(s);
}

void Insert(Dictionary& d, std::vector<DictEntry> add, bool first) {
  for (DictEntry& e : add) e.id = d.next_entry++;
  auto at = first ? d.entries.begin() : d.entries.end();
  d.entries.insert(at, std::make_move_iterator(add.begin()), std::make_move_iterator(add.end()));
}

// Selects a new dictionary for its owner's engine when there is room, so that it is used
// for translation at once.
void SelectForOwner(State& state, const Dictionary& d) {
  lexsim::Account* a = state.FindUser(d.owner);
  if (!a) return;
  auto it = a->engines.find(d.eid);
  const lexsim::EngineDef* e = lexsim::FindEngine(d.eid);
  if (it == a->engines.end() || !e) return;
  int64_t users = 0;
  for (int64_t did : it->second.dics)
    if (did >= lexsim::kFirstUserDid) ++users;
  if (users < std::min(it->second.max_user, e->max_user)) it->second.dics.push_back(d.did);
}

}  // namespace

int nv__CreateDictionary(struct soap* soap, std::string* licence, std::string* clientid,
                         std::string* reqgroup, std::string* select, std::string* eid,
                         LONG64* type, std::string* languages, std::string* subject,
                         nv__DisplayTextArray* alldisplay, nv__DicDetailsMemory* details,
                         struct nv__CreateDictionaryResponse& r) {
  return lexsim::Serve(
      soap, kCreateDictionary, {licence, clientid, reqgroup, select}, r, [&](Call& call) {
        if (!eid || eid->empty()) Raise(err::kArgument, "An engine is required");
        const lexsim::EngineDef* e = lexsim::FindEngine(*eid);
        if (!e) Raise(err::kNotFound, "Unknown engine: " + *eid);
        if (e->bridge() || !(e->support & lexsim::esupport::kDic))
          Raise(err::kArgument, "Engine " + e->eid + " has no dictionaries of its own");
        int64_t t = type ? *type : dtype::kUser;
        if (!UserType(t))
          Raise(err::kArgument, "Dictionary type must be USER, LEARN, USER_SHARED or LEARN_SHARED");
        auto lock = call.state().Lock();
        std::string target = call.Target();
        const lexsim::Account* a = call.state().FindUser(target);
        if (!a->engines.count(e->eid) && !call.caller()->super)
          Raise(err::kDenied, "Engine not available: " + e->eid);
        CheckOwnedLimit(call.state(), target);
        Dictionary d;
        d.eid = e->eid;
        d.type = t;
        d.memory = e->memory();
        d.owner = target;
        d.subject = subject ? *subject : "";
        d.languages = languages && !languages->empty() ? *languages : e->from + "-" + e->to;
        ApplyDisplay(d.display, alldisplay);
        if (details) {
          if (!d.memory) {
            call.Warn("details", "Ignored: not a translation-memory dictionary");
          } else {
            if (details->comment) d.comment = *details->comment;
            if (details->vender) d.vender = *details->vender;
            d.userdata = Bytes(details->userdata);
          }
        }
        Dictionary& made = call.state().AddDictionary(std::move(d));
        SelectForOwner(call.state(), made);
        r.dic = Sparse(call) ? SparseDetail(call, made.did)
                             : lexsim::admin::MakeDictionaryDetail(call, made);
      });
}

int nv__UpdateDictionaryInfo(struct soap* soap, std::string* licence, std::string* clientid,
                             std::string* reqgroup, std::string* select, LONG64 did,
                             std::string* subject, nv__DisplayTextArray* alldisplay,
                             nv__StringArray* addShare, nv__StringArray* delShare,
                             nv__DicDetailsMemory* details,
                             struct nv__UpdateDictionaryInfoResponse& r) {
  return lexsim::Serve(
      soap, kUpdateDictionaryInfo, {licence, clientid, reqgroup, select}, r, [&](Call& call) {
        auto lock = call.state().Lock();
        std::string target = call.Target();
        bool changes = subject || alldisplay || addShare || delShare || details;
        Dictionary& d = Open(call, did, target, changes);
        bool sharing = (addShare && !addShare->item.empty()) || (delShare && !delShare->item.empty());
        if (sharing && !d.shared_type())
          Raise(err::kArgument, "Only USER_SHARED and LEARN_SHARED dictionaries can be shared");
        if (addShare)
          for (const std::string& u : addShare->item)
            if (!call.state().FindUser(u)) Raise(err::kNotFound, "Unknown user: " + u);
        if (details && !d.memory) Raise(err::kArgument, "Not a translation-memory dictionary");
        std::map<std::string, std::string> display = d.display;
        ApplyDisplay(display, alldisplay);

        d.display = std::move(display);
        if (subject) d.subject = *subject;
        if (addShare)
          for (const std::string& u : addShare->item)
            if (u != d.owner) d.shares.insert(u);
        if (delShare)
          for (const std::string& u : delShare->item)
            if (!d.shares.erase(u)) call.Warn(u, "Not shared with this user");
        if (details) {
          if (details->comment) d.comment = *details->comment;
          if (details->vender) d.vender = *details->vender;
          if (details->userdata) d.userdata = Bytes(details->userdata);
        }
        if (delShare) call.state().PruneSelections();
        r.dic = Sparse(call) ? SparseDetail(call, d.did) : lexsim::admin::MakeDictionaryDetail(call, d);
      });
}

int nv__CopyDictionary(struct soap* soap, std::string* licence, std::string* clientid,
                       std::string* reqgroup, std::string* select, LONG64 sourceDid,
                       LONG64* targetDid, LONG64* targetType,
                       struct nv__CopyDictionaryResponse& r) {
  return lexsim::Serve(
      soap, kCopyDictionary, {licence, clientid, reqgroup, select}, r, [&](Call& call) {
        if (targetType && !UserType(*targetType))
          Raise(err::kArgument, "Target type must be USER, LEARN, USER_SHARED or LEARN_SHARED");
        auto lock = call.state().Lock();
        std::string target = call.Target();
        Dictionary& src = Open(call, sourceDid, target, false);
        if (targetDid && *targetDid == sourceDid) {
          // A copy onto itself can only change the type.
          Open(call, sourceDid, target, true);
          if (targetType && *targetType != src.type) {
            src.type = *targetType;
            if (!src.shared_type()) src.shares.clear();
            call.state().PruneSelections();
          }
          r.destDid = call.Long(src.did);
          return;
        }
        if (targetDid && *targetDid) {
          Dictionary& dst = Open(call, *targetDid, target, true);
          if (dst.eid != src.eid)
            Raise(err::kArgument, "Dictionaries " + std::to_string(src.did) + " and " +
                                      std::to_string(dst.did) + " belong to different engines");
          if (dst.type == dtype::kSystem || dst.type == dtype::kTechnical)
            Raise(err::kArgument, "Only user dictionaries can be replaced");
          std::vector<DictEntry> copied = src.entries;
          dst.entries.clear();
          Insert(dst, std::move(copied), false);
          if (targetType) dst.type = *targetType;
          if (!dst.shared_type()) dst.shares.clear();
          call.state().PruneSelections();
          r.destDid = call.Long(dst.did);
          return;
        }
        CheckOwnedLimit(call.state(), target);
        Dictionary copy = src;
        copy.owner = target;
        copy.shares.clear();
        copy.type = targetType ? *targetType : UserType(src.type) ? src.type : dtype::kUser;
        r.destDid = call.Long(call.state().AddDictionary(std::move(copy)).did);
        if (Sparse(call)) r.destDid = nullptr;
      });
}

int nv__DeleteDictionary(struct soap* soap, std::string* licence, std::string* clientid,
                         std::string* reqgroup, std::string* select, LONG64 did,
                         struct nv__DeleteDictionaryResponse& r) {
  return lexsim::Serve(
      soap, kDeleteDictionary, {licence, clientid, reqgroup, select}, r, [&](Call& call) {
        auto lock = call.state().Lock();
        std::string target = call.Target();
        Dictionary& d = Open(call, did, target, true);
        if (!UserType(d.type)) Raise(err::kArgument, "System and technical dictionaries stay");
        call.state().RemoveDictionary(did);
      });
}

int nv__ChangeDictionaryOwner(struct soap* soap, std::string* licence, std::string* clientid,
                              std::string* reqgroup, std::string* select, LONG64 did,
                              std::string* targetUser,
                              struct nv__ChangeDictionaryOwnerResponse& r) {
  return lexsim::Serve(
      soap, kChangeDictionaryOwner, {licence, clientid, reqgroup, select}, r, [&](Call& call) {
        if (!targetUser || targetUser->empty()) Raise(err::kArgument, "A target user is required");
        auto lock = call.state().Lock();
        std::string target = call.Target();
        Dictionary& d = Open(call, did, target, true);
        if (!UserType(d.type)) Raise(err::kArgument, "Only user dictionaries change owner");
        if (!call.state().FindUser(*targetUser))
          Raise(err::kNotFound, "Unknown user: " + *targetUser);
        if (*targetUser != d.owner) {
          CheckOwnedLimit(call.state(), *targetUser);
          d.owner = *targetUser;
          d.shares.erase(*targetUser);
          call.state().PruneSelections();
        }
        r.destDid = call.Long(d.did);
      });
}

int nv__DictionaryImport(struct soap* soap, std::string* licence, std::string* clientid,
                         std::string* reqgroup, std::string* select, LONG64 did,
                         std::string* format, std::string* encoding,
                         nv__DictionaryDataArray* data, struct nv__DictionaryImportResponse& r) {
  return lexsim::Serve(
      soap, kDictionaryImport, {licence, clientid, reqgroup, select}, r, [&](Call& call) {
        if (!data || data->item.empty()) Raise(err::kArgument, "No data to import");
        const auto& keys = call.keys();
        std::string onerror = keys.Value("onerror").value_or("cancel");
        std::string ondup = keys.Value("ondup").value_or("error");
        std::string dupcheck = keys.Value("dupcheck").value_or("entry");
        if (onerror != "cancel" && onerror != "continue")
          Raise(err::kArgument, "onerror must be cancel or continue");
        if (ondup != "error" && ondup != "warn" && ondup != "ignore")
          Raise(err::kArgument, "ondup must be error, warn or ignore");
        if (dupcheck != "entry" && dupcheck != "head" && dupcheck != "none")
          Raise(err::kArgument, "dupcheck must be entry, head or none");
        int64_t errlimit = kDefaultErrLimit;
        if (auto v = keys.Value("errlimit")) {
          std::optional<int64_t> n = ParseId(*v);
          if (!n) Raise(err::kArgument, "errlimit must be a number");
          errlimit = *n;
        }
        std::string enc = encoding ? *encoding : "";

        auto lock = call.state().Lock();
        std::string target = call.Target();
        Dictionary& d = Open(call, did, target, true);
        std::string fmt = FormatOf(d, format);
        bool replace = keys.Has("replace");

        std::vector<DictEntry> kept;
        // Keys of the entries a new one must not duplicate, so that large imports stay linear.
        bool head = dupcheck == "head";
        std::unordered_set<std::string> seen;
        if (dupcheck != "none" && !replace)
          for (const DictEntry& x : d.entries) seen.insert(DupKey(x, d.memory, head));
        std::vector<dictfmt::SourceErr> errors;
        int64_t counted = 0;
        bool aborted = false;
        std::string used = "UTF-8";
        for (const nv__DictionaryData& item : data->item) {
          std::string name = item.filename ? *item.filename : "";
          std::string text = Bytes(item.filedata);
          if (!IsUtf8Name(enc)) {
            std::optional<std::string> conv = Iconv(text, enc, "UTF-8");
            if (!conv) Raise(err::kArgument, "Cannot read " + name + " as " + enc);
            text = std::move(*conv);
            used = enc;
          } else if (!keys.Has("nodetect") && text.size() >= 2 &&
                     ((text[0] == '\xFF' && text[1] == '\xFE') ||
                      (text[0] == '\xFE' && text[1] == '\xFF'))) {
            std::optional<std::string> conv = Iconv(text, "UTF-16", "UTF-8");
            if (!conv) Raise(err::kArgument, "Cannot read " + name + " as UTF-16");
            text = std::move(*conv);
            used = "UTF-16";
          }
          dictfmt::ParseResult pr = d.memory ? dictfmt::ParseTm(text) : dictfmt::ParseNative(text);
          for (dictfmt::SourceErr& e : pr.errors) {
            e.msg = name + ": " + e.msg;
            errors.push_back(e);
            ++counted;
          }
          for (dictfmt::Parsed& p : pr.entries) {
            bool dup = dupcheck != "none" && !seen.insert(DupKey(p.entry, d.memory, head)).second;
            if (!dup) {
              kept.push_back(std::move(p.entry));
              continue;
            }
            if (ondup == "ignore") continue;
            std::string src = d.memory ? dictfmt::FormatTm(p.entry) : dictfmt::FormatNative(p.entry);
            errors.push_back({6, "DUPLICATE", name + ": Duplicate entry", p.line, p.line, src,
                              d.memory ? "" : p.entry.headword});
            if (ondup == "error") ++counted;
          }
          if (onerror == "cancel" && counted >= errlimit && errlimit > 0) {
            aborted = true;
            break;
          }
        }
        bool update = onerror == "continue" ? !aborted : counted == 0;
        if (update) {
          if (replace) d.entries.clear();
          Insert(d, std::move(kept), keys.Has("asfirst"));
        }
        r.encodingUsed = call.Str(used);
        r.formatUsed = call.Str(fmt);
        r.updated = static_cast<bool*>(soap_malloc(soap, sizeof(bool)));
        *r.updated = update;
        if (!errors.empty()) {
          r.sourceError = soap_new_nv__SourceErrorArray(soap);
          for (const dictfmt::SourceErr& e : errors)
            r.sourceError->item.push_back(MakeSourceError(call, e));
        }
        if (Sparse(call)) {
          r.encodingUsed = r.formatUsed = nullptr;
          r.updated = nullptr;
          if (!r.sourceError) r.sourceError = soap_new_nv__SourceErrorArray(soap);
          r.sourceError->item.push_back(nv__SourceError());
        }
      });
}

int nv__DictionaryExport(struct soap* soap, std::string* licence, std::string* clientid,
                         std::string* reqgroup, std::string* select, LONG64 did,
                         std::string* format, std::string* encoding,
                         struct nv__DictionaryExportResponse& r) {
  return lexsim::Serve(
      soap, kDictionaryExport, {licence, clientid, reqgroup, select}, r, [&](Call& call) {
        auto lock = call.state().Lock();
        std::string target = call.Target();
        const Dictionary& d = Open(call, did, target, false);
        std::string fmt = FormatOf(d, format);
        std::string text = dictfmt::Write(d);
        if (encoding && !IsUtf8Name(*encoding)) {
          std::optional<std::string> conv = Iconv(text, "UTF-8", *encoding);
          if (!conv) Raise(err::kArgument, "Cannot write the dictionary as " + *encoding);
          text = std::move(*conv);
        }
        r.data = soap_new_nv__DictionaryDataArray(soap);
        nv__DictionaryData item;
        item.filename = call.Str(std::to_string(d.did) + "." + fmt);
        item.filedata = Binary(call, text);
        if (Sparse(call)) item = nv__DictionaryData();
        r.data->item.push_back(item);
      });
}

int nv__AddDictionaryEntry(struct soap* soap, std::string* licence, std::string* clientid,
                           std::string* reqgroup, std::string* select, LONG64 did,
                           std::string* format, nv__DicEntryArray* entries,
                           struct nv__AddDictionaryEntryResponse& r) {
  return lexsim::Serve(
      soap, kAddDictionaryEntry, {licence, clientid, reqgroup, select}, r, [&](Call& call) {
        if (entries && entries->item.size() > kMaxEntriesPerCall)
          Raise(err::kArgument, "Too many entries; at most " + std::to_string(kMaxEntriesPerCall));
        auto lock = call.state().Lock();
        std::string target = call.Target();
        Dictionary& d = Open(call, did, target, true);
        FormatOf(d, format);
        std::string zone = call.keys().Value("timezone").value_or(
            call.state().FindUser(target)->timezone);
        bool first = call.keys().Has("asfirst");
        r.entries = soap_new_nv__AddEntryResultArray(soap);
        if (!entries) return;
        std::vector<DictEntry> batch;  // entries added so far, for asfirst order
        for (nv__DicEntry* item : entries->item) {
          nv__AddEntryResult res;
          std::vector<DictEntry> made;
          std::vector<dictfmt::SourceErr> errs;
          auto* eng = dynamic_cast<nv__DicEntryEngine*>(item);
          auto* mem = dynamic_cast<nv__DicEntryMemory*>(item);
          if (!d.memory && eng) {
            dictfmt::ParseResult pr = dictfmt::ParseNative(eng->source ? *eng->source : "");
            errs = std::move(pr.errors);
            for (auto& p : pr.entries) made.push_back(std::move(p.entry));
            if (made.empty() && errs.empty()) res.error = call.Str("Empty entry source");
          } else if (d.memory && mem) {
            DictEntry e;
            if (mem->sentences)
              for (const nv__EntryTextMemory& s : mem->sentences->item)
                if (s.lang && s.text && !s.text->empty())
                  e.sentences.push_back({*s.lang, *s.text, !s.isKey || *s.isKey});
            e.pattern = mem->isPattern && *mem->isPattern;
            e.weight = mem->weight ? *mem->weight : 0;
            e.info = mem->info ? *mem->info : 0;
            if (mem->author) e.author = *mem->author;
            if (mem->title) e.title = *mem->title;
            if (mem->comment) e.comment = *mem->comment;
            e.userdata = Bytes(mem->userdata);
            if (mem->date && !mem->date->empty()) {
              auto when = lexsim::admin::NormalizeTime(*mem->date, false, zone);
              if (!when) res.error = call.Str("Invalid date: " + *mem->date);
              else e.date = *when;
            }
            if (e.sentences.empty()) res.error = call.Str("Entry without a sentence");
            if (!res.error) made.push_back(std::move(e));
          } else {
            res.error = call.Str(d.memory ? "A translation-memory dictionary takes memory entries"
                                          : "A normal dictionary takes entries in source form");
          }
          for (const DictEntry& e : made) {
            std::string key = DupKey(e, d.memory, false);
            auto same = [&](const DictEntry& x) { return DupKey(x, d.memory, false) == key; };
            if (std::any_of(d.entries.begin(), d.entries.end(), same) ||
                std::any_of(batch.begin(), batch.end(), same)) {
              errs.push_back({6, "DUPLICATE", "Duplicate entry", 1, 1,
                              d.memory ? "" : dictfmt::FormatNative(e), e.headword});
            }
          }
          if (!errs.empty()) {
            if (!res.error) res.error = call.Str(errs.front().msg);
            res.sourceError = soap_new_nv__SourceErrorArray(soap);
            for (const auto& e : errs) res.sourceError->item.push_back(MakeSourceError(call, e));
          } else if (!res.error) {
            res.entryid = soap_new_nv__StringArray(soap);
            for (DictEntry& e : made) {
              e.id = d.next_entry++;
              res.entryid->item.push_back(std::to_string(e.id));
              batch.push_back(e);
              if (!first) d.entries.push_back(std::move(e));
            }
          }
          r.entries->item.push_back(res);
        }
        // asfirst: the whole batch goes ahead of the old entries, in request order.
        if (first) d.entries.insert(d.entries.begin(), batch.begin(), batch.end());
        if (Sparse(call) && !r.entries->item.empty()) r.entries->item.pop_back();
      });
}

int nv__GetDictionaryEntry(struct soap* soap, std::string* licence, std::string* clientid,
                           std::string* reqgroup, std::string* select, LONG64 did,
                           std::string* format, LONG64* rangeStart, LONG64* rangeCount,
                           nv__DicEntryIdArray* entryid, struct nv__GetDictionaryEntryResponse& r) {
  return lexsim::Serve(
      soap, kGetDictionaryEntry, {licence, clientid, reqgroup, select}, r, [&](Call& call) {
        auto lock = call.state().Lock();
        std::string target = call.Target();
        const Dictionary& d = Open(call, did, target, false);
        FormatOf(d, format);
        r.entries = soap_new_nv__DicEntryArray(soap);
        if (rangeCount && *rangeCount != 0) {
          int64_t start = rangeStart ? *rangeStart : 0;
          int64_t count = *rangeCount < 0 ? kMaxRange : std::min(*rangeCount, kMaxRange);
          if (start < 0) Raise(err::kArgument, "rangeStart must not be negative");
          for (int64_t i = start; i < start + count && i < static_cast<int64_t>(d.entries.size()); ++i)
            r.entries->item.push_back(WireEntry(call, d, d.entries[static_cast<size_t>(i)]));
          return;
        }
        if (!entryid) return;
        int idx = 0;
        for (const nv__DicEntryId& q : entryid->item) {
          bool found = false;
          if (q.entryid && !q.entryid->empty()) {
            std::optional<int64_t> id = ParseId(*q.entryid);
            for (const DictEntry& e : d.entries)
              if (id && e.id == *id) {
                r.entries->item.push_back(WireEntry(call, d, e));
                found = true;
              }
          } else if (q.headword && !q.headword->empty()) {
            for (const DictEntry& e : d.entries)
              if (HeadMatches(d, e, *q.headword)) {
                r.entries->item.push_back(WireEntry(call, d, e));
                found = true;
              }
          } else {
            auto* x = soap_new_nv__DicEntryError(soap);
            x->idx = idx++;
            x->err = call.Str("Neither entry id nor headword given");
            r.entries->item.push_back(x);
            continue;
          }
          if (!found) {
            auto* x = soap_new_nv__DicEntryNotFound(soap);
            x->idx = idx;
            x->entryid = q.entryid;
            x->headword = q.entryid ? nullptr : q.headword;
            r.entries->item.push_back(x);
          }
          ++idx;
        }
        if (Sparse(call)) {
          r.entries->item.push_back(soap_new_nv__DicEntryNotFound(soap));
          r.entries->item.push_back(soap_new_nv__DicEntryEngine(soap));
          r.entries->item.push_back(soap_new_nv__DicEntryMemory(soap));
          r.entries->item.push_back(soap_new_nv__DicEntryError(soap));
        }
      });
}

int nv__DeleteDictionaryEntry(struct soap* soap, std::string* licence, std::string* clientid,
                              std::string* reqgroup, std::string* select, LONG64 did,
                              nv__DicEntryIdArray* entries,
                              struct nv__DeleteDictionaryEntryResponse& r) {
  return lexsim::Serve(
      soap, kDeleteDictionaryEntry, {licence, clientid, reqgroup, select}, r, [&](Call& call) {
        auto lock = call.state().Lock();
        std::string target = call.Target();
        Dictionary& d = Open(call, did, target, true);
        if (!entries) return;
        for (const nv__DicEntryId& q : entries->item) {
          size_t before = d.entries.size();
          std::string what;
          if (q.entryid && *q.entryid == "*") {
            d.entries.clear();
            continue;
          }
          if (q.entryid && !q.entryid->empty()) {
            what = *q.entryid;
            std::optional<int64_t> id = ParseId(*q.entryid);
            std::erase_if(d.entries, [&](const DictEntry& e) { return id && e.id == *id; });
          } else if (q.headword && !q.headword->empty()) {
            what = *q.headword;
            std::erase_if(d.entries, [&](const DictEntry& e) { return HeadMatches(d, e, what); });
          } else {
            Raise(err::kArgument, "Neither entry id nor headword given");
          }
          if (d.entries.size() == before) call.Warn(what, "No such entry");
        }
      });
}

namespace {

struct Hit {
  lexsim::DictHit hit;
  std::string base;
};

const char* PosCode(const std::string& pos) {
  static const std::pair<const char*, const char*> kCodes[] = {
      {"noun", "N"}, {"verb", "V"},   {"adj", "A"},    {"adv", "D"},    {"pron", "P"},
      {"prep", "R"}, {"conj", "C"},   {"interj", "I"}, {"num", "M"},    {"det", "T"},
      {"phrase", "H"}};
  for (const auto& [name, code] : kCodes)
    if (pos == name) return code;
  return "";
}

std::string PosName(const std::string& pos) {
  static const std::pair<const char*, const char*> kNames[] = {
      {"noun", "Noun"},     {"verb", "Verb"},         {"adj", "Adjective"},
      {"adv", "Adverb"},    {"pron", "Pronoun"},      {"prep", "Preposition"},
      {"conj", "Conjunction"}, {"interj", "Interjection"}, {"num", "Numeral"},
      {"det", "Determiner"}, {"phrase", "Phrase"}};
  for (const auto& [name, disp] : kNames)
    if (pos == name) return disp;
  return pos;
}

// The engine of a lookup request, checked for the target user.
const lexsim::EngineDef& LookupEngine(Call& call, const nv__EngineSelect* engine,
                                      const std::string& target) {
  if (!engine || !engine->eid || engine->eid->empty()) Raise(err::kArgument, "An engine is required");
  const lexsim::EngineDef* e = lexsim::FindEngine(*engine->eid);
  if (!e) Raise(err::kNotFound, "Unknown engine: " + *engine->eid);
  const lexsim::Account* a = call.state().FindUser(target);
  if (!a->engines.count(e->eid)) Raise(err::kDenied, "Engine not available: " + e->eid);
  if (!(e->support & lexsim::esupport::kLookup))
    Raise(err::kArgument, "Engine " + e->eid + " does not support lookups");
  return *e;
}

// User dictionaries first, the system dictionary next; a plural falls back to its singular.
std::vector<Hit> Lookup(const State& state, const std::string& userid, const lexsim::EngineDef& e,
                        const nv__EngineSelect* engine, const std::string& word) {
  std::map<std::string, std::string> props;
  if (engine->properties)
    for (const nv__KeyValPair& kv : engine->properties->item) props[lexsim::ToLower(kv.key)] = kv.val;
  std::vector<Hit> out;
  auto run = [&](const std::string& w) {
    for (auto& h : lexsim::LookupUserDictionaries(state, userid, e.eid, props, w)) out.push_back({h, w});
    for (auto& h : lexsim::LookupSystemDictionary(state, e.eid, w)) out.push_back({h, w});
  };
  run(word);
  if (out.empty() && word.size() > 2 && (word.back() == 's' || word.back() == 'S'))
    run(word.substr(0, word.size() - 1));
  return out;
}

}  // namespace

int nv__LookupEntry(struct soap* soap, std::string* licence, std::string* clientid,
                    std::string* reqgroup, std::string* select, nv__EngineSelect* engine,
                    nv__StringArray* words, struct nv__LookupEntryResponse& r) {
  return lexsim::Serve(
      soap, kLookupEntry, {licence, clientid, reqgroup, select}, r, [&](Call& call) {
        auto lock = call.state().Lock();
        std::string target = call.Target();
        const lexsim::EngineDef& e = LookupEngine(call, engine, target);
        bool raw = call.keys().Has("rawpos");
        bool by_subject = call.keys().Has("subject");
        r.entries = soap_new_nv__DicEntryArray(soap);
        if (!words) return;
        for (size_t i = 0; i < words->item.size(); ++i) {
          const std::string& w = words->item[i];
          std::vector<Hit> hits = Lookup(call.state(), target, e, engine, w);
          if (hits.empty()) {
            auto* x = soap_new_nv__DicEntryNotFound(soap);
            x->idx = static_cast<int>(i);
            x->headword = call.Str(w);
            r.entries->item.push_back(x);
            continue;
          }
          for (const Hit& h : hits) {
            auto* x = soap_new_nv__DicEntryLookup(soap);
            x->idx = static_cast<int>(i);
            const Dictionary* d = call.state().FindDictionary(h.hit.did);
            x->did = call.Str(by_subject && d ? d->subject : std::to_string(h.hit.did));
            x->orgWord = call.Str(w);
            x->orgBase = call.Str(h.hit.tm ? w : lexsim::ToLower(h.base));
            std::string pos = raw ? PosCode(h.hit.pos) : PosName(h.hit.pos);
            x->orgPos = call.Str(pos);
            x->txnWord = call.Str(h.hit.target);
            x->txnPos = call.Str(pos);
            r.entries->item.push_back(x);
          }
        }
      });
}

int nv__LookupFormatted(struct soap* soap, std::string* licence, std::string* clientid,
                        std::string* reqgroup, std::string* select, std::string* displayLang,
                        nv__EngineSelect* engine, std::string* word,
                        struct nv__LookupFormattedResponse& r) {
  return lexsim::Serve(
      soap, kLookupFormatted, {licence, clientid, reqgroup, select}, r, [&](Call& call) {
        if (!word || word->empty()) Raise(err::kArgument, "A word is required");
        auto lock = call.state().Lock();
        std::string target = call.Target();
        const lexsim::EngineDef& e = LookupEngine(call, engine, target);
        const auto& keys = call.keys();
        bool show_did = keys.Has("did") || keys.Has("raw");
        bool pos_code = keys.Has("pos") || keys.Has("raw");
        bool by_subject = keys.Has("subject");
        std::string lang = displayLang && !displayLang->empty() ? *displayLang : "en";
        std::vector<Hit> hits = Lookup(call.state(), target, e, engine, *word);
        std::string text;
        if (!hits.empty()) text = *word + "\n";
        int n = 0;
        for (const Hit& h : hits) {
          const Dictionary* d = call.state().FindDictionary(h.hit.did);
          std::string dic;
          if (by_subject && d) {
            dic = d->subject;
          } else if (show_did || !d) {
            dic = std::to_string(h.hit.did);
          } else {
            auto it = d->display.find(lang);
            if (it == d->display.end()) it = d->display.find("en");
            dic = it == d->display.end() ? std::to_string(d->did) : it->second;
          }
          if (keys.Has("rawdata") && d) {
            for (const DictEntry& x : d->entries)
              if (x.id == h.hit.entry_id)
                text += "  " + std::string(d->memory ? dictfmt::FormatTm(x) : dictfmt::FormatNative(x)) + "\n";
            continue;
          }
          std::string pos = pos_code ? PosCode(h.hit.pos) : PosName(h.hit.pos);
          text += "  " + std::to_string(++n) + ". " + h.hit.target;
          if (!pos.empty()) text += " (" + pos + ")";
          if (h.hit.tm) text += " [" + std::to_string(h.hit.rate) + "%]";
          text += "  <" + dic + ">\n";
        }
        r.definition = call.Str(text);
      });
}
