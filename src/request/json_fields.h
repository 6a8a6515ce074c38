// Named-field lookup in raw JSON text. Deliberately textual: the first place the quoted key
// stands wins, nothing is validated, nesting is unknown.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace quillmere {

// A text and the first place where each of the given keys stands in double quotes in it, all
// found in one pass, so a dozen lookups cost one reading of the text whatever its bytes. The text
// and the keys must outlive the lookups; a key holding a double quote, or one not given here, is
// never found.
class JsonFields {
 public:
  template <std::size_t N>
  JsonFields(std::string_view text, const std::string_view (&keys)[N])
      : JsonFields(text, keys, N) {}
  JsonFields(std::string_view text, const std::string_view* keys, std::size_t count);

  // Past the colon that next follows the key's quoted name, and past spaces, tabs, carriage
  // returns and line feeds.
  std::optional<std::size_t> valueStart(std::string_view key) const;
  std::optional<std::string> string(std::string_view key) const;
  std::optional<double> number(std::string_view key) const;
  std::optional<bool> boolean(std::string_view key) const;

 private:
  std::string_view text_;
  std::vector<std::pair<std::string_view, std::size_t>> keys_;  // key, its opening quote or npos
};

}  // namespace quillmere
