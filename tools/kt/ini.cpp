// kt ini get | set: configuration files through the library's reader and
// writer, with their rules (names without '/' lie in the preferences
// directory; sections and keys are found ignoring case on reading). Before
// the writer touches a file, `kt ini set` predicts what it would make of it
// and refuses a write that would lose or hide anything (ini_check.h).
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <vector>

#include "kt_frame.h"
#include "tools/kt/ini_check.h"
#include "tools/kt/tool.h"
#include "tools/kt/workspace.h"

namespace kt::tool {
namespace {

const CommandSyntax kIniGetSyntax = {
    "ini get",
    "FILE SECTION KEY",
    "Prints the value of KEY in SECTION of the ini file FILE, as the library\n"
    "reads it (section and key ignoring case, nothing trimmed), however long.\n"
    "A FILE without '/' lies in the preferences directory ($KT_PREFERENCES_DIR,\n"
    "else the library's default). Exit status 1 when the file cannot be read\n"
    "(the reason is given) or the section or key is missing.\n",
    {},
    3,
    3,
};

const CommandSyntax kIniSetSyntax = {
    "ini set",
    "FILE SECTION KEY VALUE [--force]",
    "Sets KEY in SECTION of the ini file FILE to VALUE with the library's\n"
    "writer, which keeps every other line and puts the new file in place by a\n"
    "rename. A FILE without '/' lies in the preferences directory; the writer's\n"
    "temporary file and its lock go in the file's own directory, so that two\n"
    "writers there wait for each other. Through a symbolic link the target is\n"
    "written and the link stays; the file keeps its mode.\n"
    "The file is read first and left untouched (exit status 1, with the reason\n"
    "and the line) when the write would lose or change anything but the line\n"
    "it sets: a last line without a line feed or a byte 0xFF (the writer drops\n"
    "what follows), a line that only begins with KEY (it would be replaced), a\n"
    "section header that differs in case, blanks or a carriage return (the\n"
    "value would go to a second section), a key, section or value holding a\n"
    "line break, '=' or ']', a one-character key, or any value that readers\n"
    "would not get back.\n"
    "  --force            write anyway\n",
    {{"--force", false}},
    4,
    4,
};

// The path the library uses for FILE, and how messages name it.
struct IniPath {
  std::string used;
  std::string shown;
};

IniPath Locate(const std::string& file) {
  if (file.find('/') != std::string::npos) return {file, file};
  const std::string used = PreferencesPath(file);
  return {used, used + " (" + file + " in the preferences directory)"};
}

// Reads KEY through the library's reader from the file at `path` (which
// has a '/'); nullopt when the key is missing. The destination holds the
// whole file, so no value can be cut.
std::optional<std::string> ReadKey(const std::string& path, const std::string& section,
                                   const std::string& key, std::size_t file_size) {
  const std::size_t capacity = file_size + 1;
  // The reader leaves the destination alone when nothing is found: a mark
  // that no value can hold tells a missing key from an empty value.
  std::vector<char> value(capacity + 1, '\0');
  value[0] = '\x01';
  if (vln_GetIniInfo(section.c_str(), key.c_str(), value.data(), 's',
                     static_cast<std::uint32_t>(capacity), path.c_str()) == nullptr ||
      (value[0] == '\x01' && value[1] == '\0')) {
    return std::nullopt;
  }
  return std::string(value.data());
}

// The library's reader on a file content, through a scratch file.
std::optional<std::string> ReadFromContent(const std::string& content, const std::string& section,
                                           const std::string& key) {
  ScratchDirectory scratch("", "kt-ini-");
  if (!scratch.ok()) return std::nullopt;
  const std::string path = scratch.File("check.ini");
  std::FILE* out = std::fopen(path.c_str(), "wb");
  if (out == nullptr) return std::nullopt;
  const bool written = std::fwrite(content.data(), 1, content.size(), out) == content.size();
  if (std::fclose(out) != 0 || !written) return std::nullopt;
  return ReadKey(path, section, key, content.size());
}

int Get(Context&, const ParsedArgs& args) {
  const IniPath path = Locate(args.positional[0]);
  const std::string& section = args.positional[1];
  const std::string& key = args.positional[2];
  std::string error;
  const std::optional<std::string> content = ReadInput(path.used, &error);
  if (!content)
    return Failure(kIniGetSyntax.name,
                   error + (path.used != path.shown
                                ? " (" + args.positional[0] + " in the preferences directory)"
                                : ""),
                   path.used);
  const std::optional<std::string> value = ReadKey(path.used, section, key, content->size());
  if (!value) {
    return Failure(kIniGetSyntax.name,
                   "no key " + key + " in section " + section + " of " + path.shown, path.used);
  }
  std::printf("%s\n", value->c_str());
  return kExitOk;
}

int Set(Context&, const ParsedArgs& args) {
  const IniPath path = Locate(args.positional[0]);
  const std::string& section = args.positional[1];
  const std::string& key = args.positional[2];
  const std::string& value = args.positional[3];
  // Through a link the target is written, so that the link stays a link.
  std::string target = OutputTarget(path.used);
  if (target.find('/') == std::string::npos) target = "./" + target;

  std::optional<std::string> content;
  struct stat info;
  const bool exists = stat(target.c_str(), &info) == 0;
  if (exists || errno != ENOENT) {
    std::string error;
    content = ReadInput(target, &error);
    if (!content) {
      return Failure(kIniSetSyntax.name, error + "; " + path.shown + " left as it was", path.used);
    }
  }
  if (!args.Has("--force")) {
    if (const std::optional<std::string> problem =
            CheckIniWrite(content, section, key, value, ReadFromContent)) {
      return Failure(kIniSetSyntax.name,
                     path.shown + ": " + *problem + "; nothing written (--force writes anyway)",
                     path.used);
    }
  }
  // The writer's temporary file, and the lock that serialises writers, lie
  // in the preferences directory: the target's own directory keeps the
  // rename on one file system and makes writers of one directory share the
  // lock.
  {
    ScopedEnvironment preferences("KT_PREFERENCES_DIR", SplitPath(target).directory);
    errno = 0;
    if (KT_bEcrireChaineIni(section.c_str(), key.c_str(), value.c_str(), target.c_str()) != 1) {
      const std::string reason = errno != 0 ? std::string(": ") + std::strerror(errno) : "";
      return Failure(kIniSetSyntax.name,
                     "cannot write " + path.shown + reason + " (it is left as it was)", path.used);
    }
  }
  if (exists && chmod(target.c_str(), info.st_mode & 07777) != 0) {
    return Failure(kIniSetSyntax.name,
                   SystemError("written, but cannot give " + path.shown + " its mode back", errno),
                   path.used);
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
