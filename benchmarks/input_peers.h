// An image to encode, and how OpenCV and libyuv do it: the peers of the input benchmarks, each on
// one thread. libyuv does less work: it subtracts no means.
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

namespace corvane_bench {

struct Size {
  int width, height;
};
constexpr float kMeans[] = {127.5F, 127.5F, 127.5F};
constexpr float kScales[] = {1 / 128.0F, 1 / 128.0F, 1 / 128.0F};

// An image and a buffer for its planes, laid out as in the library.
template <class Element>
struct Work {
  Work(Size size, int channels)
      : pixel_count(static_cast<std::size_t>(size.width) * size.height),
        count(pixel_count * channels),
        pixels(new uint8_t[count]),
        planes(new Element[count]),
        image{pixels.get(), pixel_count, channels, false} {
    for (std::size_t i = 0; i < count; ++i) pixels[i] = static_cast<uint8_t>(i * 97);
    std::memset(planes.get(), 0, count * sizeof(Element));
  }
  std::size_t pixel_count, count;
  std::unique_ptr<uint8_t[]> pixels;
  std::unique_ptr<Element[]> planes;
  corvane::InputImage image;
};

template <class Element>
using Operation = std::function<void(Work<Element>&)>;

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
#else
inline const Operation<float> kBlobFromImage;
inline const Operation<uint16_t> kBlobToHalf;
inline const Operation<int16_t> kSplitToInt16;
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
#else
inline const Operation<float> kYuvToFloat;
inline const Operation<uint16_t> kYuvToHalf;
inline const Operation<int16_t> kYuvToInt16;
#endif

// Registers, as prefix/who, only writing the output with the widest stores, and the peers found.
template <class Element>
void RegisterPeers(const std::string& prefix, Size size, int channels, Operation<Element> opencv,
                   Operation<Element> libyuv) {
  Register<Element>(prefix + "memset_only", size, channels, [](Work<Element>& work) {
    std::memset(work.planes.get(), 1, work.count * sizeof(Element));
  });
  if (opencv) Register<Element>(prefix + "opencv", size, channels, opencv);
  if (libyuv) Register<Element>(prefix + "libyuv", size, channels, libyuv);
}

inline void UseOneThread() {
#if defined(CORVANE_BENCH_OPENCV)
  cv::setNumThreads(1);
#endif
}

}  // namespace corvane_bench

#endif  // CORVANE_BENCHMARKS_INPUT_PEERS_H_
