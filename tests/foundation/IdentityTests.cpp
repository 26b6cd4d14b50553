#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <set>

#include "foundation/Files.h"
#include "foundation/Json.h"
#include "foundation/Log.h"
#include "foundation/MachineID.h"
#include "foundation/Paths.h"
#include "foundation/Sha256.h"
#include "foundation/Uuid.h"
#include "support/TemporaryFolder.h"

namespace tamarind {
namespace {

TEST(Uuid, RandomIdsAreVersion4UpperCaseAndParseInEitherCase) {
    std::set<Uuid> seen;
    for (int i = 0; i < 1000; ++i) {
        Uuid id = Uuid::random();
        std::string text = id.uuidString();
        ASSERT_EQ(text.size(), 36u);
        EXPECT_EQ(text[14], '4');
        EXPECT_NE(std::string("89AB").find(text[19]), std::string::npos) << text;
        EXPECT_EQ(text.find_first_of("abcdef"), std::string::npos) << text;
        seen.insert(id);
    }
    EXPECT_EQ(seen.size(), 1000u);

    auto lower = Uuid::parse("e621e1f8-c36c-495a-93fc-0c247a3e6e5f");
    ASSERT_TRUE(lower);
    EXPECT_EQ(lower->uuidString(), "E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
    EXPECT_EQ(Uuid::parse("E621E1F8-C36C-495A-93FC-0C247A3E6E5F"), lower);
    for (std::string_view bad : {"", "E621E1F8C36C495A93FC0C247A3E6E5F", "E621E1F8-C36C-495A-93FC-0C247A3E6E5",
                                 "E621E1F8-C36C-495A-93FC-0C247A3E6E5G", "{E621E1F8-C36C-495A-93FC-0C247A3E6E5F}",
                                 "E621E1F8-C36C-495A93FC-0C247A3E6E5F0"})
        EXPECT_FALSE(Uuid::parse(bad)) << bad;
    EXPECT_TRUE(Uuid().isNil());
}

TEST(MachineID, IsAnAppSpecificHashOfTheMachineIdElseAFallbackMadeOnce) {
    // The HMAC-SHA256 of Tamarind's application id keyed by the machine id, as openssl computes
    // it, shaped as a version-4 UUID.
    EXPECT_EQ(appSpecificMachineID("0123456789abcdef0123456789abcdef\n"), "8A24C334-28C6-45A6-A098-0BCF7F90545F");
    EXPECT_EQ(appSpecificMachineID("0123456789ABCDEF0123456789ABCDEF"), "8A24C334-28C6-45A6-A098-0BCF7F90545F");
    EXPECT_NE(appSpecificMachineID("0123456789abcdef0123456789abcdee"), appSpecificMachineID("0123456789abcdef0123456789abcdef"));
    for (std::string_view bad : {"", "0123456789abcdef", "0123456789abcdef0123456789abcdeg",
                                 "00000000000000000000000000000000", "uninitialized"})
        EXPECT_FALSE(appSpecificMachineID(bad)) << bad;

    TemporaryFolder folder;
    InMemoryDefaults defaults;
    std::ofstream(folder.path() / "machine-id") << "0123456789abcdef0123456789abcdef\n";
    EXPECT_EQ(machineID(defaults, folder.path() / "machine-id"), "8A24C334-28C6-45A6-A098-0BCF7F90545F");
    EXPECT_FALSE(defaults.object(kMachineIdentifierFallbackKey)) << "the machine's own id stores nothing";

    LogCapture log;
    std::string fallback = machineID(defaults, folder.path() / "missing");
    EXPECT_TRUE(Uuid::parse(fallback));
    EXPECT_EQ(defaults.string(kMachineIdentifierFallbackKey), fallback);
    EXPECT_EQ(machineID(defaults, folder.path() / "missing"), fallback) << "the same on every later run";
    auto lines = log.messages("app");
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.front(), "IOPlatformUUID unavailable; generated a fallback machine identifier.");
    EXPECT_EQ(lines.size(), 2u) << "logged once, when it was made";
}

TEST(Sha256, GivesLowerCaseHexOfTheBytes) {
    EXPECT_EQ(sha256Hex(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(sha256Hex("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    // Embedded zero bytes are part of the content, and long input is hashed whole.
    EXPECT_EQ(sha256Hex(std::string("a\0b", 3)), "59b271ae1bbcb1d31d41929817f4b16fb439eb4f31520b5ad1d5ce98920a7138");
    EXPECT_EQ(sha256Hex(std::string(1000000, 'a')), "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

TEST(Json, EncodesIdsDatesAndDataTheStoredWayAndDecodesStrictly) {
    Uuid id = *Uuid::parse("e621e1f8-c36c-495a-93fc-0c247a3e6e5f");
    Json object = {{"id", uuidToJson(id)},
                   {"createdAt", dateToJson(Date::fromReferenceSeconds(817000000.5))},
                   {"blob", dataToJson(dataFromString("hi"))}};
    EXPECT_EQ(object.dump(), R"({"blob":"aGk=","createdAt":817000000.5,"id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F"})");

    struct Record {
        Uuid id;
        Date createdAt;
        std::optional<std::string> note;
    };
    auto decode = [](const Json& json) {
        Record record{uuidFromJson(requireMember(json, "id")), dateFromJson(requireMember(json, "createdAt")), {}};
        if (const Json* note = optionalMember(json, "note")) record.note = note->get<std::string>();
        return record;
    };
    auto good = decodeJson(R"({"id":"e621e1f8-c36c-495a-93fc-0c247a3e6e5f","createdAt":5,"note":null})", decode);
    ASSERT_TRUE(good);
    EXPECT_EQ(good->id, id);
    EXPECT_EQ(good->createdAt.secondsSinceReferenceDate(), 5);
    EXPECT_FALSE(good->note);
    for (std::string_view bad : {R"({"id":"nope","createdAt":5})", R"({"createdAt":5})",
                                 R"({"id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","createdAt":"5"})",
                                 R"({"id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","createdAt":5,"note":7})", "[]",
                                 "{", ""})
        EXPECT_FALSE(decodeJson(bad, decode)) << bad;
    EXPECT_FALSE(decodeJson(R"("a=")", [](const Json& j) { return dataFromJson(j); }));
}

TEST(Paths, FollowTheXdgRulesWithTheTamarindHomeOverride) {
    auto from = [](std::map<std::string, std::string> env) {
        return Paths::fromEnvironment([env](const std::string& name) -> std::optional<std::string> {
            auto found = env.find(name);
            if (found == env.end()) return std::nullopt;
            return found->second;
        });
    };
    auto plain = from({{"HOME", "/home/ann"}});
    ASSERT_TRUE(plain);
    EXPECT_EQ(plain->applicationSupport, "/home/ann/.local/share/Tamarind");
    EXPECT_EQ(plain->defaultsFile(), "/home/ann/.config/tamarind/defaults.plist");
    EXPECT_EQ(plain->cache, "/home/ann/.cache/tamarind");

    auto xdg = from({{"HOME", "/home/ann"}, {"XDG_DATA_HOME", "/data"}, {"XDG_CONFIG_HOME", "relative/config"}});
    EXPECT_EQ(xdg->applicationSupport, "/data/Tamarind");
    EXPECT_EQ(xdg->configuration, "/home/ann/.config/tamarind") << "a relative XDG variable must be ignored";

    auto isolated = from({{"HOME", "/home/ann"}, {"XDG_DATA_HOME", "/data"}, {"TAMARIND_HOME", "/tmp/t"}});
    EXPECT_EQ(isolated->applicationSupport, "/tmp/t/share/Tamarind");
    EXPECT_EQ(isolated->defaultsFile(), "/tmp/t/config/tamarind/defaults.plist");

    EXPECT_FALSE(from({}));
    EXPECT_FALSE(from({{"HOME", "home/ann"}}));
}

// Private folders and files are tried through BlobStore, a blocked folder through the login item.
TEST(Files, ReplaceFilesWholeAndTellAMissingFileFromAnUnreadableOne) {
    TemporaryFolder root;
    std::filesystem::path file = root.path() / "f";
    ASSERT_FALSE(writeFileAtomically(file, "first"));
    ASSERT_FALSE(writeFileAtomically(file, std::string("second\0bytes", 12)));
    EXPECT_EQ(*readWholeFile(file).bytes, std::string("second\0bytes", 12));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(root.path()), {}), 1) << "a temporary file was left";

    auto missing = readWholeFile(root.path() / "none");
    EXPECT_TRUE(missing.notFound);
    EXPECT_FALSE(missing.bytes);
    EXPECT_TRUE(createPrivateDirectories(file / "sub")) << "a path under a regular file";
}

}  // namespace
}  // namespace tamarind
