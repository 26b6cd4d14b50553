#include <gtest/gtest.h>

#include "foundation/Url.h"

namespace tamarind {
namespace {

std::string describe(std::string_view text) {
    auto url = parseUrlComponents(text);
    if (!url) return "invalid";
    std::string out = "scheme=" + url->scheme + " host=" + (url->host ? "'" + *url->host + "'" : "none") +
                      " path='" + url->path + "'";
    if (url->port) out += " port=" + *url->port;
    if (url->query) out += " query=" + *url->query;
    if (url->fragment) out += " fragment=" + *url->fragment;
    return out;
}

TEST(Url, TakesApartLinksAsRfc3986Does) {
    EXPECT_EQ(describe("https://www.Example.com:8080/a%20b/c?q=1#top"),
              "scheme=https host='www.Example.com' path='/a b/c' port=8080 query=q=1 fragment=top");
    EXPECT_EQ(describe("http:foo"), "scheme=http host=none path='foo'");
    EXPECT_EQ(describe("mailto:ann@example.com"), "scheme=mailto host=none path='ann@example.com'");
    EXPECT_EQ(describe("file:///tmp/a%C3%A9.txt"), "scheme=file host='' path='/tmp/aé.txt'");
    EXPECT_EQ(describe("http://"), "scheme=http host='' path=''");
    EXPECT_EQ(describe("ssh://git@host"), "scheme=ssh host='host' path=''");
    EXPECT_EQ(describe("/just/a/path"), "scheme= host=none path='/just/a/path'");
    EXPECT_EQ(describe("http://[::1]:80/"), "scheme=http host='::1' path='/' port=80");
}

TEST(Url, RefusesWhatAStrictParserRefuses) {
    for (std::string_view bad : {"http://a b", "http://host/%zz", "http://host/%4", "http://[::1/", "ht tp://x",
                                 "http://host/\xC3\xA9", "1http://x"})
        EXPECT_EQ(describe(bad), "invalid") << bad;
}

TEST(Url, PercentEncodingOfPathsRoundTrips) {
    std::string path = "/home/ann/Pictures/Screenshot 2026-11-22 at 10:00 (1) é#?%.png";
    std::string encoded = percentEncodePath(path);
    EXPECT_EQ(encoded.find_first_of(" #?%é"), encoded.find('%'));
    EXPECT_EQ(percentDecode(encoded), path);
    EXPECT_EQ(describe("file://" + encoded), "scheme=file host='' path='" + path + "'");
}

}  // namespace
}  // namespace tamarind
