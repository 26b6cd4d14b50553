#include "support/Images.h"

#include <algorithm>
#include <stdexcept>

#include "library/ImageCodec.h"

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

}  // namespace

Data makeBmp(int width, int height) {
    const std::uint32_t rowSize = (static_cast<std::uint32_t>(width) * 3 + 3) & ~3u;
    const std::uint32_t pixelBytes = rowSize * static_cast<std::uint32_t>(height);
    Data out;
    out.push_back('B');
    out.push_back('M');
    put32(out, 54 + pixelBytes);
    put32(out, 0);
    put32(out, 54);
    put32(out, 40);
    put32(out, static_cast<std::uint32_t>(width));
    put32(out, static_cast<std::uint32_t>(height));
    put16(out, 1);
    put16(out, 24);
    put32(out, 0);
    put32(out, pixelBytes);
    put32(out, 2835);
    put32(out, 2835);
    put32(out, 0);
    put32(out, 0);
    for (int y = 0; y < height; ++y) {
        std::uint32_t written = 0;
        for (int x = 0; x < width; ++x, written += 3) {
            out.push_back(static_cast<std::uint8_t>(x * 255 / std::max(1, width - 1)));
            out.push_back(static_cast<std::uint8_t>(y * 255 / std::max(1, height - 1)));
            out.push_back(static_cast<std::uint8_t>((x + y) & 0xFF));
        }
        for (; written < rowSize; ++written) out.push_back(0);
    }
    return out;
}

Data makePng(int width, int height) {
    auto png = convertToPng(makeBmp(width, height));
    if (!png) throw std::runtime_error("the codec could not encode a test image");
    return *png;
}

}  // namespace tamarind
