// Any warp against its rule, pixel by pixel.
//
// Bytes: source and destination extents, border type and colour, how to read the matrix, the
// matrix, then the source's pixels. The source is an allocation of exactly its size, so that
// AddressSanitizer sees a read outside; the destination lies between canaries.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "corvane/image.h"
#include "fuzz/byte_reader.h"
#include "src/image/warp_rules.h"

namespace {

using corvane::AddWrapping;
using corvane::RoundToFixed;
using corvane_fuzz::ByteReader;
using corvane_fuzz::Require;

constexpr int kTransparentBorder = -233;
constexpr std::size_t kCanaries = 64;
constexpr uint8_t kCanary = 0xA5, kOld = 0x5A;

struct Job {
  int src_width, src_height, dst_width, dst_height;
  int border_type;
  uint32_t border_color;
  float matrix[6];
};

std::size_t ByteCount(int width, int height) {
  if (width <= 0 || height <= 0) return 0;
  return std::size_t{3} * static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
}

Job TakeJob(ByteReader* bytes) {
  Job job;
  job.src_width = bytes->Take<uint8_t>() % 96 - 1;
  job.src_height = bytes->Take<uint8_t>() % 32 - 1;
  job.dst_width = bytes->Take<uint8_t>() % 96;
  job.dst_height = bytes->Take<uint8_t>() % 24 - 1;
  const auto mode = bytes->Take<uint8_t>();
  job.border_type = mode % 2 == 0 ? kTransparentBorder : mode;
  job.border_color = bytes->Take<uint32_t>();
  for (int i = 0; i < 6; ++i) {
    if (mode & 2 << i) {
      job.matrix[i] = bytes->Take<float>();  // any float; few of them are near a picture
    } else {
      job.matrix[i] = static_cast<float>(bytes->Take<int16_t>()) / (i % 3 == 2 ? 256.0f : 8192.0f);
    }
  }
  return job;
}

void WarpByTheRule(const Job& job, const uint8_t* src, uint8_t* dst) {
  const float* const m = job.matrix;
  const corvane::Source source = {
      src,
      job.src_width,
      job.src_height,
      {static_cast<uint8_t>(job.border_color), static_cast<uint8_t>(job.border_color >> 8),
       static_cast<uint8_t>(job.border_color >> 16)}};
  for (int y = 0; y < job.dst_height; ++y) {
    const auto row = static_cast<float>(y);
    const int32_t row_x = RoundToFixed(std::fma(m[1], row, m[2]) * 1024.0f);
    const int32_t row_y = RoundToFixed(std::fma(m[4], row, m[5]) * 1024.0f);
    for (int x = 0; x < job.dst_width; ++x, dst += 3) {
      const auto column = static_cast<float>(x);
      corvane::WarpPixel(source, job.border_type == kTransparentBorder,
                         AddWrapping(row_x, RoundToFixed(column * (m[0] * 1024.0f))),
                         AddWrapping(row_y, RoundToFixed(column * (m[3] * 1024.0f))), dst);
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  ByteReader bytes(data, size);
  const Job job = TakeJob(&bytes);

  const std::size_t src_size = ByteCount(job.src_width, job.src_height);
  const std::unique_ptr<uint8_t[]> src(src_size > 0 ? new uint8_t[src_size] : nullptr);
  uint32_t noise = 1;
  for (std::size_t i = 0; i < src_size; ++i) {
    noise = noise * 1664525 + 1013904223;
    src[i] = bytes.IsEmpty() ? static_cast<uint8_t>(noise >> 24) : bytes.Take<uint8_t>();
  }

  const std::size_t dst_size = ByteCount(job.dst_width, job.dst_height);
  std::vector<uint8_t> wanted(dst_size + 2 * kCanaries, kCanary);
  std::memset(wanted.data() + kCanaries, kOld, dst_size);
  std::vector<uint8_t> warped = wanted;
  WarpByTheRule(job, src.get(), wanted.data() + kCanaries);
  corvane::warpaffine_bilinear_c3(src.get(), job.src_width, job.src_height,
                                  warped.data() + kCanaries, job.dst_width, job.dst_height,
                                  job.matrix, job.border_type, job.border_color);
  Require(warped == wanted, "a warp differs from its rule, or wrote outside the destination");
  return 0;
}
