// kt file sign | verify: signatures of tables files (control type 2).
//
// The library signs a file when it closes a file it created with control
// type 2, so signing an existing file means making it again: its header
// record and its tables are copied into a new file created through the
// library with control type 2, closed with the private key, verified with
// the built-in public key, and only then put in place of the old one.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "kt_binfiles.h"
#include "tools/kt/output.h"
#include "tools/kt/status_text.h"
#include "tools/kt/tables_file.h"
#include "tools/kt/tool.h"
#include "tools/kt/workspace.h"

namespace kt::tool {
namespace {

// The header line: 60 bytes of fields, the comment, then CR, LF and 0x1A.
constexpr std::uint32_t kHeaderBytes = 63;

const CommandSyntax kFileSignSyntax = {
    "file sign",
    "FILE --key KEYFILE",
    "Signs a tables file with the private-key file KEYFILE (control type 2).\n"
    "FILE is a signed file (its last 128 bytes are a signature, good or not,\n"
    "which is replaced), an unchecked file, or a CRC-checked file (its CRC must\n"
    "be good); the last two become signed files. The tables are copied into\n"
    "a new file that the library signs as it closes it; FILE is replaced only\n"
    "when the new signature verifies with the library's built-in public key.\n"
    "  --key KEYFILE      the private-key file\n",
    {{"--key", true}},
    1,
    1,
};

const CommandSyntax kFileVerifySyntax = {
    "file verify",
    "FILE [--control signature|crc] [--json]",
    "Opens a tables file through the library with its check: the signature\n"
    "against the built-in public key (control type 2) or the CRC (control type\n"
    "1). Without --control the file's own check is found as `kt tables dump`\n"
    "finds it, and the output names the check that ran. Exit status 1 when the\n"
    "check fails or the file carries none.\n"
    "  --control KIND     signature or crc (default: the file's own)\n"
    "  --json             the result as one JSON document\n",
    {{"--control", true}, {"--json", false}},
    1,
    1,
};

void Copy(const std::string& text, char* field, std::size_t capacity) {
  std::snprintf(field, capacity, "%s", text.c_str());
}

EnteteFichier HeaderRecord(const HeaderFields& fields) {
  EnteteFichier header;
  std::memset(&header, 0, sizeof header);
  Copy(fields.name, header.cNom, sizeof header.cNom);
  Copy(fields.version, header.cVersion, sizeof header.cVersion);
  Copy(fields.field3, header.cChamp3, sizeof header.cChamp3);
  Copy(fields.field4, header.cChamp4, sizeof header.cChamp4);
  Copy(fields.required_version, header.cVersionRequise, sizeof header.cVersionRequise);
  Copy(fields.field6, header.cChamp6, sizeof header.cChamp6);
  Copy(fields.field7, header.cChamp7, sizeof header.cChamp7);
  Copy(fields.comment, header.cCommentaire, sizeof header.cCommentaire);
  return header;
}

// The header record and the tables' bytes of FILE; false after a printed error.
bool ReadTables(const std::string& path, HeaderFields* header, std::vector<std::uint8_t>* body) {
  TablesFile file;
  std::uint16_t us = file.Open(path, Control::kNone);
  if (us != KT_OK) {
    Failure(kFileSignSyntax.name, "cannot open " + path + ": status " + StatusText(us));
    return false;
  }
  const bool was_crc = file.crc_field() != CRC16_FICTIF;
  if (was_crc) {
    us = file.Open(path, Control::kCrc);
    if (us != KT_OK) {
      Failure(kFileSignSyntax.name, path + ": " + file.check().Describe() + "; not signed");
      return false;
    }
  }
  // Fields of fixed width are written back as they were read; the comment
  // must have come whole for the header line to be the same again.
  if (file.body() != kHeaderBytes + file.header().comment.size()) {
    Failure(kFileSignSyntax.name, path +
                                      ": its header line cannot be written again as it is "
                                      "(empty or over-long comment); not signed");
    return false;
  }
  // Unchecked, the file is taken as signed when its tables stop 128 bytes
  // short of its end, else as never signed.
  const std::uint32_t end = file.data_end();
  if (!file.TablesEndAt(end)) {
    Failure(kFileSignSyntax.name, path +
                                      ": its tables do not end where a signature or the file "
                                      "begins; not signed");
    return false;
  }
  *header = file.header();
  const std::uint32_t size = end - file.body();
  if (size == 0) return true;
  std::uint8_t* bytes = nullptr;
  us = KT_usLireFichierBinaire(file.number(), file.body(), size, &bytes);
  if (us == KT_OK && bytes != nullptr) body->assign(bytes, bytes + size);
  KT_Liberer(bytes);
  if (body->size() != size) {
    Failure(kFileSignSyntax.name, "cannot read the tables of " + path);
    return false;
  }
  return true;
}

int Sign(Context&, const ParsedArgs& args) {
  const std::string key = args.Get("--key");
  if (key.empty()) return UsageError(kFileSignSyntax, "--key KEYFILE is required");
  const std::string& path = args.positional[0];
  std::string problem;
  if (!CheckReadable(path, &problem)) return Failure(kFileSignSyntax.name, problem, path);
  if (!CheckSigningKey(key, &problem)) {
    return Failure(kFileSignSyntax.name, problem + "; " + path + " left as it was", key);
  }
  HeaderFields fields;
  std::vector<std::uint8_t> body;
  if (!ReadTables(path, &fields, &body)) return kExitFailed;

  // Through a link the target is replaced and the link stays; the header
  // keeps the name the file is opened by.
  const PathParts parts = SplitPath(path);
  const std::string target = OutputTarget(path);
  const std::string target_directory = SplitPath(target).directory;
  ScratchDirectory scratch(target_directory, ".kt-sign-");
  if (!scratch.ok()) {
    return Failure(kFileSignSyntax.name, SystemError("cannot write in " + target_directory, errno),
                   target_directory);
  }
  const EnteteFichier header = HeaderRecord(fields);
  std::uint16_t file = 0;
  std::uint16_t us =
      KT_usCreerFichierBinaire(scratch.path().c_str(), parts.name.c_str(), KT_CONTROLE_SIGNATURE,
                               reinterpret_cast<const char*>(&header), &file);
  if (us == KT_OK && !body.empty()) {
    us = KT_usEcrireChampFixe(file, body.data(), static_cast<std::uint32_t>(body.size()));
  }
  if (file != 0) {
    const std::uint16_t closed = KT_usLibererFichierBinaire(file, key.c_str());
    if (us == KT_OK) us = closed;
  }
  if (us != KT_OK) {
    return Failure(kFileSignSyntax.name,
                   "cannot sign " + path + " with " + key + ": status " +
                       StatusText(us, "the signature could not be made") + "; " + path +
                       " left as it was",
                   path, us);
  }
  TablesFile signed_file;
  if (signed_file.Open(scratch.File(parts.name), Control::kSignature) != KT_OK) {
    return Failure(kFileSignSyntax.name,
                   "the built-in public key does not verify the new signature, " +
                       signed_file.check().Describe() + "; is " + key + " its private key? " +
                       path + " left as it was");
  }
  signed_file.Close();
  if (!KeepMode(target, scratch.File(parts.name), &problem)) {
    return Failure(kFileSignSyntax.name, problem, path);
  }
  std::error_code error;
  std::filesystem::rename(scratch.File(parts.name), target, error);
  if (error) {
    return Failure(kFileSignSyntax.name, "cannot put " + path + " in place: " + error.message(),
                   path);
  }
  std::printf("signed %s with %s: %zu bytes of tables, signature good\n", path.c_str(), key.c_str(),
              body.size());
  return kExitOk;
}

int Verify(Context&, const ParsedArgs& args) {
  Control control = Control::kSignature;
  if (args.Has("--control") &&
      (!ParseControl(args.Get("--control"), &control) || control == Control::kNone)) {
    return UsageError(kFileVerifySyntax, "--control is signature or crc");
  }
  const std::string& path = args.positional[0];
  std::string unreadable;
  if (!CheckReadable(path, &unreadable)) return Failure(kFileVerifySyntax.name, unreadable, path);
  // Without --control the file says which check it carries, as for a dump;
  // an unchecked file has nothing to verify.
  if (!args.Has("--control")) {
    TablesFile probe;
    const std::uint16_t opened = probe.Open(path, Control::kNone);
    if (opened != KT_OK) {
      return Failure(kFileVerifySyntax.name,
                     "cannot open " + path + ": status " + StatusText(opened), path, opened);
    }
    probe.Close();
    control = DetectControl(path);
    if (control == Control::kNone) {
      return Failure(kFileVerifySyntax.name,
                     path + " carries neither a CRC nor a signature: nothing to verify", path);
    }
  }
  TablesFile file;
  const std::uint16_t us = file.Open(path, control);
  if (us != KT_OK && us != KT_ERR_CONTROLE) {
    return Failure(kFileVerifySyntax.name, "cannot open " + path + ": status " + StatusText(us),
                   path, us);
  }
  const CheckResult& check = file.check();
  if (args.Has("--json")) {
    Json json;
    json.BeginObject()
        .Field("file", path)
        .Field("control", ControlName(control))
        .Flag("good", check.good)
        .Field("status", "0x" + Hex4(check.status))
        .Field("result", check.Describe());
    if (control == Control::kSignature && !check.good) {
      json.Field("verifier_status", "0x" + Hex4(check.signature_status));
    }
    json.EndObject();
    std::printf("%s\n", json.text().c_str());
    SetJsonFailures(false);  // the document says it already
  } else {
    std::printf("%s: %s check: %s\n", path.c_str(), ControlName(control), check.Describe().c_str());
  }
  return check.good ? kExitOk : kExitFailed;
}

}  // namespace

int RunFileSign(Context& context, Arguments words) {
  return ParseAndRun(kFileSignSyntax, Sign, context, words);
}
int RunFileVerify(Context& context, Arguments words) {
  return ParseAndRun(kFileVerifySyntax, Verify, context, words);
}

}  // namespace kt::tool
