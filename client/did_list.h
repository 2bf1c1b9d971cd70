// The dictionaries this client created in this run, and LAST references.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace lexctl {

/// One dictionary the client created: what to show for it, and its DID.
struct CreatedDid {
  std::string text;
  int64_t did = 0;
};

/// Adds a dictionary to the process-wide list (the newest last).
void AddCreatedDid(const std::string& text, int64_t did);
/// A copy of the list, oldest first.
std::vector<CreatedDid> CreatedDids();

/// Replaces LAST and LAST-N in a list of DIDs by the numbers of the created
/// dictionaries (LAST the newest). A text without "last" or "LAST" comes back
/// unchanged; otherwise words are joined by single blanks.
std::string ResolveDidList(const std::string& text);

}  // namespace lexctl
