// kt tables compile | dump: dictionary descriptions into tables files, and
// tables files back into readable form with their checks.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <map>
#include <set>

#include "kt_binfiles.h"
#include "tools/kt/dictionary_source.h"
#include "tools/kt/output.h"
#include "tools/kt/status_text.h"
#include "tools/kt/tables_file.h"
#include "tools/kt/tool.h"
#include "tools/kt/workspace.h"

namespace kt::tool {
namespace {

// The header keeps 12 characters of the file's name and the opener compares
// them with the whole name.
constexpr std::size_t kMaxFileName = 12;
// Bytes of a table that is not the dictionary's shown by a dump.
constexpr std::uint32_t kPreviewBytes = 64;
// The library's own version, which start-up compares with the file's two.
constexpr const char* kLibraryVersion = "0100";

const CommandSyntax kTablesCompileSyntax = {
    "tables compile",
    "SOURCE -o FILE [--control none|crc|signature] [--key KEYFILE]",
    "Compiles a dictionary description (its format: kt(1), DESCRIPTION FORMAT) into\n"
    "a tables file, as start-up reads \"tablebin.vkt\". Every problem of the\n"
    "description is reported with its line; nothing is written then. The file\n"
    "is made beside FILE and put in its place only when complete.\n"
    "  -o, --out FILE     the tables file (its name: at most 12 characters)\n"
    "  --control KIND     crc (default), signature (needs --key) or none\n"
    "  --key KEYFILE      private-key file that signs the file at its close\n",
    {{"-o", true}, {"--out", true}, {"--control", true}, {"--key", true}},
    1,
    1,
};

const CommandSyntax kTablesDumpSyntax = {
    "tables dump",
    "FILE [--control auto|none|crc|signature] [--json | --source]",
    "Shows a tables file: its header line, the result of its check (CRC or\n"
    "signature against the built-in public key), every table with its records\n"
    "(other tables than the dictionary's: their first 64 bytes), and a\n"
    "dictionary file as groups, fields and values, with the consistency of its\n"
    "index ranges. Exit status 1 when the check or the dictionary fails.\n"
    "  --control KIND     the check to make; auto (default) finds it out\n"
    "  --json             the same as one JSON document\n"
    "  --source           only the dictionary, as a description that\n"
    "                     `kt tables compile` takes back\n",
    {{"--control", true}, {"--json", false}, {"--source", false}},
    1,
    1,
};

// ------------------------------------------------------------------------
// compile

int Compile(Context&, const ParsedArgs& args) {
  const std::string output = args.Get("--out", args.Get("-o"));
  if (output.empty()) return UsageError(kTablesCompileSyntax, "-o FILE is required");
  Control control = Control::kCrc;
  if (args.Has("--control") && !ParseControl(args.Get("--control"), &control)) {
    return UsageError(kTablesCompileSyntax, "--control is none, crc or signature");
  }
  const std::string key = args.Get("--key");
  if ((control == Control::kSignature) != !key.empty()) {
    return UsageError(kTablesCompileSyntax,
                      "--key goes with --control signature, and only with it");
  }
  const PathParts parts = SplitPath(output);
  if (parts.name.empty() || parts.name.size() > kMaxFileName) {
    return UsageError(kTablesCompileSyntax,
                      "the file's name must have 1 to 12 characters: the header "
                      "keeps 12 and the opener compares them with the name");
  }
  std::string key_error;
  if (!key.empty() && !CheckSigningKey(key, &key_error)) {
    return Failure(kTablesCompileSyntax.name, key_error + "; nothing written", key);
  }
  const std::string& source_path = args.positional[0];
  std::string read_error;
  const std::optional<std::string> text = ReadInput(source_path, &read_error);
  if (!text) return Failure(kTablesCompileSyntax.name, read_error, ShownPath(source_path));

  DictionarySource source;
  std::vector<SourceError> errors;
  if (!ParseDictionarySource(*text, &source, &errors)) {
    for (const SourceError& error : errors) {
      std::fprintf(stderr, "%s:%d: %s\n", ShownPath(source_path).c_str(), error.line,
                   Escape(error.message).c_str());
    }
    return Failure(
        kTablesCompileSyntax.name,
        Plural(errors.size(), "problem") + " in " + ShownPath(source_path) + ", nothing written",
        ShownPath(source_path));
  }

  // Written aside, then renamed: a failure leaves an existing FILE as it was.
  // Through a link the target is replaced; the header keeps the name the
  // file is opened by, the link's.
  const std::string target = OutputTarget(output);
  const std::string target_directory = SplitPath(target).directory;
  ScratchDirectory scratch(target_directory, ".kt-compile-");
  if (!scratch.ok()) {
    return Failure(kTablesCompileSyntax.name,
                   SystemError("cannot write in " + target_directory, errno), target_directory);
  }
  Progress progress("compiling " + output);
  CompileOptions options;
  options.control = ControlType(control);
  options.key_file = key;
  options.progress = [&](std::uint64_t done, std::uint64_t total) { progress.Update(done, total); };
  const std::uint16_t us = CompileTablesFile(scratch.path(), parts.name, source, options);
  if (us != KT_OK) {
    return Failure(kTablesCompileSyntax.name,
                   "cannot write " + output + ": status " +
                       StatusText(us, "the CRC or the signature could not be made") + "; " +
                       output + " left as it was",
                   output, us);
  }
  std::string mode_error;
  if (!KeepMode(target, scratch.File(parts.name), &mode_error)) {
    return Failure(kTablesCompileSyntax.name, mode_error, output);
  }
  std::error_code error;
  std::filesystem::rename(scratch.File(parts.name), target, error);
  if (error) {
    return Failure(kTablesCompileSyntax.name,
                   "cannot put " + output + " in place: " + error.message(), output);
  }

  TablesFile written;
  const std::uint16_t opened = written.Open(output, control);
  std::printf("wrote %s: %s, %s, %s, %s, control %s\n", output.c_str(),
              Plural(RecordCount(source, "TGROUPE"), "group").c_str(),
              Plural(RecordCount(source, "TCHAMP"), "field").c_str(),
              Plural(RecordCount(source, "TVALEUR"), "value").c_str(),
              Plural(written.length(), "byte").c_str(), written.check().Describe().c_str());
  if (opened == KT_ERR_CONTROLE && control == Control::kSignature) {
    std::printf(
        "note: the library's built-in public key does not verify this signature "
        "(is %s the pair of another public key?)\n",
        key.c_str());
  } else if (opened != KT_OK) {
    return Failure(kTablesCompileSyntax.name,
                   "the file written does not open: " + StatusText(opened));
  }
  return kExitOk;
}

// ------------------------------------------------------------------------
// dump

struct GroupRecord {
  std::uint16_t id = 0;
  std::uint16_t first = 0;
  std::uint16_t count = 0;
};

struct FieldRecord {
  std::int32_t code = 0;
  std::uint16_t min = 0;
  std::uint16_t max = 0;
  std::int8_t type = 0;
  std::int32_t attribute = 0;
  std::uint16_t first = 0;
  std::uint16_t count = 0;
};

struct TableInfo {
  std::string name;
  std::uint32_t offset = 0;       // of its header
  std::uint32_t data_offset = 0;  // of its first record
  std::uint32_t data_size = 0;
  std::uint32_t records = 0;
  std::vector<std::uint8_t> preview;  // tables other than the dictionary's
};

struct Dump {
  std::vector<TableInfo> tables;
  std::vector<GroupRecord> groups;
  std::vector<FieldRecord> fields;
  std::vector<std::string> values;
  std::set<std::string> dictionary_tables;  // the names among the three that the file has
  std::vector<std::string> problems;
  bool consecutive = false;
  DictionarySource source;  // when consecutive
};

std::uint16_t ReadRecord(std::uint16_t file, GroupRecord* record) {
  std::uint16_t us = KT_usLireUnsignedShort(file, &record->id);
  if (us == KT_OK) us = KT_usLireUnsignedShort(file, &record->first);
  if (us == KT_OK) us = KT_usLireUnsignedShort(file, &record->count);
  return us;
}

std::uint16_t ReadRecord(std::uint16_t file, FieldRecord* record) {
  std::uint16_t us = KT_usLireSignedLong(file, &record->code);
  if (us == KT_OK) us = KT_usLireUnsignedShort(file, &record->min);
  if (us == KT_OK) us = KT_usLireUnsignedShort(file, &record->max);
  if (us == KT_OK) us = KT_usLireSignedChar(file, &record->type);
  if (us == KT_OK) us = KT_usLireSignedLong(file, &record->attribute);
  if (us == KT_OK) us = KT_usLireUnsignedShort(file, &record->first);
  if (us == KT_OK) us = KT_usLireUnsignedShort(file, &record->count);
  return us;
}

std::uint16_t ReadRecord(std::uint16_t file, std::string* value) {
  char* text = nullptr;
  const std::uint16_t us = KT_usLireChaineVariable(file, &text);
  // After a failure the block may be unterminated: only a good one is read.
  if (us == KT_OK && text != nullptr) *value = text;
  KT_Liberer(text);
  return us;
}

std::uint32_t Position(std::uint16_t file) {
  std::int32_t position = 0;
  (void)KT_usLirePositionFichier(file, &position);
  return static_cast<std::uint32_t>(position);
}

// Reads the records of one dictionary table, never past the table's end.
template <class Record>
void ReadRecords(std::uint16_t file, const TableInfo& table, std::uint32_t end,
                 std::vector<Record>* records, Dump* dump, Progress* progress,
                 std::uint32_t data_end) {
  for (std::uint32_t i = 0; i < table.records && Position(file) < end; ++i) {
    Record record{};
    const std::uint16_t us = ReadRecord(file, &record);
    if (us != KT_OK) {
      dump->problems.push_back(table.name + " record " + std::to_string(i) +
                               " cannot be read: status " + StatusText(us));
      break;
    }
    records->push_back(std::move(record));
    progress->Update(Position(file), data_end);
  }
  if (records->size() != table.records) {
    dump->problems.push_back(table.name + " announces " + std::to_string(table.records) +
                             " records; " + std::to_string(records->size()) + " read");
  }
  const std::uint32_t used = Position(file) - table.data_offset;
  if (used != table.data_size) {
    dump->problems.push_back(table.name + " records take " + std::to_string(used) +
                             " bytes; its header says " + std::to_string(table.data_size));
  }
}

void ReadTables(const TablesFile& file, Dump* dump) {
  const std::uint16_t number = file.number();
  const std::uint32_t data_end = file.data_end();
  Progress progress("reading " + file.header().name);
  std::set<std::string> seen;
  while (Position(number) < data_end) {
    TableInfo table;
    table.offset = Position(number);
    EnteteTable header;
    const std::uint16_t us = KT_usLireEnteteTable(number, &header);
    if (us != KT_OK) {
      dump->problems.push_back("the table header at offset " + std::to_string(table.offset) +
                               " cannot be read: status " + StatusText(us));
      break;
    }
    table.name = header.cNom;
    table.data_offset = Position(number);
    table.data_size = header.ulTailleDonnees;
    table.records = header.ulNbEnregistrements;
    const std::uint64_t end = std::uint64_t{table.data_offset} + table.data_size;
    if (end > data_end) {
      dump->problems.push_back(table.name + " claims " + std::to_string(table.data_size) +
                               " bytes; the file holds " +
                               std::to_string(data_end - table.data_offset) + " after its header");
    }
    const std::uint32_t stop = static_cast<std::uint32_t>(std::min<std::uint64_t>(end, data_end));
    // A dictionary table met again is shown as any other table.
    const bool first_of_name = seen.insert(table.name).second;
    if (first_of_name &&
        (table.name == "TGROUPE" || table.name == "TCHAMP" || table.name == "TVALEUR")) {
      dump->dictionary_tables.insert(table.name);
    }
    if (table.name == "TGROUPE" && first_of_name) {
      ReadRecords(number, table, stop, &dump->groups, dump, &progress, data_end);
    } else if (table.name == "TCHAMP" && first_of_name) {
      ReadRecords(number, table, stop, &dump->fields, dump, &progress, data_end);
    } else if (table.name == "TVALEUR" && first_of_name) {
      ReadRecords(number, table, stop, &dump->values, dump, &progress, data_end);
    } else {
      std::uint8_t* bytes = nullptr;
      const std::uint32_t shown = std::min(kPreviewBytes, stop - table.data_offset);
      if (shown > 0 && KT_usLireFichierBinaire(number, table.data_offset, shown, &bytes) == KT_OK &&
          bytes != nullptr) {
        table.preview.assign(bytes, bytes + shown);
      }
      KT_Liberer(bytes);
    }
    dump->tables.push_back(table);
    if (end > data_end ||
        KT_usPositionnerOffset(number, static_cast<std::int32_t>(end), SEEK_SET) != KT_OK) {
      break;
    }
    progress.Update(static_cast<std::uint32_t>(end), data_end);
  }
}

std::string GroupName(const Dump& dump, std::size_t index) {
  return "group #" + std::to_string(index) + " (id " + std::to_string(dump.groups[index].id) + ")";
}

// Start-up's view: the first three tables, the versions, and index ranges
// that follow one another.
void CheckDictionary(const TablesFile& file, Dump* dump) {
  std::vector<std::string> first_three;
  for (std::size_t i = 0; i < dump->tables.size() && i < 3; ++i) {
    first_three.push_back(dump->tables[i].name);
  }
  std::sort(first_three.begin(), first_three.end());
  if (first_three != std::vector<std::string>{"TCHAMP", "TGROUPE", "TVALEUR"}) {
    dump->problems.push_back(
        "start-up reads the first three tables, which must be TGROUPE, "
        "TCHAMP and TVALEUR in any order");
  }
  if (file.header().version < kLibraryVersion || file.header().required_version > kLibraryVersion) {
    dump->problems.push_back("versions " + file.header().version + " and " +
                             file.header().required_version + " do not fit the library's " +
                             kLibraryVersion + ": start-up refuses the file (" +
                             StatusText(KT_ERR_VERSION) + ")");
  }
  bool consecutive = true;
  std::uint32_t next_field = 0;
  std::map<std::uint16_t, std::size_t> seen;
  for (std::size_t i = 0; i < dump->groups.size(); ++i) {
    const GroupRecord& group = dump->groups[i];
    if (group.first != next_field) {
      consecutive = false;
      dump->problems.push_back(GroupName(*dump, i) + " starts at field " +
                               std::to_string(group.first) + "; the ranges before it end at " +
                               std::to_string(next_field));
    }
    next_field = group.first + std::uint32_t{group.count};
    if (next_field > dump->fields.size()) {
      consecutive = false;
      dump->problems.push_back(GroupName(*dump, i) + " lists fields up to " +
                               std::to_string(next_field - 1) + "; TCHAMP holds " +
                               std::to_string(dump->fields.size()));
    }
    if (group.id == 0) dump->problems.push_back(GroupName(*dump, i) + ": group 0 cannot be used");
    if (const auto [it, inserted] = seen.emplace(group.id, i); !inserted) {
      dump->problems.push_back(GroupName(*dump, i) + " repeats group #" +
                               std::to_string(it->second) + ": format control never reaches it");
    }
  }
  if (consecutive && next_field != dump->fields.size()) {
    consecutive = false;
    dump->problems.push_back("the groups list " + std::to_string(next_field) +
                             " fields; TCHAMP holds " + std::to_string(dump->fields.size()));
  }
  std::uint32_t next_value = 0;
  for (std::size_t i = 0; i < dump->fields.size(); ++i) {
    const FieldRecord& field = dump->fields[i];
    const std::string name = "field #" + std::to_string(i);
    if (field.first != next_value) {
      consecutive = false;
      dump->problems.push_back(name + " starts at value " + std::to_string(field.first) +
                               "; the ranges before it end at " + std::to_string(next_value));
    }
    next_value = field.first + std::uint32_t{field.count};
    if (next_value > dump->values.size()) {
      consecutive = false;
      dump->problems.push_back(name + " lists values up to " + std::to_string(next_value - 1) +
                               "; TVALEUR holds " + std::to_string(dump->values.size()));
    }
    if (std::string_view("NALD").find(static_cast<char>(field.type)) == std::string_view::npos ||
        field.type == 0) {
      dump->problems.push_back(name + ": unknown type " + std::to_string(field.type) +
                               " (format control checks nothing of it)");
    }
    if (field.max != 0 && field.min > field.max) {
      dump->problems.push_back(name + ": minimum " + std::to_string(field.min) + " above maximum " +
                               std::to_string(field.max));
    }
  }
  if (consecutive && next_value != dump->values.size()) {
    consecutive = false;
    dump->problems.push_back("the fields list " + std::to_string(next_value) +
                             " values; TVALEUR holds " + std::to_string(dump->values.size()));
  }
  dump->consecutive = consecutive;
  if (!consecutive) return;

  DictionarySource& source = dump->source;
  source.version = file.header().version;
  source.required_version = file.header().required_version;
  source.comment = file.header().comment;
  source.free_fields = {file.header().field3, file.header().field4, file.header().field6,
                        file.header().field7};
  for (const GroupRecord& group : dump->groups) {
    GroupSource out;
    out.id = group.id;
    for (std::uint32_t f = group.first; f < group.first + std::uint32_t{group.count}; ++f) {
      const FieldRecord& field = dump->fields[f];
      FieldSource field_out{
          static_cast<char>(field.type), field.min, field.max, field.code, field.attribute, {}};
      field_out.values.assign(dump->values.begin() + field.first,
                              dump->values.begin() + field.first + field.count);
      out.fields.push_back(std::move(field_out));
    }
    source.groups.push_back(std::move(out));
  }
}

void PrintJson(const std::string& path, const TablesFile& file, const Dump& dump, bool ok) {
  const HeaderFields& header = file.header();
  const CheckResult& check = file.check();
  Json json;
  json.BeginObject().Field("file", path).Field("length", file.length());
  json.Key("header")
      .BeginObject()
      .Field("crc_field", file.crc_field())
      .Field("name", header.name)
      .Field("version", header.version)
      .Field("field3", header.field3)
      .Field("field4", header.field4)
      .Field("required_version", header.required_version)
      .Field("field6", header.field6)
      .Field("field7", header.field7)
      .Field("comment", header.comment)
      .Field("body_offset", file.body())
      .EndObject();
  json.Key("control")
      .BeginObject()
      .Field("type", ControlName(check.control))
      .Flag("checked", check.control != Control::kNone)
      .Flag("good", check.good)
      .Field("status", "0x" + Hex4(check.status))
      .Field("result", check.Describe());
  if (check.control == Control::kCrc) {
    json.Field("stored", Hex4(check.stored_crc)).Field("computed", Hex4(check.computed_crc));
  }
  json.EndObject();
  json.Key("tables").BeginArray();
  for (const TableInfo& table : dump.tables) {
    json.BeginObject()
        .Field("name", table.name)
        .Field("offset", table.offset)
        .Field("data_offset", table.data_offset)
        .Field("data_size", table.data_size)
        .Field("records", table.records);
    if (!table.preview.empty()) {
      json.Field("data_hex", HexBytes(table.preview.data(), table.preview.size(), true));
    }
    json.EndObject();
  }
  json.EndArray();
  if (!dump.dictionary_tables.empty()) {
    json.Key("dictionary").BeginObject().Flag("consecutive", dump.consecutive);
    json.Key("groups").BeginArray();
    for (const GroupRecord& group : dump.groups) {
      json.BeginObject()
          .Field("id", group.id)
          .Field("first_field", group.first)
          .Field("field_count", group.count)
          .EndObject();
    }
    json.EndArray().Key("fields").BeginArray();
    for (const FieldRecord& field : dump.fields) {
      json.BeginObject()
          .Field("code", field.code)
          .Field("min", field.min)
          .Field("max", field.max)
          .Field("type", std::string(1, static_cast<char>(field.type)))
          .Field("attribute", field.attribute)
          .Field("first_value", field.first)
          .Field("value_count", field.count)
          .EndObject();
    }
    json.EndArray().Key("values").BeginArray();
    for (const std::string& value : dump.values) json.String(value);
    json.EndArray().EndObject();
  }
  json.Key("problems").BeginArray();
  for (const std::string& problem : dump.problems) json.String(problem);
  json.EndArray().Flag("ok", ok).EndObject();
  std::printf("%s\n", json.text().c_str());
}

void PrintRawDictionary(const Dump& dump) {
  for (std::size_t i = 0; i < dump.groups.size(); ++i) {
    const GroupRecord& g = dump.groups[i];
    std::printf("  TGROUPE #%zu: id %u, fields from %u, %u of them\n", i, g.id, g.first, g.count);
  }
  for (std::size_t i = 0; i < dump.fields.size(); ++i) {
    const FieldRecord& f = dump.fields[i];
    std::printf(
        "  TCHAMP #%zu: type %c, min %u, max %u, code %d, attribute %d, values from %u, "
        "%u of them\n",
        i, f.type > 0x20 ? f.type : '?', f.min, f.max, f.code, f.attribute, f.first, f.count);
  }
  for (std::size_t i = 0; i < dump.values.size(); ++i) {
    std::printf("  TVALEUR #%zu: \"%s\"\n", i, dump.values[i].c_str());
  }
}

void PrintHuman(const std::string& path, const TablesFile& file, const Dump& dump) {
  const HeaderFields& header = file.header();
  std::printf("file        %s (%u bytes)\n", path.c_str(), file.length());
  std::printf("header      name \"%s\", version %s, required version %s\n", header.name.c_str(),
              header.version.c_str(), header.required_version.c_str());
  std::printf("            free fields \"%s\" \"%s\" \"%s\" \"%s\"\n", header.field3.c_str(),
              header.field4.c_str(), header.field6.c_str(), header.field7.c_str());
  std::printf("comment     %s\n", header.comment.c_str());
  std::printf("control     %s\n", file.check().Describe().c_str());
  if (file.check().control != Control::kCrc) {
    std::printf("            CRC field \"%s\"\n", file.crc_field().c_str());
  }
  std::printf("tables      %zu, from offset %u\n", dump.tables.size(), file.body());
  for (const TableInfo& table : dump.tables) {
    std::printf("  %-10s at %u: %s, %s\n", table.name.c_str(), table.offset,
                Plural(table.records, "record").c_str(), Plural(table.data_size, "byte").c_str());
    if (!table.preview.empty()) {
      std::printf("    %s%s\n", HexBytes(table.preview.data(), table.preview.size()).c_str(),
                  table.preview.size() < table.data_size ? " ..." : "");
    }
  }
  if (!dump.dictionary_tables.empty()) {
    std::printf(
        "dictionary  %s, %s, %s; index ranges %s\n", Plural(dump.groups.size(), "group").c_str(),
        Plural(dump.fields.size(), "field").c_str(), Plural(dump.values.size(), "value").c_str(),
        dump.consecutive ? "consecutive" : "NOT consecutive");
    if (dump.consecutive) {
      std::string text = FormatDictionarySource(dump.source);
      std::size_t at = 0;
      while (at < text.size()) {
        const std::size_t end = text.find('\n', at);
        const std::string line = text.substr(at, end - at);
        std::printf(line.empty() ? "\n" : "  %s\n", line.c_str());
        at = end + 1;
      }
    } else {
      PrintRawDictionary(dump);
    }
  }
  if (!dump.problems.empty()) {
    std::printf("problems\n");
    for (const std::string& problem : dump.problems) std::printf("  %s\n", problem.c_str());
  }
}

int DumpCommand(Context&, const ParsedArgs& args) {
  if (args.Has("--json") && args.Has("--source")) {
    return UsageError(kTablesDumpSyntax, "--json and --source exclude each other");
  }
  const std::string& path = args.positional[0];
  std::string unreadable;
  if (!CheckReadable(path, &unreadable)) {
    return Failure(kTablesDumpSyntax.name, unreadable, path);
  }
  const std::string control_text = args.Get("--control", "auto");
  Control control = Control::kNone;
  if (control_text == "auto") {
    control = DetectControl(path);
  } else if (!ParseControl(control_text, &control)) {
    return UsageError(kTablesDumpSyntax, "--control is auto, none, crc or signature");
  }
  TablesFile file;
  const std::uint16_t us = file.Open(path, control);
  if (us != KT_OK && us != KT_ERR_CONTROLE) {
    return Failure(kTablesDumpSyntax.name, "cannot open " + path + ": status " + StatusText(us),
                   path, us);
  }
  Dump dump;
  ReadTables(file, &dump);
  if (!dump.dictionary_tables.empty()) CheckDictionary(file, &dump);
  const bool ok = file.check().good || file.check().control == Control::kNone;
  if (args.Has("--source")) {
    if (dump.dictionary_tables.empty() || !dump.consecutive) {
      for (const std::string& problem : dump.problems) {
        std::fprintf(stderr, "%s: %s\n", path.c_str(), problem.c_str());
      }
      return Failure(kTablesDumpSyntax.name,
                     path + " holds no dictionary that a description can show");
    }
    std::printf("%s", FormatDictionarySource(dump.source).c_str());
  } else if (args.Has("--json")) {
    PrintJson(path, file, dump, ok && dump.problems.empty());
    SetJsonFailures(false);  // the document says it already
  } else {
    PrintHuman(path, file, dump);
  }
  if (!ok) return Failure(kTablesDumpSyntax.name, path + ": " + file.check().Describe());
  if (!dump.problems.empty()) {
    return Failure(kTablesDumpSyntax.name, path + ": " + Plural(dump.problems.size(), "problem"));
  }
  return kExitOk;
}

}  // namespace

int RunTablesCompile(Context& context, Arguments words) {
  return ParseAndRun(kTablesCompileSyntax, Compile, context, words);
}
int RunTablesDump(Context& context, Arguments words) {
  return ParseAndRun(kTablesDumpSyntax, DumpCommand, context, words);
}

}  // namespace kt::tool
