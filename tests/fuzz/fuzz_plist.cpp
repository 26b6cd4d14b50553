// Feeds arbitrary bytes to the settings file reader, as the file a user, a dotfile manager or a
// crash may leave behind. It must never crash. The decoder must give a dictionary or a reason;
// what it reads must write and read back equal, since every change of a setting rewrites the whole
// file. And the file class must keep its promise: a file that reads is taken as it is, and one
// that doesn't is reported and kept aside with its bytes, never taken as empty in silence. A
// setting written over either must then read back from the file.

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

#include "foundation/Log.h"
#include "foundation/PlistFileDefaults.h"
#include "foundation/PlistValue.h"

namespace {

namespace fs = std::filesystem;
using namespace tamarind;

// One private folder for the run; emptied after each input.
const fs::path& folder() {
    static const fs::path path = [] {
        // Memory, where the fsync of every save costs nothing.
        fs::path parent = fs::is_directory("/dev/shm") ? fs::path("/dev/shm") : fs::temp_directory_path();
        std::string pattern = (parent / "fuzz-plist-XXXXXX").string();
        if (!::mkdtemp(pattern.data())) std::abort();
        return fs::path(pattern);
    }();
    return path;
}

std::string readFile(const fs::path& path) {
    std::ifstream stream(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(stream), {});
}

void writeFile(const fs::path& path, std::string_view bytes) {
    std::ofstream stream(path, std::ios::binary | std::ios::trunc);
    stream.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!stream.flush()) std::abort();
}

PlistDictionary storablePart(const PlistDictionary& dictionary) {
    PlistDictionary storable;
    for (const auto& [key, value] : dictionary)
        if (isStorableInPlist(key, value)) storable.emplace(key, value);
    return storable;
}

bool hasSettingsError(const LogCapture& capture, const fs::path& path) {
    for (const LogRecord& record : capture.records())
        if (record.channel == "settings" && record.level == LogLevel::error &&
            record.message.find(path.string()) != std::string::npos)
            return true;
    return false;
}

void checkCodec(std::string_view bytes, const PlistDecoding& decoding) {
    if (!decoding.dictionary) {
        if (decoding.error.empty()) std::abort();
        return;
    }
    if (!decoding.error.empty()) std::abort();
    PlistDictionary storable = storablePart(*decoding.dictionary);
    auto xml = encodePlistXml(storable);
    if (!xml) std::abort();
    PlistDecoding again = decodePlist(*xml);
    if (!again.dictionary || *again.dictionary != storable) {
        std::fprintf(stderr, "input: %.*s\nread: %s\nwritten: %s\nread again: %s (%s)\n",
                     static_cast<int>(std::min<std::size_t>(bytes.size(), 2000)), bytes.data(),
                     PlistValue(storable).describe().c_str(), xml->c_str(),
                     again.dictionary ? PlistValue(*again.dictionary).describe().c_str() : "-", again.error.c_str());
        std::abort();
    }
}

void checkFile(std::string_view bytes, const PlistDecoding& decoding) {
    const fs::path path = folder() / "defaults.plist";
    writeFile(path, bytes);
    PlistDictionary expected;
    {
        LogCapture capture;
        PlistFileDefaults defaults(path, [] { return Date::fromReferenceSeconds(817000000); });
        if (decoding.dictionary) {
            if (defaults.dictionaryRepresentation() != *decoding.dictionary) std::abort();
            if (defaults.keptAsidePath() || hasSettingsError(capture, path)) std::abort();
            expected = *decoding.dictionary;
        } else {
            if (!defaults.dictionaryRepresentation().empty()) std::abort();
            if (!hasSettingsError(capture, path)) std::abort();
            if (!defaults.keptAsidePath() || fs::exists(path)) std::abort();
            if (readFile(*defaults.keptAsidePath()) != bytes) std::abort();
        }
        defaults.set("fuzz.written", PlistArray{std::int64_t{7}, "seven", 7.5});
        if (defaults.unsavedBecause()) std::abort();
        expected.insert_or_assign("fuzz.written", PlistArray{std::int64_t{7}, "seven", 7.5});
    }
    // Whatever is left out is left out with an error; the rest must be in the file.
    PlistFileDefaults reread(path);
    if (reread.keptAsidePath() || reread.dictionaryRepresentation() != storablePart(expected)) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    Log::setStderrThreshold(LogLevel::fault);
    std::atexit([] {
        std::error_code ignored;
        fs::remove_all(folder(), ignored);
    });
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string_view bytes(reinterpret_cast<const char*>(data), size);
    PlistDecoding decoding = decodePlist(bytes);
    checkCodec(bytes, decoding);
    checkFile(bytes, decoding);
    std::error_code ignored;
    for (const auto& entry : fs::directory_iterator(folder(), ignored)) fs::remove(entry.path(), ignored);
    return 0;
}
