#include "commands/common/engine_list.h"

#include "client/frame.h"
#include "soapH.h"

namespace lexctl {

const nv__EngineArray* ListEngines(ExecThread& thread, const std::string& keys) {
  RequestFrame frame(thread, keys);
  frame.UseSelectKeys();
  std::string lang = frame.data().uilang;
  return frame.Call(soap_call_nv__GetEngineInfo, lang.empty() ? nullptr : &lang, nullptr).engines;
}

}  // namespace lexctl
