#include "npy.hpp"

#include <algorithm>
#include <cstring>
#include <memory>
#include <sstream>
#include <string_view>
#include <variant>
#include <vector>

#include "dtypes.hpp"

namespace qzcli {
namespace {

// ---- The header: a Python literal dict. ------------------------------------

struct Value;
using List = std::vector<Value>;
struct Value {
  std::variant<std::string, long long, bool, List> v;
  bool isTuple = false;
};

class LiteralParser {
 public:
  LiteralParser(std::string const& text, std::string const& name) : s_(text), name_(name) {}

  std::vector<std::pair<std::string, Value>> dict() {
    std::vector<std::pair<std::string, Value>> out;
    expect('{');
    while (!peekIs('}')) {
      Value key = value();
      if (!std::holds_alternative<std::string>(key.v)) fail("dictionary keys must be strings");
      expect(':');
      out.emplace_back(std::get<std::string>(key.v), value());
      if (!peekIs('}')) expect(',');
    }
    expect('}');
    skip();
    if (i_ != s_.size()) fail("unexpected text after the header dictionary");
    return out;
  }

 private:
  [[noreturn]] void fail(std::string const& what) const {
    throw FileError(name_ + ": malformed .npy header: " + what);
  }
  void skip() {
    while (i_ < s_.size() && (s_[i_] == ' ' || s_[i_] == '\t' || s_[i_] == '\n' || s_[i_] == '\r')) ++i_;
  }
  bool peekIs(char c) {
    skip();
    return i_ < s_.size() && s_[i_] == c;
  }
  void expect(char c) {
    if (!peekIs(c)) fail(std::string("expected '") + c + "'");
    ++i_;
  }
  Value value() {
    skip();
    if (i_ >= s_.size()) fail("unexpected end");
    char c = s_[i_];
    if (c == '\'' || c == '"') return {str(c)};
    if (c == '(' || c == '[') return seq(c == '(' ? ')' : ']');
    if (std::isdigit(static_cast<unsigned char>(c)) || c == '-') return {integer()};
    for (auto [word, b] : {std::pair<char const*, bool>{"True", true}, {"False", false}}) {
      std::size_t n = std::strlen(word);
      if (s_.compare(i_, n, word) == 0) {
        i_ += n;
        return {b};
      }
    }
    fail("unexpected character");
  }
  std::string str(char quote) {
    std::string out;
    for (++i_; i_ < s_.size() && s_[i_] != quote; ++i_) out += s_[i_];
    if (i_ >= s_.size()) fail("unterminated string");
    ++i_;
    return out;
  }
  long long integer() {
    std::size_t const start = i_;
    if (s_[i_] == '-') ++i_;
    std::size_t const first = i_;
    while (i_ < s_.size() && std::isdigit(static_cast<unsigned char>(s_[i_]))) ++i_;
    std::size_t const digits = i_ - first;
    if (i_ < s_.size() && s_[i_] == 'L') ++i_;  // written by old Python 2 encoders
    // At least one digit, and few enough that the value fits in 64 bits.
    if (digits == 0 || digits > 18) fail("bad integer '" + s_.substr(start, i_ - start) + "'");
    return std::stoll(s_.substr(start, first + digits - start));
  }
  Value seq(char close) {
    // Each level of nesting costs stack; a real header nests three deep
    // (a structured dtype's list of field tuples).
    if (++depth_ > kMaxDepth) fail("lists nested more than " + std::to_string(kMaxDepth) + " deep");
    Value out{List{}};
    out.isTuple = close == ')';
    ++i_;
    auto& items = std::get<List>(out.v);
    while (!peekIs(close)) {
      items.push_back(value());
      if (!peekIs(close)) expect(',');
    }
    expect(close);
    --depth_;
    return out;
  }

  static constexpr int kMaxDepth = 16;

