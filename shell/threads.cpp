#include "shell/threads.h"

#include <strings.h>

#include <atomic>
#include <map>
#include <mutex>
#include <new>
#include <system_error>
#include <vector>

#include "shell/builtins.h"
#include "shell/dispatch.h"
#include "shell/output.h"
#include "shell/script.h"

namespace lexctl {
namespace {

// Held for the whole of every threads command, joins included.
std::mutex registry_lock;
std::map<std::string, std::unique_ptr<ExecThread>> registry;
std::atomic<ExecThread*> main_thread{nullptr};
std::atomic<bool> threads_enabled{false};

// Started threads that exist, for "exit now": it must reach them without
// the registry lock, which a joining thread holds while it waits.
std::mutex live_lock;
std::vector<ExecThread*> live_threads;

void AddLive(ExecThread* thread) {
  std::lock_guard<std::mutex> hold(live_lock);
  live_threads.push_back(thread);
}

void RemoveLive(ExecThread* thread) {
  std::lock_guard<std::mutex> hold(live_lock);
  std::erase(live_threads, thread);
}

void JoinLocked(std::map<std::string, std::unique_ptr<ExecThread>>::iterator it) {
  ExecThread& target = *it->second;
  if (target.os_thread.joinable()) target.os_thread.join();
  RemoveLive(&target);
  registry.erase(it);
}

void StartThread(ExecThread& thread, const char* requested, const char* path) {
  std::string name = requested;
  if (!name.empty() && registry.count(name)) {
    Fail(thread, "Thread '%s' is already registered.\n", requested);
    return;
  }
  std::unique_ptr<ExecThread> started = CreateExecThread(name, false, &thread);
  if (name.empty()) {
    name = std::to_string(started->id());
    for (int counter = 1; registry.count(name); ++counter) {
      name = std::to_string(started->id()) + "-" + std::to_string(counter);
    }
    started->name = name;
  }
  started->console_mode = kConsoleNone;
  if (!PushInputFile(*started, path, &thread)) return;
  // The thread ends at the end of its file rather than reading a console.
  started->input_stack.clear();
  ExecThread* raw = started.get();
  AddLive(raw);
  try {
    raw->running = true;
    raw->os_thread = std::thread([raw] { RunCommandLoop(*raw); });
  } catch (const std::system_error&) {
    RemoveLive(raw);
    FailToStderr(thread, "Failed to start thread.\n");
    return;
  }
  registry.emplace(name, std::move(started));
}

}  // namespace

std::unique_ptr<ExecThread> CreateExecThread(std::string name, bool is_main,
                                             const ExecThread* parent) {
  std::unique_ptr<ExecThread> thread;
  try {
    thread = std::make_unique<ExecThread>(std::move(name), is_main);
    auto hook = RegisteredClient().create_thread_data;
    if (hook) thread->data = hook(*thread, parent ? parent->data.get() : nullptr);
  } catch (const std::bad_alloc&) {
    OutOfMemory();
  }
  return thread;
}

void SetMainThread(ExecThread* thread) { main_thread = thread; }
ExecThread* MainThread() { return main_thread; }
void SetThreadsEnabled(bool enabled) { threads_enabled = enabled; }
bool ThreadsEnabled() { return threads_enabled; }

void StopAllThreads() {
  std::lock_guard<std::mutex> hold(live_lock);
  for (ExecThread* thread : live_threads) thread->stop = true;
}

void JoinAllThreads() {
  std::lock_guard<std::mutex> hold(registry_lock);
  while (!registry.empty()) JoinLocked(registry.begin());
}

void CmdThreads(ExecThread& thread, ArgVector& args) {
  if (CheckHelpRequest(thread, CmdThreads, args, true)) return;
  if (!ThreadsEnabled()) {
    Fail(thread, "Threads are disabled.\n");
    return;
  }
  std::lock_guard<std::mutex> hold(registry_lock);
  const char* sub = args.empty() ? "list" : args[0];
  if (strcasecmp(sub, "list") == 0) {
    if (registry.empty()) {
      ThreadPrint(thread, "No current threads.\n");
      return;
    }
    for (auto& [name, entry] : registry) {
      ThreadPrint(thread, "  %-2d %-12s %s\n", entry->id(), name.c_str(),
                  entry->running ? "running" : "done");
    }
  } else if (strcasecmp(sub, "start") == 0) {
    if (args.size() < 3) {
      Fail(thread, kMsgInvalidArgs);
      return;
    }
    StartThread(thread, args[1], args[2]);
  } else if (strcasecmp(sub, "stopall") == 0) {
    for (auto& [name, entry] : registry) entry->stop = true;
  } else if ((strcasecmp(sub, "stop") == 0 || strcasecmp(sub, "join") == 0) && args.size() >= 2) {
    auto it = registry.find(args[1]);
    if (it == registry.end()) {
      Fail(thread, "Thread '%s' is not registered.\n", args[1]);
    } else if (strcasecmp(sub, "stop") == 0) {
      it->second->stop = true;
    } else if (it->second.get() == &thread) {
      Fail(thread, "Cannot wait on self.\n");
    } else {
      JoinLocked(it);
    }
  } else if (strcasecmp(sub, "joinall") == 0) {
    for (auto it = registry.begin(); it != registry.end();) {
      if (it->second.get() == &thread) {
        ThreadPrint(thread, "Cannot wait on self.\n");
        ++it;
        continue;
      }
      auto next = std::next(it);
      JoinLocked(it);
      it = next;
    }
  } else {
    Fail(thread, kMsgInvalidArgs);
  }
}

}  // namespace lexctl
