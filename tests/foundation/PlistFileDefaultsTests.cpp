#include <gtest/gtest.h>
#include <sys/stat.h>

#include <bit>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <limits>
#include <map>
#include <set>

#include "foundation/Log.h"
#include "foundation/PlistFileDefaults.h"
#include "foundation/PollMainLoop.h"
#include "support/TemporaryFolder.h"

namespace tamarind {
namespace {

namespace fs = std::filesystem;

std::string readFile(const fs::path& path) {
    std::ifstream stream(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(stream), {});
}

void writeFile(const fs::path& path, std::string_view bytes) {
    std::ofstream stream(path, std::ios::binary | std::ios::trunc);
    stream.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

std::set<std::string> listing(const fs::path& folder) {
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder)) names.insert(entry.path().filename().string());
    return names;
}

unsigned permissions(const fs::path& path) {
    struct stat status {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777;
}

Date date(std::string_view iso8601) { return *Date::parseIso8601(iso8601); }

// One of everything a settings file may hold, with the values that are easy to get wrong.
PlistDictionary everyType() {
    constexpr double infinity = std::numeric_limits<double>::infinity();
    Data everyByte;
    for (int byte = 0; byte < 256; ++byte) everyByte.push_back(static_cast<std::uint8_t>(byte));
    return PlistDictionary{
        {"bool.true", true},
        {"bool.false", false},
        {"int.negative", -5},
        {"int.min", std::numeric_limits<std::int64_t>::min()},
        {"int.max", std::numeric_limits<std::int64_t>::max()},
        {"real.two", 2.0},
        {"real.tenth", 0.1},
        {"real.subnormal", std::numeric_limits<double>::denorm_min()},
        {"real.max", std::numeric_limits<double>::max()},
        {"real.negativeZero", -0.0},
        {"real.infinity", infinity},
        {"real.negativeInfinity", -infinity},
        {"real.nan", std::numeric_limits<double>::quiet_NaN()},
        {"string.empty", ""},
        {"string.markup", "<&>\"' ]]> &amp; <!-- -->"},
        {"string.looksLikeALeaf", "<date>2001-01-01T00:00:00Z</date><integer>1</integer>"},
        {"string.unicode", "é 漢字 🙂"},
        {"string.control", "\x01\x02\t\r\n\x7f"},
        {"string.padded", "  padded \n"},
        {"data.empty", Data{}},
        {"data.everyByte", everyByte},
        {"date.fraction", Date::fromReferenceSeconds(817000000.123456789)},
        {"date.2200", date("2200-06-01T12:00:00.5Z")},
        {"date.1018", Date::fromReferenceSeconds(-3.1e10)},
        {"date.beforeReference", Date::fromReferenceSeconds(-99.75)},
        {"nested.array",
         PlistArray{1, "two", 3.0, PlistArray{}, PlistDictionary{},
                    PlistArray{PlistArray{Date::fromReferenceSeconds(0.5)}}, PlistDictionary{{"bytes", Data{0, 1}}}}},
        {"nested.dictionary", PlistDictionary{{"inner", PlistDictionary{{"list", PlistArray{true, -0.0}}}}}},
        {"", "the empty key"},
        {"<key>&amp;</key>", "a key with markup"},
    };
}

class PlistFileDefaultsTest : public testing::Test {
protected:
    // A fixed wall time, so that the name of a kept file is known.
    static Date fixedNow() { return date("2026-11-22T20:49:12.7Z"); }

    TemporaryFolder temporary_;
    fs::path folder_ = temporary_.path();
    fs::path path_ = folder_ / "defaults.plist";
};

TEST_F(PlistFileDefaultsTest, EveryTypeRoundTripsExactlyThroughTheFileInAFormOtherReadersTake) {
    PlistDictionary expected = everyType();
    {
        PlistFileDefaults writer(path_);
        for (const auto& [key, value] : expected) writer.set(key, value);
        writer.set("removed", 1);
        writer.remove("removed");
    }
    PlistFileDefaults reader(path_);
    EXPECT_EQ(PlistValue(reader.dictionaryRepresentation()), PlistValue(expected));
    // A date's double, to the last bit: equality above compares bits, this says so where it matters most.
    EXPECT_EQ(reader.date("date.fraction")->secondsSinceReferenceDate(), 817000000.123456789);

    std::string xml = readFile(path_);
    EXPECT_TRUE(xml.starts_with("<?xml version=\"1.0\" encoding=\"UTF-8\"?>")) << xml;
    for (std::string_view element : {"<date>2200-06-01T12:00:00.5Z</date>", "<date>1018-08-26T16:53:20Z</date>",
                                     "<integer>-5</integer>", "<real>0.1</real>", "<real>2</real>", "<real>-0</real>"})
        EXPECT_NE(xml.find(element), std::string::npos) << element;
}

TEST(PlistCodec, ReadsWhatOtherWritersProduce) {
    std::string_view xml = R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">
<!-- 1 > 0, and <integer>not a value</integer> -->
<dict>
	<key>cdata</key><string><![CDATA[1 > [0] [ <date>not a date</date>]]></string>
	<key>spaced</key>	<integer> 42 </integer>
	<key>leadingZero</key><integer>010</integer>
	<key>hex</key><integer>0x1F</integer>
	<key>unsigned</key><integer>18446744073709551615</integer>
	<key>wholeReal</key><real>2</real>
	<key>longReal</key><real>0.10000000000000001</real>
	<key>infinity</key><real>+infinity</real>
	<key>offsetDate</key><date>2001-01-01T01:00:00+01:00</date>
	<key>wrapped</key><data>
	AAEC
	AwQ=
	</data>
	<key>emptyData</key><data/>
	<key>emptyDictionary</key><dict/>
	<key>emptyArray</key><array/>
	<key>yes</key><true/>
</dict>
</plist>
)";
    PlistDecoding decoded = decodePlist(xml);
    ASSERT_TRUE(decoded.dictionary) << decoded.error;
    EXPECT_EQ(PlistValue(*decoded.dictionary), PlistValue(PlistDictionary{
                                                   {"spaced", 42},
                                                   {"leadingZero", 10},
                                                   {"hex", 31},
                                                   {"unsigned", 18446744073709551615.0},
                                                   {"wholeReal", 2.0},
                                                   {"longReal", 0.1},
                                                   {"infinity", std::numeric_limits<double>::infinity()},
                                                   {"offsetDate", Date::fromReferenceSeconds(0)},
                                                   {"wrapped", Data{0, 1, 2, 3, 4}},
                                                   {"emptyData", Data{}},
                                                   {"emptyDictionary", PlistDictionary{}},
                                                   {"emptyArray", PlistArray{}},
                                                   {"yes", true},
                                                   {"cdata", "1 > [0] [ <date>not a date</date>"},
                                               }));
}

// {"a": 1, "d": 817000000.5 s as a date, "r": 0.25} laid out by hand as a binary property list; `firstKey`
// replaces the object of the key "a" (an ASCII string of one character).
std::string binaryPlist(std::string firstKey = std::string(1, '\x51') + "a") {
    auto bigEndian = [](std::uint64_t value) {
        std::string bytes;
        for (int shift = 56; shift >= 0; shift -= 8) bytes += static_cast<char>(value >> shift & 0xff);
        return bytes;
    };
    std::string objects[] = {
        std::string("\xD3\x01\x02\x03\x04\x05\x06", 7),  // a dictionary: three key refs, three value refs
        firstKey,
        std::string(1, '\x51') + "d",
        std::string(1, '\x51') + "r",
        std::string("\x10\x01", 2),
        "\x33" + bigEndian(std::bit_cast<std::uint64_t>(817000000.5)),
        "\x23" + bigEndian(std::bit_cast<std::uint64_t>(0.25)),
    };
    std::string file = "bplist00";
    std::string offsets;
    for (const std::string& object : objects) {
        offsets += static_cast<char>(file.size());
        file += object;
    }
    std::uint64_t offsetTable = file.size();
    file += offsets;
    file += std::string(6, '\0') + "\x01\x01" + bigEndian(std::size(objects)) + bigEndian(0) + bigEndian(offsetTable);
    return file;
}

TEST(PlistCodec, ReadsABinaryPropertyList) {
    PlistDecoding decoded = decodePlist(binaryPlist());
    ASSERT_TRUE(decoded.dictionary) << decoded.error;
    EXPECT_EQ(PlistValue(*decoded.dictionary),
              PlistValue(PlistDictionary{{"a", 1}, {"d", Date::fromReferenceSeconds(817000000.5)}, {"r", 0.25}}));
}

// libplist aborted the process on a UTF-16 key holding U+0000, and cut an ASCII key short at a NUL; either
// is refused now, whichever way its length is written. Other UTF-16 keys read as before.
TEST(PlistCodec, ABinaryListWithANulInAKeyIsRefusedNotACrash) {
    for (const std::string& key : {std::string("\x62\x00\x61\x00\x00", 5), std::string("\x53" "a\0b", 4),
                                   std::string("\x5F\x10\x03" "a\0b", 6),
                                   std::string("\x5F\x14") + std::string(15, '\0') + std::string("\x03" "a\0b", 4)}) {
        PlistDecoding decoded = decodePlist(binaryPlist(key));
        EXPECT_FALSE(decoded.dictionary) << PlistValue(Data(key.begin(), key.end()));
        EXPECT_EQ(decoded.error, "a key holds a NUL character");
    }
    PlistDecoding utf16 = decodePlist(binaryPlist(std::string("\x61\x00\xE9", 3)));
    ASSERT_TRUE(utf16.dictionary) << utf16.error;
    EXPECT_EQ(PlistValue(*utf16.dictionary),
              PlistValue(PlistDictionary{{"é", 1}, {"d", Date::fromReferenceSeconds(817000000.5)}, {"r", 0.25}}));
}

TEST(PlistCodec, RefusesWhatItCannotReadExactly) {
    auto inDictionary = [](std::string_view element) {
        return "<plist version=\"1.0\"><dict><key>k</key>" + std::string(element) + "</dict></plist>";
    };
    struct Case {
        std::string bytes;
        std::string error;
    };
    for (const Case& test : {
             Case{"", "the file is empty"},
             Case{"\x89PNG garbage \x01\x02", "not a property list, or cut short"},
             Case{"<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>k</key><string>v</str",
                  "not a property list, or cut short"},
             Case{"<plist version=\"1.0\"><array><string>v</string></array></plist>",
                  "the top level is an array, not a dictionary"},
             Case{"<plist version=\"1.0\"><string>v</string></plist>", "the top level is a string, not a dictionary"},
             Case{inDictionary("<date>yesterday</date>"), "the date \"yesterday\" can't be read"},
             Case{inDictionary("<date>2001-01-01T00:00:00Z"), "a <date> is not closed"},
             Case{inDictionary("<integer>12abc</integer>"), "the integer \"12abc\" can't be read"},
             Case{inDictionary("<integer>-9223372036854775809</integer>"),
                  "the integer \"-9223372036854775809\" can't be read"},
             Case{inDictionary("<integer></integer>"), "the integer \"\" can't be read"},
             Case{inDictionary("<real>1,5</real>"), "the real \"1,5\" can't be read"},
             Case{inDictionary("<data>!!notbase64</data>"), "a <data> holds something other than base64"},
             Case{"bplist00 but nothing more", "not a readable binary property list"},
         }) {
        PlistDecoding decoded = decodePlist(test.bytes);
        EXPECT_FALSE(decoded.dictionary) << test.bytes;
        EXPECT_EQ(decoded.error, test.error) << test.bytes;
    }
}

TEST(PlistCodec, RefusesToEncodeWhatXmlCannotCarry) {
    EXPECT_FALSE(encodePlistXml(PlistDictionary{{"k", std::string("a\0b", 3)}}));
    EXPECT_FALSE(encodePlistXml(PlistDictionary{{std::string("k\0", 2), 1}}));
    EXPECT_FALSE(encodePlistXml(PlistDictionary{{"k", PlistArray{PlistDictionary{{std::string("\0", 1), 1}}}}}));
    EXPECT_FALSE(encodePlistXml(PlistDictionary{{"k", date("9999-12-31T23:59:59Z").addingSeconds(1)}}));
    EXPECT_FALSE(
        encodePlistXml(PlistDictionary{{"k", Date::fromReferenceSeconds(std::numeric_limits<double>::quiet_NaN())}}));
    EXPECT_TRUE(encodePlistXml(PlistDictionary{{"k", date("9999-12-31T23:59:59.5Z")}}));
    EXPECT_TRUE(encodePlistXml(PlistDictionary{{"k", date("0001-01-01T00:00:00Z")}}));
}

// What is written must read back: the cap on nesting is the same both ways.
TEST(PlistCodec, NestingIsCappedAlikeForWritingAndReading) {
    auto nested = [](int levels) {
        PlistValue value = PlistArray{};
        for (int level = 1; level < levels; ++level) value = PlistArray{value};
        return PlistDictionary{{"k", value}};
    };
    auto deepest = encodePlistXml(nested(kMaxPlistDepth));
    ASSERT_TRUE(deepest);
    PlistDecoding decoded = decodePlist(*deepest);
    ASSERT_TRUE(decoded.dictionary) << decoded.error;
    EXPECT_EQ(PlistValue(*decoded.dictionary), PlistValue(nested(kMaxPlistDepth)));

    EXPECT_FALSE(encodePlistXml(nested(kMaxPlistDepth + 1)));
    std::string tooDeep = "<plist version=\"1.0\"><dict><key>k</key>";
    for (int level = 0; level <= kMaxPlistDepth; ++level) tooDeep += "<array>";
    for (int level = 0; level <= kMaxPlistDepth; ++level) tooDeep += "</array>";
    tooDeep += "</dict></plist>";
    decoded = decodePlist(tooDeep);
    EXPECT_FALSE(decoded.dictionary);
    EXPECT_EQ(decoded.error, "it is nested too deeply");
}

// Each way of failing to decode takes this road (the reasons are PlistCodec's), one after another in the
// same folder, so that each file kept aside finds the earlier ones there and leaves them as they were.
TEST_F(PlistFileDefaultsTest, AnUnreadableFileIsKeptAsideUnchangedNeverOverAnEarlierOneAndTheSettingsStartEmpty) {
    std::string written = *encodePlistXml(PlistDictionary{{"a", "some setting"}, {"b", 2}});
    struct Case {
        std::string bytes;
        std::string reason;
        std::string keptAs;
    };
    std::set<std::string> keptSoFar;
    std::map<fs::path, std::string> keptBytes;
    for (const Case& test : {
             Case{written.substr(0, written.size() / 2), "not a property list, or cut short", ""},
             Case{"", "the file is empty", "-2"},
             Case{"\x89PNG garbage", "not a property list, or cut short", "-3"},
         }) {
        SCOPED_TRACE(test.reason);
        writeFile(path_, test.bytes);
        LogCapture capture;
        PlistFileDefaults defaults(path_, &PlistFileDefaultsTest::fixedNow);
        EXPECT_TRUE(defaults.dictionaryRepresentation().empty());
        fs::path kept = folder_ / ("defaults.plist.corrupt-20261122T204912Z" + test.keptAs);
        keptSoFar.insert(kept.filename());
        keptBytes[kept] = test.bytes;
        EXPECT_EQ(listing(folder_), keptSoFar);
        EXPECT_EQ(defaults.keptAsidePath(), kept);
        EXPECT_EQ(capture.messages("settings"),
                  (std::vector<std::string>{"Could not read settings from " + path_.string() + ": " + test.reason +
                                            ". Kept it as " + kept.string() + " and started with empty settings"}));
        ASSERT_EQ(capture.records().size(), 1u);
        EXPECT_EQ(capture.records()[0].level, LogLevel::error);

        defaults.set("after", 1);
        EXPECT_EQ(listing(folder_).size(), keptSoFar.size() + 1);
        for (const auto& [path, bytes] : keptBytes) EXPECT_EQ(readFile(path), bytes) << path;
        PlistDecoding fresh = decodePlist(readFile(path_));
        ASSERT_TRUE(fresh.dictionary) << fresh.error;
        EXPECT_EQ(PlistValue(*fresh.dictionary), PlistValue(PlistDictionary{{"after", 1}}));
    }
}

TEST_F(PlistFileDefaultsTest, AMissingFileStartsEmptyQuietlyAndAChangeWritesItPrivatelyInPrivateFolders) {
    LogCapture capture;
    fs::path path = folder_ / "config" / "tamarind" / "defaults.plist";
    PlistFileDefaults defaults(path);
    EXPECT_TRUE(defaults.dictionaryRepresentation().empty());
    EXPECT_TRUE(capture.records().empty());
    EXPECT_TRUE(listing(folder_).empty()) << "nothing is written until a change";
    defaults.set("key", "value");
    EXPECT_EQ(permissions(folder_ / "config"), 0700u);
    EXPECT_EQ(permissions(folder_ / "config" / "tamarind"), 0700u);
    EXPECT_EQ(permissions(path), 0600u);
    EXPECT_EQ(listing(path.parent_path()), (std::set<std::string>{"defaults.plist"}));  // no temporary left over
    EXPECT_EQ(PlistFileDefaults(path).object("key"), PlistValue("value"));
}

TEST_F(PlistFileDefaultsTest, AFailedWriteIsLoggedAndTheValueKeptForTheNextWrite) {
    fs::path blocker = folder_ / "blocker";
    writeFile(blocker, "a file where the folder should be");
    fs::path path = blocker / "defaults.plist";

    LogCapture capture;
    PlistFileDefaults defaults(path);
    EXPECT_TRUE(capture.records().empty());  // a parent that is a file means there are no settings yet
    std::vector<std::string> heard;
    auto observation = defaults.observe([&](const std::string& key) { heard.push_back(key); });
    defaults.set("kept", "in memory");
    EXPECT_EQ(capture.messages("settings"),
              (std::vector<std::string>{"Could not save settings to " + path.string() + ": mkdir " + blocker.string() +
                                        ": Not a directory"}));
    EXPECT_EQ(capture.records().at(0).level, LogLevel::error);
    EXPECT_EQ(defaults.object("kept"), PlistValue("in memory"));
    EXPECT_EQ(heard, std::vector<std::string>{"kept"});

    fs::remove(blocker);
    defaults.set("next", 2);
    EXPECT_EQ(PlistValue(PlistFileDefaults(path).dictionaryRepresentation()),
              PlistValue(PlistDictionary{{"kept", "in memory"}, {"next", 2}}));
}

TEST_F(PlistFileDefaultsTest, AValueAPropertyListCannotHoldIsLeftOutAndTheRestSaved) {
    LogCapture capture;
    PlistFileDefaults defaults(path_);
    std::string withNul("a\0b", 3);
    defaults.set("bad", withNul);
    defaults.set("good", 1);
    EXPECT_EQ(defaults.object("bad"), PlistValue(withNul));
    EXPECT_EQ(PlistValue(PlistFileDefaults(path_).dictionaryRepresentation()),
              PlistValue(PlistDictionary{{"good", 1}}));
    std::string line = "Not saving \"bad\" to " + path_.string() +
                       ": a property list can't hold it (a NUL character, a date outside the years 1 to 9999, or "
                       "nesting deeper than 512)";
    EXPECT_EQ(capture.messages("settings"), (std::vector<std::string>{line, line}));
}

TEST_F(PlistFileDefaultsTest, ObserversHearOnceTheFileHoldsTheChange) {
    PlistFileDefaults defaults(path_);
    std::vector<std::optional<PlistValue>> inFile;
    auto observation = defaults.observe([&](const std::string& key) {
        auto decoded = decodePlist(readFile(path_));
        ASSERT_TRUE(decoded.dictionary) << decoded.error;
        auto found = decoded.dictionary->find(key);
        inFile.push_back(found == decoded.dictionary->end() ? std::nullopt : std::optional(found->second));
    });
    defaults.set("key", "value");
    defaults.remove("key");
    EXPECT_EQ(inFile, (std::vector<std::optional<PlistValue>>{PlistValue("value"), std::nullopt}));
}

TEST_F(PlistFileDefaultsTest, ASymlinkedFileStaysALink) {
    fs::create_directory(folder_ / "dotfiles");
    fs::path target = folder_ / "dotfiles" / "defaults.plist";
    writeFile(target, *encodePlistXml(PlistDictionary{{"from", "dotfiles"}}));
    fs::create_symlink(target, path_);

    PlistFileDefaults defaults(path_);
    EXPECT_EQ(defaults.string("from"), "dotfiles");
    defaults.set("added", true);
    EXPECT_TRUE(fs::is_symlink(path_));
    EXPECT_EQ(PlistValue(*decodePlist(readFile(target)).dictionary),
              PlistValue(PlistDictionary{{"from", "dotfiles"}, {"added", true}}));
}

TEST_F(PlistFileDefaultsTest, AnotherProgramsChangeIsKeptAndTakenIn) {
    PlistFileDefaults app(path_);
    app.set("capture.isPaused", false);
    std::vector<std::string> told;
    auto observation = app.observe([&](const std::string& key) { told.push_back(key); });

    // The command line, a second process, changes one key and removes another.
    app.set("gone.soon", 1);
    told.clear();
    {
        PlistFileDefaults commandLine(path_);
        commandLine.set("paste.keystroke", "ctrl+v");
        commandLine.remove("gone.soon");
    }
    // The app's next write keeps them, and it hears of them first.
    app.set("capture.isPaused", true);
    EXPECT_EQ(told, (std::vector<std::string>{"paste.keystroke", "gone.soon", "capture.isPaused"}));
    EXPECT_EQ(PlistValue(*decodePlist(readFile(path_)).dictionary),
              PlistValue(PlistDictionary{{"capture.isPaused", true}, {"paste.keystroke", "ctrl+v"}}));
    EXPECT_EQ(app.string("paste.keystroke"), "ctrl+v");
    EXPECT_FALSE(app.reloadIfChangedOnDisk()) << "nothing new since";

    // Watched, a change is taken in as it lands, with no write of ours.
    PollMainLoop loop;
    app.watchForOutsideChanges(loop);
    told.clear();
    PlistFileDefaults(path_).set("paste.keystroke", "shift+insert");
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    TaskHandle check;
    std::function<void()> poll = [&] {
        if (!told.empty() || std::chrono::steady_clock::now() > deadline) return loop.quit();
        check = loop.postDelayed(std::chrono::milliseconds(5), poll);
    };
    loop.post(poll);
    loop.run();
    EXPECT_EQ(told, std::vector<std::string>{"paste.keystroke"});
    EXPECT_EQ(app.string("paste.keystroke"), "shift+insert");

    // Half a file (a writer that doesn't replace it atomically) is not taken in; the values stay.
    LogCapture log;
    writeFile(path_, "<?xml version=\"1.0\"?><plist><dict><key>x</key>");
    EXPECT_FALSE(app.reloadIfChangedOnDisk());
    EXPECT_EQ(app.string("paste.keystroke"), "shift+insert");
    EXPECT_EQ(log.messages("settings").size(), 1u);
}

}  // namespace
}  // namespace tamarind
