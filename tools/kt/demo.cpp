// kt demo: the library at work on the embedded sample dictionary, from the
// configuration to the shut-down, with every file left in one directory.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <string_view>

#include "kt.h"
#include "kt_sample_dictionary.h"  // generated from tests/data/sample_dictionary.txt
#include "tools/kt/dictionary_source.h"
#include "tools/kt/output.h"
#include "tools/kt/status_text.h"
#include "tools/kt/tables_file.h"
#include "tools/kt/tool.h"
#include "tools/kt/workspace.h"
#include "tools/kt/zone_report.h"

namespace kt::tool {
namespace {

const CommandSyntax kDemoSyntax = {
    "demo",
    "[--dir DIR]",
    "Shows the library at work on an embedded sample dictionary: writes a\n"
    "configuration (volen.ini) and the tables file tablebin.vkt, activates\n"
    "the trace file, starts the library, builds a message zone and checks its\n"
    "syntax and format, shows zones that fail format control and what their\n"
    "codes point at, reads the version files back and stops the library.\n"
    "Every file stays in DIR (default: a new directory under $TMPDIR or /tmp).\n"
    "  --dir DIR          the directory to work in (made when missing)\n",
    {{"--dir", true}},
    0,
    0,
};

// A group of a zone, as the demo writes it.
struct DemoGroup {
  std::uint16_t id;
  std::vector<std::string_view> fields;
};

// Builds a zone with the library's editing functions, growing it when it is
// full, and hands back its bytes (the zone and its buffer are released).
std::vector<std::uint8_t> BuildZone(const std::vector<DemoGroup>& groups, std::uint16_t* status) {
  std::uint16_t zone = 0;
  std::uint32_t capacity = 16;
  std::uint16_t us = KT_usCreerZoneMemoire(capacity, 1, &zone);
  const auto grow = [&](const auto& change) {
    std::uint16_t result = change();
    while (result == KT_ERR_PLACE_ZONE) {
      capacity *= 2;
      result = KT_usRedimensionner(zone, capacity);
      if (result == KT_OK) result = change();
    }
    return result;
  };
  for (const DemoGroup& group : groups) {
    if (us == KT_OK) us = grow([&] { return KT_usAjouterGroupe(zone, group.id); });
    for (const std::string_view field : group.fields) {
      const auto* bytes = reinterpret_cast<const std::uint8_t*>(field.data());
      if (us == KT_OK) {
        us = grow([&] {
          return KT_usAjouterChamp(zone, bytes, static_cast<std::uint32_t>(field.size()));
        });
      }
    }
  }
  std::vector<std::uint8_t> result;
  std::uint8_t* buffer = nullptr;
  std::uint32_t length = 0;
  if (KT_pucLireBuffer(zone, &length, &buffer) == KT_OK && buffer != nullptr) {
    result.assign(buffer, buffer + length);
  }
  (void)KT_usLibererZoneMemoire(zone);
  KT_Liberer(buffer);  // a released zone leaves its buffer to us
  *status = us;
  return result;
}

const std::vector<DemoGroup> kMessage = {
    {10, {"123456", "DUPONT JEAN", "20240131"}},
    {20, {"ACHAT", "1500"}},
    {30, {"LIVRAISON LE MATIN"}},
};

struct FailingZone {
  const char* what;
  std::vector<DemoGroup> groups;
};

const std::vector<FailingZone> kFailing = {
    {"an order of a kind the dictionary does not list",
     {{10, {"123456", "DUPONT JEAN", "20240131"}}, {20, {"DON", "1500"}}}},
    {"a group the dictionary does not know",
     {{10, {"123456", "DUPONT JEAN", "20240131"}}, {40, {"X"}}}},
    {"an order without its amount", {{20, {"VENTE"}}}},
};

// Prints a line of the report: a label in a column, then the text.
void Line(const char* label, const std::string& text) {
  std::printf("%-16s%s\n", label, text.c_str());
}

// The bytes in hexadecimal, 24 to a line, under the text column.
void HexLines(const std::vector<std::uint8_t>& bytes) {
  constexpr std::size_t kPerLine = 24;
  for (std::size_t at = 0; at < bytes.size(); at += kPerLine) {
    Line("", "  " + HexBytes(bytes.data() + at, std::min(kPerLine, bytes.size() - at)));
  }
}

class Demo {
 public:
  explicit Demo(std::string root) : root_(std::move(root)) {}

  int Run(Context& context) {
    std::printf("kt demo: the library at work, in %s\n\n", root_.c_str());
    for (const char* folder : {"preferences", "work", "tables"}) {
      std::error_code error;
      std::filesystem::create_directories(Path(folder), error);
      if (error) return Failure(kDemoSyntax.name, "cannot make " + Path(folder));
    }
    session_.emplace(Path("preferences"));
    if (!Configure() || !Compile() || !Trace(context) || !Start()) return kExitFailed;
    bool ok = Zones();
    ok = Versions() && ok;
    session_->Stop();
    Line("shut-down", "KT_usTermLIB: the dictionary is released");
    context.StopTrace();
    std::printf("\nfiles\n");
    Line("  configuration", Path("preferences/volen.ini"));
    Line("  tables file", Path("tables/tablebin.vkt"));
    Line("  version files", Path("work/92.adm") + ", " + Path("work/93.adm"));
    Line("  trace", context.trace_path);
    // The kt that runs, which need not be on PATH: the line runs as shown.
    std::printf("\nnext: %s tables dump %s\n", RunningProgram().c_str(),
                Path("tables/tablebin.vkt").c_str());
    return ok ? kExitOk : kExitFailed;
  }

