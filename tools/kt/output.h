// Output helpers of `kt`: a small JSON writer for --json, hexadecimal and
// printable renderings of bytes, and a progress line for long operations.
#ifndef KT_TOOLS_KT_OUTPUT_H_
#define KT_TOOLS_KT_OUTPUT_H_

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kt::tool {

// Builds one JSON document. Texts are ISO 8859-1 bytes, the library's
// alphabet: each byte becomes the code point of the same value.
class Json {
 public:
  Json& BeginObject();
  Json& EndObject();
  Json& BeginArray();
  Json& EndArray();
  Json& Key(std::string_view key);
  Json& String(std::string_view text);
  Json& Number(std::int64_t value);
  Json& Bool(bool value);
  Json& Null();
  // Key and value at once.
  Json& Field(std::string_view key, std::string_view text) { return Key(key).String(text); }
  Json& Field(std::string_view key, const char* text) { return Key(key).String(text); }
  Json& Field(std::string_view key, std::int64_t value) { return Key(key).Number(value); }
  Json& Flag(std::string_view key, bool value) { return Key(key).Bool(value); }
  const std::string& text() const { return text_; }

 private:
  void Separate();
  std::string text_;
  std::vector<bool> first_;  // per open container: nothing written in it yet
  bool after_key_ = false;
};

// "0a 1b ..." with a blank between bytes, or packed ("0a1b") when `packed`.
std::string HexBytes(const std::uint8_t* bytes, std::size_t count, bool packed = false);

// Whether the bytes are all printable ISO 8859-1 characters.
bool IsPrintable(const std::uint8_t* bytes, std::size_t count);

// The bytes as a text between double quotes.
std::string Quote(const std::uint8_t* bytes, std::size_t count);

// "\"text\"" when printable, else the hexadecimal bytes.
std::string PrintableOrHex(const std::uint8_t* bytes, std::size_t count);

// Reads an hexadecimal text ("0102 03", "01:02"): blanks, colons and a
// leading 0x are skipped. False for another character or an odd digit count.
bool ParseHex(std::string_view text, std::vector<std::uint8_t>* bytes);

// "1 byte", "2 bytes".
std::string Plural(std::size_t count, const char* noun);

// Four upper-case hexadecimal digits, as CRC fields are written.
std::string Hex4(std::uint32_t value);

// A progress line on stderr, redrawn at most a few times a second, shown
// only when stderr is a terminal and the work lasts more than a moment.
class Progress {
 public:
  explicit Progress(std::string label);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  void Update(std::uint64_t done, std::uint64_t total);
  // Shows the label at once, for work that cannot report its progress (a
  // check inside the library), when `size` bytes are enough to take a while.
  void Announce(std::uint64_t size);

 private:
  std::string label_;
  bool enabled_;
  int shown_width_ = 0;  // characters of the line on screen, 0 when none
  std::chrono::steady_clock::time_point start_;
  std::chrono::steady_clock::time_point last_;
};

}  // namespace kt::tool

#endif  // KT_TOOLS_KT_OUTPUT_H_
