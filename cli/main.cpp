// qzimages: the built-ins of libqzimages on image and .npy files.

#include <CLI/CLI.hpp>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <optional>
#include <sstream>

#include <tbb/info.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <map>
#include <set>

#include "batch.hpp"
#include "builtins.hpp"
#include "dither.hpp"
#include "files.hpp"
#include "filters.hpp"
#include "image_io.hpp"
#include "messages.hpp"
#include "npy.hpp"
#include "outputs.hpp"
#include "resample.hpp"
#include "qzimages/qzimages.hpp"

namespace fs = std::filesystem;
using qzhost::ArrayPtr;

namespace qzcli {
namespace {

using qzcall::scalar;

// A problem with what the user asked for (exit status 2).
struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

bool isNpy(std::string const& path) { return fs::path(path).extension() == ".npy"; }

ArrayPtr readAny(std::string const& path) { return isNpy(path) ? readNpy(path) : readImage(path); }

bool isRgb(ndArray_tag const* a) {
  auto d = qzhost::dimsOf(a);
  return d.size() == 3 && d[2] == 3;
}

// A grayscale image as three equal planes, for built-ins that take RGB.
ArrayPtr asRgb(ArrayPtr img) {
  if (isRgb(img.get())) return img;
  auto d = qzhost::dimsOf(img.get());
  if (d.size() != 2) throw UsageError("expected an M-by-N or M-by-N-by-3 image");
  ndClassID cls = ndGetClassID(img.get());
  std::size_t bytes = d[0] * d[1] * qzhost::elementSize(cls);
  ArrayPtr rgb = qzhost::makeArray(cls, {d[0], d[1], 3});
  for (int c = 0; c < 3; ++c)
    if (bytes) std::memcpy(static_cast<char*>(ndGetData(rgb.get())) + c * bytes, ndGetData(img.get()), bytes);
  return rgb;
}

// Plane c of an M-by-N-by-3 double array, as an M-by-N array.
ArrayPtr plane(ndArray_tag const* a, std::size_t c) {
  auto d = qzhost::dimsOf(a);
  ArrayPtr p = qzhost::makeArray(ndclass::Double, {d[0], d[1]});
  std::size_t n = d[0] * d[1];
  if (n) std::memcpy(ndGetData(p.get()), qzhost::dataOf<double>(a) + c * n, n * sizeof(double));
  return p;
}

// A uint8 K-by-3 map as the double map in [0, 1] that ind2rgb8 takes;
// v/255 converts back to exactly v.
ArrayPtr unitMap(ndArray_tag const* map) {
  auto d = qzhost::dimsOf(map);
  ArrayPtr m = qzhost::makeArray(ndclass::Double, {d[0], 3});
  for (std::size_t i = 0; i < d[0] * 3; ++i) qzhost::dataOf<double>(m.get())[i] = qzhost::dataOf<std::uint8_t>(map)[i] / 255.0;
  return m;
}

double psnr(ndArray_tag const* a, ndArray_tag const* b) {
  std::size_t n = ndGetNumberOfElements(a);
  auto const* x = qzhost::dataOf<std::uint8_t>(a);
  auto const* y = qzhost::dataOf<std::uint8_t>(b);
  double se = 0;
  for (std::size_t i = 0; i < n; ++i) se += (double(x[i]) - y[i]) * (double(x[i]) - y[i]);
  if (se == 0 || n == 0) return INFINITY;
  return 10 * std::log10(255.0 * 255.0 / (se / double(n)));
}

// ---- Numbers on the command line --------------------------------------------------

// A decimal number: digits with an optional point and exponent, nothing else.
// Hexadecimal ("0x10"), "inf" and "nan" are not numbers a user means here.
std::optional<double> parseDecimal(std::string const& text) {
  std::size_t i = 0;
  auto sign = [&] { i += i < text.size() && (text[i] == '+' || text[i] == '-'); };
  auto digits = [&] {
    std::size_t start = i;
    while (i < text.size() && text[i] >= '0' && text[i] <= '9') ++i;
    return i - start;
  };
  sign();
  std::size_t mantissa = digits();
  if (i < text.size() && text[i] == '.') {
    ++i;
    mantissa += digits();
  }
  if (mantissa == 0) return std::nullopt;
  if (i < text.size() && (text[i] == 'e' || text[i] == 'E')) {
    ++i;
    sign();
    if (digits() == 0) return std::nullopt;
  }
  if (i != text.size()) return std::nullopt;
  return std::strtod(text.c_str(), nullptr);
}

// A count written as plain digits, at most `max`.
std::optional<std::size_t> parseCount(std::string const& text, std::size_t max) {
  if (text.empty() || text.size() > 9 || text.find_first_not_of("0123456789") != std::string::npos)
    return std::nullopt;
  std::size_t v = std::stoul(text);
  if (v > max) return std::nullopt;
  return v;
}

// ---- Subcommands --------------------------------------------------------------
// Each does one input and writes its outputs through Outputs, all or none;
// with several inputs the same function runs once per input.

ArrayPtr toGray(ArrayPtr img) {
  if (!isRgb(img.get())) return img;  // already one channel
  return std::move(run(pximages::_rgb2gray, 1, {img.get()})[0]);
}

void cmdGray(std::string const& in, std::string const& out) {
  Outputs files;
  files.add(out);
  ArrayPtr img = readImage(in);
  if (!isRgb(img.get())) messages() << "note: " << inputName(in) << " is already grayscale; written unchanged\n";
  files.write(out, encodeImage(toGray(std::move(img)).get(), out));
  files.commit();
}

void cmdHsv(std::string const& in, std::string const& prefix, bool npy) {
  if (prefix.empty()) throw UsageError("the output prefix is empty");
  Outputs files;
  std::vector<std::string> planes{prefix + "_h.png", prefix + "_s.png", prefix + "_v.png"};
  for (auto const& p : planes) files.add(p);
  if (npy) files.add(prefix + ".npy");
  ArrayPtr img = asRgb(readImage(in));
  ArrayPtr hsv = std::move(run(pximages::_rgb2hsv, 1, {img.get()})[0]);
  for (std::size_t c = 0; c < 3; ++c) {
    ArrayPtr p = plane(hsv.get(), c);
    files.write(planes[c], encodePng(run(pximages::_grayto8, 1, {p.get()})[0].get(), planes[c]));
  }
  if (npy) files.write(prefix + ".npy", formatNpy(hsv.get()));
  files.commit();
}

struct Quantised {
  ArrayPtr map, index, rgb;
  std::size_t colours;
};

// cq, optionally the image dithered onto cq's map in place of cq's own
// index, then the image rebuilt from map and index through ind2rgb8.
Quantised quantise(ndArray_tag const* img, double k, bool dither) {
  ArrayPtr kArg = scalar(k);
  auto out = run(pximages::_cq, 2, {img, kArg.get()});
  std::size_t const colours = qzhost::dimsOf(out[0].get())[0];
  Quantised q{std::move(out[0]), std::move(out[1]), nullptr, colours};
  if (dither) q.index = qzcall::ditherToMap(img, q.map.get());
  ArrayPtr m = unitMap(q.map.get());
  q.rgb = std::move(run(pximages::_ind2rgb8, 1, {q.index.get(), m.get()})[0]);
  return q;
}

// The -k argument, checked before any file is read.
double parseColours(std::string const& kText) {
  auto k = parseDecimal(kText);
  if (!k) throw UsageError("-k: the number of colours must be an integer from 1 to 65536, not '" + kText + "'");
  qzcall::checkColourCount(*k);
  return *k;
}

void cmdQuantize(std::string const& in, double k, bool dither, std::string const& out,
                 std::optional<std::string> const& mapPath) {
  Outputs files;
  files.add(out);
  if (mapPath) files.add(*mapPath);
  ArrayPtr img = asRgb(readImage(in));
  if (ndGetClassID(img.get()) != ndclass::UInt8) throw UsageError(inputName(in) + ": quantize needs an 8-bit image");
  Quantised q = quantise(img.get(), k, dither);
  files.write(out, q.colours <= 256 ? encodeIndexedPng(q.index.get(), q.map.get(), out) : encodeImage(q.rgb.get(), out));
  if (mapPath) files.write(*mapPath, formatNpy(unitMap(q.map.get()).get()));
  files.commit();
  // With the image on standard output, the numbers go with the messages.
  std::ostream& to = out == "-" ? messages() : report();
  to << "colours: " << q.colours << (dither ? " (dithered)" : "") << "\n";
  to << "PSNR: " << std::fixed << std::setprecision(2) << psnr(img.get(), q.rgb.get()) << " dB\n";
}

void cmdInd2rgb(std::string const& in, std::string const& mapPath, std::string const& out) {
  Outputs files;
  files.add(out);
  ArrayPtr index, map;
  if (!isNpy(in)) {
    auto indexed = readIndexedPng(in);
    if (!indexed) throw UsageError(inputName(in) + ": not a palette PNG (give a palette PNG or an index .npy)");
    index = std::move(indexed->index);
    map = unitMap(indexed->palette.get());
  } else {
    index = readNpy(in);
  }
  if (!mapPath.empty()) map = readNpy(mapPath);
  if (!map) throw UsageError("an index array needs a colour map: --map MAP.npy");
  files.write(out, encodeImage(run(pximages::_ind2rgb8, 1, {index.get(), map.get()})[0].get(), out));
  files.commit();
}

void cmdTo8(std::string const& in, std::string const& out) {
  Outputs files;
  files.add(out);
  ArrayPtr img = readAny(in);
  files.write(out, encodeImage(run(pximages::_grayto8, 1, {img.get()})[0].get(), out));
  files.commit();
}

// One imresize call: the runner of both resampling drivers.
ArrayPtr runImresize(ndArray_tag const* a, ndArray_tag const* w, ndArray_tag const* x, ndArray_tag const* dim) {
  return std::move(run(pximages::_imresize, 1, {a, w, x, dim})[0]);
}

// Resamples both dimensions with one imresize call each.
ArrayPtr resize(ArrayPtr img, qzcall::ResampleRequest const& r) { return qzcall::resample(img.get(), r, runImresize); }

// What resize was asked for, checked before any file is read.
struct ResizeOptions {
  std::optional<double> scale;
  std::size_t h = 0, w = 0;
  qzfilters::Method method;
  bool antialias;
};

ResizeOptions parseResize(std::optional<std::string> const& scaleText, std::optional<std::string> const& size,
                       std::string const& methodName, bool noAntialias) {
  auto method = qzfilters::parseMethod(methodName);
  if (!method) throw UsageError("unknown method '" + methodName + "'");
  ResizeOptions opts{std::nullopt, 0, 0, *method, !noAntialias};
  if (scaleText) {
    opts.scale = parseDecimal(*scaleText);
    if (!opts.scale) throw UsageError("--scale: '" + *scaleText + "' is not a decimal number");
  } else {
    std::size_t x = size->find_first_of("xX");
    auto hh = parseCount(size->substr(0, x), 999999999);
    auto ww = x == std::string::npos ? std::nullopt : parseCount(size->substr(x + 1), 999999999);
    if (!hh || !ww) throw UsageError("--size: '" + *size + "' is not HxW with H and W whole numbers, e.g. 300x400");
    opts.h = *hh;
    opts.w = *ww;
  }
  return opts;
}

void cmdResize(std::string const& in, ResizeOptions const& opts, std::string const& out) {
  Outputs files;
  files.add(out);
  std::string const bytes = readInput(in), name = inputName(in);
  if (!isTiffName(out)) {
    // PNG and JPEG rows as decoded: both passes read them in place.
    if (auto img = decodeInterleaved(bytes, name)) {
      qzcall::ResampleRequest r =
          opts.scale ? qzcall::planResize(img->height, img->width, *opts.scale, opts.method, opts.antialias)
                     : qzcall::planResize(img->height, img->width, opts.h, opts.w, opts.method, opts.antialias);
      InterleavedImage result{qzcall::resampleInterleaved(img->pixels.get(), img->height, img->width, img->channels,
                                                          r, runImresize),
                              r.rows, r.cols, img->channels};
      files.write(out, encodePng(result, out));
      files.commit();
      return;
    }
  }
  ArrayPtr img = decodeImage(bytes, name);
  auto d = qzhost::dimsOf(img.get());
  qzcall::ResampleRequest r = opts.scale ? qzcall::planResize(d[0], d[1], *opts.scale, opts.method, opts.antialias)
                                         : qzcall::planResize(d[0], d[1], opts.h, opts.w, opts.method, opts.antialias);
  files.write(out, encodeImage(resize(std::move(img), r).get(), out));
  files.commit();
}

// ---- Several inputs ------------------------------------------------------------

// What the user sees for a failure: "error: ..." lines, and the exit status
// of a run that stops there (1 when a built-in refused, 2 otherwise).
std::pair<std::string, int> describeFailure(std::exception_ptr failure) {
  try {
    std::rethrow_exception(failure);
  } catch (BuiltinFailed const&) {
    return {"", 1};  // already reported
  } catch (qzhost::HostError const& e) {
    return {"error: " + e.identifier() + ": " + e.message() + "\n", 2};
  } catch (std::exception const& e) {
    // Usage problems, unreadable or unwritable files, requests beyond the
    // limits: the message says which.
    return {std::string("error: ") + e.what() + "\n", 2};
  } catch (...) {
    return {"error: unexpected failure\n", 2};
  }
}

// An image subcommand on its inputs: with -o, one input as it always was;
// with -O, each input to outputs named after it in that folder, as a batch.
// `one(input, output)` does one file; `outputIn(input, folder)` names the
// output (for hsv, the prefix) an input gets in the folder.
int runImageCommand(std::string const& command, std::vector<std::string> const& inputs,
                    std::optional<std::string> const& out, std::optional<std::string> const& outDir,
                    std::function<void(std::string const&, std::string const&)> const& one,
                    std::function<std::string(std::string const&, std::string const&)> const& outputIn) {
  if (out && outDir)
    throw UsageError(command + ": give -o OUTPUT for one input or -O FOLDER for any number, not both");
  if (!outDir) {
    if (inputs.size() > 1)
      throw UsageError(command + ": " + std::to_string(inputs.size()) +
                       " inputs need an output folder, -O FOLDER (-o names the output of one input)");
    if (!out) throw UsageError(command + ": give the output, -o OUTPUT (or -O FOLDER)");
    one(inputs[0], *out);
    return 0;
  }
  std::string const& dir = *outDir;
  // Every output name is settled before any file is read: two inputs that
  // would write the same file, or an output that is another input, stop the
  // run here.
  std::map<std::string, std::string> claimed;  // output -> input
  std::set<std::string> ins;
  for (auto const& in : inputs) {
    if (in == "-") throw UsageError(command + ": " + kStdinName + " (-) is read only with -o OUTPUT");
    ins.insert(fs::weakly_canonical(in).string());
  }
  for (auto const& in : inputs) {
    std::string const o = outputIn(in, dir);
    std::string const key = fs::weakly_canonical(o).string();
    auto [at, fresh] = claimed.emplace(key, in);
    if (!fresh) throw UsageError(command + ": " + at->second + " and " + in + " would both write " + o);
    if (ins.count(key)) throw UsageError(command + ": the output " + o + " of " + in + " is one of the inputs");
  }
  std::error_code ec;
  fs::create_directories(dir, ec);
  if (!fs::is_directory(dir)) throw UsageError(dir + ": cannot create the output folder");

  BatchOptions options;
  options.command = command;
  // A few files at a time: enough to keep the threads busy between one
  // file's serial steps (decoding, cq, encoding) and another's parallel
  // ones, and never more images in memory than that.
  options.inFlight = static_cast<std::size_t>(std::clamp(tbb::info::default_concurrency(), 2, 4));
  options.progress = isatty(STDERR_FILENO) != 0;
  BatchSummary s = runBatch(
      inputs, [&](std::string const& in) { one(in, outputIn(in, dir)); },
      [](std::exception_ptr e) { return describeFailure(e).first; }, options);
  return s.failed ? 1 : 0;
}

// The output an input gets in a folder: its name without its extension,
// with `ending` in place of it.
std::string named(std::string const& in, std::string const& dir, std::string const& ending) {
  return (fs::path(dir) / (fs::path(in).stem().string() + ending)).string();
}

int cmdCall(std::string const& name, std::string const& nargoutText, std::string const& outDir,
            std::vector<std::string> const& inputFiles) {
  qzhost::Gateway fn = gatewayByName(name);
  if (!fn) throw UsageError("unknown built-in '" + name + "' (one of: cq, grayto8, imresize, ind2rgb8, rgb2gray, rgb2hsv)");
  auto nargout = parseCount(nargoutText, 64);
  if (!nargout) throw UsageError("-n: the number of outputs must be a whole number from 0 to 64, not '" + nargoutText + "'");
  // Every output the call may fill, checked and planned before it runs.
  OutputFiles files;
  files.makeFolder(outDir);
  std::vector<std::string> paths;
  for (std::size_t k = 0; k < std::max<std::size_t>(*nargout, 1); ++k) {
    paths.push_back((fs::path(outDir) / ("out" + std::to_string(k) + ".npy")).string());
    files.add(paths.back());
  }
  std::vector<ArrayPtr> inputs;
  for (auto const& f : inputFiles) inputs.push_back(readNpy(f));
  std::vector<ndArray_tag const*> raw;
  for (auto const& a : inputs) raw.push_back(a.get());
  int const n = static_cast<int>(*nargout);
  auto out = run(fn, n, raw, std::max<std::size_t>(2, *nargout));
  for (std::size_t k = 0; k < paths.size(); ++k)
    if (out[k]) files.write(paths[k], formatNpy(out[k].get()));
  files.commit();
  return 0;
}

// ---- The demo --------------------------------------------------------------------

struct Timer {
  std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
  double ms() const {
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
  }
};

int cmdDemo(std::string const& input, std::string const& dir) {
  auto path = [&](std::string const& f) { return (fs::path(dir) / f).string(); };
  OutputFiles files;
  files.makeFolder(dir);
  for (char const* f : {"gray.png", "hsv_h.png", "hsv_s.png", "hsv_v.png", "quantized_16.png", "quantized_16_dither.png",
                        "quantized_256.png", "roundtrip_256.png", "half.png", "double.png", "gray8_from_double.png"})
    files.add(path(f));
  ArrayPtr photo = readImage(input);
  if (!isRgb(photo.get()) || ndGetClassID(photo.get()) != ndclass::UInt8)
    throw UsageError(input + ": the demo needs an 8-bit RGB photo");
  auto d = qzhost::dimsOf(photo.get());
  struct Row {
    std::string file, builtin, note;
    double ms;
  };
  std::vector<Row> rows;
  auto write = [&](std::string const& f, ndArray_tag const* image) { files.write(path(f), encodePng(image, path(f))); };

  Timer t;
  ArrayPtr gray = std::move(run(pximages::_rgb2gray, 1, {photo.get()})[0]);
  rows.push_back({"gray.png", "rgb2gray", "luminance", t.ms()});
  write("gray.png", gray.get());

  t = Timer();
  ArrayPtr hsv = std::move(run(pximages::_rgb2hsv, 1, {photo.get()})[0]);
  double hsvMs = t.ms();
  char const* planes[] = {"hsv_h.png", "hsv_s.png", "hsv_v.png"};
  for (std::size_t c = 0; c < 3; ++c) {
    ArrayPtr p = plane(hsv.get(), c);
    ArrayPtr b = std::move(run(pximages::_grayto8, 1, {p.get()})[0]);
    write(planes[c], b.get());
  }
  rows.push_back({"hsv_{h,s,v}.png", "rgb2hsv", "planes through grayto8", hsvMs});

  for (int k : {16, 256}) {
    t = Timer();
    ArrayPtr kArg = scalar(k);
    auto out = run(pximages::_cq, 2, {photo.get(), kArg.get()});
    double cqMs = t.ms();
    ArrayPtr m = unitMap(out[0].get());
    std::string file = "quantized_" + std::to_string(k) + ".png";
    files.write(path(file), encodeIndexedPng(out[1].get(), out[0].get(), path(file)));
    t = Timer();
    ArrayPtr rgb = std::move(run(pximages::_ind2rgb8, 1, {out[1].get(), m.get()})[0]);
    double indMs = t.ms();
    std::ostringstream note;
    note << qzhost::dimsOf(out[0].get())[0] << " colours, PSNR " << std::fixed << std::setprecision(2)
         << psnr(photo.get(), rgb.get()) << " dB";
    rows.push_back({file, "cq", note.str(), cqMs});
    if (k == 16) {
      // The same map with Floyd-Steinberg dithering, beside the plain one.
      t = Timer();
      ArrayPtr dithered = qzcall::ditherToMap(photo.get(), out[0].get());
      double ditherMs = t.ms();
      std::string const dfile = "quantized_16_dither.png";
      files.write(path(dfile), encodeIndexedPng(dithered.get(), out[0].get(), path(dfile)));
      ArrayPtr drgb = std::move(run(pximages::_ind2rgb8, 1, {dithered.get(), m.get()})[0]);
      std::ostringstream dnote;
      dnote << "cq's 16 colours, Floyd-Steinberg, PSNR " << std::fixed << std::setprecision(2)
            << psnr(photo.get(), drgb.get()) << " dB";
      rows.push_back({dfile, "(host)", dnote.str(), ditherMs});
    }
    if (k == 256) {
      write("roundtrip_256.png", rgb.get());
      rows.push_back({"roundtrip_256.png", "ind2rgb8", "index + map back to RGB", indMs});
    }
  }

  for (double s : {0.5, 2.0}) {
    ArrayPtr copy = qzhost::makeArray(ndclass::UInt8, {d[0], d[1], 3});
    std::memcpy(ndGetData(copy.get()), ndGetData(photo.get()), d[0] * d[1] * 3);
    t = Timer();
    ArrayPtr r = resize(std::move(copy), qzcall::planResize(d[0], d[1], s, qzfilters::Method::Bicubic, true));
    double ms = t.ms();
    std::string file = s < 1 ? "half.png" : "double.png";
    write(file, r.get());
    auto rd = qzhost::dimsOf(r.get());
    rows.push_back({file, "imresize", "bicubic " + std::to_string(rd[1]) + "x" + std::to_string(rd[0]), ms});
  }

  // A double image: the photo's luminance in [0, 1], back to bytes.
  ArrayPtr unit = qzhost::makeArray(ndclass::Double, {d[0], d[1]});
  for (std::size_t i = 0; i < d[0] * d[1]; ++i)
    qzhost::dataOf<double>(unit.get())[i] = qzhost::dataOf<std::uint8_t>(gray.get())[i] / 255.0;
  t = Timer();
  ArrayPtr back = std::move(run(pximages::_grayto8, 1, {unit.get()})[0]);
  rows.push_back({"gray8_from_double.png", "grayto8", "double in [0,1] to uint8", t.ms()});
  write("gray8_from_double.png", back.get());
  files.commit();

  std::cout << "demo on " << input << " (" << d[1] << "x" << d[0] << "), results in " << dir << "/\n\n";
  std::cout << std::left << std::setw(24) << "file" << std::setw(10) << "built-in" << std::right << std::setw(10)
            << "time ms" << "  " << "notes\n";
  for (auto const& r : rows)
    std::cout << std::left << std::setw(24) << r.file << std::setw(10) << r.builtin << std::right << std::setw(10)
              << std::fixed << std::setprecision(2) << r.ms << "  " << r.note << "\n";
  return 0;
}

}  // namespace
}  // namespace qzcli

