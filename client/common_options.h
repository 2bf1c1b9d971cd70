// Option rows that many service commands share, each declared once with a
// bit: a command's table takes the shared rows it wants by their bits and
// adds its own rows.
//
//   enum AddOption { kAddFormat = kOptOwn };
//   constexpr auto kAddOptions = CommandOptions<kCommonOptions | kEngineOptions>(
//       {SelectKey("-asfirst"), {kAddFormat, "-format", kOptRequired}});
//   ...
//   frame.Scan(kAddOptions, args, ...);
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <iterator>

#include "client/frame.h"

namespace lexctl {

/// A row whose option becomes a select key named like it without the "-".
constexpr OptionDef SelectKey(const char* name, int kind = kOptNoArgument) {
  return {kOptSelectKey, name, kind};
}

// The bits of the shared rows.
inline constexpr uint32_t kTakeSelect = 1u << 0;
inline constexpr uint32_t kTakeStrict = 1u << 1;
inline constexpr uint32_t kTakeRunas = 1u << 2;
inline constexpr uint32_t kTakeUilang = 1u << 3;
inline constexpr uint32_t kTakeRmax = 1u << 4;
inline constexpr uint32_t kTakeBmax = 1u << 5;
inline constexpr uint32_t kTakeSmax = 1u << 6;
inline constexpr uint32_t kTakeResetsessions = 1u << 7;
inline constexpr uint32_t kTakeDbcache = 1u << 8;
inline constexpr uint32_t kTakeNeweid = 1u << 9;
inline constexpr uint32_t kTakeTimezone = 1u << 10;
inline constexpr uint32_t kTakeTxncache = 1u << 11;
inline constexpr uint32_t kTakeTxncachemark = 1u << 12;
inline constexpr uint32_t kTakeReqgroup = 1u << 13;
inline constexpr uint32_t kTakeEid = 1u << 14;
inline constexpr uint32_t kTakeProp = 1u << 15;
inline constexpr uint32_t kTakeEndOfOptions = 1u << 16;

/// The block nearly every service command takes.
inline constexpr uint32_t kCommonOptions = kTakeSelect | kTakeStrict | kTakeRunas | kTakeUilang |
                                           kTakeRmax | kTakeResetsessions | kTakeDbcache |
                                           kTakeNeweid | kTakeReqgroup;
/// The block of the commands that translate or analyse text.
inline constexpr uint32_t kTextCommonOptions = kCommonOptions | kTakeBmax | kTakeSmax;
inline constexpr uint32_t kTxncacheOptions = kTakeTxncache | kTakeTxncachemark;
/// -eid and -prop of the commands that select an engine.
inline constexpr uint32_t kEngineOptions = kTakeEid | kTakeProp;

/// A shared row and the bit that picks it.
struct SharedOption {
  uint32_t bit;
  OptionDef row;
};

/// The shared rows, in the order a table lists them.
inline constexpr SharedOption kSharedOptions[] = {
    {kTakeSelect, {kOptSelectKeys, "-select", kOptRequired}},
    {kTakeStrict, SelectKey("-strict")},
    {kTakeRunas, SelectKey("-runas", kOptRequired)},
    {kTakeUilang, SelectKey("-uilang", kOptRequired)},
    {kTakeRmax, SelectKey("-rmax", kOptRequired)},
    {kTakeBmax, SelectKey("-bmax", kOptRequired)},
    {kTakeSmax, SelectKey("-smax", kOptRequired)},
    {kTakeResetsessions, SelectKey("-resetsessions")},
    {kTakeDbcache, SelectKey("-dbcache", kOptRequired)},
    {kTakeNeweid, SelectKey("-neweid")},
    {kTakeTimezone, SelectKey("-timezone", kOptRequired)},
    {kTakeTxncache, SelectKey("-txncache", kOptRequired)},
    {kTakeTxncachemark, SelectKey("-txncachemark")},
    {kTakeReqgroup, {kOptReqgroup, "-reqgroup", kOptRequired}},
    {kTakeEid, {kOptEngineId, "-eid", kOptRequired}},
    {kTakeProp, {kOptEngineProp, "-prop", kOptRequired}},
    {kTakeEndOfOptions, {kOptEndOfOptions, "--", kOptNoArgument}},
};

/// Help lines of the common options, for usage texts.
#define LEXCTL_COMMON_OPTION_HELP                                                  \
  "    -select     Specify extra select keys in the request.\n"                    \
  "    -strict     Use strict error processing.\n"                                 \
  "    -reqgroup   Start a new or specify an existing request group.\n"            \
  "    -runas      Execute the command using the specified user's account, but\n"  \
  "                the current user's permissions.\n"                              \
  "    -rmax       Specify the maximum amount of time in milliseconds that this\n" \
  "                request is permitted to execute for. If processing of the\n"    \
  "                request takes longer than this, it will be terminated and\n"    \
  "                a SOAP fault returned.\n"

/// An option table ended by the id -1 row. It passes wherever the scanner
/// or the frame takes a table.
template <size_t N>
struct OptionTable {
  OptionDef rows[N];
  constexpr operator const OptionDef*() const { return rows; }
};

/// A command's table: the shared rows whose bits are in Shared, then the
/// blocks of its own rows in order.
template <uint32_t Shared = 0, size_t... N>
constexpr auto CommandOptions(const OptionDef (&... own)[N]) {
  static_assert(Shared >> std::size(kSharedOptions) == 0, "a bit without a shared row");
  OptionTable<std::popcount(Shared) + (N + ... + 1)> table{};
  size_t at = 0;
  for (const SharedOption& shared : kSharedOptions) {
    if (shared.bit & Shared) table.rows[at++] = shared.row;
  }
  ((std::copy(own, own + N, table.rows + at), at += N), ...);
  table.rows[at] = {-1, nullptr, 0};
  return table;
}

}  // namespace lexctl
