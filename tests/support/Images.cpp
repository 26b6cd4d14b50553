#include "support/Images.h"

#include <algorithm>
#include <stdexcept>

#include <leptonica/allheaders.h>

#include "foundation/ImageCodec.h"

namespace tamarind {

namespace {

void put16(Data& out, std::uint32_t value) {
    out.push_back(static_cast<std::uint8_t>(value));
    out.push_back(static_cast<std::uint8_t>(value >> 8));
}

void put32(Data& out, std::uint32_t value) {
    put16(out, value & 0xFFFF);
    put16(out, value >> 16);
}

using PixelFunction = std::uint32_t (*)(int x, int y, int width, int height);

std::uint32_t gradient(int x, int y, int width, int height) {
    auto r = static_cast<std::uint32_t>(x * 255 / std::max(1, width - 1));
    auto g = static_cast<std::uint32_t>(y * 255 / std::max(1, height - 1));
    auto b = static_cast<std::uint32_t>((x + y) & 0xFF);
    return r << 16 | g << 8 | b;
}

std::uint32_t screenshotLike(int x, int y, int width, int height) {
    // Windows of flat colour in a 6 by 4 grid; one band of rows in each holds "text".
    int cellX = x * 6 / width, cellY = y * 4 / height;
    std::uint32_t flat = 0x202020u + static_cast<std::uint32_t>((cellX * 37 + cellY * 91) % 200) * 0x010101u;
    int rowInCell = (y * 4) % height * 5 / height;
    if (rowInCell != 2) return flat;
    std::uint32_t hash = static_cast<std::uint32_t>(x) * 2654435761u ^ static_cast<std::uint32_t>(y) * 40503u;
    hash ^= hash >> 13;
    return hash & 1 ? 0x000000u : (hash & 0xFFFFFFu);
}

Data makeBmpWith(int width, int height, PixelFunction pixel) {
    const std::uint32_t rowSize = (static_cast<std::uint32_t>(width) * 3 + 3) & ~3u;
    const std::uint32_t pixelBytes = rowSize * static_cast<std::uint32_t>(height);
    Data out{'B', 'M'};
    // The file header (size, reserved, pixel offset), then the info header: its size, the image's, one plane
    // of 24 bits, no compression, the pixels' size, 72 dpi, no palette.
    for (std::uint32_t field : {54 + pixelBytes, 0u, 54u, 40u, static_cast<std::uint32_t>(width),
                                static_cast<std::uint32_t>(height)})
        put32(out, field);
    put16(out, 1);
    put16(out, 24);
    for (std::uint32_t field : {0u, pixelBytes, 2835u, 2835u, 0u, 0u}) put32(out, field);
    for (int y = 0; y < height; ++y) {
        std::uint32_t written = 0;
        for (int x = 0; x < width; ++x, written += 3) {
            std::uint32_t rgb = pixel(x, y, width, height);
            out.push_back(static_cast<std::uint8_t>(rgb));  // BMP stores blue, green, red
            out.push_back(static_cast<std::uint8_t>(rgb >> 8));
            out.push_back(static_cast<std::uint8_t>(rgb >> 16));
        }
        for (; written < rowSize; ++written) out.push_back(0);
    }
    return out;
}

Data pngOf(const Data& bmp) {
    auto png = convertToPng(bmp);
    if (!png) throw std::runtime_error("the codec could not encode a test image");
    return *png;
}

}  // namespace

Data makeBmp(int width, int height) { return makeBmpWith(width, height, gradient); }

Data makeTiff(int width, int height) {
    Data bmp = makeBmp(width, height);
    PIX* pix = pixReadMem(bmp.data(), bmp.size());
    l_uint8* bytes = nullptr;
    size_t size = 0;
    bool isWritten = pix && pixWriteMem(&bytes, &size, pix, IFF_TIFF_ZIP) == 0;
    pixDestroy(&pix);
    if (!isWritten) throw std::runtime_error("the codec could not encode a test TIFF");
    Data tiff(bytes, bytes + size);
    lept_free(bytes);
    return tiff;
}

Data makeScreenshotLikePng(int width, int height) { return pngOf(makeBmpWith(width, height, screenshotLike)); }

Data makePng(int width, int height) { return pngOf(makeBmp(width, height)); }

}  // namespace tamarind
