// Writes lexctl3's manual page from the program itself: the command-line
// usage that --help prints, and the command table with the very texts that
// "help" prints, so the manual cannot drift from the program.
//   lexctl3-manpage FILE   writes the page
//   lexctl3-manpage --rows lists the table: "command NAME", "alias NAME OF",
//                          "option NAME" (setopt), one a line
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "app/client_link.h"
#include "app/startup.h"
#include "shell/dispatch.h"
#include "shell/exec_thread.h"
#include "shell/version.h"

namespace {

using namespace lexctl;

bool IsOption(const CommandRecord& row) { return strncmp(row.name, kOptionPrefix, kOptionPrefixLen) == 0; }

bool Listed(const CommandRecord& row) {
  return row.name != GroupMarker && row.handler && !(row.flags & CMDF_HIDDEN);
}

// What a handler's help prints, as lines.
std::vector<std::string> HelpLines(ExecThread& thread, CommandHandler handler) {
  char* text = nullptr;
  size_t size = 0;
  thread.redirect = open_memstream(&text, &size);
  ShowCommandHelp(thread, handler);
  fclose(thread.redirect);
  thread.redirect = nullptr;
  std::vector<std::string> lines;
  for (const char* p = text; *p;) {
    const char* end = strchr(p, '\n');
    if (!end) end = p + strlen(p);
    lines.emplace_back(p, end);
    p = *end ? end + 1 : end;
  }
  free(text);
  return lines;
}

// What "lexctl3 --help" prints.
std::string CommandLineUsage() {
  fflush(stdout);
  FILE* capture = tmpfile();
  int saved = dup(STDOUT_FILENO);
  dup2(fileno(capture), STDOUT_FILENO);
  Main({"--help"});
  fflush(stdout);
  dup2(saved, STDOUT_FILENO);
  close(saved);
  std::string text;
  rewind(capture);
  char buffer[4096];
  for (size_t n; (n = fread(buffer, 1, sizeof(buffer), capture)) > 0;) text.append(buffer, n);
  fclose(capture);
  return text;
}

// Text for roff: backslashes and minus signs escaped, no line starting with
// a control character.
std::string Roff(const std::string& text) {
  std::string out;
  bool line_start = true;
  for (char c : text) {
    if (line_start && (c == '.' || c == '\'')) out += "\\&";
    if (c == '\\') {
      out += "\\e";
    } else if (c == '-') {
      out += "\\-";
    } else {
      out += c;
    }
    line_start = c == '\n';
  }
  return out;
}

void Block(std::string& page, const std::vector<std::string>& lines, size_t from) {
  while (from < lines.size() && lines[from].empty()) ++from;
  if (from >= lines.size()) return;
  page += ".RS\n.nf\n";
  for (size_t i = from; i < lines.size(); ++i) page += Roff(lines[i]) + "\n";
  page += ".fi\n.RE\n";
}

// One entry per described row: its names (aliases first), summary and usage.
void Entries(std::string& page, ExecThread& thread, bool options) {
  std::string names;
  for (const CommandRecord* row = CommandTableRows(); row->name; ++row) {
    if (row->name == GroupMarker) {
      if (!options && row->description) page += ".SS " + Roff(row->description) + "\n";
      continue;
    }
    if (!Listed(*row) || IsOption(*row) != options) continue;
    std::string name = options ? std::string("setopt ") + (row->name + kOptionPrefixLen) : row->name;
    names += (names.empty() ? "" : ", ") + name;
    if (!row->description) continue;
    page += ".TP\n.B " + Roff(names) + "\n" + Roff(row->description) + "\n";
    names.clear();
    std::vector<std::string> lines = HelpLines(thread, row->handler);
    // The first lines repeat the names and the summary.
    size_t from = 0;
    while (from < lines.size() && !lines[from].empty()) ++from;
    Block(page, lines, from);
  }
}

const char kHead[] = R"(.TH LEXCTL3 1 "" "lexctl3 @VERSION@" "User Commands"
.SH NAME
lexctl3 \- console client of the Lexary Server's SOAP service
.SH SYNOPSIS
.B lexctl3
[\fB\-\-script\fR \fISCRIPT\fR] [\fB\-\-output\fR \fIFILE\fR] [\fB\-\-errexit\fR] [\fICOMMAND\fR ...]
.br
.B lexctl3 \-\-version
.br
.B lexctl3 \-\-help
.SH DESCRIPTION
.B lexctl3
is a line\-oriented shell for the operators, administrators and test engineers
of a Lexary Server. Every line is a command; lines come from the console (with
line editing, history and completion), from script files, or from the command
line, where each argument is one command line. The script language has
variables, procedures, loops, timers, output files and threads that run
several scripts at once.
.PP
Without a script or commands, lexctl3 prints a banner and reads commands from
the console until \fBexit\fR. \fBlexctl3.cfg\fR in the current directory runs
first at every start.
.PP
At the console, TAB completes command names (also after \fBhelp\fR),
\fBsetopt\fR option names, the options that a command's help lists, and file
names after the commands and options that take a file (\fBread\fR,
\fBtfile\fR, \fBdimport\fR, \fB\-file\fR, \fB\-indata\fR, \fB\-rules\fR, ...).
.SH OPTIONS
The program's own summary (\fBlexctl3 \-\-help\fR):
.RS
.nf
)";

