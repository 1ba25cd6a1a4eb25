// An image to encode, and how others do it: the peers of the input benchmarks, each on one thread.
// libyuv and oneDNN do less work, they subtract no means; libswscale only separates and widens.
#ifndef CORVANE_BENCHMARKS_INPUT_PEERS_H_
#define CORVANE_BENCHMARKS_INPUT_PEERS_H_

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "src/rknn/input_encoder.h"

#if defined(CORVANE_BENCH_OPENCV)
#include <opencv2/core.hpp>
#include <opencv2/dnn.hpp>
#endif
#if defined(CORVANE_BENCH_LIBYUV)
#include <libyuv/planar_functions.h>
#endif
#if defined(CORVANE_BENCH_ONEDNN)
#include <dnnl.hpp>
#endif
#if defined(CORVANE_BENCH_SWSCALE)
extern "C" {
#include <libswscale/swscale.h>
}
#endif

namespace corvane_bench {

struct Size {
  int width, height;
};
constexpr float kMeans[] = {127.5F, 127.5F, 127.5F};
constexpr float kScales[] = {1 / 128.0F, 1 / 128.0F, 1 / 128.0F};

// An image and a buffer for its planes, laid out as in the library.
template <class Element>
struct Work {
  Work(Size image_size, int channels)
      : size(image_size),
        pixel_count(static_cast<std::size_t>(size.width) * size.height),
        count(pixel_count * channels),
        pixels(new uint8_t[count]),
        planes(new Element[count]),
        image{pixels.get(), pixel_count, channels, false} {
    for (std::size_t i = 0; i < count; ++i) pixels[i] = static_cast<uint8_t>(i * 97);
    std::memset(planes.get(), 0, count * sizeof(Element));
  }
  Size size;
  std::size_t pixel_count, count;
  std::unique_ptr<uint8_t[]> pixels;
  std::unique_ptr<Element[]> planes;
  corvane::InputImage image;
};

template <class Element>
using Operation = std::function<void(Work<Element>&)>;

template <class Element>
struct Peer {
  const char* name;
  Operation<Element> run;
};

template <class Element>
void Register(const std::string& name, Size size, int channels, Operation<Element> run) {
  benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State& state) {
    Work<Element> work(size, channels);
    for (auto unused : state) {
      (void)unused;
      run(work);
      benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(
        static_cast<int64_t>(state.iterations() * work.count * sizeof(Element)));
  });
}

#if defined(CORVANE_BENCH_OPENCV)
template <class Element>
cv::Mat Image(const Work<Element>& work) {
  return {static_cast<int>(work.pixel_count), 1, CV_8UC(work.image.channels), work.pixels.get()};
}

inline const Operation<float> kBlobFromImage = [](Work<float>& work) {
  static cv::Mat blob;
  cv::dnn::blobFromImage(Image(work), blob, 1 / 128.0, {}, cv::Scalar::all(127.5));
};

// Separates the channels, then computes (x - mean) * scale as one conversion for each plane.
template <class Element, int kDepth>
void SplitAndConvert(Work<Element>& work, double scale) {
  static std::vector<cv::Mat> bytes;
  cv::split(Image(work), bytes);
  for (std::size_t c = 0; c < bytes.size(); ++c) {
    cv::Mat plane(static_cast<int>(work.pixel_count), 1, kDepth,
                  work.planes.get() + c * work.pixel_count);
    bytes[c].convertTo(plane, kDepth, scale, -127.5 * scale);
  }
}
inline const Operation<uint16_t> kBlobToHalf = [](Work<uint16_t>& work) {
  static cv::Mat blob;
  cv::dnn::blobFromImage(Image(work), blob, 1 / 128.0, {}, cv::Scalar::all(127.5));
  cv::Mat halves(1, static_cast<int>(work.count), CV_16F, work.planes.get());
  blob.reshape(1, 1).convertTo(halves, CV_16F);
};
inline const Operation<int16_t> kSplitToInt16 = [](Work<int16_t>& work) {
  SplitAndConvert<int16_t, CV_16S>(work, 128.0);
};
#endif

#if defined(CORVANE_BENCH_LIBYUV)
// Separates the channels, then calls convert(bytes, plane, count) for each.
template <class Element, class Convert>
void SplitByLibyuv(Work<Element>& work, Convert convert) {
  const int count = static_cast<int>(work.pixel_count);
  if (work.image.channels == 1) return convert(work.pixels.get(), work.planes.get(), count);
  static std::vector<uint8_t> bytes;
  bytes.resize(work.count);
  uint8_t* const planes[] = {&bytes[0], &bytes[work.pixel_count], &bytes[2 * work.pixel_count]};
  libyuv::SplitRGBPlane(work.pixels.get(), 0, planes[0], 0, planes[1], 0, planes[2], 0, count, 1);
  for (int c = 0; c < 3; ++c) convert(planes[c], work.planes.get() + c * work.pixel_count, count);
}
inline const Operation<float> kYuvToFloat = [](Work<float>& work) {
  SplitByLibyuv(work, [](const uint8_t* bytes, float* plane, int count) {
    libyuv::ByteToFloat(bytes, plane, 1 / 128.0F, count);
  });
};
inline const Operation<uint16_t> kYuvToHalf = [](Work<uint16_t>& work) {
  SplitByLibyuv(work, [](const uint8_t* bytes, uint16_t* plane, int count) {
    libyuv::Convert8To16Plane(bytes, 0, plane, 0, 256, count, 1);
    libyuv::HalfFloatPlane(plane, 0, plane, 0, 1 / 128.0F, count, 1);
  });
};
inline const Operation<int16_t> kYuvToInt16 = [](Work<int16_t>& work) {
  SplitByLibyuv(work, [](const uint8_t* bytes, int16_t* plane, int count) {
    libyuv::Convert8To16Plane(bytes, 0, reinterpret_cast<uint16_t*>(plane), 0, 1 << 15, count, 1);
  });
};
#endif

