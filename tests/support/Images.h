#pragma once
// Test images made from nothing: an uncompressed BMP written byte by byte, and
// the same as PNG through the codec under test's own encoder.

#include <cstdint>

#include "foundation/Data.h"

namespace tamarind {

// A 24-bit BMP of the given size, a diagonal gradient so that scaling has something to average.
Data makeBmp(int width, int height);
// The same image as PNG.
Data makePng(int width, int height);
// The same gradient as a TIFF, as some programs offer images.
Data makeTiff(int width, int height);
// Like a desktop screenshot: flat panels and windows, with a fifth of the area in fine, noisy
// detail (text, photos) that PNG can't compress well. Deterministic.
Data makeScreenshotLikePng(int width, int height);

}  // namespace tamarind
