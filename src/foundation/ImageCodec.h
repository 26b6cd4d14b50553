#pragma once
// Decoding, measuring, scaling and encoding of copied images (PNG, TIFF, JPEG,
// BMP, GIF, WebP as Leptonica reads them). Bytes that don't decode give
// absent, never a crash. Any thread: thumbnails are made off the main thread.

#include <optional>

#include "foundation/Data.h"

namespace tamarind {

struct PixelSize {
    double width = 0;
    double height = 0;
    friend bool operator==(const PixelSize&, const PixelSize&) = default;
};

// Larger images are not decoded at all: 100 million pixels would already take
// 400 MB as RGBA.
inline constexpr long long kMaximumDecodedPixels = 100'000'000;

// Width and height from the image's header, without decoding the pixels.
std::optional<PixelSize> imagePixelSize(const Data& image);

// A PNG at most 512 pixels on its long side, never enlarged; the new size is
// the old one times min(512 / long side, 1), rounded. Transparency is kept.
std::optional<Data> makeThumbnail(const Data& image);

// The image as PNG, for clipboard owners that offer only other formats.
std::optional<Data> convertToPng(const Data& image);

}  // namespace tamarind
