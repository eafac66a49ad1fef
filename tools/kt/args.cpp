// Command-line parsing shared by every command, and the global options.
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "kt_traces.h"
#include "tools/kt/output.h"
#include "tools/kt/status_text.h"
#include "tools/kt/tool.h"
#include "tools/kt/workspace.h"

namespace kt::tool {
namespace {

// The library's trace sub-modules: zones, format control, ..., tables files.
constexpr std::uint16_t kTraceModule = 1;
constexpr std::uint16_t kFirstSubModule = 1;
constexpr std::uint16_t kLastSubModule = 8;

constexpr const char* kGlobalHelp =
    "global options (anywhere before \"--\"):\n"
    "  --trace FILE        write the library's trace file (every sub-module)\n"
    "  --trace-level N     1: down to a depth of 8; 2 (default): every depth and dumps\n"
    "  --force             let --trace replace an existing file that is not a trace\n"
    "  --help              this help\n";

void PrintHelp(const CommandSyntax& syntax) {
  std::printf("usage: kt %s %s\n\n%s\n%s", syntax.name, syntax.usage, syntax.help, kGlobalHelp);
}

}  // namespace

const char* GlobalOptionsHelp() { return kGlobalHelp; }

namespace {

const OptionSyntax* FindOption(const CommandSyntax& syntax, const std::string& name) {
  for (const OptionSyntax& option : syntax.options) {
    if (name == option.name) return &option;
  }
  return nullptr;
}

}  // namespace

namespace {

// Whether `a` and `b` name one file: the same inode when both exist, else
// the same normalised path.
bool SameFile(const std::string& a, const std::string& b) {
  struct stat sa;
  struct stat sb;
  const bool a_exists = stat(a.c_str(), &sa) == 0;
  const bool b_exists = stat(b.c_str(), &sb) == 0;
  if (a_exists && b_exists) return sa.st_dev == sb.st_dev && sa.st_ino == sb.st_ino;
  if (a_exists != b_exists) return false;
  std::error_code ignored;
  return std::filesystem::weakly_canonical(a, ignored) ==
         std::filesystem::weakly_canonical(b, ignored);
}

// Whether an existing file may be replaced by a trace: empty, or a trace.
bool LooksLikeTrace(const std::string& path) {
  std::FILE* in = std::fopen(path.c_str(), "rb");
  if (in == nullptr) return false;
  char start[20] = {};
  const std::size_t got = std::fread(start, 1, sizeof start - 1, in);
  std::fclose(in);
  return got == 0 || std::string(start, got).rfind("### DEBUT TRACE ###", 0) == 0;
}

}  // namespace

bool Context::StartTrace(const std::string& command, const std::vector<std::string>& paths) {
  if (trace_path.empty() || trace_active) return true;
  // What a command may read or write, as its arguments name it: the file
  // itself, key pairs made from a base name, the tables file of a
  // directory, an ini file of the preferences directory.
  for (const std::string& path : paths) {
    std::vector<std::string> candidates = {path, path + ".key", path + ".pub",
                                           path + "/tablebin.vkt"};
    if (path.find('/') == std::string::npos) candidates.push_back(PreferencesPath(path));
    for (const std::string& candidate : candidates) {
      if (SameFile(trace_path, candidate)) {
        Failure(command, "--trace " + trace_path + " is " + candidate +
                             ", which this command uses; not truncated");
        return false;
      }
    }
  }
  struct stat info;
  if (stat(trace_path.c_str(), &info) == 0) {
    if (!S_ISREG(info.st_mode)) {
      Failure(command, "--trace " + trace_path + " is not a regular file", trace_path);
      return false;
    }
    if (!force && !LooksLikeTrace(trace_path)) {
      Failure(command,
              "--trace " + trace_path + " exists and is not a trace file (--force replaces it)",
              trace_path);
      return false;
    }
  }
  for (std::uint16_t sub = kFirstSubModule; sub <= kLastSubModule; ++sub) {
    const std::uint16_t us =
        KT_usActiverTrace(trace_path.c_str(), "w", kTraceModule, sub, trace_level);
    if (us != KT_OK) {
      Failure(command, "cannot activate traces in " + trace_path + ": status " + StatusText(us),
              trace_path, us);
      if (sub != kFirstSubModule) (void)KT_usActiverTrace(trace_path.c_str(), "w", 1, 1, 0);
      return false;
    }
  }
  trace_active = true;
  return true;
}

void Context::StopTrace() {
  if (!trace_active) return;
  // Level 0 closes the file and forgets every pair.
  (void)KT_usActiverTrace(trace_path.c_str(), "w", kTraceModule, kFirstSubModule, 0);
  trace_active = false;
}

namespace {
bool json_failures = false;

void PrintJsonFailure(const std::string& message, const std::string& path, int status) {
  if (!json_failures) return;
  Json json;
  json.BeginObject().Field("error", message).Key("status");
  if (status >= 0) {
    json.String("0x" + Hex4(static_cast<std::uint32_t>(status)));
  } else {
    json.Null();
  }
  json.Key("path");
  if (path.empty()) {
    json.Null();
  } else {
    json.String(path);
  }
  json.EndObject();
  std::printf("%s\n", json.text().c_str());
}
}  // namespace

void SetJsonFailures(bool on) { json_failures = on; }

std::string Escape(const std::string& text) {
  std::string escaped;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if ((byte < 0x20 && c != '\n') || (byte >= 0x7F && byte < 0xA0)) {
      char code[8];
      std::snprintf(code, sizeof code, "\\x%02X", byte);
      escaped += code;
    } else {
      escaped += c;
    }
  }
  return escaped;
}

