// kt zone check | dump: memory zones given as bytes (a file or hexadecimal).
#include <cstdio>
#include <filesystem>

#include "kt_frame.h"
#include "tools/kt/output.h"
#include "tools/kt/status_text.h"
#include "tools/kt/tool.h"
#include "tools/kt/workspace.h"
#include "tools/kt/zone_report.h"

namespace kt::tool {
namespace {

const CommandSyntax kZoneCheckSyntax = {
    "zone check",
    "[--tables DIR] [--json] (--hex HEX | FILE)",
    "Runs the library's syntax control on a memory zone and, with --tables,\n"
    "its format control against the dictionary of DIR/tablebin.vkt (the library\n"
    "is started on a scratch configuration naming DIR). A failure names the\n"
    "group, the field and the rule. Exit status 1 when a control fails.\n"
    "  --tables DIR       directory of the tables file \"tablebin.vkt\"\n"
    "  --hex HEX          the zone's bytes in hexadecimal (blanks and colons allowed)\n"
    "  --json             the result as one JSON document\n",
    {{"--tables", true}, {"--hex", true}, {"--json", false}},
    0,
    1,
};

const CommandSyntax kZoneDumpSyntax = {
    "zone dump",
    "[--json] (--hex HEX | FILE)",
    "Shows a memory zone's groups and fields with their offsets, lengths and\n"
    "values (text when printable, else hexadecimal), up to the first fault of\n"
    "form, which is named. Exit status 1 when the zone is not well formed.\n"
    "  --hex HEX          the zone's bytes in hexadecimal\n"
    "  --json             the same as one JSON document\n",
    {{"--hex", true}, {"--json", false}},
    0,
    1,
};

// The zone's bytes from --hex or the file; false after a printed error, with
// *status the exit status to return.
bool ZoneBytes(const CommandSyntax& syntax, const ParsedArgs& args,
               std::vector<std::uint8_t>* bytes, int* status) {
  if (args.Has("--hex") == !args.positional.empty()) {
    *status = UsageError(syntax, "give the zone as --hex HEX or as a FILE, one of them");
    return false;
  }
  if (args.Has("--hex")) {
    if (!ParseHex(args.Get("--hex"), bytes)) {
      *status = UsageError(syntax, "--hex takes pairs of hexadecimal digits");
      return false;
    }
    return true;
  }
  std::string error;
  const std::optional<std::string> content = ReadInput(args.positional[0], &error);
  if (!content) {
    *status = Failure(syntax.name, error, ShownPath(args.positional[0]));
    return false;
  }
  bytes->assign(content->begin(), content->end());
  return true;
}

void FaultJson(Json& json, const SyntaxFault& fault) {
  json.Key("fault")
      .BeginObject()
      .Field("group", fault.group)
      .Field("id", fault.id)
      .Field("field", fault.field)
      .Field("offset", fault.offset)
      .Field("rule", fault.rule)
      .EndObject();
}

int Check(Context&, const ParsedArgs& args) {
  std::vector<std::uint8_t> bytes;
  int status = kExitOk;
  if (!ZoneBytes(kZoneCheckSyntax, args, &bytes, &status)) return status;

  const bool with_format = args.Has("--tables");
  std::optional<ScratchDirectory> scratch;
  std::optional<LibrarySession> session;
  if (with_format) {
    // Start-up reads its directories from "volen.ini": give it one of ours.
    std::error_code error;
    const std::string tables = std::filesystem::absolute(args.Get("--tables"), error).string();
    std::string unreadable;
    if (!CheckReadable(args.Get("--tables") + "/tablebin.vkt", &unreadable)) {
      return Failure(kZoneCheckSyntax.name, unreadable, args.Get("--tables") + "/tablebin.vkt");
    }
    scratch.emplace("", "kt-zone-");
    if (!scratch->ok() || !std::filesystem::create_directory(scratch->File("work"), error)) {
      return Failure(kZoneCheckSyntax.name, "cannot make a scratch directory");
    }
    session.emplace(scratch->path());
    if (!session->Configure(scratch->File("work"), tables)) {
      return Failure(kZoneCheckSyntax.name, "cannot write the scratch volen.ini");
    }
    const std::uint16_t us = session->Start();
    if (us != KT_OK) {
      return Failure(kZoneCheckSyntax.name, "cannot start the library on " + tables +
                                                "/tablebin.vkt: status " + StatusText(us));
    }
  }
  const ZoneCheck check = CheckZone(bytes, with_format);
  const bool good = check.syntax == KT_OK && check.format.value_or(KT_OK) == KT_OK;

  if (args.Has("--json")) {
    Json json;
    json.BeginObject().Field("length", static_cast<std::int64_t>(bytes.size()));
    json.Key("syntax")
        .BeginObject()
        .Field("status", "0x" + Hex4(check.syntax))
        .Flag("good", check.syntax == KT_OK);
    if (check.syntax != KT_OK) FaultJson(json, check.fault);
    json.EndObject().Key("format");
    if (!check.format) {
      json.Null();
    } else {
      const FormatFinding& finding = check.finding;
      json.BeginObject()
          .Field("status", "0x" + Hex4(*check.format))
          .Flag("good", *check.format == KT_OK);
      if (*check.format != KT_OK) {
        static constexpr const char* kKinds[] = {"other", "field", "group", "field_count"};
        json.Field("kind", kKinds[static_cast<int>(finding.code.kind)])
            .Field("position", finding.code.position)
            .Field("group", finding.group)
            .Field("id", finding.id)
            .Field("field", finding.field)
            .Field("rule", finding.rule);
      }
      json.EndObject();
    }
    json.Flag("good", good).EndObject();
    std::printf("%s\n", json.text().c_str());
  } else {
    if (check.syntax == KT_OK) {
      std::printf("syntax   good (%zu bytes)\n", bytes.size());
    } else {
      std::printf("syntax   bad: %s\n", StatusText(check.syntax).c_str());
      if (check.fault.found) std::printf("         %s\n", check.fault.Describe().c_str());
    }
    if (check.format && *check.format == KT_OK) {
      std::printf("format   good (dictionary version %s)\n", session->tables_version().c_str());
    } else if (check.format) {
      std::printf("format   bad: %s\n", StatusText(*check.format).c_str());
      if (!check.finding.rule.empty()) {
        std::printf("         %s\n", check.finding.Describe().c_str());
      }
    } else if (check.syntax == KT_OK && !with_format) {
      std::printf("format   not checked (no --tables)\n");
    }
  }
  return good ? kExitOk : kExitFailed;
}

int Dump(Context&, const ParsedArgs& args) {
  std::vector<std::uint8_t> bytes;
  int status = kExitOk;
  if (!ZoneBytes(kZoneDumpSyntax, args, &bytes, &status)) return status;
  SyntaxFault fault;
  const std::vector<ZoneGroup> groups = WalkZone(bytes, &fault);
  const std::uint16_t syntax = CheckZone(bytes, false).syntax;
  const auto value = [&](const ZoneField& field) {
    return bytes.data() + field.offset + field.header;
  };

  if (args.Has("--json")) {
    Json json;
    json.BeginObject().Field("length", static_cast<std::int64_t>(bytes.size()));
    json.Key("groups").BeginArray();
    for (std::size_t g = 0; g < groups.size(); ++g) {
      const ZoneGroup& group = groups[g];
      json.BeginObject()
          .Field("rank", static_cast<std::int64_t>(g + 1))
          .Field("id", group.id)
          .Field("offset", group.offset)
          .Field("header", group.header)
          .Field("length", group.length)
          .Key("fields")
          .BeginArray();
      for (std::size_t f = 0; f < group.fields.size(); ++f) {
        const ZoneField& field = group.fields[f];
        json.BeginObject()
            .Field("number", static_cast<std::int64_t>(f + 1))
            .Field("offset", field.offset)
            .Field("length", field.length);
        if (IsPrintable(value(field), field.length)) {
          json.Field("text",
                     std::string(reinterpret_cast<const char*>(value(field)), field.length));
        } else {
          json.Field("hex", HexBytes(value(field), field.length, true));
        }
        json.EndObject();
      }
      json.EndArray().EndObject();
    }
    json.EndArray()
        .Key("syntax")
        .BeginObject()
        .Field("status", "0x" + Hex4(syntax))
        .Flag("good", syntax == KT_OK);
    if (fault.found) FaultJson(json, fault);
    json.EndObject().EndObject();
    std::printf("%s\n", json.text().c_str());
  } else {
    std::size_t fields = 0;
    for (const ZoneGroup& group : groups) fields += group.fields.size();
    std::printf("zone of %s: %s, %s\n", Plural(bytes.size(), "byte").c_str(),
                Plural(groups.size(), "group").c_str(), Plural(fields, "field").c_str());
    for (std::size_t g = 0; g < groups.size(); ++g) {
      const ZoneGroup& group = groups[g];
      std::printf("group %zu  id %u (0x%04X) at %u: header %u bytes, fields %u bytes\n", g + 1,
                  group.id, group.id, group.offset, group.header, group.length);
      for (std::size_t f = 0; f < group.fields.size(); ++f) {
        const ZoneField& field = group.fields[f];
        std::printf("  field %zu  at %u, %s: %s\n", f + 1, field.offset,
                    Plural(field.length, "byte").c_str(),
                    PrintableOrHex(value(field), field.length).c_str());
      }
    }
    if (syntax == KT_OK) {
      std::printf("syntax control: good\n");
    } else {
      std::printf("syntax control: bad, %s\n", StatusText(syntax).c_str());
      if (fault.found) std::printf("  %s\n", fault.Describe().c_str());
    }
  }
  return syntax == KT_OK ? kExitOk : kExitFailed;
}

}  // namespace

int RunZoneCheck(Context& context, Arguments words) {
  return ParseAndRun(kZoneCheckSyntax, Check, context, words);
}
int RunZoneDump(Context& context, Arguments words) {
  return ParseAndRun(kZoneDumpSyntax, Dump, context, words);
}

}  // namespace kt::tool
