#pragma once
// SHA-256 as lower-case hexadecimal, the form content hashes are stored in.
// Any thread.

#include <string>
#include <string_view>

namespace tamarind {

std::string sha256Hex(std::string_view bytes);

}  // namespace tamarind
