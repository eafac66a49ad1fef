// kt: the command-line tool of the KT common module, on its public
// interface only. Finds the command and hands it its arguments.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>
#include <vector>

#include "kt_binfiles.h"
#include "kt_crypto.h"
#include "tools/kt/output.h"
#include "tools/kt/tool.h"

namespace kt::tool {
namespace {

struct Command {
  const char* family;
  const char* name;  // null for a command without sub-command
  int (*run)(Context&, Arguments);
  const char* summary;
};

constexpr Command kCommands[] = {
    {"demo", nullptr, RunDemo, "the library at work on an embedded sample dictionary"},
    {"tables", "compile", RunTablesCompile, "compile a dictionary description into a tables file"},
    {"tables", "dump", RunTablesDump, "show a tables file, its check and its dictionary"},
    {"zone", "check", RunZoneCheck, "syntax and format control of a memory zone"},
    {"zone", "dump", RunZoneDump, "groups and fields of a memory zone"},
    {"key", "generate", RunKeyGenerate, "make an RSA key pair for signed files"},
    {"file", "sign", RunFileSign, "sign a tables file with a private key"},
    {"file", "verify", RunFileVerify, "check a tables file's signature (or CRC)"},
    {"ini", "get", RunIniGet, "read a key of an ini file"},
    {"ini", "set", RunIniSet, "write a key of an ini file"},
};

// The tool's and the library's versions, and the fingerprint of the public
// key built into the library: the MD5 of its 128-byte modulus.
int PrintVersion() {
  unsigned char modulus[128];
  for (std::size_t i = 0; i < sizeof modulus; ++i) {
    modulus[i] = static_cast<unsigned char>(MODULUS[i]);
  }
  MD5Context md5;
  unsigned char digest[16];
  MD5Init(&md5);
  MD5Update(&md5, modulus, sizeof modulus);
  MD5Final(digest, &md5);
  std::printf(
      "kt %s\nlibrary vlnvktosx %s (tables file version 0100)\n"
      "built-in public key: MD5 of the modulus %s\n",
      KT_TOOL_VERSION, KT_TOOL_VERSION, HexBytes(digest, sizeof digest, true).c_str());
  return kExitOk;
}

void PrintOverview(std::FILE* out) {
  std::fprintf(out,
               "usage: kt [--trace FILE] COMMAND [ARGUMENTS]\n       kt --version\n"
               "       kt help [COMMAND]\n\ncommands:\n");
  for (const Command& command : kCommands) {
    const std::string name = std::string(command.family) +
                             (command.name != nullptr ? std::string(" ") + command.name : "");
    std::fprintf(out, "  %-16s %s\n", name.c_str(), command.summary);
  }
  std::fprintf(out,
               "\n%s\n"
               "Each command takes --help (kt help COMMAND prints the same). Exit status:\n"
               "0 success, 1 a check or an operation failed, 2 a wrong command line.\n"
               "The manual page kt(1) describes every command, the description format\n"
               "of `kt tables compile` and the safety rules of `kt ini set`.\n",
               GlobalOptionsHelp());
}

void PrintFamily(std::FILE* out, const std::string& family) {
  std::fprintf(out, "usage: kt %s COMMAND ...\n\ncommands:\n", family.c_str());
  for (const Command& command : kCommands) {
    if (family == command.family && command.name != nullptr) {
      std::fprintf(out, "  %-10s %s\n", command.name, command.summary);
    }
  }
}

int Main(const std::vector<std::string>& words) {
  Context context;
  std::size_t at = 0;
  // Global options may come before the command as well.
  for (; at < words.size() && words[at].size() > 1 && words[at][0] == '-'; ++at) {
    const std::string& word = words[at];
    if (word == "--help" || word == "-h") {
      PrintOverview(stdout);
      return kExitOk;
    }
    if (word == "--version") return PrintVersion();
    const std::size_t equals = word.find('=');
    const std::string name = word.substr(0, equals);
    const bool has_value = equals != std::string::npos || at + 1 < words.size();
    const std::string value = equals != std::string::npos ? word.substr(equals + 1)
                              : has_value                 ? words[++at]
                                                          : "";
    std::string error;
    if (!IsGlobalOption(name)) {
      error = "unknown option " + name;
    } else if (!has_value) {
      error = name + " needs a value";
    } else {
      (void)ApplyGlobalOption(name, value, context, &error);
    }
    if (!error.empty()) {
      std::fprintf(stderr, "kt: %s\n\n", error.c_str());
      PrintOverview(stderr);
      return kExitUsage;
    }
  }
  if (at == words.size()) {
    PrintOverview(stderr);
    return kExitUsage;
  }
  std::vector<std::string> help_words;
  if (words[at] == "help" && at + 1 < words.size()) {
    // "kt help tables compile" is "kt tables compile --help".
    help_words.assign(words.begin() + static_cast<std::ptrdiff_t>(at) + 1, words.end());
    help_words.push_back("--help");
    return Main(help_words);
  }
  const std::string& family = words[at++];
  if (family == "help") {
    PrintOverview(stdout);
    return kExitOk;
  }
  if (family == "version") return PrintVersion();
  const Command* found = nullptr;
  bool known_family = false;
  for (const Command& command : kCommands) {
    if (family != command.family) continue;
    known_family = true;
    if (command.name == nullptr || (at < words.size() && words[at] == command.name)) {
      found = &command;
      break;
    }
  }
  if (found == nullptr) {
    if (!known_family) {
      std::fprintf(stderr, "kt: unknown command '%s'\n\n", Escape(family).c_str());
      PrintOverview(stderr);
      return kExitUsage;
    }
    const bool help = at < words.size() && (words[at] == "--help" || words[at] == "-h");
    if (!help) {
      std::fprintf(stderr, "kt %s: %s\n\n", family.c_str(),
                   at < words.size() ? ("unknown command '" + Escape(words[at]) + "'").c_str()
                                     : "which command?");
    }
    PrintFamily(help ? stdout : stderr, family);
    return help ? kExitOk : kExitUsage;
  }
  if (found->name != nullptr) ++at;
  const std::vector<std::string> rest(words.begin() + static_cast<std::ptrdiff_t>(at), words.end());
  const int status = found->run(context, rest);
  context.StopTrace();
  return status;
}

}  // namespace
}  // namespace kt::tool

