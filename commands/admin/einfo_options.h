// The options of einfo, which uget shares: detail switches that become
// select keys, the display mode and the engine filter.
//
//   RequestFrame frame(thread, EngineQueryKeys(thread));
//   EngineQuery query;
//   if (!ScanEngineQuery(frame, args, query)) return;
//   frame.PrintSelectKeys();
//   PrintEngineFilter(thread, query);
//   ... send query.display_lang and query.Filter(frame.soap()) ...
#pragma once

#include <optional>
#include <string>

#include "client/common_options.h"
#include "client/frame.h"
#include "commands/admin/engine_printer.h"

struct soap;
class nv__EngineFilter;

namespace lexctl {

/// The select keys that ask for more details of users and their engines;
/// ucreate and uupdate take them too.
inline constexpr OptionDef kDetailKeyOptions[] = {
    SelectKey("-user"),     SelectKey("-engines"),   SelectKey("-reverse"),
    SelectKey("-dic"),      SelectKey("-nomerge"),   SelectKey("-engineprop"),
    SelectKey("-profiles"), SelectKey("-overrides"), SelectKey("-propdef"),
    SelectKey("-limits"),   SelectKey("-userprop")};

/// The option table of einfo and uget (common ids first, then their own).
extern const OptionDef* const kEngineQueryOptions;

/// The select keys such a request starts with: "features", and "neweid"
/// when the thread's new-EID setting is on (each with a leading blank).
std::string EngineQueryKeys(ExecThread& thread);

/// What the options asked for besides select keys.
struct EngineQuery {
  int mode = kEngineFull;    ///< EngineDisplayMode
  std::string display_lang;  ///< sent as displayLang: -uilang, else the thread's uilang
  std::optional<std::string> eid, from, to;
  std::optional<int> type, support;

  bool Filtered() const { return eid || from || to || type || support; }
  /// The filter to send, allocated in the call's context, or nullptr when
  /// nothing filters.
  nv__EngineFilter* Filter(struct soap* soap) const;
};

/// Scans args with kEngineQueryOptions into the frame's select keys and
/// query. Prints the message and returns false on a bad option or flag list.
bool ScanEngineQuery(RequestFrame& frame, const ArgVector& args, EngineQuery& query);

/// "Filter:" and one line per member given; nothing when nothing filters.
void PrintEngineFilter(ExecThread& thread, const EngineQuery& query);

}  // namespace lexctl
