// Process-wide stopwatches with laps, reported as text, raw fields or a
// JUnit test-suite document.
#include <strings.h>

#include <cctype>
#include <chrono>
#include <ctime>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "shell/builtins.h"
#include "shell/dispatch.h"
#include "shell/output.h"

namespace lexctl {
namespace {

using Clock = std::chrono::steady_clock;

struct Timer {
  std::string name;
  bool running = true;
  Clock::time_point started = Clock::now();
  double banked = 0;     // seconds run before the current start
  double lap_mark = 0;   // elapsed seconds at the last lap
  std::vector<double> laps;

  double Elapsed(Clock::time_point now) const {
    return banked + (running ? std::chrono::duration<double>(now - started).count() : 0);
  }
  // The stretch after the last lap is reported but never counted as a lap.
  double OpenLap(Clock::time_point now) const { return laps.empty() ? 0 : Elapsed(now) - lap_mark; }
};

std::mutex timers_lock;
std::map<std::string, Timer> timers;

std::string XmlEscape(const std::string& text) {
  std::string out;
  for (char c : text) {
    switch (c) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '\'': out += "&apos;"; break;
      case '"': out += "&quot;"; break;
      default: out.push_back(c);
    }
  }
  return out;
}

void TellPlain(ExecThread& thread, const std::string& id, const Timer& timer, Clock::time_point now) {
  ThreadPrint(thread, "Timer %s%s%s%s: %0.3f secs, %s, %zu lap%s\n", id.c_str(),
              timer.name.empty() ? "" : " (", timer.name.c_str(), timer.name.empty() ? "" : ")",
              timer.Elapsed(now), timer.running ? "running" : "stopped", timer.laps.size(),
              timer.laps.size() == 1 ? "" : "s");
  for (size_t i = 0; i < timer.laps.size(); ++i) {
    ThreadPrint(thread, "  Lap %zu: %0.3f secs\n", i + 1, timer.laps[i]);
  }
}

void TellRaw(ExecThread& thread, const std::string& id, const Timer& timer, Clock::time_point now) {
  std::string line = id + "\t" + timer.name + "\t" + (timer.running ? "running" : "stopped");
  char number[64];
  snprintf(number, sizeof(number), "\t%0.6f\t%zu", timer.Elapsed(now), timer.laps.size());
  line += number;
  for (double lap : timer.laps) {
    snprintf(number, sizeof(number), "\t%0.6f", lap);
    line += number;
  }
  ThreadPrint(thread, "%s\n", line.c_str());
}

void TellXml(ExecThread& thread, const std::string& suite, const std::string* only,
             Clock::time_point now) {
  double total = 0;
  int tests = 0, ignored = 0;
  for (const auto& [id, timer] : timers) {
    if (only && id != *only) continue;
    total += timer.Elapsed(now);
    tests += 1 + static_cast<int>(timer.laps.size());
    if (timer.OpenLap(now) > 0) ++ignored;
  }
  time_t wall = time(nullptr);
  struct tm local;
  localtime_r(&wall, &local);
  char stamp[32];
  strftime(stamp, sizeof(stamp), "%Y-%m-%dT%H:%M:%S", &local);
  ThreadPrint(thread, "<?xml version='1.0' encoding='UTF-8' standalone='yes' ?>\n");
  ThreadPrint(thread,
              "<testsuite time='%0.3f' timestamp='%s' tests='%d' errors='0' failures='0' "
              "ignored='%d' hostname='localhost' name='%s'>\n",
              total, stamp, tests, ignored, XmlEscape(suite).c_str());
  for (const auto& [id, timer] : timers) {
    if (only && id != *only) continue;
    std::string xid = XmlEscape(id);
    std::string xname = XmlEscape(timer.name.empty() ? id : timer.name);
    ThreadPrint(thread, "<testcase class='main' id='%s' name='%s' time='%0.3f'></testcase>\n",
                xid.c_str(), xname.c_str(), timer.Elapsed(now));
    int lap_no = 0;
    for (double lap : timer.laps) {
      ++lap_no;
      ThreadPrint(thread, "%s<testcase class='lap' id='%s-%d' name='%s-%d' time='%0.3f'>%s</testcase>%s\n",
                  "", xid.c_str(), lap_no, xname.c_str(), lap_no, lap, "", "");
    }
    double open = timer.OpenLap(now);
    if (open > 0) {
      ++lap_no;
      ThreadPrint(thread, "%s<testcase class='lap' id='%s-%d' name='%s-%d' time='%0.3f'>%s</testcase>%s\n",
                  "<!--", xid.c_str(), lap_no, xname.c_str(), lap_no, open, "ignored", "-->");
    }
  }
  ThreadPrint(thread, "</testsuite>\n");
}

}  // namespace