// The library keeps some blocks for good by design (the dictionary's value
// texts, the directory copies of a start, the group list that format control
// keeps on an early return); a leak checker in instrumented builds is told so.
#if defined(__SANITIZE_ADDRESS__)
#define KT_TOOL_LEAK_CHECKER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KT_TOOL_LEAK_CHECKER 1
#endif
#endif
#ifdef KT_TOOL_LEAK_CHECKER
extern "C" __attribute__((used)) const char* __lsan_default_suppressions() {
  return "leak:usInitTabValeur\n"
         "leak:usIAInitialisation\n"
         "leak:KT_usControlerFormatZoneMemoire\n";
}
// Known and expected: no list of them on every exit.
extern "C" __attribute__((used)) const char* __lsan_default_options() {
  return "print_suppressions=0";
}
#endif

int main(int argc, char** argv) {
  int status = kt::tool::kExitFailed;
  try {
    status = kt::tool::Main(std::vector<std::string>(argv + 1, argv + argc));
  } catch (const std::exception& error) {
    std::fprintf(stderr, "kt: %s\n", kt::tool::Escape(error.what()).c_str());
    status = kt::tool::kExitFailed;
  }
  // Output that never reached its file is a failure too (a full disk, a
  // closed pipe): the last buffered bytes are written here.
  if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
    const int error_number = errno;
    std::fprintf(stderr, "kt: cannot write standard output: %s\n", std::strerror(error_number));
    return kt::tool::kExitFailed;
  }
  return status;
}
