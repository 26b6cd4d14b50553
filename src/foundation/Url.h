#pragma once
// URLs taken apart as a strict RFC 3986 parser does (uriparser), for the
// places that ask "is this a link" and "what is its host". Pure; any thread.

#include <optional>
#include <string>
#include <string_view>

namespace tamarind {

struct UrlComponents {
    std::string scheme;                 // as written; empty for a relative reference
    std::optional<std::string> host;    // percent-decoded; absent without an authority ("mailto:x")
    std::optional<std::string> port;
    std::string path;                   // percent-decoded; "" when there is none
    std::optional<std::string> query;   // as written
    std::optional<std::string> fragment;

    bool hasScheme() const { return !scheme.empty(); }
};

// Absent when the text is not a URI reference by RFC 3986 (a blank, a stray
// "%", a "[" outside an IP literal, ...).
std::optional<UrlComponents> parseUrlComponents(std::string_view text);

// Characters of a path, percent-encoded where RFC 3986 requires, for file:// URIs.
std::string percentEncodePath(std::string_view path);
// Absent for a malformed escape.
std::optional<std::string> percentDecode(std::string_view text);

}  // namespace tamarind
