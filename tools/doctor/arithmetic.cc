#include <cfenv>
#include <limits>
#include <random>
#include <vector>

#include "corvane/image.h"
#include "src/rknn/input_encoder.h"
#include "tools/doctor/checks.h"

namespace corvane_tool {

namespace {

constexpr int kWidth = 160, kHeight = 120, kFace = 112;

uint64_t Hash(const void* bytes, std::size_t count) {  // FNV-1a
  uint64_t hash = 0xcbf29ce484222325u;
  for (std::size_t i = 0; i < count; ++i) {
    hash = (hash ^ static_cast<const uint8_t*>(bytes)[i]) * 0x100000001b3u;
  }
  return hash;
}

// The standard fixes the generator's numbers.
std::vector<uint8_t> Noise(std::size_t count) {
  std::minstd_rand random;
  std::vector<uint8_t> bytes(count);
  for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random() >> 8);
  return bytes;
}

uint64_t WarpHash() {
  const std::vector<uint8_t> picture = Noise(3 * kWidth * kHeight);
  std::vector<uint8_t> face(3 * kFace * kFace);
  const float matrix[6] = {1.1f, -0.2f, -12.3f, 0.2f, 1.1f, -7.7f};
  corvane::warpaffine_bilinear_c3(picture.data(), kWidth, kHeight, face.data(), kFace, kFace,
                                  matrix, 0, 0);
  return Hash(face.data(), face.size());
}

template <typename Element, typename Encode>
uint64_t EncodeHash(Encode encode) {
  const std::vector<uint8_t> picture = Noise(3 * kFace * kFace);
  const float means[3] = {123.675f, 116.28f, 103.53f};
  const float scales[3] = {0.017125f, 0.017507f, 0.017429f};
  std::vector<Element> planes(picture.size());
  encode({picture.data(), kFace * kFace, 3, true}, {means, scales}, planes.data());
  return Hash(planes.data(), planes.size() * sizeof(Element));
}

bool FlushesSubnormals() {
  volatile float tiny = std::numeric_limits<float>::min();
  volatile float half = 0.5f;
  return tiny * half == 0.0f;
}

}  // namespace

void CheckArithmetic(Findings* findings) {
  const struct {
    const char* name;
    uint64_t got, wanted;  // what every machine gets
  } results[] = {
      {"warp", WarpHash(), 0x78a26b8a62cfb9ff},
      {"float32", EncodeHash<float>(corvane::EncodeFloat32), 0x601d8938a2a66d55},
      {"float16", EncodeHash<uint16_t>(corvane::EncodeFloat16), 0x095a8a5120d0f1c9},
      {"fixed point",
       EncodeHash<int16_t>(
           [](const corvane::InputImage& image, const corvane::Normalisation& normalisation,
              int16_t* planes) { corvane::EncodeDfp16(image, normalisation, 12, planes); }),
       0xb3905665650e5d9d},
  };
  std::string wrong;
  for (const auto& result : results) {
    if (result.got != result.wanted)
      wrong += (wrong.empty() ? "" : ", ") + std::string(result.name);
  }
  if (wrong.empty()) {
    findings->Ok("arithmetic", "warp and input tensors are those of every machine");
  } else {
    findings->Wrong("arithmetic", "other results than every other machine: " + wrong,
                    "the build has other floating-point flags, or the CPU is broken: scripts/test");
  }
  const std::string mode = FlushesSubnormals()
                               ? "subnormal numbers count as zero, as the library sets it"
                               : "subnormal numbers are kept";
  if (std::fegetround() == FE_TONEAREST) {
    findings->Ok("arithmetic", mode);
  } else {
    findings->Wrong("arithmetic", "does not round to nearest; " + mode,
                    "something that is preloaded changes the floating-point mode: LD_PRELOAD");
  }
}

}  // namespace corvane_tool
