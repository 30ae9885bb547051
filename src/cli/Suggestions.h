#pragma once

#include <string>
#include <string_view>
#include <vector>

/// "; did you mean NAME, NAME?" with the up to three names nearest to a mistyped one, nearest first;
/// empty when none is near. Case does not matter.
std::string suggestions(std::string_view typed, const std::vector<std::string_view>& names);
