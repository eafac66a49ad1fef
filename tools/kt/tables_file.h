// Tables files opened for inspection (`kt tables dump`, `kt file sign`,
// `kt file verify`): the control a file carries, its header record, and the
// detail behind a failed check.
#ifndef KT_TOOLS_KT_TABLES_FILE_H_
#define KT_TOOLS_KT_TABLES_FILE_H_

#include <cstdint>
#include <string>
#include <string_view>

#include "kt_binfiles.h"

namespace kt::tool {

enum class Control { kNone, kCrc, kSignature };

const char* ControlName(Control control);                    // "none", "crc", "signature"
bool ParseControl(std::string_view text, Control* control);  // the same names
std::uint16_t ControlType(Control control);                  // KT_CONTROLE_...

// The header record's fields as texts.
struct HeaderFields {
  std::string name;
  std::string version;
  std::string field3;
  std::string field4;
  std::string required_version;
  std::string field6;
  std::string field7;
  std::string comment;
};

// The outcome of a file's check, with what it rests on.
struct CheckResult {
  Control control = Control::kNone;
  bool good = false;
  std::uint16_t status = KT_OK;  // the opener's status
  std::uint16_t stored_crc = 0;  // kCrc: the header's value and the file's own
  std::uint16_t computed_crc = 0;
  std::uint16_t signature_status = KT_OK;  // kSignature: the verifier's status
  std::string Describe() const;            // "CRC 7F50 good", "signature bad: ..."
};

// A file opened through the library for reading; closed when the object goes.
class TablesFile {
 public:
  TablesFile() = default;
  ~TablesFile() { Close(); }
  TablesFile(const TablesFile&) = delete;
  TablesFile& operator=(const TablesFile&) = delete;

  // Opens `path` with `control` and fills check(). A failed check
  // (KT_ERR_CONTROLE) leaves the file open for inspection; any other failure
  // is returned with the file closed.
  std::uint16_t Open(const std::string& path, Control control);
  void Close();

  std::uint16_t number() const { return number_; }
  std::uint32_t length() const { return length_; }
  const HeaderFields& header() const { return header_; }
  const CheckResult& check() const { return check_; }
  // The position after the header line, where the first table starts.
  std::uint32_t body() const { return body_; }
  // Where the tables end: the length for a CRC, the length less the 128
  // signature bytes for a signature; unchecked, whichever of the two the
  // tables reach exactly (the length when neither).
  std::uint32_t data_end() const { return data_end_; }
  // Whether the tables from body() on end exactly at `end`.
  bool TablesEndAt(std::uint32_t end) const;
  // The first four bytes (the CRC field) as they stand.
  const std::string& crc_field() const { return crc_field_; }

 private:
  std::uint16_t number_ = 0;
  std::uint32_t length_ = 0;
  std::uint32_t body_ = 0;
  std::uint32_t data_end_ = 0;
  HeaderFields header_;
  CheckResult check_;
  std::string crc_field_;
};

// The control a file carries when the caller does not say: a CRC field other
// than "0000" means CRC; with "0000", a signature that verifies, then a CRC
// that happens to be 0000; when neither passes, the layout tells: tables
// ending 128 bytes before the end are a signed file (with a bad signature),
// tables ending at the end an unchecked one, anything else a CRC never
// written.
Control DetectControl(const std::string& path);

// Whether `path` is a private-key file that signs tables files: readable,
// not a public-key file, 1024 bits, and able to sign. Else *error says what
// is wrong with the key.
bool CheckSigningKey(const std::string& path, std::string* error);

}  // namespace kt::tool

#endif  // KT_TOOLS_KT_TABLES_FILE_H_
