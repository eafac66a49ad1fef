#include "tools/kt/output.h"

#include <unistd.h>

#include <cstdio>

namespace kt::tool {

Json& Json::BeginObject() {
  Separate();
  text_ += '{';
  first_.push_back(true);
  return *this;
}

Json& Json::EndObject() {
  text_ += '}';
  first_.pop_back();
  return *this;
}

Json& Json::BeginArray() {
  Separate();
  text_ += '[';
  first_.push_back(true);
  return *this;
}

Json& Json::EndArray() {
  text_ += ']';
  first_.pop_back();
  return *this;
}

Json& Json::Key(std::string_view key) {
  String(key);
  text_ += ':';
  after_key_ = true;
  return *this;
}

Json& Json::String(std::string_view text) {
  Separate();
  text_ += '"';
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    char escaped[8];
    if (c == '"' || c == '\\') {
      text_ += '\\';
      text_ += c;
    } else if (byte < 0x20 || byte >= 0x7F) {
      std::snprintf(escaped, sizeof escaped, "\\u%04x", byte);
      text_ += escaped;
    } else {
      text_ += c;
    }
  }
  text_ += '"';
  return *this;
}

Json& Json::Number(std::int64_t value) {
  Separate();
  text_ += std::to_string(value);
  return *this;
}

Json& Json::Bool(bool value) {
  Separate();
  text_ += value ? "true" : "false";
  return *this;
}

Json& Json::Null() {
  Separate();
  text_ += "null";
  return *this;
}

void Json::Separate() {
  if (after_key_) {
    after_key_ = false;
    return;
  }
  if (first_.empty()) return;
  if (!first_.back()) text_ += ',';
  first_.back() = false;
}

std::string HexBytes(const std::uint8_t* bytes, std::size_t count, bool packed) {
  std::string text;
  char pair[4];
  for (std::size_t i = 0; i < count; ++i) {
    if (i != 0 && !packed) text += ' ';
    std::snprintf(pair, sizeof pair, "%02x", bytes[i]);
    text += pair;
  }
  return text;
}

bool IsPrintable(const std::uint8_t* bytes, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    if (bytes[i] < 0x20 || (bytes[i] >= 0x7F && bytes[i] < 0xA0)) return false;
  }
  return true;
}

std::string Quote(const std::uint8_t* bytes, std::size_t count) {
  // Built by appending: GCC 12 at -O3 warns falsely (-Wrestrict) about
  // "\"" + std::string.
  std::string quoted(1, '"');
  quoted.append(reinterpret_cast<const char*>(bytes), count);
  quoted += '"';
  return quoted;
}

std::string PrintableOrHex(const std::uint8_t* bytes, std::size_t count) {
  if (!IsPrintable(bytes, count)) return HexBytes(bytes, count);
  return Quote(bytes, count);
}

bool ParseHex(std::string_view text, std::vector<std::uint8_t>* bytes) {
  if (text.substr(0, 2) == "0x" || text.substr(0, 2) == "0X") text.remove_prefix(2);
  int high = -1;
  for (const char c : text) {
    if (c == ' ' || c == ':' || c == '\t' || c == '\n') continue;
    int digit = -1;
    if (c >= '0' && c <= '9') digit = c - '0';
    if (c >= 'a' && c <= 'f') digit = c - 'a' + 10;
    if (c >= 'A' && c <= 'F') digit = c - 'A' + 10;
    if (digit < 0) return false;
    if (high < 0) {
      high = digit;
    } else {
      bytes->push_back(static_cast<std::uint8_t>(high * 16 + digit));
      high = -1;
    }
  }
  return high < 0;
}

std::string Plural(std::size_t count, const char* noun) {
  return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

std::string Hex4(std::uint32_t value) {
  char text[16];
  std::snprintf(text, sizeof text, "%04X", static_cast<unsigned>(value));
  return text;
}

Progress::Progress(std::string label)
    : label_(std::move(label)),
      enabled_(isatty(STDERR_FILENO) == 1),
      start_(std::chrono::steady_clock::now()),
      last_(start_) {}

Progress::~Progress() {
  if (shown_width_ > 0) std::fprintf(stderr, "\r%*s\r", shown_width_, "");
}

void Progress::Announce(std::uint64_t size) {
  constexpr std::uint64_t kLarge = 16 << 20;
  if (!enabled_ || size < kLarge) return;
  const int width = std::fprintf(stderr, "\r%s...", label_.c_str());
  std::fflush(stderr);
  if (width > shown_width_) shown_width_ = width;
}

void Progress::Update(std::uint64_t done, std::uint64_t total) {
  if (!enabled_) return;
  const auto now = std::chrono::steady_clock::now();
  // Quick work shows nothing; afterwards about five redraws a second.
  if (now - start_ < std::chrono::milliseconds(300) ||
      now - last_ < std::chrono::milliseconds(200)) {
    return;
  }
  last_ = now;
  const unsigned percent = total == 0 ? 100u : static_cast<unsigned>(done * 100 / total);
  const int width =
      std::fprintf(stderr, "\r%s: %3u%% (%llu of %llu)", label_.c_str(), percent,
                   static_cast<unsigned long long>(done), static_cast<unsigned long long>(total));
  if (width > shown_width_) shown_width_ = width;
  std::fflush(stderr);
}

}  // namespace kt::tool