void CmdTimer(ExecThread& thread, ArgVector& args) {
  if (CheckHelpRequest(thread, CmdTimer, args, true)) return;
  std::lock_guard<std::mutex> hold(timers_lock);
  Clock::time_point now = Clock::now();
  const char* sub = args.empty() ? "tell" : args[0];
  std::string id = args.size() > 1 ? args[1] : "";

  if (strncasecmp(sub, "tell", 4) == 0) {
    char form = static_cast<char>(tolower(static_cast<unsigned char>(sub[4])));
    if (form == 'x') {
      if (args.size() < 2 || id.empty()) {
        Fail(thread, "Invalid arguments. A test suite name must be supplied.\n");
        return;
      }
      std::string only = args.size() > 2 ? args[2] : "";
      if (!only.empty() && !timers.count(only)) {
        Fail(thread, "Invalid arguments. Unknown test name.\n");
        return;
      }
      TellXml(thread, id, only.empty() ? nullptr : &only, now);
      return;
    }
    if (args.size() > 2) {
      Fail(thread, kMsgInvalidArgs);
      return;
    }
    if (!id.empty() && !timers.count(id)) {
      Fail(thread, "Invalid timer.\n");
      return;
    }
    if (timers.empty()) {
      if (form != 'r') ThreadPrint(thread, "No timers.\n");
      return;
    }
    for (const auto& [tid, timer] : timers) {
      if (!id.empty() && tid != id) continue;
      if (form == 'r') {
        TellRaw(thread, tid, timer, now);
      } else {
        TellPlain(thread, tid, timer, now);
      }
    }
    return;
  }

  bool is_start = strcasecmp(sub, "start") == 0;
  bool known_sub = is_start || strcasecmp(sub, "stop") == 0 || strcasecmp(sub, "lap") == 0 ||
                   strcasecmp(sub, "reset") == 0 || strcasecmp(sub, "delete") == 0;
  if (!known_sub) {
    Fail(thread, "Invalid command.\n");
    return;
  }
  if (args.size() < 2 || id.empty() || args.size() > (is_start ? 3u : 2u)) {
    Fail(thread, kMsgInvalidArgs);
    return;
  }
  auto it = timers.find(id);
  if (is_start || (strcasecmp(sub, "lap") == 0 && it == timers.end())) {
    Timer& timer = timers[id];
    if (args.size() > 2) timer.name = args[2];
    if (!timer.running) {
      timer.running = true;
      timer.started = now;
    }
    return;
  }
  if (it == timers.end()) {
    Fail(thread, "Invalid timer.\n");
    return;
  }
  Timer& timer = it->second;
  if (strcasecmp(sub, "stop") == 0) {
    if (timer.running) {
      timer.banked = timer.Elapsed(now);
      timer.running = false;
    }
  } else if (strcasecmp(sub, "lap") == 0) {
    double elapsed = timer.Elapsed(now);
    timer.laps.push_back(elapsed - timer.lap_mark);
    timer.lap_mark = elapsed;
  } else if (strcasecmp(sub, "reset") == 0) {
    timer.banked = 0;
    timer.lap_mark = 0;
    timer.started = now;
    timer.laps.clear();
  } else {
    timers.erase(it);
  }
}

}  // namespace lexctl
