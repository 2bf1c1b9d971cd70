#include "commands/admin/user_printer.h"

#include <sstream>
#include <string>
#include <vector>

#include "commands/admin/engine_printer.h"
#include "commands/admin/flag_tables.h"
#include "shell/output.h"
#include "soapH.h"

namespace lexctl {
namespace {

const char* Text(const std::string* s) { return s ? s->c_str() : ""; }

long long Number(const LONG64* v) { return v ? static_cast<long long>(*v) : 0; }

}  // namespace

void PrintUser(ExecThread& thread, const char* title, const nv__User& user, int mode) {
  if (title) ThreadPrint(thread, "%s\n", title);
  if (user.userid) ThreadPrint(thread, "User ID:      %s\n", user.userid->c_str());
  if (user.username) ThreadPrint(thread, "Username:     %s\n", user.username->c_str());
  if (user.timezone) ThreadPrint(thread, "Timezone:     %s\n", user.timezone->c_str());

  if (user.features) {
    std::vector<std::string> codes;
    std::istringstream words(*user.features);
    for (std::string code; words >> code;) codes.push_back(code);
    ThreadPrint(thread, "Features:\n");
    PrintColumns(thread, codes, "    ", "    ");
  } else if (user.apiAllowed) {
    unsigned long long mask = static_cast<unsigned long long>(*user.apiAllowed);
    if (mask == 0) {
      ThreadPrint(thread, "API Allowed:  0  (NO FUNCTIONS)\n");
    } else if ((mask & kApiAll) == kApiAll) {
      ThreadPrint(thread, "API Allowed:  0x%llx  (ALL FUNCTIONS)\n", mask);
    } else {
      ThreadPrint(thread, "API Allowed:  0x%llx\n", mask);
      PrintColumns(thread, FlagNames(static_cast<int64_t>(mask), FlagTable::kApi), "    ", "    ");
    }
  }

  if (user.validity) PrintValidity(thread, user.validity);

  if (user.limits && !user.limits->item.empty()) {
    ThreadPrint(thread, "Limits:\n");
    for (const nv__Limit& l : user.limits->item) {
      if (l.maximum && *l.maximum < 0) {
        ThreadPrint(thread, " - %-20s  Max: UNLIMITED, Curr: %ld\n", Text(l.type),
                    static_cast<long>(Number(l.current)));
      } else {
        ThreadPrint(thread, " - %-20s  Max: %lld, Curr: %lld\n", Text(l.type), Number(l.maximum),
                    Number(l.current));
      }
    }
  }

  if (user.iprestrict) {
    for (const std::string& cidr : user.iprestrict->item) {
      ThreadPrint(thread, "Client IP:    %s\n", cidr.c_str());
    }
  }

  if (user.properties && !user.properties->item.empty()) {
    ThreadPrint(thread, "Properties:\n");
    for (const nv__Property& p : user.properties->item) {
      ThreadPrint(thread, "   %s (%s) = %s\n", Text(p.key), p.readonly && *p.readonly ? "RO" : "RW",
                  Text(p.val));
    }
  }

  if (user.sessions && !user.sessions->item.empty()) {
    ThreadPrint(thread, "Sessions:\n");
    ThreadPrint(thread, "   %-5s  %-20s  %-20s  %s\n", "TYPE", "CREATED", "LAST USED", "IP ADDRESS");
    for (const nv__Session& s : user.sessions->item) {
      ThreadPrint(thread, "   %-5s  %-20s  %-20s  %s\n", Text(s.type), Text(s.created),
                  Text(s.lastused), Text(s.ipaddress));
    }
  }

  if (user.engines && !user.engines->item.empty()) PrintEngines(thread, user.engines, mode);
}

}  // namespace lexctl