int UsageError(const CommandSyntax& syntax, const std::string& message) {
  std::fprintf(stderr, "kt %s: %s\nusage: kt %s %s\n(kt %s --help for more)\n", syntax.name,
               Escape(message).c_str(), syntax.name, syntax.usage, syntax.name);
  PrintJsonFailure(message, "", -1);
  return kExitUsage;
}

int Failure(const std::string& command, const std::string& message, const std::string& path,
            int status) {
  std::fprintf(stderr, "kt %s: %s\n", command.c_str(), Escape(message).c_str());
  PrintJsonFailure(message, path, status);
  return kExitFailed;
}

bool IsGlobalOption(const std::string& name) {
  return name == "--trace" || name == "--trace-level";
}

bool ApplyGlobalOption(const std::string& name, const std::string& value, Context& context,
                       std::string* error) {
  if (name == "--trace") {
    context.trace_path = value;
    return true;
  }
  if (value != "1" && value != "2") {
    *error = "--trace-level is 1 or 2";
    return false;
  }
  context.trace_level = static_cast<std::uint8_t>(value[0] - '0');
  return true;
}

int ParseArguments(const CommandSyntax& syntax, Arguments words, Context& context,
                   ParsedArgs* out) {
  SetJsonFailures(FindOption(syntax, "--json") != nullptr &&
                  std::find(words.begin(), words.end(), "--json") != words.end());
  bool options_done = false;
  for (std::size_t i = 0; i < words.size(); ++i) {
    const std::string& word = words[i];
    if (options_done || word.size() < 2 || word[0] != '-') {
      out->positional.push_back(word);
      continue;
    }
    if (word == "--") {
      options_done = true;
      continue;
    }
    const std::size_t equals = word.find('=');
    const std::string name = word.substr(0, equals);
    if (name == "--help" || name == "-h") {
      PrintHelp(syntax);
      return kExitOk;
    }
    const OptionSyntax* option = FindOption(syntax, name);
    if (name == "--force") {
      // Every command takes it for --trace; some give it a meaning of their own.
      if (equals != std::string::npos) return UsageError(syntax, "--force takes no value");
      context.force = true;
      if (option != nullptr) out->options[name] = "";
      continue;
    }
    const bool global = IsGlobalOption(name);
    if (!global && option == nullptr) return UsageError(syntax, "unknown option " + name);
    const bool takes_value = global || option->takes_value;
    std::string value;
    if (equals != std::string::npos) {
      if (!takes_value) return UsageError(syntax, name + " takes no value");
      value = word.substr(equals + 1);
    } else if (takes_value) {
      if (i + 1 == words.size()) return UsageError(syntax, name + " needs a value");
      value = words[++i];
    }
    std::string error;
    if (!global) {
      out->options[name] = value;
    } else if (!ApplyGlobalOption(name, value, context, &error)) {
      return UsageError(syntax, error);
    }
  }
  if (out->positional.size() < syntax.min_positional) {
    return UsageError(syntax, "missing argument");
  }
  if (out->positional.size() > syntax.max_positional) {
    return UsageError(syntax,
                      "unexpected argument '" + out->positional[syntax.max_positional] + "'");
  }
  std::vector<std::string> paths = out->positional;
  for (const auto& [name, value] : out->options) {
    if (!value.empty()) paths.push_back(value);
  }
  if (!context.StartTrace(syntax.name, paths)) return kExitFailed;
  return -1;
}

int ParseAndRun(const CommandSyntax& syntax, int (*command)(Context&, const ParsedArgs&),
                Context& context, Arguments words) {
  ParsedArgs args;
  const int status = ParseArguments(syntax, words, context, &args);
  return status >= 0 ? status : command(context, args);
}

}  // namespace kt::tool
