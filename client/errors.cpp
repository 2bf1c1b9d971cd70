#include "client/errors.h"

#include <strings.h>

#include <cstdio>

#include "client/local_data.h"
#include "shell/output.h"
#include "soapH.h"

namespace lexctl {
namespace {

struct StatusText {
  int status;
  const char* name;
};

constexpr StatusText kStatusNames[] = {
    {0, "SOAP_OK"}, {1, "SOAP_CLI_FAULT"}, {2, "SOAP_SVR_FAULT"}, {3, "SOAP_TAG_MISMATCH"},
    {4, "SOAP_TYPE"}, {5, "SOAP_SYNTAX_ERROR"}, {6, "SOAP_NO_TAG"}, {7, "SOAP_IOB"},
    {8, "SOAP_MUSTUNDERSTAND"}, {9, "SOAP_NAMESPACE"}, {10, "SOAP_USER_ERROR"},
    {11, "SOAP_FATAL_ERROR"}, {12, "SOAP_FAULT"}, {13, "SOAP_NO_METHOD"}, {14, "SOAP_NO_DATA"},
    {15, "SOAP_GET_METHOD"}, {16, "SOAP_PUT_METHOD"}, {17, "SOAP_DEL_METHOD"},
    {18, "SOAP_HEAD_METHOD"}, {19, "SOAP_HTTP_METHOD"}, {20, "SOAP_EOM"}, {21, "SOAP_MOE"},
    {22, "SOAP_HDR"}, {23, "SOAP_NULL"}, {24, "SOAP_DUPLICATE_ID"}, {25, "SOAP_MISSING_ID"},
    {26, "SOAP_HREF"}, {27, "SOAP_UDP_ERROR"}, {28, "SOAP_TCP_ERROR"}, {29, "SOAP_HTTP_ERROR"},
    {30, "SOAP_SSL_ERROR"}, {31, "SOAP_ZLIB_ERROR"}, {32, "SOAP_DIME_ERROR"},
    {33, "SOAP_DIME_HREF"}, {34, "SOAP_DIME_MISMATCH"}, {35, "SOAP_DIME_END"},
    {36, "SOAP_MIME_ERROR"}, {37, "SOAP_MIME_HREF"}, {38, "SOAP_MIME_END"},
    {39, "SOAP_VERSIONMISMATCH"}, {40, "SOAP_PLUGIN_ERROR"}, {41, "SOAP_DATAENCODINGUNKNOWN"},
    {42, "SOAP_REQUIRED"}, {43, "SOAP_PROHIBITED"}, {44, "SOAP_OCCURS"}, {45, "SOAP_LENGTH"},
    {46, "SOAP_FD_EXCEEDED"},
    {101, "Upgrade"}, {200, "OK"}, {201, "Created"}, {202, "Accepted"}, {204, "No Content"},
    {300, "Multiple Choices"}, {301, "Moved Permanently"}, {302, "Moved Temporarily"},
    {304, "Not Modified"}, {400, "Bad Request"}, {401, "Unauthorized"}, {403, "Forbidden"},
    {404, "Not Found"}, {405, "Method Not Allowed"}, {406, "Not Acceptable"},
    {408, "Request Timeout"}, {413, "Request Too Large"}, {414, "Request URI Too Long"},
    {415, "Unsupported Media Type"}, {500, "Internal Server Error"}, {501, "Not Implemented"},
    {502, "Bad Gateway"}, {503, "Service Unavailable"},
};

}  // namespace

void Exception::Print(ExecThread& thread) const { ThreadPrint(thread, "FAILED: %s.\n", message_.c_str()); }

SoapException::SoapException(std::string err, std::string msg, Items items)
    : Exception(err + ": " + msg), err_(std::move(err)), msg_(std::move(msg)), items_(std::move(items)) {}

void SoapException::Print(ExecThread& thread) const {
  ThreadPrint(thread, "SOAP EXCEPTION:\nErr: %s\nMsg: %s\n", err_.c_str(), msg_.c_str());
  PrintWarnings(thread, dynamic_cast<LocalData*>(thread.data.get()), items_);
}

const char* StatusName(int status) {
  for (const StatusText& entry : kStatusNames) {
    if (entry.status == status) return entry.name;
  }
  return "UNKNOWN";
}

void RaiseOnError(int status, LocalData& data) {
  if (status == SOAP_OK) return;
  struct soap* soap = data.context();
  if (status != SOAP_CLI_FAULT && status != SOAP_SVR_FAULT) {
    const char* fault = *soap_faultstring(soap);
    char text[200];
    snprintf(text, sizeof(text), "%s (%d): %s", StatusName(status), status, fault ? fault : "Unknown");
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
