// UTF-8 <-> UTF-16 for message texts (the standard converters are deprecated).

#include "utf.hpp"

namespace qzhost::detail {

std::string toUtf8(std::u16string const& s) {
  std::string out;
  out.reserve(s.size());
  for (std::size_t i = 0; i < s.size(); ++i) {
    char32_t c = s[i];
    if (c >= 0xD800 && c < 0xDC00 && i + 1 < s.size() && s[i + 1] >= 0xDC00 && s[i + 1] < 0xE000)
      c = 0x10000 + ((c - 0xD800) << 10) + (s[++i] - 0xDC00);
    else if (c >= 0xD800 && c < 0xE000)
      c = 0xFFFD;  // unpaired surrogate
    if (c < 0x80) {
      out += static_cast<char>(c);
    } else if (c < 0x800) {
      out += static_cast<char>(0xC0 | (c >> 6));
      out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
      out += static_cast<char>(0xE0 | (c >> 12));
      out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
      out += static_cast<char>(0xF0 | (c >> 18));
      out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
      out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (c & 0x3F));
    }
  }
  return out;
}

std::u16string toUtf16(std::string const& s) {
  std::u16string out;
  out.reserve(s.size());
  for (std::size_t i = 0; i < s.size();) {
    auto b = static_cast<unsigned char>(s[i]);
    int extra = b < 0x80 ? 0 : (b >> 5) == 6 ? 1 : (b >> 4) == 14 ? 2 : (b >> 3) == 30 ? 3 : -1;
    char32_t c = extra == 0 ? b : extra == 1 ? (b & 0x1F) : extra == 2 ? (b & 0x0F) : (b & 0x07);
    bool ok = extra >= 0 && i + static_cast<std::size_t>(extra) < s.size();
    for (int k = 1; ok && k <= extra; ++k) {
      auto cb = static_cast<unsigned char>(s[i + static_cast<std::size_t>(k)]);
      ok = (cb >> 6) == 2;
      c = (c << 6) | (cb & 0x3F);
    }
    if (!ok) {
      out += u'\uFFFD';
      ++i;
      continue;
    }
    i += static_cast<std::size_t>(extra) + 1;
    if (c >= 0x10000) {
      c -= 0x10000;
      out += static_cast<char16_t>(0xD800 + (c >> 10));
      out += static_cast<char16_t>(0xDC00 + (c & 0x3FF));
    } else {
      out += static_cast<char16_t>(c);
    }
  }
  return out;
}

}  // namespace qzhost::detail
