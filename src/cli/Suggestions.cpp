#include "cli/Suggestions.h"

#include <algorithm>
#include <cctype>
#include <numeric>

namespace
{
constexpr std::size_t kMaxSuggestions = 3;
constexpr std::size_t kLongestName = 64;

/// Insertions, deletions and replacements between two words, whatever their case (Levenshtein).
std::size_t editDistance(std::string_view from, std::string_view to)
{
    const auto lower = [](char c) { return std::tolower(static_cast<unsigned char>(c)); };
    std::vector<std::size_t> row(to.size() + 1);
    std::iota(row.begin(), row.end(), 0);
    for (std::size_t i = 0; i < from.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i + 1;
        for (std::size_t j = 0; j < to.size(); ++j) {
            const std::size_t replaced = diagonal + (lower(from[i]) == lower(to[j]) ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({replaced, row[j] + 1, row[j + 1] + 1});
        }
    }
    return row.back();
}
} // namespace

std::string suggestions(std::string_view typed, const std::vector<std::string_view>& names)
{
    if (typed.size() > kLongestName) {
        return {};
    }
    const std::size_t furthest = std::max<std::size_t>(2, typed.size() / 3);
    std::vector<std::pair<std::size_t, std::string_view>> near;
    for (const std::string_view name : names) {
        const std::size_t distance = editDistance(typed, name);
        if (distance <= furthest && name != typed) {
            near.emplace_back(distance, name);
        }
    }
    std::stable_sort(near.begin(), near.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    std::string text;
    for (std::size_t i = 0; i < std::min(near.size(), kMaxSuggestions); ++i) {
        text += (i == 0 ? "; did you mean " : ", ") + std::string(near[i].second);
    }
    return text.empty() ? text : text + '?';
}