#if defined(CORVANE_BENCH_ONEDNN)
// A reorder from bytes in rows to floats in planes, with a scale.
inline const Operation<float> kReorderByOneDnn = [](Work<float>& work) {
  using dnnl::memory;
  static const dnnl::engine cpu(dnnl::engine::kind::cpu, 0);
  static dnnl::stream stream(cpu);
  static std::size_t made_for = 0;
  static dnnl::reorder reorder;
  const memory::dims sizes = {1, work.image.channels, work.size.height, work.size.width};
  const memory::desc rows(sizes, memory::data_type::u8, memory::format_tag::nhwc);
  const memory::desc planes(sizes, memory::data_type::f32, memory::format_tag::nchw);
  if (made_for != work.count) {
    dnnl::primitive_attr scale;
    scale.set_output_scales(0, {1 / 128.0F});
    reorder = dnnl::reorder({cpu, rows, cpu, planes, scale});
    made_for = work.count;
  }
  memory from(rows, cpu, work.pixels.get()), to(planes, cpu, work.planes.get());
  reorder.execute(stream, from, to);
  stream.wait();
};
#endif

#if defined(CORVANE_BENCH_SWSCALE)
template <class Element>
void SeparateBySwscale(Work<Element>& work, AVPixelFormat planar, AVPixelFormat gray) {
  static std::size_t made_for = 0;
  static SwsContext* context = nullptr;
  const bool is_gray = work.image.channels == 1;
  const auto [width, height] = work.size;
  if (made_for != work.count) {
    sws_freeContext(context);
    context = sws_getContext(width, height, is_gray ? AV_PIX_FMT_GRAY8 : AV_PIX_FMT_RGB24, width,
                             height, is_gray ? gray : planar, SWS_POINT, nullptr, nullptr, nullptr);
    made_for = work.count;
  }
  uint8_t* planes[4] = {};  // in the order green, blue, red
  for (int c = 0; c < work.image.channels; ++c) {
    planes[is_gray ? 0 : (c + 2) % 3] =
        reinterpret_cast<uint8_t*>(work.planes.get() + c * work.pixel_count);
  }
  const uint8_t* rows[4] = {work.pixels.get()};
  const int row_bytes[4] = {width * work.image.channels};
  const int plane_row = width * static_cast<int>(sizeof(Element));
  const int plane_rows[4] = {plane_row, plane_row, plane_row};
  sws_scale(context, rows, row_bytes, 0, height, planes, plane_rows);
}
inline const Operation<float> kSwscaleToFloat = [](Work<float>& work) {
  SeparateBySwscale(work, AV_PIX_FMT_GBRPF32LE, AV_PIX_FMT_GRAYF32LE);
};
inline const Operation<int16_t> kSwscaleToInt16 = [](Work<int16_t>& work) {
  SeparateBySwscale(work, AV_PIX_FMT_GBRP16LE, AV_PIX_FMT_GRAY16LE);
};
#endif

// Those that are installed.
template <class Element>
std::vector<Peer<Element>> Peers();

template <>
inline std::vector<Peer<float>> Peers() {
  return {
#if defined(CORVANE_BENCH_OPENCV)
    {"opencv", kBlobFromImage},
#endif
#if defined(CORVANE_BENCH_LIBYUV)
        {"libyuv", kYuvToFloat},
#endif
#if defined(CORVANE_BENCH_ONEDNN)
        {"onednn", kReorderByOneDnn},
#endif
#if defined(CORVANE_BENCH_SWSCALE)
        {"swscale", kSwscaleToFloat},
#endif
  };
}

template <>
inline std::vector<Peer<uint16_t>> Peers() {
  return {
#if defined(CORVANE_BENCH_OPENCV)
    {"opencv", kBlobToHalf},
#endif
#if defined(CORVANE_BENCH_LIBYUV)
        {"libyuv", kYuvToHalf},
#endif
  };
}

template <>
inline std::vector<Peer<int16_t>> Peers() {
  return {
#if defined(CORVANE_BENCH_OPENCV)
    {"opencv", kSplitToInt16},
#endif
#if defined(CORVANE_BENCH_LIBYUV)
        {"libyuv", kYuvToInt16},
#endif
#if defined(CORVANE_BENCH_SWSCALE)
        {"swscale", kSwscaleToInt16},
#endif
  };
}

// Registers, as prefix/who, only writing the output with the widest stores, and the peers found.
template <class Element>
void RegisterPeers(const std::string& prefix, Size size, int channels) {
  Register<Element>(prefix + "memset_only", size, channels, [](Work<Element>& work) {
    std::memset(work.planes.get(), 1, work.count * sizeof(Element));
  });
  for (const Peer<Element>& peer : Peers<Element>()) {
    Register<Element>(prefix + peer.name, size, channels, peer.run);
  }
}

inline void UseOneThread() {
#if defined(CORVANE_BENCH_OPENCV)
  cv::setNumThreads(1);
#endif
}

}  // namespace corvane_bench

#endif  // CORVANE_BENCHMARKS_INPUT_PEERS_H_