  std::string const& s_;
  std::string const& name_;
  std::size_t i_ = 0;
  int depth_ = 0;
};

// ---- dtypes. -------------------------------------------------------------------

struct DType {
  ndClassID cls;
  bool complex;
  std::size_t scalarBytes;  // one real value
  bool bigEndian;
};

DType simpleType(std::string const& d, std::string const& name) {
  if (d.size() < 3) throw FileError(name + ": unsupported dtype '" + d + "'");
  char order = d[0];
  if (order != '<' && order != '>' && order != '|' && order != '=')
    throw FileError(name + ": unsupported dtype '" + d + "'");
  if (auto const* t = qzcall::numpyTypeByCode(std::string_view(d).substr(1)))
    return {t->cls, t->complex, t->partBytes, order == '>'};
  throw FileError(name + ": unsupported dtype '" + d + "' (supported: float64, float32, int8..uint64, bool, "
                         "complex128, complex64, and two-field integer records)");
}

DType dtypeOf(Value const& descr, std::string const& name) {
  if (auto const* s = std::get_if<std::string>(&descr.v)) return simpleType(*s, name);
  auto const* list = std::get_if<List>(&descr.v);
  if (!list) throw FileError(name + ": malformed .npy header: descr must be a dtype string or a list of fields");
  auto const& fields = *list;
  std::string const bad = name + ": unsupported structured dtype: only two fields of one integer type "
                                 "(a complex integer array) are accepted";
  if (fields.size() != 2) throw FileError(bad);
  DType types[2];
  for (int k = 0; k < 2; ++k) {
    auto const* f = std::get_if<List>(&fields[static_cast<std::size_t>(k)].v);
    if (!f || f->size() != 2 || !std::holds_alternative<std::string>((*f)[1].v)) throw FileError(bad);
    types[k] = simpleType(std::get<std::string>((*f)[1].v), name);
  }
  bool integer = types[0].cls >= ndclass::Int8 && types[0].cls <= ndclass::UInt64 && !types[0].complex;
  if (!integer || types[0].cls != types[1].cls || types[0].bigEndian != types[1].bigEndian) throw FileError(bad);
  return {types[0].cls, true, types[0].scalarBytes, types[0].bigEndian};
}

void swapBytes(unsigned char* p, std::size_t count, std::size_t width) {
  if (width == 1) return;
  for (std::size_t i = 0; i < count; ++i, p += width) std::reverse(p, p + width);
}

// Copies an array stored in C order into column-major order.
void cToFortran(unsigned char const* src, unsigned char* dst, std::vector<std::size_t> const& shape,
                std::size_t elementBytes) {
  std::size_t const nd = shape.size();
  std::size_t total = 1;
  for (auto d : shape) total *= d;
  if (total == 0) return;
  std::vector<std::size_t> cStride(nd, 1), index(nd, 0);
  for (std::size_t k = nd; k-- > 1;) cStride[k - 1] = cStride[k] * shape[k];
  for (std::size_t f = 0; f < total; ++f) {
    std::size_t off = 0;
    for (std::size_t k = 0; k < nd; ++k) off += index[k] * cStride[k];
    std::memcpy(dst + f * elementBytes, src + off * elementBytes, elementBytes);
    for (std::size_t k = 0; k < nd && ++index[k] == shape[k]; ++k) index[k] = 0;  // first axis fastest
  }
}

std::uint32_t readLE(std::string const& b, std::size_t at, int bytes) {
  std::uint32_t v = 0;
  for (int k = bytes - 1; k >= 0; --k) v = (v << 8) | static_cast<unsigned char>(b[at + static_cast<std::size_t>(k)]);
  return v;
}

}  // namespace

qzhost::ArrayPtr parseNpy(std::string const& bytes, std::string const& name) {
  static char const kMagic[] = "\x93NUMPY";
  if (bytes.size() < 10 || bytes.compare(0, 6, kMagic, 6) != 0)
    throw FileError(name + ": not a .npy file (bad magic bytes)");
  int major = static_cast<unsigned char>(bytes[6]);
  if (major < 1 || major > 3)
    throw FileError(name + ": unsupported .npy format version " + std::to_string(major) + "." +
                    std::to_string(static_cast<unsigned char>(bytes[7])));
  std::size_t lenBytes = major == 1 ? 2 : 4;
  if (bytes.size() < 8 + lenBytes) throw FileError(name + ": truncated .npy header");
  std::size_t headerLen = readLE(bytes, 8, static_cast<int>(lenBytes));
  std::size_t dataStart = 8 + lenBytes + headerLen;
  if (bytes.size() < dataStart) throw FileError(name + ": truncated .npy header");
  std::string header = bytes.substr(8 + lenBytes, headerLen);

  Value const* descr = nullptr;
  Value const* fortran = nullptr;
  Value const* shapeV = nullptr;
  auto items = LiteralParser(header, name).dict();
  for (auto const& [k, v] : items) {
    if (k == "descr") descr = &v;
    if (k == "fortran_order") fortran = &v;
    if (k == "shape") shapeV = &v;
  }
  if (!descr || !fortran || !shapeV) throw FileError(name + ": .npy header lacks descr, fortran_order or shape");
  if (!std::holds_alternative<bool>(fortran->v)) throw FileError(name + ": fortran_order must be True or False");
  auto const* shapeList = std::get_if<List>(&shapeV->v);
  if (!shapeList) throw FileError(name + ": shape must be a tuple");
  std::vector<std::size_t> shape;
  std::size_t count = 1;
  for (auto const& s : *shapeList) {
    auto const* n = std::get_if<long long>(&s.v);
    if (!n || *n < 0) throw FileError(name + ": shape entries must be non-negative integers");
    shape.push_back(static_cast<std::size_t>(*n));
    if (__builtin_mul_overflow(count, shape.back(), &count)) throw FileError(name + ": shape is too large");
  }
  DType dt = dtypeOf(*descr, name);
  std::size_t elementBytes = dt.scalarBytes * (dt.complex ? 2 : 1), dataBytes;
  if (__builtin_mul_overflow(count, elementBytes, &dataBytes)) throw FileError(name + ": shape is too large");
  if (bytes.size() - dataStart < dataBytes)
    throw FileError(name + ": truncated .npy data (" + std::to_string(bytes.size() - dataStart) + " bytes of " +
                    std::to_string(dataBytes) + ")");
  if (bytes.size() - dataStart > dataBytes) throw FileError(name + ": unexpected bytes after the .npy data");

  std::vector<std::size_t> dims;
  if (shape.empty())
    dims = {1, 1};
  else if (shape.size() == 1)
    dims = {1, shape[0]};
  else
    dims = shape;
  qzhost::ArrayPtr a = qzhost::makeArray(dt.cls, dims, dt.complex);
  auto* dst = static_cast<unsigned char*>(ndGetData(a.get()));
  auto const* src = reinterpret_cast<unsigned char const*>(bytes.data() + dataStart);
  if (dataBytes) {
    if (std::get<bool>(fortran->v) || shape.size() < 2)
      std::memcpy(dst, src, dataBytes);
    else
      cToFortran(src, dst, shape, elementBytes);
    if (dt.bigEndian) swapBytes(dst, count * (dt.complex ? 2 : 1), dt.scalarBytes);
    if (dt.cls == ndclass::Logical)  // numpy bools are 0 or 1; keep any other byte from leaking in
      for (std::size_t i = 0; i < count; ++i) dst[i] = dst[i] != 0;
  }
  return a;
}

qzhost::ArrayPtr readNpy(std::string const& path) { return parseNpy(readInputFile(path), path); }

std::string npyDescr(ndArray_tag const* a) {
  ndClassID cls = ndGetClassID(a);
  bool const complexRecord = ndIsComplex(a) && cls != ndclass::Single && cls != ndclass::Double;
  qzcall::NumpyType const* t = qzcall::numpyTypeOf(cls, ndIsComplex(a) && !complexRecord);
  if (!t) throw FileError(std::string("arrays of class ") + qzhost::className(cls) + " cannot be written as .npy");
  // Single bytes have no byte order; everything wider is written little-endian.
  std::string const base = (t->partBytes == 1 && !t->complex ? "|" : "<") + std::string(t->code);
  if (complexRecord) return "[('re', '" + base + "'), ('im', '" + base + "')]";
  return base;
}

std::string formatNpy(ndArray_tag const* a) {
  if (ndIsSparse(a)) throw FileError("sparse arrays cannot be written as .npy");
  std::string descr = npyDescr(a);
  auto dims = qzhost::dimsOf(a);
  std::ostringstream dict;
  dict << "{'descr': " << (descr[0] == '[' ? descr : "'" + descr + "'") << ", 'fortran_order': True, 'shape': (";
  for (std::size_t k = 0; k < dims.size(); ++k) dict << dims[k] << (dims.size() == 1 || k + 1 < dims.size() ? ", " : "");
  dict << "), }";
  std::string header = dict.str();
  // Pad with spaces so that the data starts on a 64-byte boundary.
  std::size_t total = 10 + header.size() + 1;
  header.append((64 - total % 64) % 64, ' ');
  header += '\n';
  std::string out("\x93NUMPY\x01\x00", 8);
  out += static_cast<char>(header.size() & 0xFF);
  out += static_cast<char>(header.size() >> 8);
  out += header;
  std::size_t bytes = ndGetNumberOfElements(a) * qzhost::elementSize(ndGetClassID(a)) * (ndIsComplex(a) ? 2 : 1);
  if (bytes) out.append(static_cast<char const*>(ndGetData(a)), bytes);
  return out;
}


}  // namespace qzcli
