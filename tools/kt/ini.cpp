// kt ini get | set: configuration files through the library's reader and
// writer, with their rules (names without '/' lie in the preferences
// directory; sections and keys are found ignoring case on reading).
#include <cstdio>
#include <cstring>
#include <optional>
#include <vector>

#include "kt_frame.h"
#include "tools/kt/tool.h"
#include "tools/kt/workspace.h"

namespace kt::tool {
namespace {

// Longest value read back; longer ones are cut.
constexpr std::uint32_t kMaxValue = 4096;

const CommandSyntax kIniGetSyntax = {
    "ini get",
    "FILE SECTION KEY",
    "Prints the value of KEY in SECTION of the ini file FILE, as the library\n"
    "reads it (section and key ignoring case, nothing trimmed). A FILE without\n"
    "'/' lies in the preferences directory ($KT_PREFERENCES_DIR, else the\n"
    "library's default). Exit status 1 when the file, section or key is missing.\n",
    {},
    3,
    3,
};

const CommandSyntax kIniSetSyntax = {
    "ini set",
    "FILE SECTION KEY VALUE",
    "Sets KEY in SECTION of the ini file FILE to VALUE with the library's\n"
    "writer, which keeps every other line and puts the new file in place by a\n"
    "rename. A FILE without '/' lies in the preferences directory; for a path\n"
    "with '/', the writer's temporary file goes beside the file.\n",
    {},
    4,
    4,
};

int Get(Context&, const ParsedArgs& args) {
  const std::string& file = args.positional[0];
  const std::string& section = args.positional[1];
  const std::string& key = args.positional[2];
  // The reader leaves the destination alone when nothing is found: a mark
  // that no value can hold tells a missing key from an empty value.
  std::vector<char> value(kMaxValue + 1, '\0');
  value[0] = '\x01';
  if (vln_GetIniInfo(section.c_str(), key.c_str(), value.data(), 's', kMaxValue, file.c_str()) ==
          nullptr ||
      (value[0] == '\x01' && value[1] == '\0')) {
    return Failure(kIniGetSyntax.name, "no key " + key + " in section " + section + " of " + file);
  }
  std::printf("%s\n", value.data());
  return kExitOk;
}

int Set(Context&, const ParsedArgs& args) {
  const std::string& file = args.positional[0];
  // The writer's temporary file lies in the preferences directory; beside the
  // file, the final rename stays on one file system and needs no other rights.
  std::optional<ScopedEnvironment> preferences;
  if (file.find('/') != std::string::npos) {
    preferences.emplace("KT_PREFERENCES_DIR", SplitPath(file).directory);
  }
  if (KT_bEcrireChaineIni(args.positional[1].c_str(), args.positional[2].c_str(),
                          args.positional[3].c_str(), file.c_str()) != 1) {
    return Failure(kIniSetSyntax.name, "cannot write " + file + " (it is left as it was)");
  }
  return kExitOk;
}

}  // namespace

int RunIniGet(Context& context, Arguments words) {
  return ParseAndRun(kIniGetSyntax, Get, context, words);
}
int RunIniSet(Context& context, Arguments words) {
  return ParseAndRun(kIniSetSyntax, Set, context, words);
}

}  // namespace kt::tool
