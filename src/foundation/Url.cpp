#include "foundation/Url.h"

#include <uriparser/Uri.h>

namespace tamarind {

namespace {

std::optional<std::string> range(const UriTextRangeA& text) {
    if (!text.first) return std::nullopt;
    return std::string(text.first, text.afterLast);
}

}  // namespace

std::optional<std::string> percentDecode(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    auto hex = [](char c) -> int {
        if (c >= '0' && c <= '9') return c - '0';
        if (c >= 'a' && c <= 'f') return c - 'a' + 10;
        if (c >= 'A' && c <= 'F') return c - 'A' + 10;
        return -1;
    };
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            out += text[i];
            continue;
        }
        if (i + 2 >= text.size()) return std::nullopt;
        int high = hex(text[i + 1]), low = hex(text[i + 2]);
        if (high < 0 || low < 0) return std::nullopt;
        out += static_cast<char>(high << 4 | low);
        i += 2;
    }
    return out;
}

std::string percentEncodePath(std::string_view path) {
    static constexpr char kHex[] = "0123456789ABCDEF";
    std::string out;
    out.reserve(path.size());
    for (unsigned char c : path) {
        bool unreserved = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
                          std::string_view("-._~/!$&'()*+,;=:@").find(static_cast<char>(c)) != std::string_view::npos;
        if (unreserved) {
            out += static_cast<char>(c);
        } else {
            out += '%';
            out += kHex[c >> 4];
            out += kHex[c & 0x0F];
        }
    }
    return out;
}

std::optional<UrlComponents> parseUrlComponents(std::string_view text) {
    std::string owned(text);  // uriparser wants a terminated range it can point into
    UriUriA uri;
    const char* errorPosition = nullptr;
    if (uriParseSingleUriExA(&uri, owned.data(), owned.data() + owned.size(), &errorPosition) != URI_SUCCESS)
        return std::nullopt;

    UrlComponents components;
    components.scheme = range(uri.scheme).value_or("");
    bool hasAuthority = uri.hostText.first != nullptr;
    if (hasAuthority) {
        components.host = percentDecode(*range(uri.hostText));
        if (!components.host) {
            uriFreeUriMembersA(&uri);
            return std::nullopt;
        }
        components.port = range(uri.portText);
        if (components.port && components.port->empty()) components.port.reset();
    }
    std::string path;
    // With an authority the path is always absolute; without one uriparser says so itself.
    if (uri.absolutePath || (hasAuthority && uri.pathHead)) path += '/';
    for (UriPathSegmentA* segment = uri.pathHead; segment; segment = segment->next) {
        path.append(segment->text.first, segment->text.afterLast);
        if (segment->next) path += '/';
    }
    auto decoded = percentDecode(path);
    components.query = range(uri.query);
    components.fragment = range(uri.fragment);
    uriFreeUriMembersA(&uri);
    if (!decoded) return std::nullopt;
    components.path = std::move(*decoded);
    return components;
}

}  // namespace tamarind
