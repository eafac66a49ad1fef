// The kt tool's dictionary description parser (`kt tables compile`): any
// text parses or gives errors with lines inside the text, and a description
// that parses comes back equal from its own formatting.
//
// The replays link the library's objects only, so the parser's source is
// compiled into this target.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "tools/kt/dictionary_source.cpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  kt::tool::DictionarySource source;
  std::vector<kt::tool::SourceError> errors;
  const bool parsed = kt::tool::ParseDictionarySource(text, &source, &errors);
  if (parsed != errors.empty()) std::abort();
  for (const kt::tool::SourceError& error : errors) {
    if (error.line < 0 || static_cast<std::size_t>(error.line) > size + 1) std::abort();
  }
  if (!parsed) return 0;
  kt::tool::DictionarySource again;
  errors.clear();
  if (!kt::tool::ParseDictionarySource(kt::tool::FormatDictionarySource(source), &again, &errors) ||
      !(again == source)) {
    std::abort();
  }
  return 0;
}