const char kSwitches[] = R"(.fi
.RE
.TP
.B \-\-version
Print the program name and version, and exit with status 0.
.TP
.B \-\-errexit
For scripts run in continuous integration: the first command on the main
thread that fails (a "FAILED: ..." or "SOAP EXCEPTION:" report, an argument
error, a file that cannot be read or written, an unknown command, a script
that cannot be opened or read, a thread that cannot start) ends the run after
its report; the other threads are stopped and joined, and the exit status is 2. A failure on another thread
makes the final status 2 as well, and standard error names the thread and its
first failure ("Thread \fINAME\fR failed: ..."). Without this switch the exit status is 0
after any normal end.
.SH COMMANDS
Command words are matched without regard to case. \fBhelp\fR lists them;
\fBhelp\fR \fICOMMAND\fR or \fICOMMAND\fR \fB\-?\fR prints the text given
here.
)";

const char kTail[] = R"(.SH FILES
.TP
.B lexctl3.cfg
Run at start\-up from the current directory; written by \fBsetopt \-save\fR
(mode 0600) and read by \fBsetopt \-load\fR. It begins with
\fB@setopt console none\fR; when it ends, the console mode returns to what it
was before it was read.
.TP
.B ~/.lexctl3_history
Console history, readable by its owner only (mode 0600). A line that carries a
password (\fBsetopt passwd\fR or \fBsetopt sslkeypass\fR with a value,
\fBpasswd\fR or \fBpwhash\fR with arguments, \fB\-userPass\fR anywhere) is
not written to it.
.TP
.B cacert.pem
Default CA file for https servers, looked for in the current directory; the
system's trusted certificates are used when it does not exist. A CA file or
folder that is set (\fBsetopt sslcafile\fR, \fBsetopt sslcadir\fR) but cannot
be read fails every https request that checks certificates with a line that
names it.
.TP
.B /usr/share/lexctl3/nvsoap.wsdl\fR, \fB/usr/share/lexctl3/nv.xsd
The service description, for third\-party SOAP tools.
.TP
.B /usr/share/doc/lexctl3/examples/
Example scripts.
.SH ENVIRONMENT
.TP
.B LEXCTL3_SERVER\fR, \fBLEXCTL3_USERID\fR, \fBLEXCTL3_PASSWD
The server, user ID and password (clear, or its 40\-digit hash) of the main
thread at start\-up, as \fBsetopt server\fR, \fBsetopt userid\fR and
\fBsetopt passwd\fR set them; read before \fBlexctl3.cfg\fR, which overrides
them. An unset or empty variable changes nothing. The password stays out of
the process list, where a command\-line argument would show it.
.TP
.B SHELL
The shell that \fBshell\fR and \fB!\fR run (default /bin/sh).
.TP
.B TMPDIR
Where \fBhtml\fR downloads keep their work file (default /tmp).
.TP
.B LEXCTL3_MAX_REPLY_MB
The largest server reply taken, in megabytes (default 1024).
.SH EXIT STATUS
0 after a normal end, 1 when the command line is wrong or the temporary
command file cannot be written, 2 with \fB\-\-errexit\fR after a failed
command.
.SH EXAMPLES
.nf
lexctl3 "setopt server localhost:12000" versions "test \-string hello"
lexctl3 \-\-errexit \-\-script regression.lex \-\-output regression.log
.fi
.SH SEE ALSO
.BR lexsim (1)
)";

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: lexctl3-manpage FILE | --rows\n");
    return 2;
  }
  LinkClient();
  BuildCommandTable();
  if (strcmp(argv[1], "--rows") == 0) {
    std::vector<std::string> aliases;
    for (const CommandRecord* row = CommandTableRows(); row->name; ++row) {
      if (!Listed(*row)) continue;
      if (IsOption(*row)) {
        printf("option %s\n", row->name + kOptionPrefixLen);
      } else if (!row->description) {
        aliases.push_back(row->name);
      } else {
        printf("command %s\n", row->name);
        for (const std::string& alias : aliases) printf("alias %s %s\n", alias.c_str(), row->name);
        aliases.clear();
      }
    }
    return 0;
  }

  ExecThread thread("manpage", true);
  std::string page = kHead;
  page.replace(page.find("@VERSION@"), 9, LEXCTL_VERSION);
  page += Roff(CommandLineUsage());
  page += kSwitches;
  Entries(page, thread, false);
  page += ".SH SETTINGS\nEach setting is an option of \\fBsetopt\\fR; \\fBsetopt\\fR alone shows their values.\n";
  Entries(page, thread, true);
  // The line prefixes and variables close the summary that "help" prints.
  std::vector<std::string> summary = HelpLines(thread, nullptr);
  size_t from = 0;
  while (from < summary.size() && summary[from].rfind("Special line prefixes", 0) != 0) ++from;
  page += ".SH LINE PREFIXES AND VARIABLES\n";
  Block(page, summary, from);
  page += kTail;

  FILE* out = fopen(argv[1], "w");
  if (!out || fwrite(page.data(), 1, page.size(), out) != page.size() || fclose(out) != 0) {
    perror(argv[1]);
    return 1;
  }
  return 0;
}
