// What the command families of `kt` share: the run context (global options,
// traces), the command-line parser, exit codes and the commands themselves.
#ifndef KT_TOOLS_KT_TOOL_H_
#define KT_TOOLS_KT_TOOL_H_

#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <vector>

namespace kt::tool {

// Exit statuses of every command.
inline constexpr int kExitOk = 0;
inline constexpr int kExitFailed = 1;  // a check failed, or the operation could not be done
inline constexpr int kExitUsage = 2;   // the command line is wrong

// Global options, shared by every command.
struct Context {
  std::string trace_path;  // --trace FILE
  std::uint8_t trace_level = 2;
  bool trace_active = false;
  bool force = false;  // --force: also lets --trace replace a file that is not a trace

  // Activates the library's traces (module 1, every sub-module) into
  // trace_path when it was given. Refuses a trace file that is one of
  // `paths` (the command's inputs and outputs) and, without --force, an
  // existing file that is not a trace. Prints the failure and returns false.
  bool StartTrace(const std::string& command, const std::vector<std::string>& paths);
  void StopTrace();
};

using Arguments = std::span<const std::string>;

struct OptionSyntax {
  const char* name;  // "--out"
  bool takes_value;
};

struct CommandSyntax {
  const char* name;   // "tables compile"
  const char* usage;  // "SOURCE -o FILE [--control none|crc|signature] [--key KEYFILE]"
  const char* help;   // what the command does, several lines
  std::vector<OptionSyntax> options;
  std::size_t min_positional;
  std::size_t max_positional;
};

struct ParsedArgs {
  std::vector<std::string> positional;
  std::map<std::string, std::string> options;  // flags map to ""
  bool Has(const std::string& name) const { return options.count(name) != 0; }
  std::string Get(const std::string& name, const std::string& fallback = "") const {
    const auto found = options.find(name);
    return found == options.end() ? fallback : found->second;
  }
};

// Parses a command's arguments; --trace FILE, --trace-level N and --help are
// understood everywhere and "--" ends the options. Returns -1 when the command
// should run (traces started), or the exit status to return at once (0 after
// --help, kExitUsage after a printed usage error, kExitFailed when the traces
// cannot be started).
int ParseArguments(const CommandSyntax& syntax, Arguments words, Context& context, ParsedArgs* out);

// ParseArguments, then `command` with what it found.
int ParseAndRun(const CommandSyntax& syntax, int (*command)(Context&, const ParsedArgs&),
                Context& context, Arguments words);

// --trace and --trace-level, which main also takes before the command.
bool IsGlobalOption(const std::string& name);
bool ApplyGlobalOption(const std::string& name, const std::string& value, Context& context,
                       std::string* error);
const char* GlobalOptionsHelp();

// Prints "kt COMMAND: message" and the usage line on stderr; kExitUsage.
int UsageError(const CommandSyntax& syntax, const std::string& message);

// Prints "kt COMMAND: message" on stderr, control bytes escaped; kExitFailed.
// Under --json the same failure also goes to stdout as one JSON object,
// {"error": ..., "status": ..., "path": ...}, with the path concerned and the
// library's status when there is one (null otherwise).
int Failure(const std::string& command, const std::string& message, const std::string& path = "",
            int status = -1);

// Whether failures are also written as JSON (the command took --json).
void SetJsonFailures(bool on);

// The text with control bytes (C0, DEL, C1) written as \xNN, for messages
// that echo bytes of the input.
std::string Escape(const std::string& text);

// Commands, one per family file.
int RunDemo(Context& context, Arguments words);
int RunTablesCompile(Context& context, Arguments words);
int RunTablesDump(Context& context, Arguments words);
int RunZoneCheck(Context& context, Arguments words);
int RunZoneDump(Context& context, Arguments words);
int RunKeyGenerate(Context& context, Arguments words);
int RunFileSign(Context& context, Arguments words);
int RunFileVerify(Context& context, Arguments words);
int RunIniGet(Context& context, Arguments words);
int RunIniSet(Context& context, Arguments words);

}  // namespace kt::tool

#endif  // KT_TOOLS_KT_TOOL_H_
