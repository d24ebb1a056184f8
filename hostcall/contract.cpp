#include "contract.hpp"

#include <cmath>
#include <sstream>

#include "qzimages/qzimages.hpp"

namespace qzcall {
namespace {

using Inputs = std::vector<ndArray_tag const*>;

void requireRgb(char const* name, Inputs const& in) {
  bool ok = in.size() == 1;
  if (ok) {
    in[0]->complete_opaque_dimensions();
    std::size_t const* d = ndGetDimensions(in[0]);
    ok = ndGetNumberOfDimensions(in[0]) == 3 && d[2] == 3 && !ndIsComplex(in[0]) && !ndIsSparse(in[0]);
  }
  if (!ok) throw ContractError(std::string(name) + " takes exactly one real M-by-N-by-3 array");
}

// rgb2gray leaves its output unfilled for a class without a luminance (a
// logical or char image): handing that back would be a result of whatever
// the memory held.
void rgb2grayContract(Inputs const& in) {
  requireRgb("rgb2gray", in);
  if (!ndclass::isNumeric(ndGetClassID(in[0])))
    throw ContractError(std::string("rgb2gray takes a numeric image, not a ") + qzhost::className(ndGetClassID(in[0])) +
                        " one");
}
void rgb2hsvContract(Inputs const& in) { requireRgb("rgb2hsv", in); }

// When the arguments are otherwise of the kinds imresize accepts, every index
// (truncated, as the built-in truncates it) must fall inside the resampled
// dimension.
void imresizeContract(Inputs const& in) {
  if (in.size() != 4) return;
  ndArray_tag const *a = in[0], *w = in[1], *x = in[2], *dim = in[3];
  for (auto* p : in) p->complete_opaque_dimensions();
  if (!ndIsNumeric(a) || ndIsSparse(a) || ndGetNumberOfDimensions(a) > 3) return;
  if (ndGetClassID(x) != ndclass::Double || ndIsSparse(x)) return;
  if (ndGetClassID(dim) != ndclass::Double || ndIsSparse(dim)) return;
  if (ndGetClassID(w) != ndclass::Double || ndIsSparse(w) || ndGetNumberOfDimensions(w) != 2) return;
  double d = ndGetScalar(dim);
  bool alongRows = d >= 1 && d < 2;  // truncates to 1
  std::size_t const* ad = ndGetDimensions(a);
  std::size_t const planes = ndGetNumberOfDimensions(a) == 3 ? ad[2] : 1;
  // The output is L-by-N-by-P or M-by-L-by-P, L the columns of the weights.
  std::size_t elements = 0;
  if (__builtin_mul_overflow(ndGetDimensions(w)[1], ad[alongRows ? 1 : 0], &elements) ||
      __builtin_mul_overflow(elements, planes, &elements) || elements > kMaxOutputElements)
    throw ContractError("imresize: the output would have more than " + std::to_string(kMaxOutputElements) +
                        " elements (the limit of one output)");
  std::size_t length = ad[alongRows ? 0 : 1];
  std::size_t n = ndGetNumberOfElements(x);
  auto const* v = qzhost::dataOf<double>(x);
  for (std::size_t i = 0; i < n; ++i)
    if (!(v[i] >= 1 && v[i] < static_cast<double>(length) + 1))
      throw ContractError("imresize: source index " + std::to_string(v[i]) + " is outside 1.." +
                          std::to_string(length) + " (the length of the resampled dimension)");
}

struct Entry {
  char const* name;
  qzhost::Gateway fn;
  void (*contract)(Inputs const&);
  // The elements of the largest output per element of the first input, for
  // the built-ins whose outputs follow their first input's size.
  std::size_t growth;
};

constexpr Entry kBuiltins[] = {
    {"cq", pximages::_cq, nullptr, 1},
    {"grayto8", pximages::_grayto8, nullptr, 1},
    {"imresize", pximages::_imresize, imresizeContract, 0},
    {"ind2rgb8", pximages::_ind2rgb8, nullptr, 3},
    {"rgb2gray", pximages::_rgb2gray, rgb2grayContract, 1},
    {"rgb2hsv", pximages::_rgb2hsv, rgb2hsvContract, 1},
};

void checkGrowth(Entry const& e, Inputs const& in) {
  if (e.growth == 0 || in.empty()) return;
  in[0]->complete_opaque_dimensions();
  if (ndGetNumberOfElements(in[0]) > kMaxOutputElements / e.growth)
    throw ContractError(std::string(e.name) + ": the output would have more than " +
                        std::to_string(kMaxOutputElements) + " elements (the limit of one output)");
}

}  // namespace

qzhost::Gateway gatewayByName(std::string const& name) {
  for (auto const& e : kBuiltins)
    if (name == e.name) return e.fn;
  return nullptr;
}

char const* nameOf(qzhost::Gateway fn) {
  for (auto const& e : kBuiltins)
    if (e.fn == fn) return e.name;
  return nullptr;
}

void checkColourCount(double k) {
  if (!(k >= 1 && k <= 65536 && k == std::floor(k))) {
    std::ostringstream s;
    s << "the number of colours must be an integer from 1 to 65536, not " << k;
    throw ContractError(s.str());
  }
}

void checkContract(qzhost::Gateway fn, Inputs const& inputs) {
  for (auto const& e : kBuiltins)
    if (e.fn == fn) {
      if (e.contract) e.contract(inputs);
      checkGrowth(e, inputs);
    }
}

}  // namespace qzcall