 private:
  std::string Path(const std::string& name) const { return root_ + "/" + name; }

  bool Configure() {
    if (!session_->Configure(Path("work"), Path("tables"))) {
      Failure(kDemoSyntax.name, "cannot write " + Path("preferences/volen.ini"));
      return false;
    }
    Line("configuration", Path("preferences/volen.ini") + " (KT_PREFERENCES_DIR)");
    Line("", "[commun] repertoiretravail=" + Path("work"));
    Line("", "         repertoiretable=" + Path("tables"));
    return true;
  }

  bool Compile() {
    const std::string_view text(reinterpret_cast<const char*>(kSampleDictionary),
                                sizeof kSampleDictionary);
    DictionarySource source;
    std::vector<SourceError> errors;
    if (!ParseDictionarySource(text, &source, &errors)) {
      Failure(kDemoSyntax.name, "the embedded sample does not parse: line " +
                                    std::to_string(errors[0].line) + ": " + errors[0].message);
      return false;
    }
    const std::uint16_t us = CompileTablesFile(Path("tables"), "tablebin.vkt", source, {});
    TablesFile file;
    if (us != KT_OK || file.Open(Path("tables/tablebin.vkt"), Control::kCrc) != KT_OK) {
      Failure(kDemoSyntax.name, "cannot write the tables file: status " + StatusText(us));
      return false;
    }
    Line("tables file", Path("tables/tablebin.vkt"));
    Line("", Plural(RecordCount(source, "TGROUPE"), "group") + ", " +
                 Plural(RecordCount(source, "TCHAMP"), "field") + ", " +
                 Plural(RecordCount(source, "TVALEUR"), "allowed value") + ", " +
                 Plural(file.length(), "byte") + ", " + file.check().Describe());
    return true;
  }

  bool Trace(Context& context) {
    if (!context.trace_active) {
      context.trace_path = Path("kt-demo.trace");
      if (!context.StartTrace(kDemoSyntax.name, {})) return false;
    }
    Line("traces", context.trace_path + " (module 1, sub-modules 1 to 8, level " +
                       std::to_string(context.trace_level) + ")");
    return true;
  }

  bool Start() {
    const std::uint16_t us = session_->Start();
    if (us != KT_OK) {
      Failure(kDemoSyntax.name, "KT_usInitLIB failed: status " + StatusText(us));
      return false;
    }
    Line("start-up", "KT_usInitLIB: library version " + session_->library_version() +
                         ", tables file version " + session_->tables_version());
    return true;
  }

  bool Zones() {
    std::uint16_t built = KT_OK;
    const std::vector<std::uint8_t> message = BuildZone(kMessage, &built);
    const ZoneCheck check = CheckZone(message, true);
    Line("message zone",
         "groups 10, 20 and 30 built with KT_usAjouterGroupe and "
         "KT_usAjouterChamp: " +
             Plural(message.size(), "byte"));
    HexLines(message);
    const bool good = built == KT_OK && check.syntax == KT_OK && check.format == KT_OK;
    Line("", "syntax control " + StatusText(check.syntax) + ", format control " +
                 StatusText(check.format.value_or(check.syntax)));
    bool failures_found = true;
    for (const FailingZone& zone : kFailing) {
      const std::vector<std::uint8_t> bytes = BuildZone(zone.groups, &built);
      const ZoneCheck failing = CheckZone(bytes, true);
      Line("failing zone", std::string(zone.what) + ", " + Plural(bytes.size(), "byte"));
      HexLines(bytes);
      if (failing.syntax != KT_OK || !failing.format || *failing.format == KT_OK) {
        failures_found = false;
        Line("", "unexpected: syntax " + StatusText(failing.syntax));
        continue;
      }
      Line("", "format control " + StatusText(*failing.format));
      Line("", "  " + failing.finding.Describe());
    }
    return good && failures_found;
  }

  bool Versions() {
    bool ok = true;
    for (const auto& [component, what] :
         {std::pair<std::int8_t, const char*>{92, "the library"}, {93, "the tables file"}}) {
      char* content = nullptr;
      std::uint32_t length = 0;
      const std::uint16_t us = KT_usLireVersionComposant(component, &content, &length);
      const std::string text = us == KT_OK ? std::string(content, length) : "";
      KT_Liberer(content);
      const std::string path = Path("work/" + std::to_string(component) + ".adm");
      if (us != KT_OK) {
        ok = false;
        Line("version file", path + ": status " + StatusText(us));
      } else {
        Line("version file", path + ": \"" + text + "\" (" + what + ")");
      }
    }
    return ok;
  }

  std::string root_;
  std::optional<LibrarySession> session_;
};

int Run(Context& context, const ParsedArgs& args) {
  std::string root = args.Get("--dir");
  std::optional<ScratchDirectory> scratch;
  if (root.empty()) {
    scratch.emplace("", "kt-demo.");
    if (!scratch->ok()) return Failure(kDemoSyntax.name, "cannot make a directory under $TMPDIR");
    scratch->Keep();
    root = scratch->path();
  }
  std::error_code error;
  root = std::filesystem::absolute(root, error).lexically_normal().string();
  while (root.size() > 1 && root.back() == '/') root.pop_back();
  return Demo(root).Run(context);
}

}  // namespace

int RunDemo(Context& context, Arguments words) {
  return ParseAndRun(kDemoSyntax, Run, context, words);
}

}  // namespace kt::tool
