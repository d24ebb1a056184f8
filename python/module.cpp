// qzimages._qzimages: the built-ins on NumPy arrays.
//
// Arrays cross into the host without a copy where their layout allows it:
// an F-contiguous array is exactly a column-major host array, and a
// C-contiguous H x W x 3 image is pixel-interleaved, which the colour-space
// kernels read directly.  Every other layout is converted once.  Outputs are
// host arrays handed to NumPy as they are: the NumPy array's base owns the
// host array and releases it when the last view goes.

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "color/rgb2gray.hpp"
#include "color/rgb2hsv.hpp"
#include "common/numeric_types.hpp"
#include "contract.hpp"
#include "dither.hpp"
#include "dtypes.hpp"
#include "filters.hpp"
#include "qzhost/runtime.hpp"
#include "qzimages/qzimages.hpp"
#include "resample.hpp"

namespace py = pybind11;
using qzhost::ArrayPtr;

namespace {

// Set at import: qzimages.Error and qzimages.Warning.
PyObject* gError = nullptr;
PyObject* gWarning = nullptr;

// A built-in raised; carried out of the GIL-free region and turned into
// qzimages.Error there.
struct BuiltinError {
  std::string identifier, message;
};

[[noreturn]] void raiseBuiltinError(std::string const& identifier, std::string const& message) {
  py::object err = py::reinterpret_borrow<py::object>(gError)(message);
  err.attr("identifier") = identifier;
  PyErr_SetObject(gError, err.ptr());
  throw py::error_already_set();
}

void issueWarnings(std::vector<qzhost::Warning> const& warnings) {
  for (auto const& w : warnings) {
    py::object instance = py::reinterpret_borrow<py::object>(gWarning)(w.text);
    instance.attr("identifier") = w.identifier;
    // The functions are called straight from Python, so the innermost Python
    // frame is the caller's.  Called from C there is no frame of warn()'s
    // caller to skip, so that frame is level 0; a test checks the warning
    // points at the caller's line.
    py::module_::import("warnings").attr("warn")(instance, py::arg("stacklevel") = 0);
  }
}

// ---- dtypes and classes -----------------------------------------------------------

struct ClassOf {
  ndClassID cls;
  bool complex;
};

// The NumPy type of a kind letter and item size: "f" and 8 make "f8".
qzcall::NumpyType const* typeOf(char kind, py::ssize_t size) {
  return qzcall::numpyTypeByCode(kind + std::to_string(size));
}

// A structured dtype of exactly two fields of one integer type, in order and
// without padding, stands for a complex integer array.
std::optional<ndClassID> complexIntegerClass(py::dtype const& dt) {
  py::object names = dt.attr("names");
  if (names.is_none() || py::len(names) != 2) return std::nullopt;
  py::dict fields = dt.attr("fields");
  py::tuple re = fields[names[py::int_(0)]], im = fields[names[py::int_(1)]];
  py::dtype reType = re[0], imType = im[0];
  if (!reType.is(imType) && !reType.equal(imType)) return std::nullopt;
  if (re[1].cast<py::ssize_t>() != 0 || im[1].cast<py::ssize_t>() != reType.itemsize() ||
      dt.itemsize() != 2 * reType.itemsize() || reType.attr("byteorder").cast<std::string>() == ">")
    return std::nullopt;
  if (reType.kind() != 'i' && reType.kind() != 'u') return std::nullopt;
  if (auto const* t = typeOf(reType.kind(), reType.itemsize())) return t->cls;
  return std::nullopt;
}

std::string dtypeName(py::dtype const& dt) { return py::str(py::handle(dt)).cast<std::string>(); }

std::optional<ClassOf> classOf(py::dtype const& dt) {
  char kind = dt.kind();
  if (kind == 'V')
    if (auto c = complexIntegerClass(dt)) return ClassOf{*c, true};
  if (auto const* t = typeOf(kind, dt.itemsize())) return ClassOf{t->cls, t->complex};
  return std::nullopt;
}

py::dtype dtypeOf(ndClassID cls, bool complex) {
  bool const record = complex && cls != ndclass::Double && cls != ndclass::Single;
  qzcall::NumpyType const* t = qzcall::numpyTypeOf(cls, complex && !record);
  if (!t)
    throw std::runtime_error(std::string("a built-in returned an array of class ") + qzhost::className(cls) +
                             ", which NumPy cannot hold");
  std::string const base = std::string("=") + t->code;
  if (record) {
    py::list fields;
    fields.append(py::make_tuple("re", base));
    fields.append(py::make_tuple("im", base));
    return py::dtype::from_args(fields);
  }
  return py::dtype(base);
}

// ---- NumPy -> host ---------------------------------------------------------------

// Any array-like as a NumPy array; Python objects that are not numbers
// (strings, None, nested sequences of mixed things) stop here.
py::array asArray(py::handle obj, char const* what) {
  py::array a = py::module_::import("numpy").attr("asarray")(obj);
  if (!classOf(a.dtype()))
    throw py::type_error(std::string(what) + ": unsupported dtype " + dtypeName(a.dtype()) +
                         " (expected bool, an integer, float32, float64, complex64 or complex128 type)");
  return a;
}

// Conversions the host needed to make of its inputs, for tests that check
// which layouts cross without a copy.
std::size_t gInputCopies = 0;

py::array nativeCopy(py::array const& a) {
  if (a.dtype().attr("isnative").cast<bool>()) return a;
  ++gInputCopies;
  return a.attr("astype")(a.dtype().attr("newbyteorder")("="));
}

std::vector<std::size_t> hostDims(py::array const& a) {
  std::vector<std::size_t> d(a.shape(), a.shape() + a.ndim());
  if (d.empty()) return {1, 1};
  if (d.size() == 1) return {1, d[0]};
  return d;
}

void noRelease(void*) {}

// The array as a host input: its own memory when it is F-contiguous, aligned
// and in native byte order, otherwise a column-major copy.  `keep` holds the
// NumPy array whose memory the host array borrows.
ArrayPtr hostInput(py::array a, py::object& keep) {
  a = nativeCopy(a);
  ClassOf c = *classOf(a.dtype());
  bool direct = (a.flags() & py::array::f_style) && (a.flags() & py::detail::npy_api::NPY_ARRAY_ALIGNED_);
  if (!direct) {
    ++gInputCopies;
    a = py::module_::import("numpy").attr("asfortranarray")(a);
  }
  keep = a;
  qzhost::ArrayDesc desc{c.cls, hostDims(a), c.complex, qzhost::DimForm::Full};
  return qzhost::wrapData(desc, const_cast<void*>(a.data()), noRelease, nullptr);
}

// ---- host -> NumPy ----------------------------------------------------------------

py::array toNumpy(ArrayPtr out, bool cOrderView = false, std::vector<py::ssize_t> cShape = {}) {
  ndArray_tag const* a = out.get();
  auto dims = qzhost::dimsOf(a);
  py::dtype dt = dtypeOf(ndGetClassID(a), ndIsComplex(a));
  std::vector<py::ssize_t> shape(dims.begin(), dims.end()), strides(dims.size());
  if (cOrderView) {
    shape = std::move(cShape);
    strides.assign(shape.size(), 0);
    py::ssize_t s = dt.itemsize();
    for (std::size_t i = shape.size(); i-- > 0;) {
      strides[i] = s;
      s *= shape[i];
    }
  } else {
    py::ssize_t s = dt.itemsize();
    for (std::size_t i = 0; i < shape.size(); ++i) {
      strides[i] = s;
      s *= shape[i];
    }
  }
  void* data = ndGetData(a);
  if (!data || ndGetNumberOfElements(a) == 0) return py::array(dt, shape, strides);
  auto* holder = out.release();
  py::capsule base(holder, [](void* p) { matrix::detail::ndDestroy_deleter{}(static_cast<ndArray_tag*>(p)); });
  return py::array(dt, shape, strides, data, base);
}

// ---- calling ------------------------------------------------------------------------

std::vector<ArrayPtr> invoke(qzhost::Gateway fn, int nargout, std::vector<ndArray_tag const*> const& inputs) {
  try {
    qzcall::checkContract(fn, inputs);
  } catch (qzcall::ContractError const& e) {
    throw py::value_error(e.what());
  }
  std::vector<ArrayPtr> slots(std::max(nargout, 2));
  std::optional<BuiltinError> failed;
  std::vector<qzhost::Warning> warnings;
  {
    py::gil_scoped_release nogil;
    try {
      qzhost::call(fn, nargout, slots.data(), static_cast<int>(inputs.size()), inputs.data());
    } catch (qzhost::HostError const& e) {
      failed = BuiltinError{e.identifier(), e.message()};
    }
    warnings = qzhost::takeWarnings();
  }
  issueWarnings(warnings);
  if (failed) raiseBuiltinError(failed->identifier, failed->message);
  return slots;
}

qzhost::Gateway builtin(char const* name) { return qzcall::gatewayByName(name); }

struct Inputs {
  std::vector<ArrayPtr> arrays;
  std::vector<py::object> keep;
  std::vector<ndArray_tag const*> raw() const {
    std::vector<ndArray_tag const*> r;
    for (auto const& a : arrays) r.push_back(a.get());
    return r;
  }
  void add(py::array const& a) {
    keep.emplace_back();
    arrays.push_back(hostInput(a, keep.back()));
  }
  void addScalar(double v) { arrays.push_back(qzcall::scalar(v)); }
};

// An image argument: H x W x 3 (or H x W where allowed), real, numeric.
py::array imageArg(py::handle obj, char const* fn, bool allowGray, bool allowBool) {
  py::array a = asArray(obj, fn);
  ClassOf c = *classOf(a.dtype());
  if (c.complex) throw py::type_error(std::string(fn) + ": the image must be real, not " + dtypeName(a.dtype()));
  if (c.cls == ndclass::Logical && !allowBool)
    throw py::type_error(std::string(fn) + ": bool images are not supported; convert to uint8 first");
  bool rgb = a.ndim() == 3 && a.shape(2) == 3;
  if (!rgb && !(allowGray && a.ndim() == 2))
    throw py::value_error(std::string(fn) + ": expected an H x W x 3 image" + (allowGray ? " or an H x W one" : "") +
                          ", got shape " + py::str(py::tuple(a.attr("shape"))).cast<std::string>());
  return a;
}

// ---- colour-space conversions ---------------------------------------------------------

// C-ordered, not also F-ordered (F-ordered arrays go to the built-ins as they
// are), aligned for their type and in native byte order: pixel-interleaved
// rows that the kernels can read in place.
bool isInterleaved(py::array const& a) {
  return (a.flags() & py::array::c_style) && !(a.flags() & py::array::f_style) &&
         (a.flags() & py::detail::npy_api::NPY_ARRAY_ALIGNED_) && a.dtype().attr("isnative").cast<bool>();
}

template <class T>
void grayInterleaved(void const* in, std::size_t pixels, void* out) {
  qz::launchRgb2Gray<T>(static_cast<T const*>(in), pixels, static_cast<T*>(out), false);
}

// A colour-space conversion: a pixel-interleaved image (C-ordered, not also
// F-ordered, and aligned for its type) goes to `interleaved` with its class
// and size, anything else through the built-in.
template <class Interleaved>
py::array colourSpace(py::handle obj, char const* name, Interleaved interleaved) {
  py::array img = nativeCopy(imageArg(obj, name, false, false));
  if (!isInterleaved(img)) {
    Inputs in;
    in.add(img);
    return toNumpy(std::move(invoke(builtin(name), 1, in.raw())[0]));
  }
  return interleaved(img, *classOf(img.dtype()), img.shape(0), img.shape(1));
}

py::array rgb2gray(py::handle obj) {
  return colourSpace(obj, "rgb2gray", [](py::array const& img, ClassOf c, py::ssize_t h, py::ssize_t w) {
    // The kernel reads the NumPy buffer as it is and writes an H x W result in
    // the same (row-major) order.
    ArrayPtr out = qzhost::makeArray(c.cls, {static_cast<std::size_t>(w), static_cast<std::size_t>(h)});
    void const* src = img.data();
    void* dst = ndGetData(out.get());
    std::size_t pixels = static_cast<std::size_t>(h * w);
    {
      py::gil_scoped_release nogil;
      switch (c.cls) {
#define QZ_GRAY_CASE(T, C)                \
  case ndclass::C:                        \
    grayInterleaved<T>(src, pixels, dst); \
    break;
        QZ_FOR_EACH_NUMERIC_TYPE(QZ_GRAY_CASE)
#undef QZ_GRAY_CASE
      }
    }
    return toNumpy(std::move(out), true, {h, w});
  });
}

py::array rgb2hsv(py::handle obj) {
  // The built-in converts double, single, uint8 and uint16 images and
  // returns zeros for any other class: refused here rather than handed back.
  py::array a = imageArg(obj, "rgb2hsv", false, false);
  ndClassID cls = classOf(a.dtype())->cls;
  if (cls != ndclass::Double && cls != ndclass::Single && cls != ndclass::UInt8 && cls != ndclass::UInt16)
    throw py::type_error("rgb2hsv: the image must be float64, float32, uint8 or uint16, not " + dtypeName(a.dtype()));
  return colourSpace(a, "rgb2hsv", [](py::array const& img, ClassOf c, py::ssize_t h, py::ssize_t w) {
    std::size_t pixels = static_cast<std::size_t>(h * w);
    std::vector<std::size_t> dims{3, static_cast<std::size_t>(w), static_cast<std::size_t>(h)};
    // Single in, single out; the other three classes give double.
    ArrayPtr out = qzhost::makeArray(c.cls == ndclass::Single ? ndclass::Single : ndclass::Double, dims);
    void const* src = img.data();
    void* dst = ndGetData(out.get());
    {
      py::gil_scoped_release nogil;
      switch (c.cls) {
        case ndclass::Double:
          qz::launchRgb2Hsv(static_cast<double const*>(src), pixels, static_cast<double*>(dst), false);
          break;
        case ndclass::Single:
          qz::launchRgb2Hsv(static_cast<float const*>(src), pixels, static_cast<float*>(dst), false);
          break;
        case ndclass::UInt8:
          qz::launchRgb2Hsv(static_cast<std::uint8_t const*>(src), pixels, static_cast<double*>(dst), false);
          break;
        default:  // uint16, the only class left
          qz::launchRgb2Hsv(static_cast<std::uint16_t const*>(src), pixels, static_cast<double*>(dst), false);
          break;
      }
    }
    return toNumpy(std::move(out), true, {h, w, 3});
  });
}

// ---- the other built-ins ------------------------------------------------------------

py::array ind2rgb8(py::handle index, py::handle cmap) {
  Inputs in;
  in.add(asArray(index, "ind2rgb8 index"));
  in.add(asArray(cmap, "ind2rgb8 cmap"));
  return toNumpy(std::move(invoke(builtin("ind2rgb8"), 1, in.raw())[0]));
}

py::array grayto8(py::handle img) {
  Inputs in;
  in.add(asArray(img, "grayto8"));
  return toNumpy(std::move(invoke(builtin("grayto8"), 1, in.raw())[0]));
}

double scalarArg(py::handle obj, char const* what) {
  if (py::isinstance<py::bool_>(obj) ||
      !(py::isinstance<py::int_>(obj) || py::isinstance<py::float_>(obj) || py::hasattr(obj, "__float__")))
    throw py::type_error(std::string(what) + " must be a real number, not " +
                         py::str(py::type::of(obj).attr("__name__")).cast<std::string>());
  if (py::isinstance<py::array>(obj) && py::array(py::reinterpret_borrow<py::array>(obj)).size() != 1)
    throw py::type_error(std::string(what) + " must be a single number");
  return obj.cast<double>();
}

// A number of colours: an integer from 1 to 65536, as both hosts ask.
double colourCountArg(py::handle k, char const* fn) {
  double const colours = scalarArg(k, (std::string(fn) + ": k").c_str());
  try {
    qzcall::checkColourCount(colours);
  } catch (qzcall::ContractError const& e) {
    throw py::value_error(std::string(fn) + ": " + e.what());
  }
  return colours;
}

py::object cq(py::handle img, py::handle k, bool returnIndex) {
  Inputs in;
  in.add(imageArg(img, "cq", false, true));
  in.addScalar(colourCountArg(k, "cq"));
  auto out = invoke(builtin("cq"), returnIndex ? 2 : 1, in.raw());
  py::array map = toNumpy(std::move(out[0]));
  if (!returnIndex) return std::move(map);
  return py::make_tuple(map, toNumpy(std::move(out[1])));
}

// cq's colour map, and either cq's own index image or the image dithered
// onto that map.
py::tuple quantize(py::handle img, py::handle k, bool dither) {
  Inputs in;
  in.add(imageArg(img, "quantize", false, true));
  in.addScalar(colourCountArg(k, "quantize"));
  auto out = invoke(builtin("cq"), 2, in.raw());
  if (dither) {
    ndArray_tag const* image = in.arrays[0].get();
    py::gil_scoped_release nogil;
    out[1] = qzcall::ditherToMap(image, out[0].get());
  }
  return py::make_tuple(toNumpy(std::move(out[0])), toNumpy(std::move(out[1])));
}

py::array imresize(py::handle img, py::handle weights, py::handle indices, py::handle dim) {
  Inputs in;
  in.add(asArray(img, "imresize image"));
  in.add(asArray(weights, "imresize weights"));
  in.add(asArray(indices, "imresize indices"));
  in.addScalar(scalarArg(dim, "imresize: dim"));
  return toNumpy(std::move(invoke(builtin("imresize"), 1, in.raw())[0]));
}

py::array resize(py::handle obj, py::object scale, py::object size, std::string const& method, bool antialias) {
  py::array img = asArray(obj, "resize");
  if (classOf(img.dtype())->complex)
    throw py::type_error("resize: the image must be real, not " + dtypeName(img.dtype()));
  if (img.ndim() != 2 && !(img.ndim() == 3 && img.shape(2) == 3))
    throw py::value_error("resize: expected an H x W or H x W x 3 image, got shape " +
                          py::str(py::tuple(img.attr("shape"))).cast<std::string>());
  auto m = qzfilters::parseMethod(method);
  if (!m)
    throw py::value_error("resize: unknown method '" + method +
                          "' (nearest, bilinear, bicubic, lanczos2, lanczos3 or box)");
  if (scale.is_none() == size.is_none()) throw py::type_error("resize: give exactly one of scale and size");
  std::size_t rows = static_cast<std::size_t>(img.shape(0)), cols = static_cast<std::size_t>(img.shape(1));
  qzcall::ResampleRequest r;
  try {
    if (!scale.is_none()) {
      r = qzcall::planResize(rows, cols, scalarArg(scale, "resize: scale"), *m, antialias);
    } else {
      py::sequence hw = py::reinterpret_borrow<py::sequence>(size);
      if (!py::isinstance<py::sequence>(size) || py::len(hw) != 2)
        throw py::type_error("resize: size must be a pair (height, width)");
      std::size_t side[2];
      for (int i = 0; i < 2; ++i) {
        if (!py::isinstance<py::int_>(hw[i]) || py::isinstance<py::bool_>(hw[i]))
          throw py::type_error("resize: size must hold two integers");
        // Beyond any limit, and kept clear of the conversion to size_t.
        long long v = std::clamp<long long>(py::int_(hw[i]).cast<long long>(), 0, 1LL << 40);
        side[i] = static_cast<std::size_t>(v);
      }
      r = qzcall::planResize(rows, cols, side[0], side[1], *m, antialias);
    }
  } catch (qzcall::ResizeError const& e) {
    throw py::value_error(std::string("resize: ") + e.what());
  }
  auto run = [](ndArray_tag const* a, ndArray_tag const* w, ndArray_tag const* x, ndArray_tag const* dim) {
    return std::move(invoke(pximages::_imresize, 1, {a, w, x, dim})[0]);
  };
  img = nativeCopy(img);
  if ((img.flags() & py::array::c_style) && (img.flags() & py::detail::npy_api::NPY_ARRAY_ALIGNED_)) {
    // Pixel-interleaved rows in, the same layout out, both passes on the
    // NumPy buffer's own memory.  (An array that is F-ordered as well, one
    // pixel wide or high, comes out C-ordered too.)
    std::size_t const channels = img.ndim() == 3 ? 3 : 1;
    ArrayPtr in = qzhost::wrapData(qzhost::ArrayDesc{classOf(img.dtype())->cls, {channels * cols, rows}},
                                   const_cast<void*>(img.data()), noRelease, nullptr);
    ArrayPtr out = qzcall::resampleInterleaved(in.get(), rows, cols, channels, r, run);
    std::vector<py::ssize_t> shape{static_cast<py::ssize_t>(r.rows), static_cast<py::ssize_t>(r.cols)};
    if (channels == 3) shape.push_back(3);
    return toNumpy(std::move(out), true, shape);
  }
  Inputs in;
  in.add(img);
  return toNumpy(qzcall::resample(in.arrays[0].get(), r, run));
}

py::object call(std::string const& name, py::args arrays, int nargout) {
  qzhost::Gateway fn = qzcall::gatewayByName(name);
  if (!fn)
    throw py::value_error("unknown built-in '" + name +
                          "' (one of: cq, grayto8, imresize, ind2rgb8, rgb2gray, rgb2hsv)");
  if (nargout < 0 || nargout > 64) throw py::value_error("nargout must be between 0 and 64");
  Inputs in;
  for (std::size_t i = 0; i < arrays.size(); ++i) {
    std::string what = name + " input " + std::to_string(i + 1);
    in.add(asArray(arrays[i], what.c_str()));
  }
  auto out = invoke(fn, nargout, in.raw());
  if (nargout <= 1) return toNumpy(std::move(out[0]));
  py::tuple result(nargout);
  for (int k = 0; k < nargout; ++k)
    result[k] = out[k] ? py::object(toNumpy(std::move(out[k]))) : py::object(py::none());
  return std::move(result);
}

}  // namespace

