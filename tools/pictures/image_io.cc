#include "tools/pictures/image_io.h"

#include <jerror.h>
#include <jpeglib.h>
#include <png.h>

#include <csetjmp>
#include <cstddef>
#include <cstdio>  // jpeglib.h needs it to be there first
#include <cstring>

#include "tools/pictures/orientation.h"
#include "tools/support/failure.h"
#include "tools/support/files.h"

namespace corvane_tool {

namespace {

// The size is checked before anything is allocated for the pixels.
void TakeSize(const std::string& path, int64_t width, int64_t height, Image* image) {
  if (width * height > kMaxPixels) {
    throw Failure(path + ": " + std::to_string(width) + " x " + std::to_string(height) +
                  " pixels are more than the " + std::to_string(kMaxPixels) + " that are allowed");
  }
  image->width = static_cast<int>(width);
  image->height = static_cast<int>(height);
  image->pixels.resize(static_cast<std::size_t>(3 * width * height));
}

// ------------------------------------------------------------------------------------------- PNG

struct PngHandle {
  png_image image = {};
  PngHandle() { image.version = PNG_IMAGE_VERSION; }
  PngHandle(const PngHandle&) = delete;
  PngHandle& operator=(const PngHandle&) = delete;
  ~PngHandle() { png_image_free(&image); }
};

// libpng reads no further than the last row, so it does not miss the end of a file that was cut
// off.
bool HasPngEnd(const std::vector<uint8_t>& bytes) {
  constexpr std::size_t kAroundData = 12;  // length, type and checksum of a chunk
  std::size_t at = 8;
  while (bytes.size() - at >= kAroundData) {
    const uint8_t* const chunk = &bytes[at];
    const std::size_t length = std::size_t{chunk[0]} << 24 | std::size_t{chunk[1]} << 16 |
                               std::size_t{chunk[2]} << 8 | chunk[3];
    if (std::memcmp(chunk + 4, "IEND", 4) == 0) return true;
    if (length > bytes.size() - at - kAroundData) return false;
    at += kAroundData + length;
  }
  return false;
}

Image DecodePng(const std::string& path, const std::vector<uint8_t>& bytes) {
  PngHandle png;
  if (png_image_begin_read_from_memory(&png.image, bytes.data(), bytes.size()) == 0) {
    throw Failure(path + ": bad PNG: " + png.image.message);
  }
  if (!HasPngEnd(bytes)) throw Failure(path + ": bad PNG: its end (IEND) is missing");
  Image image;
  TakeSize(path, png.image.width, png.image.height, &image);
  png.image.format = PNG_FORMAT_RGB;
  png.image.flags |= PNG_IMAGE_FLAG_16BIT_sRGB;
  const png_color black = {0, 0, 0};
  if (png_image_finish_read(&png.image, &black, image.pixels.data(), 0, nullptr) == 0) {
    throw Failure(path + ": bad PNG: " + png.image.message);
  }
  return image;
}

// ------------------------------------------------------------------------------------------ JPEG

struct JpegErrors {
  jpeg_error_mgr base;  // first: the library hands back a pointer to it
  std::jmp_buf leave;
  char message[JMSG_LENGTH_MAX];
};

[[noreturn]] void OnJpegError(j_common_ptr info) {
  auto* errors = reinterpret_cast<JpegErrors*>(info->err);
  (*info->err->format_message)(info, errors->message);
  std::longjmp(errors->leave, 1);  // NOLINT(cert-err52-cpp): the C library's only way out
}

// The library would fill in for damaged data and go on; a damaged picture is no input.
void OnJpegMessage(j_common_ptr info, int level) {
  if (level >= 0) return;
  switch (info->err->msg_code) {
    case JWRN_BOGUS_PROGRESSION:
    case JWRN_HIT_MARKER:
    case JWRN_HUFF_BAD_CODE:
    case JWRN_JPEG_EOF:
    case JWRN_MUST_RESYNC:
    case JWRN_NOT_SEQUENTIAL:
      OnJpegError(info);
    default:
      break;  // a curious header, but a whole picture
  }
}

// Each scan costs a pass over the whole picture, however few bytes it has. Real pictures have some
// ten.
void LimitScans(j_common_ptr info) {
  constexpr int kMaxScans = 100;
  if (reinterpret_cast<j_decompress_ptr>(info)->input_scan_number <= kMaxScans) return;
  auto* errors = reinterpret_cast<JpegErrors*>(info->err);
  std::snprintf(errors->message, sizeof(errors->message), "it has more than %d scans", kMaxScans);
  std::longjmp(errors->leave, 1);  // NOLINT(cert-err52-cpp): the C library's only way out
}

struct JpegDecoder {
  jpeg_decompress_struct info = {};
  JpegErrors errors = {};
  jpeg_progress_mgr progress = {};
  JpegDecoder() {
    info.err = jpeg_std_error(&errors.base);
    errors.base.error_exit = OnJpegError;
    errors.base.emit_message = OnJpegMessage;
  }
  JpegDecoder(const JpegDecoder&) = delete;
  JpegDecoder& operator=(const JpegDecoder&) = delete;
  ~JpegDecoder() { jpeg_destroy_decompress(&info); }
};

// Up to the picture's size. No object with a destructor lives between a setjmp and the library
// calls after it, here and below.
bool StartJpeg(const std::vector<uint8_t>& bytes, JpegDecoder* decoder) {
  // NOLINTNEXTLINE(cert-err52-cpp)
  if (setjmp(decoder->errors.leave) != 0) return false;
  jpeg_create_decompress(&decoder->info);
  decoder->progress.progress_monitor = LimitScans;
  decoder->info.progress = &decoder->progress;
  jpeg_mem_src(&decoder->info, bytes.data(), static_cast<unsigned long>(bytes.size()));
  jpeg_save_markers(&decoder->info, JPEG_APP0 + 1, 0xFFFF);  // EXIF
  jpeg_read_header(&decoder->info, TRUE);
  decoder->info.out_color_space = JCS_RGB;
  jpeg_calc_output_dimensions(&decoder->info);
  return true;
}

// EXIF's orientation, 1 to 8; 1 where it is missing.
unsigned Orientation(const jpeg_decompress_struct& info) {
  constexpr char kExif[] = "Exif\0";  // and one more zero
  constexpr unsigned kOrientationTag = 0x0112;
  const jpeg_marker_struct* marker = info.marker_list;
  while (marker != nullptr &&
         (marker->data_length < 14 || std::memcmp(marker->data, kExif, sizeof(kExif)) != 0)) {
    marker = marker->next;
  }
  if (marker == nullptr) return 1;
  const uint8_t* const tiff = marker->data + sizeof(kExif);
  const std::size_t size = marker->data_length - sizeof(kExif);
  const auto number = [&](std::size_t at, std::size_t bytes) {
    std::size_t value = 0;
    for (std::size_t i = 0; i < bytes && at + i < size; ++i) {
      value |= std::size_t{tiff[at + i]} << 8 * (tiff[0] == 'M' ? bytes - 1 - i : i);
    }
    return value;
  };
  const std::size_t directory = number(4, 4);
  for (std::size_t i = 0; i < number(directory, 2); ++i) {
    const std::size_t entry = directory + 2 + 12 * i;
    if (number(entry, 2) != kOrientationTag) continue;
    const std::size_t orientation = number(entry + 8, 2);
    return orientation >= 1 && orientation <= 8 ? static_cast<unsigned>(orientation) : 1;
  }
  return 1;
}

bool FinishJpeg(JpegDecoder* decoder, Image* image) {
  // NOLINTNEXTLINE(cert-err52-cpp)
  if (setjmp(decoder->errors.leave) != 0) return false;
  jpeg_start_decompress(&decoder->info);
  const std::size_t row_bytes = std::size_t{3} * decoder->info.output_width;
  while (decoder->info.output_scanline < decoder->info.output_height) {
    JSAMPROW row = &image->pixels[decoder->info.output_scanline * row_bytes];
    jpeg_read_scanlines(&decoder->info, &row, 1);
  }
  jpeg_finish_decompress(&decoder->info);
  return true;
}

Image DecodeJpeg(const std::string& path, const std::vector<uint8_t>& bytes, bool applies_exif) {
  JpegDecoder decoder;
  Image image;
  unsigned orientation = 1;
  bool done = StartJpeg(bytes, &decoder);
  if (done) {
    const J_COLOR_SPACE colours = decoder.info.jpeg_color_space;
    if (colours == JCS_CMYK || colours == JCS_YCCK) {
      throw Failure(path + ": a CMYK JPEG; gray and RGB ones can be read");
    }
    orientation = Orientation(decoder.info);
    if (orientation != 1 && !applies_exif) {
      std::fprintf(stderr,
                   "corvane: %s: is stored turned (EXIF orientation %u) and read as it is stored; "
                   "exif = true turns it upright\n",
                   path.c_str(), orientation);
    }
    TakeSize(path, decoder.info.output_width, decoder.info.output_height, &image);
    done = FinishJpeg(&decoder, &image);
  }
  if (!done) throw Failure(path + ": bad JPEG: " + decoder.errors.message);
  return orientation != 1 && applies_exif ? Upright(image, orientation) : image;
}

bool BeginsWith(const std::vector<uint8_t>& bytes, const char* magic, std::size_t count) {
  return bytes.size() >= count && std::memcmp(bytes.data(), magic, count) == 0;
}

}  // namespace

Image ReadImage(const std::string& path, bool applies_exif) {
  const std::vector<uint8_t> bytes = ReadFile(path);
  if (BeginsWith(bytes, "\x89PNG\r\n\x1a\n", 8)) return DecodePng(path, bytes);
  if (BeginsWith(bytes, "\xff\xd8\xff", 3)) return DecodeJpeg(path, bytes, applies_exif);
  throw Failure(path + ": neither a PNG nor a JPEG file");
}

void WritePng(const std::string& path, const Image& image) {
  PngHandle png;
  png.image.width = static_cast<png_uint_32>(image.width);
  png.image.height = static_cast<png_uint_32>(image.height);
  png.image.format = PNG_FORMAT_RGB;
  std::vector<uint8_t> bytes(PNG_IMAGE_PNG_SIZE_MAX(png.image));
  png_alloc_size_t count = bytes.size();
  if (png_image_write_to_memory(&png.image, bytes.data(), &count, 0, image.pixels.data(), 0,
                                nullptr) == 0) {
    throw Failure(path + ": cannot be written as PNG: " + png.image.message);
  }
  WriteFile(path, bytes.data(), count);
}

}  // namespace corvane_tool
