// Command-line parsing shared by every command, and the global options.
#include <cstdio>
#include <cstdlib>

#include "kt_traces.h"
#include "tools/kt/status_text.h"
#include "tools/kt/tool.h"

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

bool Context::StartTrace(const std::string& command) {
  if (trace_path.empty() || trace_active) return true;
  for (std::uint16_t sub = kFirstSubModule; sub <= kLastSubModule; ++sub) {
    const std::uint16_t us =
        KT_usActiverTrace(trace_path.c_str(), "w", kTraceModule, sub, trace_level);
    if (us != KT_OK) {
      Failure(command, "cannot activate traces in " + trace_path + ": status " + StatusText(us));
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

int UsageError(const CommandSyntax& syntax, const std::string& message) {
  std::fprintf(stderr, "kt %s: %s\nusage: kt %s %s\n(kt %s --help for more)\n", syntax.name,
               message.c_str(), syntax.name, syntax.usage, syntax.name);
  return kExitUsage;
}

int Failure(const std::string& command, const std::string& message) {
  std::fprintf(stderr, "kt %s: %s\n", command.c_str(), message.c_str());
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
    const bool global = IsGlobalOption(name);
    const OptionSyntax* option = FindOption(syntax, name);
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
  if (!context.StartTrace(syntax.name)) return kExitFailed;
  return -1;
}

int ParseAndRun(const CommandSyntax& syntax, int (*command)(Context&, const ParsedArgs&),
                Context& context, Arguments words) {
  ParsedArgs args;
  const int status = ParseArguments(syntax, words, context, &args);
  return status >= 0 ? status : command(context, args);
}

}  // namespace kt::tool
