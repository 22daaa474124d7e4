#include "host/ui/pngfile.h"

#include <png.h>

#include <csetjmp>
#include <cstdio>
#include <memory>

#include "host/core/atomicfile.h"

namespace zta {

namespace {

// libpng reports through longjmp; its words are kept for the error.
struct PngErrors {
  std::string message;
};

void OnPngError(png_structp png, png_const_charp text) {
  if (auto* e = static_cast<PngErrors*>(png_get_error_ptr(png))) e->message = text ? text : "unknown";
  png_longjmp(png, 1);
}
void OnPngWarning(png_structp, png_const_charp) {}

}  // namespace

Result<void> WritePng(const std::string& path, const Picture& picture) {
  if (picture.width <= 0 || picture.height <= 0 ||
      picture.rgba.size() != size_t(picture.width) * size_t(picture.height) * 4)
    return IllegalArgumentError("a picture of " + std::to_string(picture.width) + "x" +
                                std::to_string(picture.height) + " pixels cannot be written");
  auto file = AtomicFile::Open(path);
  if (!file) return file.GetError();
  PngErrors errors;
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &errors, OnPngError, OnPngWarning);
  if (!png) return OutOfMemoryError();
  png_infop info = png_create_info_struct(png);
  if (!info || setjmp(png_jmpbuf(png))) {
    png_destroy_write_struct(&png, &info);
    return IoError("cannot write '" + path + "': " + errors.message);
  }
  png_init_io(png, file->GetFile());
  png_set_IHDR(png, info, png_uint_32(picture.width), png_uint_32(picture.height), 8, PNG_COLOR_TYPE_RGBA,
               PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  png_write_info(png, info);
  for (Int32 y = 0; y < picture.height; ++y) png_write_row(png, picture.At(0, y));
  png_write_end(png, nullptr);
  png_destroy_write_struct(&png, &info);
  return file->Commit();
}

Result<Picture> ReadPng(const std::string& path) {
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> f(std::fopen(path.c_str(), "rb"), &std::fclose);
  if (!f) return IoError("cannot open '" + path + "'");
  unsigned char sig[8] = {};
  if (std::fread(sig, 1, 8, f.get()) != 8 || png_sig_cmp(sig, 0, 8))
    return IoError("'" + path + "' is not a PNG file");
  PngErrors errors;
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &errors, OnPngError, OnPngWarning);
  if (!png) return OutOfMemoryError();
  png_infop info = png_create_info_struct(png);
  Picture picture;
  if (!info || setjmp(png_jmpbuf(png))) {
    png_destroy_read_struct(&png, &info, nullptr);
    return IoError("cannot read '" + path + "': " + errors.message);
  }
  png_init_io(png, f.get());
  png_set_sig_bytes(png, 8);
  png_read_info(png, info);
  // Whatever the file holds arrives as 8-bit RGBA.
  png_set_expand(png);
  png_set_strip_16(png);
  png_set_gray_to_rgb(png);
  png_set_add_alpha(png, 0xff, PNG_FILLER_AFTER);
  png_read_update_info(png, info);
  picture.width = Int32(png_get_image_width(png, info));
  picture.height = Int32(png_get_image_height(png, info));
  picture.rgba.resize(size_t(picture.width) * size_t(picture.height) * 4);
  std::vector<png_bytep> rows(size_t(picture.height));
  for (Int32 y = 0; y < picture.height; ++y) rows[size_t(y)] = picture.rgba.data() + size_t(y) * size_t(picture.width) * 4;
  png_read_image(png, rows.data());
  png_read_end(png, nullptr);
  png_destroy_read_struct(&png, &info, nullptr);
  return picture;
}

}  // namespace zta
