#pragma once

#include <fstream>
#include <iterator>
#include <string>

/// All bytes of a file; none of one that cannot be read.
inline std::string contentOf(const std::string& file)
{
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

inline bool contains(const std::string& text, const std::string& part)
{
    return text.find(part) != std::string::npos;
}

/// How often `part` stands in the text, without overlaps.
inline std::size_t count(const std::string& text, const std::string& part)
{
    std::size_t found = 0;
    for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos; at += part.size()) {
        ++found;
    }
    return found;
}
