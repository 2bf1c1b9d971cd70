// Dictionary import and export: dimport and dexport.
#pragma once

#include <cstdint>
#include <string>

#include "shell/command.h"
#include "shell/option_scanner.h"

namespace lexctl {

extern const CommandRecord kImportExportRows[];  ///< dimport, dexport (group DICTIONARIES)
extern const CommandOptionTable kImportExportOptionTables[];  ///< their option tables

/// A size as the echo lines show it: "1000 bytes", "1.50 KB", "2.00 MB".
std::string FormatSize(int64_t bytes);

/// The file an exported item is written to: base (DATAFILE, or the DID),
/// ending with the extension of the server's file name unless base already
/// ends with it.
std::string ExportFileName(const std::string& base, const std::string& server_name);

}  // namespace lexctl
