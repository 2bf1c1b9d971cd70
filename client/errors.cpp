#include "client/errors.h"

#include <strings.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

#include "client/local_data.h"
#include "shell/output.h"
#include "soapH.h"

namespace lexctl {
namespace {

// The library's status codes as the client reports them: users' scripts
// and logs know these names and numbers, which the library has since
// renumbered (PATCH and PATTERN were added), so the mapping goes by name.
struct StatusText {
  int status;  // the library's code
  int number;  // the number reported
  const char* name;
};

constexpr StatusText kStatusNames[] = {
    {SOAP_OK, 0, "SOAP_OK"}, {SOAP_CLI_FAULT, 1, "SOAP_CLI_FAULT"},
    {SOAP_SVR_FAULT, 2, "SOAP_SVR_FAULT"}, {SOAP_TAG_MISMATCH, 3, "SOAP_TAG_MISMATCH"},
    {SOAP_TYPE, 4, "SOAP_TYPE"}, {SOAP_SYNTAX_ERROR, 5, "SOAP_SYNTAX_ERROR"},
    {SOAP_NO_TAG, 6, "SOAP_NO_TAG"}, {SOAP_IOB, 7, "SOAP_IOB"},
    {SOAP_MUSTUNDERSTAND, 8, "SOAP_MUSTUNDERSTAND"}, {SOAP_NAMESPACE, 9, "SOAP_NAMESPACE"},
    {SOAP_USER_ERROR, 10, "SOAP_USER_ERROR"}, {SOAP_FATAL_ERROR, 11, "SOAP_FATAL_ERROR"},
    {SOAP_FAULT, 12, "SOAP_FAULT"}, {SOAP_NO_METHOD, 13, "SOAP_NO_METHOD"},
    {SOAP_NO_DATA, 14, "SOAP_NO_DATA"}, {SOAP_GET_METHOD, 15, "SOAP_GET_METHOD"},
    {SOAP_PUT_METHOD, 16, "SOAP_PUT_METHOD"}, {SOAP_DEL_METHOD, 17, "SOAP_DEL_METHOD"},
    {SOAP_HTTP_METHOD, 19, "SOAP_HTTP_METHOD"}, {SOAP_EOM, 20, "SOAP_EOM"},
    {SOAP_MOE, 21, "SOAP_MOE"}, {SOAP_HDR, 22, "SOAP_HDR"}, {SOAP_NULL, 23, "SOAP_NULL"},
    {SOAP_DUPLICATE_ID, 24, "SOAP_DUPLICATE_ID"}, {SOAP_MISSING_ID, 25, "SOAP_MISSING_ID"},
    {SOAP_HREF, 26, "SOAP_HREF"}, {SOAP_UDP_ERROR, 27, "SOAP_UDP_ERROR"},
    {SOAP_TCP_ERROR, 28, "SOAP_TCP_ERROR"}, {SOAP_HTTP_ERROR, 29, "SOAP_HTTP_ERROR"},
    {SOAP_SSL_ERROR, 30, "SOAP_SSL_ERROR"}, {SOAP_ZLIB_ERROR, 31, "SOAP_ZLIB_ERROR"},
    {SOAP_DIME_ERROR, 32, "SOAP_DIME_ERROR"}, {SOAP_DIME_HREF, 33, "SOAP_DIME_HREF"},
    {SOAP_DIME_MISMATCH, 34, "SOAP_DIME_MISMATCH"}, {SOAP_DIME_END, 35, "SOAP_DIME_END"},
    {SOAP_MIME_ERROR, 36, "SOAP_MIME_ERROR"}, {SOAP_MIME_HREF, 37, "SOAP_MIME_HREF"},
    {SOAP_MIME_END, 38, "SOAP_MIME_END"}, {SOAP_VERSIONMISMATCH, 39, "SOAP_VERSIONMISMATCH"},
    {SOAP_PLUGIN_ERROR, 40, "SOAP_PLUGIN_ERROR"},
    {SOAP_DATAENCODINGUNKNOWN, 41, "SOAP_DATAENCODINGUNKNOWN"},
    {SOAP_REQUIRED, 42, "SOAP_REQUIRED"}, {SOAP_PROHIBITED, 43, "SOAP_PROHIBITED"},
    {SOAP_OCCURS, 44, "SOAP_OCCURS"}, {SOAP_LENGTH, 45, "SOAP_LENGTH"},
    {SOAP_FD_EXCEEDED, 46, "SOAP_FD_EXCEEDED"},
    {101, 101, "Upgrade"}, {200, 200, "OK"}, {201, 201, "Created"}, {202, 202, "Accepted"},
    {204, 204, "No Content"}, {300, 300, "Multiple Choices"}, {301, 301, "Moved Permanently"},
    {302, 302, "Moved Temporarily"}, {304, 304, "Not Modified"}, {400, 400, "Bad Request"},
    {401, 401, "Unauthorized"}, {403, 403, "Forbidden"}, {404, 404, "Not Found"},
    {405, 405, "Method Not Allowed"}, {406, 406, "Not Acceptable"}, {408, 408, "Request Timeout"},
    {413, 413, "Request Too Large"}, {414, 414, "Request URI Too Long"},
    {415, 415, "Unsupported Media Type"}, {500, 500, "Internal Server Error"},
    {501, 501, "Not Implemented"}, {502, 502, "Bad Gateway"}, {503, 503, "Service Unavailable"},
};

// The status of a received fault, decided by the namespace of its code.
// gSOAP reads the code's QName into the namespace table's prefix for the
// envelope ("SOAP-ENV:Client" whichever prefix the reply bound to that
// namespace, or none), but then tells Client from Server by looking that
// prefix up among the reply's own bindings, where only a reply that itself
// says "SOAP-ENV" has it: a fault as .NET ("soap:"), JAX-WS ("S:") or a
// default namespace writes it came back as SOAP_FAULT, its detail and
// session token unread. The code as read names its namespace by the table's
// prefix, so comparing it with that prefix matches the namespace itself.
int FaultStatus(struct soap* soap, int status) {
  if (status != SOAP_FAULT || !soap->fault) return status;
  const char* code = *soap_faultcode(soap);
  if (!code) return status;
  std::string prefix = soap->local_namespaces && soap->local_namespaces[0].id ? soap->local_namespaces[0].id
                                                                              : "SOAP-ENV";
  size_t colon = std::string_view(code).find(':');
  if (colon == std::string_view::npos || std::string_view(code, colon) != prefix) return status;
  static constexpr struct {
    const char* name;
    int status;
  } kCodes[] = {
      {"Client", SOAP_CLI_FAULT},  {"Sender", SOAP_CLI_FAULT},   // SOAP 1.1, 1.2
      {"Server", SOAP_SVR_FAULT},  {"Receiver", SOAP_SVR_FAULT},
      {"MustUnderstand", SOAP_MUSTUNDERSTAND},
      {"VersionMismatch", SOAP_VERSIONMISMATCH},
  };
  for (const auto& known : kCodes) {
    if (strcmp(code + colon + 1, known.name) == 0) return known.status;
  }
  return status;
}

}  // namespace

void Exception::Print(ExecThread& thread) const { Fail(thread, "FAILED: %s.\n", message_.c_str()); }

SoapException::SoapException(std::string err, std::string msg, Items items)
    : Exception(err + ": " + msg), err_(std::move(err)), msg_(std::move(msg)), items_(std::move(items)) {}

void SoapException::Print(ExecThread& thread) const {
  Fail(thread, "SOAP EXCEPTION:\nErr: %s\nMsg: %s\n", err_.c_str(), msg_.c_str());
  PrintWarnings(thread, dynamic_cast<LocalData*>(thread.data.get()), items_);
}

const char* StatusName(int status, int* number) {
  if (number) *number = status;
  for (const StatusText& entry : kStatusNames) {
    if (entry.status == status) {
      if (number) *number = entry.number;
      return entry.name;
    }
  }
  return "UNKNOWN";
}

void RaiseOnError(int status, LocalData& data) {
  if (status == SOAP_OK) return;
  struct soap* soap = data.context();
  status = FaultStatus(soap, status);
  if (status != SOAP_CLI_FAULT && status != SOAP_SVR_FAULT) {
    // Let the library describe failures that came without a fault of their own
    // (end of input, a reply that is not SOAP, time-outs).
    if (!*soap_faultstring(soap)) soap_set_fault(soap);
    const char* fault = *soap_faultstring(soap);
    // A successful HTTP status with a failed call: the body was no SOAP reply.
    if (status >= 200 && status < 300) fault = "The reply is not a complete SOAP message";
    char text[200];
    int number;
    const char* name = StatusName(status, &number);
    snprintf(text, sizeof(text), "%s (%d): %s", name, number, fault ? fault : "Unknown");
    // No half-used connection may survive a transport failure.
    data.RebuildContext();
    throw ToolException(text);
  }
  const SOAP_ENV__Detail* detail = soap->fault ? (soap->version == 2 ? soap->fault->SOAP_ENV__Detail
                                                                     : soap->fault->detail)
                                               : nullptr;
  if (detail && detail->nv__NvsoapException_) {
    const nv__NvsoapException& e = *detail->nv__NvsoapException_;
    if (e.token) data.SetSessionToken(*e.token);
    SoapException::Items items;
    if (e.error) {
      for (const nv__Error& item : e.error->item) items.emplace_back(item.key, item.err);
    }
    throw SoapException(e.err, e.msg, std::move(items));
  }
  const char* fault = *soap_faultstring(soap);
  const char** detail_text = soap_faultdetail(soap);
  throw SoapException(fault ? fault : "", detail_text && *detail_text ? *detail_text : "");
}

void PrintWarnings(ExecThread& thread, LocalData* data, const SoapException::Items& items) {
  bool printed = false;
  for (const auto& [key, err] : items) {
    if (strcasecmp(key.c_str(), "features") == 0) continue;
    if (!printed) ThreadPrint(thread, "Warnings:\n");
    printed = true;
    ThreadPrint(thread, "   %s = %s\n", key.c_str(), err.c_str());
    if (data && key == "reqgroup") data->reqgroup = err;
  }
  if (printed) ThreadPrint(thread, "\n");
}

void PrintWarnings(ExecThread& thread, LocalData& data, const nv__ErrorArray* errors) {
  if (!errors) return;
  SoapException::Items items;
  for (const nv__Error& item : errors->item) items.emplace_back(item.key, item.err);
  PrintWarnings(thread, &data, items);
}

}  // namespace lexctl
