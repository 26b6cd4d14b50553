#pragma once
// Bytes, and their base64 text form as the stored JSON writes them.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tamarind {

using Data = std::vector<std::uint8_t>;

Data dataFromString(std::string_view bytes);
std::string stringFromData(const Data& data);

// Standard alphabet, padded, no line breaks.
std::string base64Encode(const Data& data);
// Strict: the length must be a multiple of four and every character from the
// alphabet, padding only at the end. Absent otherwise, never a partial result.
std::optional<Data> base64Decode(std::string_view text);

}  // namespace tamarind
