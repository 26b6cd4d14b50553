#include "library/ClipClassifier.h"

#include <array>
#include <unordered_set>

#include "foundation/Regex.h"
#include "foundation/Sha256.h"
#include "foundation/Text.h"
#include "foundation/Url.h"

namespace tamarind {

namespace {

constexpr std::size_t kMaximumLinkCharacters = 4096;
constexpr std::size_t kMaximumCodeCharacters = 200000;

constexpr std::array<std::string_view, 7> kScreenshotSources = {
    "com.apple.screencaptureui",
    "org.gnome.Screenshot",
    "org.gnome.Shell.Screenshot",  // the GNOME Shell screenshot UI
    "org.kde.spectacle",
    "org.flameshot.Flameshot",
    "org.ksnip.ksnip",
    "shutter",
};

// Stops counting at the limit, so a 10 MB text costs no more than a short one.
bool hasMoreCharactersThan(std::string_view text, std::size_t limit) {
    // A character has at least one byte, so a short text needs no counting.
    return text.size() > limit && graphemePrefix(text, limit).size() < text.size();
}

const Regex& hexColorPattern() {
    static const Regex pattern = *Regex::compile("^#?([0-9A-Fa-f]{6}|[0-9A-Fa-f]{3})$");
    return pattern;
}

const Regex& functionalColorPattern() {
    static const Regex pattern =
        *Regex::compile("^(rgb|rgba|hsl|hsla)\\(\\s*[-0-9.%,\\s/]+\\)$", RegexOptions{.caseInsensitive = true});
    return pattern;
}

const Regex& bareHexPattern() {
    static const Regex pattern = *Regex::compile("^([0-9A-Fa-f]{6}|[0-9A-Fa-f]{3})$");
    return pattern;
}

bool isCodeKeyword(std::string_view word) {
    static const std::unordered_set<std::string_view> keywords = {
        "func",   "function", "class",  "struct",  "enum",      "import",  "export",    "return",
        "const",  "let",      "var",    "def",     "public",    "private", "static",    "void",
        "int",    "string",   "bool",   "if",      "else",      "for",     "while",     "switch",
        "async",  "await",    "try",    "catch",   "throw",     "interface", "package", "namespace",
        "select", "from",     "where",  "#include", "print",    "println",
    };
    return keywords.contains(word);
}

}  // namespace

bool isScreenshotSource(std::string_view bundleID) {
    for (std::string_view source : kScreenshotSources)
        if (source == bundleID) return true;
    return false;
}

ClipKind classify(const PasteboardSnapshot& snapshot) {
    if (!snapshot.fileURLs.empty()) return ClipKind::file;
    if (snapshot.imageData) {
        return snapshot.sourceAppBundleID && isScreenshotSource(*snapshot.sourceAppBundleID) ? ClipKind::screenshot
                                                                                             : ClipKind::image;
    }
    bool isRich = snapshot.rtfData || snapshot.htmlString;
    if (!snapshot.string) return isRich ? ClipKind::richText : ClipKind::text;
    std::string_view text = trimmed(*snapshot.string);
    if (looksLikeLink(text)) return ClipKind::link;
    if (hexColorPattern().matches(text)) return ClipKind::color;
    if (functionalColorPattern().matches(text)) return ClipKind::color;
    if (isRich) return ClipKind::richText;
    if (looksLikeCode(*snapshot.string)) return ClipKind::code;
    return ClipKind::text;
}

bool looksLikeLink(std::string_view text) {
    if (text.empty() || hasMoreCharactersThan(text, kMaximumLinkCharacters)) return false;
    bool hasWhitespace = false;
    forEachCodePoint(text, [&](char32_t c) {
        if (isWhiteSpace(c)) hasWhitespace = true;
        return !hasWhitespace;
    });
    if (hasWhitespace) return false;
    auto url = parseUrlComponents(text);
    if (!url || !url->hasScheme()) return false;
    std::string scheme = lowercased(url->scheme);
    if (scheme == "http" || scheme == "https" || scheme == "ftp" || scheme == "ftps" || scheme == "ssh" ||
        scheme == "sftp")
        return url->host && !url->host->empty();
    if (scheme == "mailto" || scheme == "file") return !url->path.empty();
    return false;
}

bool looksLikeCode(std::string_view text) {
    std::vector<std::string_view> lineList = split(text, "\n");
    if (lineList.size() < 3) return false;
    if (hasMoreCharactersThan(text, kMaximumCodeCharacters)) return false;

    int score = 0;
    std::size_t opening = 0, closing = 0;
    for (char c : text) {
        if (c == '{') ++opening;
        else if (c == '}') ++closing;
    }
    if (opening == closing && opening > 0) score += 2;

    std::size_t semicolonLines = 0, indentedLines = 0;
    for (std::string_view line : lineList) {
        std::size_t end = line.find_last_not_of(" \t");
        if (end != std::string_view::npos && line[end] == ';') ++semicolonLines;
        if (line.starts_with("  ") || line.starts_with("\t")) ++indentedLines;
    }
    if (semicolonLines > 1) score += 2;
    if (static_cast<double>(indentedLines) / static_cast<double>(lineList.size()) >= 0.3) score += 2;

    // Words are runs of letters and "#" in the lower-cased text; everything else
    // separates them. ASCII is lower-cased in place so that megabytes stay
    // cheap; anything else is lower-cased alone, since a mapping can leave
    // ASCII letters behind ("İ" becomes "i" and a combining dot).
    std::size_t keywordCount = 0;
    std::string word;
    bool wordIsAscii = true;
    auto endWord = [&] {
        if (!word.empty() && wordIsAscii && isCodeKeyword(word)) ++keywordCount;
        word.clear();
        wordIsAscii = true;
    };
    auto take = [&](char32_t c) {
        if (c == U'#' || (c >= U'a' && c <= U'z')) {
            word += static_cast<char>(c);
        } else if (c >= U'A' && c <= U'Z') {
            word += static_cast<char>(c - U'A' + U'a');
        } else if (c >= 0x80 && isLetter(c)) {
            word += '?';  // keeps the word going; no keyword holds it
            wordIsAscii = false;
        } else {
            endWord();
        }
    };
    std::size_t offset = 0;
    while (offset < text.size()) {
        auto byte = static_cast<unsigned char>(text[offset]);
        if (byte < 0x80) {
            ++offset;
            take(byte);
            continue;
        }
        std::string single;
        appendUtf8(single, decodeCodePoint(text, offset));
        forEachCodePoint(lowercased(single), take);
    }
    endWord();
    if (keywordCount > 2) score += 2;
    else if (keywordCount >= 1) score += 1;

    for (std::string_view operatorText : {"=>", "->", "==", "!=", "://", "//", "/*", "#!"}) {
        if (text.find(operatorText) != std::string_view::npos) {
            score += 1;
            break;
        }
    }
    return score > 3;
}

std::optional<std::string> normalizedHex(std::string_view text) {
    std::string_view digits = trimmed(text);
    if (digits.starts_with('#')) digits.remove_prefix(1);
    if (!bareHexPattern().matches(digits)) return std::nullopt;
    std::string hex = "#";
    for (char c : digits) {
        char upper = c >= 'a' && c <= 'f' ? static_cast<char>(c - 'a' + 'A') : c;
        hex += upper;
        if (digits.size() == 3) hex += upper;
    }
    return hex;
}

std::string textHash(std::string_view text) {
    // Each run of blanks and tabs ("[ \t]+") becomes one blank; a byte loop, as
    // both are ASCII and a megabyte of text should hash in about a millisecond.
    std::string_view content = trimmed(text);
    std::string folded;
    folded.reserve(content.size());
    for (std::size_t i = 0; i < content.size(); ++i) {
        char c = content[i];
        if (c != ' ' && c != '\t') {
            folded += c;
            continue;
        }
        folded += ' ';
        while (i + 1 < content.size() && (content[i + 1] == ' ' || content[i + 1] == '\t')) ++i;
    }
    return sha256Hex(folded);
}

std::string contentHash(const PasteboardSnapshot& snapshot, ClipKind kind) {
    switch (kind) {
    case ClipKind::image:
    case ClipKind::screenshot:
        if (snapshot.imageData)
            return sha256Hex(std::string_view(reinterpret_cast<const char*>(snapshot.imageData->data()),
                                              snapshot.imageData->size()));
        break;
    case ClipKind::file: {
        std::vector<std::string_view> paths;
        for (const FileURL& file : snapshot.fileURLs) paths.push_back(file.path);
        return textHash(join(paths, "\n"));
    }
    default: break;
    }
    return textHash(snapshot.string.value_or(""));
}

}  // namespace tamarind
