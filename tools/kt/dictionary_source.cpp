#include "tools/kt/dictionary_source.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <map>
#include <sstream>

#include "kt_binfiles.h"

namespace kt::tool {
namespace {

// The tables' indexes and counts are 16-bit: no table may hold more records.
constexpr std::uint32_t kMaxRecords = 65535;
// The header reader keeps this many characters of the comment.
constexpr std::size_t kMaxComment = KT_TAILLE_COMMENTAIRE;

std::vector<std::string_view> Words(std::string_view text) {
  std::vector<std::string_view> words;
  std::size_t at = 0;
  while (true) {
    at = text.find_first_not_of(" \t", at);
    if (at == std::string_view::npos) break;
    const std::size_t end = std::min(text.find_first_of(" \t", at), text.size());
    words.push_back(text.substr(at, end - at));
    at = end;
  }
  return words;
}

// A whole decimal number within [low, high], or false.
bool ParseNumber(std::string_view word, std::int64_t low, std::int64_t high, std::int64_t* value) {
  std::int64_t parsed = 0;
  const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), parsed);
  if (error != std::errc() || end != word.data() + word.size()) return false;
  if (parsed < low || parsed > high) return false;
  *value = parsed;
  return true;
}

bool IsFourDigits(std::string_view text) {
  return text.size() == 4 &&
         std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

std::string Quoted(std::string_view text) {
  // Built by appending: GCC 12 at -O3 warns falsely (-Wrestrict) about
  // "'" + std::string.
  std::string quoted(1, '\'');
  quoted.append(text);
  quoted += '\'';
  return quoted;
}

class Parser {
 public:
  Parser(DictionarySource* source, std::vector<SourceError>* errors)
      : source_(source), errors_(errors) {}

  void Line(int number, std::string_view line) {
    line_ = number;
    // CRLF files, and the stray carriage returns of a file converted twice:
    // no line keeps one at its end, so a value never ends in one and what
    // `kt tables dump --source` writes back reads the same.
    while (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    if (line.find('\0') != std::string_view::npos) return Error("the line holds a NUL byte");
    const std::size_t start = line.find_first_not_of(" \t");
    if (start == std::string_view::npos || line[start] == '#') return;
    line = line.substr(start);
    const std::vector<std::string_view> words = Words(line);
    const std::string_view directive = words[0];
    if (directive == "tables") return Tables(line, words);
    if (directive == "header") return Header(words);
    if (directive == "group") return Group(words);
    if (directive == "field") return Field(words);
    if (directive == "value") return Value(line);
    Error("unknown directive " + Quoted(directive) + " (tables, header, group, field or value)");
  }

 private:
  void Error(std::string message) { errors_->push_back({line_, std::move(message)}); }

  void Tables(std::string_view line, const std::vector<std::string_view>& words) {
    if (tables_line_ != 0) {
      return Error("tables given twice (first on line " + std::to_string(tables_line_) + ")");
    }
    tables_line_ = line_;
    if (words.size() < 4) return Error("tables needs VERSION REQUIRED COMMENT");
    if (!IsFourDigits(words[1])) Error("version " + Quoted(words[1]) + " is not 4 digits");
    if (!IsFourDigits(words[2])) {
      Error("required version " + Quoted(words[2]) + " is not 4 digits");
    }
    // The comment is the rest of the line after the two versions, as written.
    const std::string_view comment = line.substr(words[3].data() - line.data());
    if (comment.size() > kMaxComment) {
      Error("comment of " + std::to_string(comment.size()) + " characters: at most " +
            std::to_string(kMaxComment) + " are read back");
    }
    source_->version = std::string(words[1]);
    source_->required_version = std::string(words[2]);
    source_->comment = std::string(comment);
  }

  void Header(const std::vector<std::string_view>& words) {
    if (words.size() != 5) return Error("header needs 4 fields of 5, 8, 5 and 10 characters");
    static constexpr std::array<int, 4> kNumbers = {3, 4, 6, 7};
    for (std::size_t i = 0; i < 4; ++i) {
      if (words[i + 1].size() != kFreeFieldWidths[i]) {
        Error("header field " + std::to_string(kNumbers[i]) + " " + Quoted(words[i + 1]) +
              " is not " + std::to_string(kFreeFieldWidths[i]) + " characters");
      } else {
        source_->free_fields[i] = std::string(words[i + 1]);
      }
    }
  }

  void Group(const std::vector<std::string_view>& words) {
    std::int64_t id = 0;
    if (words.size() != 2) return Error("group needs one identifier");
    if (!ParseNumber(words[1], 1, 65535, &id)) {
      // Group 0 cannot carry fields in a zone.
      return Error("group identifier " + Quoted(words[1]) + " is not a number from 1 to 65535");
    }
    const auto [first, inserted] = group_lines_.emplace(id, line_);
    if (!inserted) {
      return Error("group " + std::to_string(id) + " given twice (first on line " +
                   std::to_string(first->second) + ")");
    }
    if (source_->groups.size() == kMaxRecords) return TooMany("groups");
    GroupSource group;
    group.id = static_cast<std::uint16_t>(id);
    source_->groups.push_back(std::move(group));
  }

  void Field(const std::vector<std::string_view>& words) {
    if (source_->groups.empty()) return Error("field before any group");
    if (words.size() < 4) return Error("field needs TYPE MIN MAX [code=N] [attribute=N]");
    FieldSource field;
    bool ok = true;
    if (words[1].size() != 1 || std::string_view("NALD").find(words[1][0]) == std::string::npos) {
      Error("unknown type " + Quoted(words[1]) + " (N numeric, A alphanumeric, L letters, D date)");
      ok = false;
    } else {
      field.type = words[1][0];
    }
    std::int64_t min = 0, max = 0;
    if (!ParseNumber(words[2], 0, 65535, &min)) {
      Error("MIN " + Quoted(words[2]) + " is not a number from 0 to 65535");
      ok = false;
    }
    if (!ParseNumber(words[3], 0, 65535, &max)) {
      Error("MAX " + Quoted(words[3]) + " is not a number from 0 to 65535");
      ok = false;
    }
    if (ok && max != 0 && min > max) {
      Error("MIN " + std::to_string(min) + " above MAX " + std::to_string(max) +
            " (MAX 0 means no bound)");
      ok = false;
    }
    field.min = static_cast<std::uint16_t>(min);
    field.max = static_cast<std::uint16_t>(max);
    for (std::size_t i = 4; i < words.size(); ++i) ok = Option(words[i], &field) && ok;
    if (!ok) return;
    if (fields_ == kMaxRecords || source_->groups.back().fields.size() == kMaxRecords) {
      return TooMany("fields");
    }
    ++fields_;
    source_->groups.back().fields.push_back(std::move(field));
  }

  bool Option(std::string_view word, FieldSource* field) {
    const std::size_t equals = word.find('=');
    const std::string_view key = word.substr(0, equals);
    std::int32_t* target = key == "code"        ? &field->code
                           : key == "attribute" ? &field->attribute
                                                : nullptr;
    if (equals == std::string_view::npos || target == nullptr) {
      Error("unknown option " + Quoted(word) + " (code=N or attribute=N)");
      return false;
    }
    std::int64_t value = 0;
    if (!ParseNumber(word.substr(equals + 1), INT32_MIN, INT32_MAX, &value)) {
      Error(std::string(key) + " " + Quoted(word.substr(equals + 1)) +
            " is not a signed 32-bit number");
      return false;
    }
    *target = static_cast<std::int32_t>(value);
    return true;
  }

  void Value(std::string_view line) {
    if (source_->groups.empty() || source_->groups.back().fields.empty()) {
      return Error("value before any field");
    }
    if (values_ == kMaxRecords ||
        source_->groups.back().fields.back().values.size() == kMaxRecords) {
      return TooMany("values");
    }
    ++values_;
    // The text is the rest of the line after "value" and one blank.
    line.remove_prefix(std::min<std::size_t>(line.size(), 6));
    source_->groups.back().fields.back().values.emplace_back(line);
  }

  void TooMany(const char* what) {
    Error(std::string("more than ") + std::to_string(kMaxRecords) + " " + what +
          ": the tables' indexes are 16-bit");
  }

  DictionarySource* source_;
  std::vector<SourceError>* errors_;
  int line_ = 0;
  int tables_line_ = 0;
  std::map<std::int64_t, int> group_lines_;
  std::uint32_t fields_ = 0;
  std::uint32_t values_ = 0;
};

void PadTableName(const std::string& name, EnteteTable* table) {
  std::memset(table, 0, sizeof *table);
  std::memset(table->cNom, ' ', 10);
  std::memcpy(table->cNom, name.data(), std::min<std::size_t>(name.size(), 10));
}

class Writer {
 public:
  Writer(std::uint16_t file, const CompileOptions& options, std::uint64_t total)
      : file_(file), options_(options), total_(total) {}

  std::uint16_t Table(const DictionarySource& source, const std::string& name) {
    EnteteTable table;
    PadTableName(name, &table);
    table.ulNbEnregistrements = RecordCount(source, name);
    std::uint16_t us = KT_usEcrireEnteteTable(file_, &table);
    if (us == KT_OK) us = Records(source, name);
    if (us == KT_OK) us = KT_usEcrireTaille(file_);
    return us;
  }

 private:
  std::uint16_t Records(const DictionarySource& source, const std::string& name) {
    std::uint16_t us = KT_OK;
    std::uint16_t first_field = 0;
    std::uint16_t first_value = 0;
    for (const GroupSource& group : source.groups) {
      if (name == "TGROUPE") {
        if (us == KT_OK) us = KT_usEcrireUnsignedShort(file_, group.id);
        if (us == KT_OK) us = KT_usEcrireUnsignedShort(file_, first_field);
        if (us == KT_OK) us = Short(group.fields.size());
        Step();
      }
      first_field = static_cast<std::uint16_t>(first_field + group.fields.size());
      for (const FieldSource& field : group.fields) {
        if (name == "TCHAMP") {
          if (us == KT_OK) us = KT_usEcrireSignedLong(file_, field.code);
          if (us == KT_OK) us = KT_usEcrireUnsignedShort(file_, field.min);
          if (us == KT_OK) us = KT_usEcrireUnsignedShort(file_, field.max);
          if (us == KT_OK) us = KT_usEcrireSignedChar(file_, static_cast<std::int8_t>(field.type));
          if (us == KT_OK) us = KT_usEcrireSignedLong(file_, field.attribute);
          if (us == KT_OK) us = KT_usEcrireUnsignedShort(file_, first_value);
          if (us == KT_OK) us = Short(field.values.size());
          Step();
        }
        first_value = static_cast<std::uint16_t>(first_value + field.values.size());
        for (const std::string& value : field.values) {
          if (name != "TVALEUR") continue;
          if (us == KT_OK) us = KT_usEcrireChaineVariable(file_, value.c_str());
          Step();
        }
      }
    }
    return us;
  }

  std::uint16_t Short(std::size_t value) {
    return KT_usEcrireUnsignedShort(file_, static_cast<std::uint16_t>(value));
  }

  void Step() {
    ++done_;
    if (options_.progress && (done_ % 4096 == 0 || done_ == total_)) {
      options_.progress(done_, total_);
    }
  }

  std::uint16_t file_;
  const CompileOptions& options_;
  std::uint64_t total_;
  std::uint64_t done_ = 0;
};

}  // namespace

bool ParseDictionarySource(std::string_view text, DictionarySource* source,
                           std::vector<SourceError>* errors) {
  const std::size_t errors_before = errors->size();
  Parser parser(source, errors);
  int number = 0;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    parser.Line(++number, text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return errors->size() == errors_before;
}

std::string FormatDictionarySource(const DictionarySource& source) {
  std::ostringstream out;
  out << "tables " << source.version << ' ' << source.required_version << ' ' << source.comment
      << '\n';
  const bool blank = std::all_of(source.free_fields.begin(), source.free_fields.end(),
                                 [](const std::string& f) { return Words(f).empty(); });
  if (!blank) {
    out << "header";
    for (const std::string& field : source.free_fields) out << ' ' << field;
    out << '\n';
  }
  for (const GroupSource& group : source.groups) {
    out << "\ngroup " << group.id << '\n';
    for (const FieldSource& field : group.fields) {
      out << "field " << field.type << ' ' << field.min << ' ' << field.max;
      if (field.code != 0) out << " code=" << field.code;
      if (field.attribute != 0) out << " attribute=" << field.attribute;
      out << '\n';
      for (const std::string& value : field.values) out << "  value " << value << '\n';
    }
  }
  return out.str();
}

std::uint32_t RecordCount(const DictionarySource& source, std::string_view table) {
  std::uint32_t count = 0;
  for (const GroupSource& group : source.groups) {
    if (table == "TGROUPE") ++count;
    for (const FieldSource& field : group.fields) {
      if (table == "TCHAMP") ++count;
      if (table == "TVALEUR") count += static_cast<std::uint32_t>(field.values.size());
    }
  }
  return count;
}

std::uint16_t CompileTablesFile(const std::string& directory, const std::string& name,
                                const DictionarySource& source, const CompileOptions& options) {
  EnteteFichier header;
  std::memset(&header, 0, sizeof header);
  std::snprintf(header.cNom, sizeof header.cNom, "%s", name.c_str());
  std::snprintf(header.cVersion, sizeof header.cVersion, "%s", source.version.c_str());
  std::snprintf(header.cVersionRequise, sizeof header.cVersionRequise, "%s",
                source.required_version.c_str());
  std::snprintf(header.cChamp3, sizeof header.cChamp3, "%s", source.free_fields[0].c_str());
  std::snprintf(header.cChamp4, sizeof header.cChamp4, "%s", source.free_fields[1].c_str());
  std::snprintf(header.cChamp6, sizeof header.cChamp6, "%s", source.free_fields[2].c_str());
  std::snprintf(header.cChamp7, sizeof header.cChamp7, "%s", source.free_fields[3].c_str());
  std::snprintf(header.cCommentaire, sizeof header.cCommentaire, "%s", source.comment.c_str());

  std::uint64_t total = 0;
  for (const std::string& table : options.tables) total += RecordCount(source, table);
  std::uint16_t file = 0;
  std::uint16_t us = KT_usCreerFichierBinaire(directory.c_str(), name.c_str(), options.control,
                                              reinterpret_cast<const char*>(&header), &file);
  Writer writer(file, options, total);
  for (const std::string& table : options.tables) {
    if (us == KT_OK) us = writer.Table(source, table);
  }
  if (file != 0) {
    // Closing writes the CRC or the signature; the slot goes whatever happened.
    const std::uint16_t closed = KT_usLibererFichierBinaire(
        file, options.key_file.empty() ? nullptr : options.key_file.c_str());
    if (us == KT_OK) us = closed;
  }
  return us;
}

}  // namespace kt::tool