int main(int argc, char** argv) {
  using namespace qzcli;
  CLI::App app{"qzimages: image built-ins on PNG, JPEG, TIFF and .npy files"};
  app.require_subcommand(1);
  app.set_version_flag("--version", std::string("qzimages ") + QZ_VERSION);

  std::string out, prefix, mapPath, method = "bicubic", name, outDir = ".", demoDir = "demo-out", batchDir;
  std::string demoInput = QZ_SAMPLE_PHOTO;
  // Numbers are taken as text and read by parseDecimal/parseCount, which
  // accept decimal notation only.
  std::string k, scale, size, nargout = "1";
  bool npy = false, noAntialias = false, dither = false;
  std::vector<std::string> files, inputs;

  // The image subcommands take one input with -o, or any number with -O.
  auto imageIO = [&](CLI::App* sub, std::string const& what, std::string const& output) {
    sub->add_option("inputs", inputs, what + " (any number with -O; - reads standard input)")->required();
    sub->add_option("-o,--output", out, output);
    sub->add_option("-O,--outdir", batchDir, "folder for the outputs of any number of inputs, named after them");
  };
  auto* gray = app.add_subcommand("gray", "Weighted luminance of an RGB image (rgb2gray); 16-bit stays 16-bit");
  imageIO(gray, "PNG, JPEG or TIFF images", "output PNG, or TIFF if named .tif; - writes PNG to standard output");

  auto* hsv = app.add_subcommand("hsv", "Hue, saturation and value planes as 8-bit PNGs (rgb2hsv, grayto8)");
  hsv->add_option("inputs", inputs, "PNG, JPEG or TIFF images (any number with -O; - reads standard input)")
      ->required();
  hsv->add_option("-o,--output", prefix, "prefix: writes PREFIX_h.png, PREFIX_s.png, PREFIX_v.png");
  hsv->add_option("-O,--outdir", batchDir, "folder for the planes of any number of inputs: NAME_h.png, ...");
  hsv->add_flag("--npy", npy, "also write the double HSV image as PREFIX.npy");

  auto* quant = app.add_subcommand("quantize", "Reduce an 8-bit image to at most K colours (cq)");
  imageIO(quant, "PNG, JPEG or TIFF images",
          "output PNG (palette PNG for up to 256 colours); - writes to standard output");
  quant->add_option("-k,--colors", k, "number of colours, an integer from 1 to 65536")->required();
  quant->add_flag("--dither", dither, "map onto cq's colours with Floyd-Steinberg error diffusion");
  auto* mapOpt = quant->add_option("--map", mapPath, "also write the colour map, doubles in [0,1], as .npy (one input)");

  auto* ind = app.add_subcommand("ind2rgb", "Expand an indexed image through its colour map (ind2rgb8)");
  imageIO(ind, "palette PNGs, or index arrays .npy (double: 1-based; integer: 0-based)",
          "output PNG, or TIFF if named .tif; - writes PNG to standard output");
  ind->add_option("--map", mapPath, "colour map .npy, K-by-3 doubles in [0,1]");

  auto* to8 = app.add_subcommand(
      "to8", "Convert a 16-bit gray PNG or TIFF, a float TIFF or a double/single .npy to 8 bits (grayto8)");
  imageIO(to8, "16-bit gray PNGs or TIFFs, float TIFFs, or .npy arrays", "output PNG; - writes to standard output");

  auto* rs = app.add_subcommand("resize", "Resample an image (imresize, once per dimension)");
  imageIO(rs, "PNG, JPEG or TIFF images",
          "output PNG, or TIFF if named .tif (float images need it); - writes PNG to standard output");
  auto* scaleOpt = rs->add_option("--scale", scale, "scale factor, a decimal number, e.g. 0.5");
  auto* sizeOpt = rs->add_option("--size", size, "output size HxW, e.g. 300x400");
  scaleOpt->excludes(sizeOpt);
  rs->add_option("--method", method, "nearest, bilinear, bicubic, lanczos2, lanczos3 or box")
      ->check(CLI::IsMember({"nearest", "bilinear", "bicubic", "lanczos2", "lanczos3", "box"}));
  rs->add_flag("--no-antialias", noAntialias, "do not widen the kernel when shrinking");

  auto* call = app.add_subcommand("call", "Call a built-in on .npy arrays; outputs go to OUTDIR/out<k>.npy");
  call->add_option("name", name, "cq, grayto8, imresize, ind2rgb8, rgb2gray or rgb2hsv")->required();
  call->add_option("-n,--nargout", nargout, "number of outputs asked for, 0 to 64 (default 1)");
  call->add_option("-o,--outdir", outDir, "folder for the outputs (default .)");
  call->add_option("inputs", files, "input arrays (.npy), in order");

  auto* demo = app.add_subcommand("demo", "Run every built-in on the bundled sample photo");
  demo->add_option("-o,--outdir", demoDir, "folder for the results (default demo-out)");
  demo->add_option("-i,--input", demoInput, "photo to use instead of the bundled one");

  // A word where a subcommand belongs is named, with the ones there are.
  if (argc > 1 && argv[1][0] != '-') {
    std::string word = argv[1], known;
    bool found = false;
    for (auto const* sub : app.get_subcommands({})) {
      found = found || sub->get_name() == word;
      known += (known.empty() ? "" : ", ") + sub->get_name();
    }
    if (!found) {
      std::cerr << "error: unknown subcommand '" << word << "' (one of: " << known << ")\n";
      return 2;
    }
  }
  try {
    app.parse(argc, argv);
  } catch (CLI::CallForHelp const& e) {
    return app.exit(e);
  } catch (CLI::CallForAllHelp const& e) {
    return app.exit(e);
  } catch (CLI::CallForVersion const& e) {
    return app.exit(e);
  } catch (CLI::ParseError const& e) {
    std::cerr << "error: " << e.what() << " (qzimages --help for usage)\n";
    return 2;
  }
  if (rs->parsed() && scaleOpt->count() == 0 && sizeOpt->count() == 0) {
    std::cerr << "error: resize: give --scale S or --size HxW\n";
    return 2;
  }

  // A TIFF stays a TIFF (float images need it); everything else becomes PNG.
  auto sameKind = [](std::string const& in, std::string const& dir) {
    return named(in, dir, isTiffName(in) ? ".tif" : ".png");
  };
  auto png = [](std::string const& in, std::string const& dir) { return named(in, dir, ".png"); };
  // Which of -o and -O were given (an empty name is given, and refused as such).
  auto given = [](CLI::App* sub, char const* option, std::string const& value) {
    return sub->count(option) ? std::optional(value) : std::nullopt;
  };
  CLI::App* image = nullptr;
  for (CLI::App* sub : {gray, hsv, quant, ind, to8, rs})
    if (sub->parsed()) image = sub;
  std::optional<std::string> const single = image ? given(image, "-o", image == hsv ? prefix : out) : std::nullopt;
  std::optional<std::string> const folder = image ? given(image, "-O", batchDir) : std::nullopt;
  try {
    if (gray->parsed()) return runImageCommand("gray", inputs, single, folder, cmdGray, sameKind);
    if (hsv->parsed())
      return runImageCommand(
          "hsv", inputs, single, folder, [&](auto const& in, auto const& p) { cmdHsv(in, p, npy); },
          [](std::string const& in, std::string const& dir) { return named(in, dir, ""); });
    if (quant->parsed()) {
      double const colours = parseColours(k);
      if (mapOpt->count() && folder)
        throw UsageError("quantize: --map names the map of one input; it does not go with -O");
      std::optional<std::string> const map = mapOpt->count() ? std::optional(mapPath) : std::nullopt;
      return runImageCommand(
          "quantize", inputs, single, folder,
          [&](auto const& in, auto const& o) { cmdQuantize(in, colours, dither, o, map); }, png);
    }
    if (ind->parsed())
      return runImageCommand(
          "ind2rgb", inputs, single, folder, [&](auto const& in, auto const& o) { cmdInd2rgb(in, mapPath, o); },
          sameKind);
    if (to8->parsed()) return runImageCommand("to8", inputs, single, folder, cmdTo8, png);
    if (rs->parsed()) {
      ResizeOptions const opts = parseResize(scaleOpt->count() ? std::optional(scale) : std::nullopt,
                                          sizeOpt->count() ? std::optional(size) : std::nullopt, method, noAntialias);
      return runImageCommand(
          "resize", inputs, single, folder, [&](auto const& in, auto const& o) { cmdResize(in, opts, o); }, sameKind);
    }
    if (call->parsed()) return cmdCall(name, nargout, outDir, files);
    if (demo->parsed()) return cmdDemo(demoInput, demoDir);
  } catch (...) {
    auto [text, status] = describeFailure(std::current_exception());
    std::cerr << text;
    return status;
  }
  return 2;
}