PYBIND11_MODULE(_qzimages, m) {
  m.doc() = "The libqzimages built-ins on NumPy arrays.";
  PXInitialize_libqzimages();
  // Warnings reach Python through the warnings module, not stderr.
  qzhost::setWarningEcho(false);

  gError = PyErr_NewExceptionWithDoc("qzimages.Error",
                                     "A built-in refused its arguments. .identifier is the message identifier "
                                     "(catalog and key, e.g. 'ORRERY:images:cq:tooManyColors'); the message is the "
                                     "catalog's text.",
                                     PyExc_ValueError, nullptr);
  gWarning = PyErr_NewExceptionWithDoc("qzimages.Warning",
                                       "A warning issued by a built-in; .identifier is its message identifier.",
                                       PyExc_UserWarning, nullptr);
  m.add_object("Error", py::reinterpret_borrow<py::object>(gError));
  m.add_object("Warning", py::reinterpret_borrow<py::object>(gWarning));

  m.def(
      "_input_copies", [] { return gInputCopies; },
      "How many input conversions (layout or byte order) the module has made so far; for tests.");
  m.def(
      "_filter",
      [](std::size_t inLength, std::size_t outLength, double scale, std::string const& method, bool antialias) {
        auto kind = qzfilters::parseMethod(method);
        if (!kind) throw py::value_error("unknown method '" + method + "'");
        qzfilters::Filter f = qzfilters::makeFilter(inLength, outLength, scale, *kind, antialias);
        std::vector<py::ssize_t> shape{static_cast<py::ssize_t>(f.taps), static_cast<py::ssize_t>(f.outLength)};
        auto table = [&](std::vector<double> const& v) {
          py::array_t<double, py::array::f_style> a(shape);
          if (!v.empty()) std::memcpy(a.mutable_data(), v.data(), v.size() * sizeof(double));
          return a;
        };
        return py::make_tuple(table(f.weights), table(f.indices));
      },
      py::arg("in_length"), py::arg("out_length"), py::arg("scale"), py::arg("method") = "bicubic",
      py::arg("antialias") = true,
      "The weights and 1-based indices (taps x out_length, F-ordered) that resize() hands to imresize for one "
      "dimension; for benchmarks that call imresize directly.");

  m.def("rgb2gray", &rgb2gray, py::arg("img"), R"doc(
Weighted luminance 0.298936021293776 R + 0.587043074451121 G + 0.114020904255103 B.

img: an H x W x 3 array of any real numeric dtype (bool and complex are refused).
Returns an H x W array of the same dtype: floating results are clamped to [0, 1]
(NaN gives 0); integer results are rounded half away from zero and saturated.
A C-contiguous image is read in place, pixel-interleaved, and the result is
C-ordered; any other layout goes through the built-in and comes back F-ordered.
)doc");
  m.def("rgb2hsv", &rgb2hsv, py::arg("img"), R"doc(
Hue, saturation and value, each in [0, 1] for in-range input.

img: an H x W x 3 array, float64, float32, uint8 or uint16 (TypeError otherwise).
float32 gives float32; uint8 (scaled by 255), uint16 (by 65535) and float64 give
float64. A pixel with a NaN channel gets a NaN (or carried) hue.
Returns an H x W x 3 array, C-ordered for C-contiguous input, F-ordered otherwise.
)doc");
  m.def("ind2rgb8", &ind2rgb8, py::arg("index"), py::arg("cmap"), R"doc(
An indexed image through a colour map, as 8-bit RGB.

index: an H x W array, float64 (1-based, rounded) or uint8/uint16/uint32 (0-based);
indices outside the map are clamped to its first or last row.
cmap: a K x 3 float64 map with values in [0, 1] (NaN and negatives give 0, values
above 1 give 255).
Returns an H x W x 3 uint8 array (F-ordered).
Raises qzimages.Error for a bad index type, map type or map size.
)doc");
  m.def("grayto8", &grayto8, py::arg("img"), R"doc(
A float64, float32 (values in [0, 1]) or uint16 grayscale image as uint8.

Complex input warns (qzimages.Warning) and converts the real part.
Returns a uint8 array of the same shape (F-ordered).
)doc");
  m.def("cq", &cq, py::arg("img"), py::arg("k"), py::arg("return_index") = true, R"doc(
Colour quantisation of an H x W x 3 uint8 image to at most k colours.

k: the number of colours, an integer from 1 to 65536 (ValueError otherwise).
Returns (cmap, index): cmap is a K' x 3 uint8 colour map (K' <= k), index the
H x W 0-based index image, uint8 when K' <= 256 and uint16 otherwise.
With return_index=False only cmap is returned. To look the index up again with
ind2rgb8, pass cmap / 255.0 and the index as it is.
)doc");
  m.def("quantize", &quantize, py::arg("img"), py::arg("k"), py::arg("dither") = false, R"doc(
Reduces an H x W x 3 uint8 image to at most k colours (an integer from 1 to 65536).

Returns (cmap, index) as cq does: the K' x 3 uint8 colour map of cq, and the
H x W 0-based index image, uint8 when K' <= 256 and uint16 otherwise. Without
dither the index is cq's own (each pixel gets the mean colour of its box).
With dither=True each pixel gets the map colour nearest to it plus the error
diffused from its neighbours (Floyd-Steinberg, rows top to bottom, left to
right; exact nearest colour, the lowest index among equally near ones).
)doc");
  m.def("imresize", &imresize, py::arg("img"), py::arg("weights"), py::arg("indices"), py::arg("dim"), R"doc(
The imresize built-in as it is: resamples img along dimension dim (1: rows,
otherwise columns; a number) with T x L float64 weights and 1-based float64 source
indices.
Every index must lie inside the image (ValueError otherwise).
Returns an array of img's dtype (uint8 for bool) with L rows or columns (F-ordered).
)doc");
  m.def("resize", &resize, py::arg("img"), py::arg("scale") = py::none(), py::arg("size") = py::none(),
        py::arg("method") = "bicubic", py::arg("antialias") = true, R"doc(
Resamples an H x W or H x W x 3 image in both dimensions.

Give either scale (a positive number; the output is ceil(H*scale) x ceil(W*scale))
or size=(height, width). ValueError for a result with a side shorter than 1 pixel
(H*scale < 1) or longer than 65536 pixels, more than 67,108,864 pixels in all, or
a filter of more than 4,194,304 weights. method: nearest, bilinear, bicubic, lanczos2, lanczos3
or box. With antialias (the default) the kernel is widened when shrinking.
The filters are computed on the host side and the imresize built-in runs once
per dimension, the one reduced more first.
Returns an array of img's dtype (uint8 for bool), F-ordered.
)doc");
  m.def("call", &call, py::arg("name"), py::arg("nargout") = 1, R"doc(
Calls any built-in (cq, grayto8, imresize, ind2rgb8, rgb2gray, rgb2hsv) on any arrays.

Each positional argument becomes one host input: float64/float32, the integer
dtypes, bool, complex128/complex64, or a structured dtype of two fields of one
integer type (a complex integer array). Shape () is 1 x 1 and (n,) is 1 x n.
nargout is the number of outputs asked for (0 to 64). Returns the first output
when nargout <= 1, otherwise a tuple of nargout entries (None for a slot the
built-in left empty). Outputs are F-ordered.
)doc");
}
