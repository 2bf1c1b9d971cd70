// The dictionaries this client created in this run, and LAST references.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace lexctl {

/// One dictionary the client created or copied.
struct CreatedDid {
  std::string eid = "UNKNOWN";
  int64_t operation = 0;  ///< API flag of the call that made it (create or copy)
  int64_t type = 0;                  ///< dictionary type flag
  int64_t did = 0;
};

/// Adds a dictionary to the process-wide list (the newest last) and sets the
/// variable LAST to its DID. Safe from any thread.
void AddCreatedDid(const CreatedDid& record);
/// A copy of the list, oldest first.
std::vector<CreatedDid> CreatedDids();
/// The newest record of that DID, or false.
bool FindCreatedDid(int64_t did, CreatedDid& record);

/// One DID argument: a decimal number, LAST (the newest record) or LAST-N
/// (N places older). 0 when the text is none of these or N is out of range.
int64_t ResolveDid(const char* text);

/// Replaces LAST and LAST-N in a list of DIDs by the numbers of the created
/// dictionaries (LAST the newest). A text without "last" or "LAST" comes back
/// unchanged; otherwise words are joined by single blanks.
std::string ResolveDidList(const std::string& text);

}  // namespace lexctl
