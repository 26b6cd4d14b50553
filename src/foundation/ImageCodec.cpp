#include "foundation/ImageCodec.h"

#include <leptonica/allheaders.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <memory>

namespace tamarind {

namespace {

constexpr int kThumbnailLongSide = 512;

struct PixDeleter {
    void operator()(PIX* pix) const { pixDestroy(&pix); }
};
using PixPtr = std::unique_ptr<PIX, PixDeleter>;

// Leptonica reports bad input on stderr; for us bad input is an ordinary answer.
void silenceLeptonica() {
    static const bool silenced = [] {
        setMsgSeverity(L_SEVERITY_NONE);
        return true;
    }();
    (void)silenced;
}

struct Header {
    int width = 0, height = 0, samplesPerPixel = 0;
};

std::optional<Header> readHeader(const Data& image) {
    silenceLeptonica();
    if (image.empty()) return std::nullopt;
    l_int32 format = 0, width = 0, height = 0, bps = 0, spp = 0, colormap = 0;
    if (pixReadHeaderMem(image.data(), image.size(), &format, &width, &height, &bps, &spp, &colormap) != 0)
        return std::nullopt;
    if (width < 1 || height < 1) return std::nullopt;
    return Header{width, height, spp};
}

PixPtr decode(const Data& image, const Header& header) {
    if (static_cast<long long>(header.width) * header.height > kMaximumDecodedPixels) return nullptr;
    PixPtr pix(pixReadMem(image.data(), image.size()));
    if (!pix || pixGetWidth(pix.get()) < 1 || pixGetHeight(pix.get()) < 1) return nullptr;
    return pix;
}

std::optional<Data> encodePng(PIX* pix) {
    l_uint8* bytes = nullptr;
    size_t size = 0;
    if (pixWriteMemPng(&bytes, &size, pix, 0.0f) != 0 || !bytes) return std::nullopt;
    Data png(bytes, bytes + size);
    std::free(bytes);
    return png;
}

}  // namespace

std::optional<PixelSize> imagePixelSize(const Data& image) {
    auto header = readHeader(image);
    if (!header) return std::nullopt;
    return PixelSize{static_cast<double>(header->width), static_cast<double>(header->height)};
}

std::optional<Data> makeThumbnail(const Data& image) {
    auto header = readHeader(image);
    if (!header) return std::nullopt;
    PixPtr pix = decode(image, *header);
    if (!pix) return std::nullopt;

    int width = pixGetWidth(pix.get()), height = pixGetHeight(pix.get());
    double scale = std::min(static_cast<double>(kThumbnailLongSide) / std::max(width, height), 1.0);
    int newWidth = std::max(1, static_cast<int>(std::lround(width * scale)));
    int newHeight = std::max(1, static_cast<int>(std::lround(height * scale)));

    // A 32-bit image is used as it is: converting it would copy 33 MB for a 4K screenshot.
    bool isRgb = pixGetDepth(pix.get()) == 32;
    bool hasAlpha = isRgb && pixGetSpp(pix.get()) == 4;
    PixPtr rgb(isRgb ? pixClone(pix.get()) : pixConvertTo32(pix.get()));
    if (!rgb) return std::nullopt;
    if (!hasAlpha) pixSetSpp(rgb.get(), 3);
    PixPtr scaled;
    if (newWidth == width && newHeight == height) {
        scaled.reset(pixClone(rgb.get()));
    } else if (hasAlpha) {
        scaled.reset(pixScaleWithAlpha(rgb.get(), static_cast<float>(newWidth) / width,
                                       static_cast<float>(newHeight) / height, nullptr, 1.0f));
    } else {
        scaled.reset(pixScaleToSize(rgb.get(), newWidth, newHeight));
    }
    if (!scaled) return std::nullopt;
    return encodePng(scaled.get());
}

std::optional<Data> convertToPng(const Data& image) {
    auto header = readHeader(image);
    if (!header) return std::nullopt;
    PixPtr pix = decode(image, *header);
    if (!pix) return std::nullopt;
    return encodePng(pix.get());
}

}  // namespace tamarind
