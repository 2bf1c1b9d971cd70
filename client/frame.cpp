#include "client/frame.h"

#include <new>

#include "client/did_list.h"
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

std::optional<Property> ReadProperty(ExecThread& thread, const std::string& text, size_t key_from,
                                     bool key_required) {
  size_t equals = text.find('=', key_from);
  if (equals == std::string::npos || (key_required && equals == key_from)) {
    Fail(thread, "Invalid property: %s\n", text.c_str());
    return std::nullopt;
  }
  return Property{text.substr(key_from, equals - key_from), text.substr(equals + 1)};
}

std::optional<Property> ReadEngineProperty(ExecThread& thread, const std::string& text) {
  std::optional<Property> property = ReadProperty(thread, text);
  if (property && property->key == "dictionaries") property->value = ResolveDidList(property->value);
  return property;
}

RequestFrame::RequestFrame(ExecThread& thread, const std::string& prefix_keys)
    : thread_(thread), data_(Local(thread)), keys_(prefix_keys) {
  licence_ = data_.Licence();
  clientid_ = data_.clientid;
  reqgroup_ = data_.reqgroup;
  eid_ = data_.engine.eid;
  properties_ = data_.engine.properties;
}

RequestFrame::~RequestFrame() = default;

bool RequestFrame::Scan(const OptionDef* table, const ArgVector& args,
                        const std::function<bool(const OptionScanner&)>& own) {
  OptionScanner scanner(table, args);
  const char* const* rest = nullptr;  // the words after "--"
  while (scanner.Next()) {
    if (scanner.error() != kOptOk) {
      Fail(thread_, kMsgInvalidArg, scanner.text());
      return false;
    }
    switch (scanner.id()) {
      case kOptEndOfOptions:
        // The scanner hands back the word itself, so its place in args is known.
        for (size_t i = 0; i < args.size() && !rest; ++i) {
          if (args[i] == scanner.text()) rest = args.data() + i + 1;
        }
        break;
      case kOptEngineId:
        eid_ = scanner.argument() ? scanner.argument() : "";
        eid_given_ = true;
        break;
      case kOptEngineProp: {
        std::string text = scanner.argument() ? scanner.argument() : "";
        properties_chosen_ = true;
        if (text.empty()) {
          properties_.clear();
          break;
        }
        std::optional<Property> property = ReadEngineProperty(thread_, text);
        if (!property) return false;
        properties_[property->key] = property->value;
        break;
      }
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
          Fail(thread_, kMsgInvalidArg, scanner.text());
          return false;
        }
    }
    if (rest) break;
  }
  positional_ = scanner.positional();
  if (rest) positional_.insert(positional_.end(), rest, args.data() + args.size());
  return true;
}

bool RequestFrame::ExpectPositional(size_t min, size_t max) {
  if (positional_.size() >= min && positional_.size() <= max) return true;
  Fail(thread_, kMsgInvalidArgs);
  return false;
}

void RequestFrame::AddSelectKey(const std::string& key) {
  keys_ += " ";
  keys_ += key;
}

bool RequestFrame::HasSelectKey(const std::string& key) const {
  return (keys_ + " ").find(" " + key + " ") != std::string::npos;
}

void RequestFrame::PrintSelectKeys() { PrintSelectKeys("SelectKeys:   %s\n"); }

void RequestFrame::PrintSelectKeys(const char* format) {
  if (keys_.empty()) return;
  select_ = keys_.substr(1);
  ThreadPrint(thread_, format, select_.c_str());
}

void RequestFrame::PrintEngine() { ThreadPrint(thread_, "Engine EID:   %s\n", eid_.c_str()); }

nv__EngineSelect* RequestFrame::engine() {
  if (!engine_) {
    engine_ = std::make_unique<nv__EngineSelect>();
    if (!eid_.empty()) engine_->eid = &eid_;
    if (!properties_.empty() || properties_chosen_) {
      engine_properties_ = std::make_unique<nv__KeyValArray>();
      for (const auto& [key, value] : properties_) {
        nv__KeyValPair pair;
        pair.key = key;
        pair.val = value;
        engine_properties_->item.push_back(pair);
      }
      engine_->properties = engine_properties_.get();
    }
  }
  return engine_.get();
}

void RequestFrame::UseSelectKeys() {
  if (!keys_.empty()) select_ = keys_.substr(1);
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
