#include "client/frame.h"

#include <new>

#include "shell/command.h"
#include "shell/output.h"
#include "soapH.h"

namespace lexctl {

void RunGuarded(ExecThread& thread, const std::function<void()>& body) {
  LocalData& data = Local(thread);
  try {
    body();
  } catch (const SoapException& e) {
    e.Print(thread);
  } catch (const Exception& e) {
    e.Print(thread);
  }
  data.EndCall();
  // Free what the call deserialised. soap_end() would also clear the
  // library's id and pointer tables, which the next call clears again on
  // its way in, and that clearing is most of a small call's CPU time.
  soap_destroy(data.context());
  soap_dealloc(data.context(), nullptr);
}

RequestFrame::RequestFrame(ExecThread& thread, const std::string& prefix_keys)
    : thread_(thread), data_(Local(thread)), keys_(prefix_keys) {
  licence_ = data_.Licence();
  clientid_ = data_.clientid;
  reqgroup_ = data_.reqgroup;
}

bool RequestFrame::Scan(const OptionDef* table, const ArgVector& args,
                        const std::function<bool(const OptionScanner&)>& own) {
  OptionScanner scanner(table, args);
  while (scanner.Next()) {
    if (scanner.error() != kOptOk) {
      ThreadPrint(thread_, kMsgInvalidArg, scanner.text());
      return false;
    }
    switch (scanner.id()) {
      case kOptSelectKeys:
        keys_ += " ";
        keys_ += scanner.argument() ? scanner.argument() : "";
        break;
      case kOptSelectKey: {
        // The key is the option's name as the table spells it, without "-".
        const char* text = scanner.text();
        std::string name(text + 1, strcspn(text + 1, "="));
        std::string key = name;
        for (const OptionDef* row = table; row->id != -1; ++row) {
          if (strcasecmp(row->name + 1, name.c_str()) == 0) {
            key = row->name + 1;
            break;
          }
        }
        AddSelectKey(scanner.argument() ? key + "=" + scanner.argument() : key);
        break;
      }
      case kOptReqgroup:
        reqgroup_ = scanner.argument() ? scanner.argument() : "";
        break;
      default:
        if (own && !own(scanner)) return false;
        if (!own) {
          ThreadPrint(thread_, kMsgInvalidArg, scanner.text());
          return false;
        }
    }
  }
  positional_ = scanner.positional();
  return true;
}

bool RequestFrame::ExpectPositional(size_t min, size_t max) {
  if (positional_.size() >= min && positional_.size() <= max) return true;
  ThreadPrint(thread_, kMsgInvalidArgs);
  return false;
}

void RequestFrame::AddSelectKey(const std::string& key) {
  keys_ += " ";
  keys_ += key;
}

void RequestFrame::PrintSelectKeys() { PrintSelectKeys("SelectKeys:   %s\n"); }

void RequestFrame::PrintSelectKeys(const char* format) {
  if (keys_.empty()) return;
  select_ = keys_.substr(1);
  ThreadPrint(thread_, format, select_.c_str());
}

void RequestFrame::Check(int status) {
  data_.EndCall();
  RaiseOnError(status, data_);
}

void RequestFrame::Token(const std::string* token) {
  if (token) data_.SetSessionToken(*token);
}

void RequestFrame::Warnings(const nv__ErrorArray* errors) { PrintWarnings(thread_, data_, errors); }

}  // namespace lexctl
