// Bytes as the server's whole HTTP reply to one of the 34 operations, read
// by a context built as the client builds it for the gsoap layer, through
// the client's header hook, the generated deserialisers, the frame's error
// raising, token and warnings. Only the socket is replaced: the request goes
// nowhere and the reply comes from the input.
//
// Input: byte 0 picks the operation, byte 1 bit 0 turns on compression; the
// rest is the reply (headers and body, so chunking, gzip and DIME framing
// are the input's choice).
#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <tuple>
#include <type_traits>

#include "client/frame.h"
#include "shell/exec_thread.h"
#include "soapH.h"

namespace {

using namespace lexctl;

const uint8_t* reply = nullptr;
size_t reply_left = 0;
int null_fd = -1;

SOAP_SOCKET Open(struct soap*, const char*, const char*, int) { return null_fd; }
int Send(struct soap*, const char*, size_t) { return SOAP_OK; }
size_t Recv(struct soap*, char* data, size_t size) {
  size_t n = size < reply_left ? size : reply_left;
  memcpy(data, reply, n);
  reply += n;
  reply_left -= n;
  return n;
}
int Close(struct soap*) { return SOAP_OK; }
int CloseSocket(struct soap*, SOAP_SOCKET) { return SOAP_OK; }
int Poll(struct soap*) { return SOAP_EOF; }

// Calls one operation with every request field empty, then does what every
// command does with the response.
template <typename... Args>
void Call(RequestFrame& frame, int (*call)(struct soap*, const char*, const char*, Args...)) {
  std::tuple<std::remove_cvref_t<Args>...> values{};
  int status = std::apply(
      [&](auto&... value) { return call(frame.soap(), frame.endpoint(), "", value...); }, values);
  frame.Check(status);
  frame.Finish(std::get<sizeof...(Args) - 1>(values));
}

using Op = void (*)(RequestFrame&);
#define OP(name) [](RequestFrame& frame) { Call(frame, soap_call_nv__##name); }
const Op kOps[] = {
    OP(GetEngineInfo),       OP(UpdateEngineProfile), OP(TestEcho),
    OP(Recode),              OP(TranslateTextSimple), OP(TranslateText),
    OP(TranslateTextUpdate), OP(ParseText),           OP(TranslateXml),
    OP(TranslateHtml),       OP(Translate),           OP(TranslateMulti),
    OP(SplitSentences),      OP(LookupEntry),         OP(LookupFormatted),
    OP(CreateDictionary),    OP(UpdateDictionaryInfo), OP(CopyDictionary),
    OP(DeleteDictionary),    OP(ChangeDictionaryOwner), OP(DictionaryImport),
    OP(DictionaryExport),    OP(AddDictionaryEntry),  OP(GetDictionaryEntry),
    OP(DeleteDictionaryEntry), OP(CreateUser),        OP(GetUser),
    OP(UpdateUser),          OP(DeleteUser),          OP(GetUserList),
    OP(ChangePassword),      OP(CreateSession),       OP(EndSession),
    OP(DetectLanguage),
};
#undef OP
static_assert(std::size(kOps) == 34);

ExecThread* thread = nullptr;

void Setup() {
  null_fd = open("/dev/null", O_RDWR);
  thread = new ExecThread("fuzz", true);
  thread->redirect = fopen("/dev/null", "w");
  auto data = std::make_unique<LocalData>(thread);
  data->settings.platform_http_layer = false;
  data->settings.keepalive = false;
  data->settings.server = "http://127.0.0.1:9";
  data->RebuildEndpoint(false);
  thread->data = std::move(data);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static bool ready = (Setup(), true);
  (void)ready;
  if (size < 2) return 0;
  LocalData& local = Local(*thread);
  bool compress = data[1] & 1;
  // A change of setting rebuilds the context, as setopt does.
  if (local.settings.compress != compress) {
    local.settings.compress = compress;
    local.RebuildContext();
  }
  struct soap* soap = local.context();
  soap->fopen = Open;
  soap->fsend = Send;
  soap->frecv = Recv;
  soap->fclose = Close;
  soap->fclosesocket = CloseSocket;
  soap->fpoll = Poll;
  reply = data + 2;
  reply_left = size - 2;
  RunGuarded(*thread, [&] {
    RequestFrame frame(*thread, "");
    kOps[data[0] % std::size(kOps)](frame);
  });
  return 0;
}
