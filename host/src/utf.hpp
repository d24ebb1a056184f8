#pragma once

#include <string>

namespace qzhost::detail {
std::string toUtf8(std::u16string const& s);
std::u16string toUtf16(std::string const& s);
}  // namespace qzhost::detail
