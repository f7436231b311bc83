// Guesses what a mistyped word was meant to be.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quarn::tpk {

/// The word of `known` that `word` is most likely meant to be, or nothing where none is near.
std::optional<std::string> ClosestWord(std::string_view word,
                                       const std::vector<std::string>& known);

}  // namespace quarn::tpk
