#include "foundation/Text.h"

#include <unicode/brkiter.h>
#include <unicode/bytestream.h>
#include <unicode/casemap.h>
#include <unicode/coll.h>
#include <unicode/locid.h>
#include <unicode/normalizer2.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/ustring.h>
#include <unicode/utext.h>
#include <unicode/utf16.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <array>
#include <memory>

namespace tamarind {
namespace {

const unsigned char* bytesOf(std::string_view text) { return reinterpret_cast<const unsigned char*>(text.data()); }

bool isAsciiText(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

char asciiLower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c; }
char asciiUpper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - ('a' - 'A')) : c; }

// ICU's UTF-8 entry points take int32_t lengths; longer input is cut into pieces of at most this
// many bytes, at a code point boundary.
constexpr std::size_t kMaxIcuPiece = std::size_t{1} << 30;
constexpr std::size_t kIcuLookahead = std::size_t{1} << 16;

std::size_t codePointBoundaryAtOrBefore(std::string_view text, std::size_t offset) {
    std::size_t limit = offset > 3 ? offset - 3 : 0;
    while (offset > limit && U8_IS_TRAIL(static_cast<unsigned char>(text[offset]))) --offset;
    return offset;
}

// The input itself when it is valid UTF-8, otherwise a copy with U+FFFD for each ill-formed part,
// so ICU's UTF-8 functions (which copy ill-formed bytes through) only ever see valid text.
std::string_view validated(std::string_view text, std::string& storage) {
    if (isValidUtf8(text)) return text;
    storage = validUtf8(text);
    return storage;
}

icu::StringPiece piece(std::string_view text) {
    return icu::StringPiece(text.data(), static_cast<int32_t>(text.size()));
}

// --- Grapheme clusters -----------------------------------------------------------------------------

icu::BreakIterator* characterBreaks() {
    thread_local std::unique_ptr<icu::BreakIterator> iterator = [] {
        UErrorCode status = U_ZERO_ERROR;
        std::unique_ptr<icu::BreakIterator> created(
            icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
        if (U_FAILURE(status)) created.reset();
        return created;
    }();
    return iterator.get();
}

icu::BreakIterator* wordBreaks() {
    thread_local std::unique_ptr<icu::BreakIterator> iterator = [] {
        UErrorCode status = U_ZERO_ERROR;
        std::unique_ptr<icu::BreakIterator> created(
            icu::BreakIterator::createWordInstance(icu::Locale::getRoot(), status));
        if (U_FAILURE(status)) created.reset();
        return created;
    }();
    return iterator.get();
}

struct ClusterUnit {
    std::size_t begin;
    std::size_t end;
    int32_t graphemeBreak;  // UGraphemeClusterBreak
};

ClusterUnit readClusterUnit(std::string_view text, std::size_t at) {
    auto byte = static_cast<unsigned char>(text[at]);
    if (byte < 0x80) {
        int32_t kind = byte == '\r'                  ? U_GCB_CR
                       : byte == '\n'                ? U_GCB_LF
                       : byte < 0x20 || byte == 0x7F ? U_GCB_CONTROL
                                                     : U_GCB_OTHER;
        return {at, at + 1, kind};
    }
    std::size_t end = at;
    char32_t c = decodeCodePoint(text, end);
    return {at, end, u_getIntPropertyValue(static_cast<UChar32>(c), UCHAR_GRAPHEME_CLUSTER_BREAK)};
}

// Whether the break rules put a boundary between these two without looking any further: next to
// a control, and between two code points that no rule joins (letters, digits, punctuation,
// precomposed letters, most emoji). Everything else goes to ICU.
bool isBoundaryCertain(int32_t before, int32_t after) {
    if (before == U_GCB_CR) return after != U_GCB_LF;
    if (before == U_GCB_LF || before == U_GCB_CONTROL) return true;
    if (after == U_GCB_CONTROL || after == U_GCB_CR || after == U_GCB_LF) return true;
    return before == U_GCB_OTHER && after == U_GCB_OTHER;
}

// Runs ICU's rules over [begin, end), which must start and end at boundaries. False if
// `onCluster` asked to stop.
template <class OnCluster>
bool clustersThroughIcu(std::string_view text, std::size_t begin, std::size_t end, OnCluster& onCluster) {
    icu::BreakIterator* iterator = characterBreaks();
    UErrorCode status = U_ZERO_ERROR;
    UText utext = UTEXT_INITIALIZER;
    utext_openUTF8(&utext, text.data() + begin, static_cast<int64_t>(end - begin), &status);
    if (iterator) iterator->setText(&utext, status);
    if (U_FAILURE(status) || !iterator) {
        // No break data: code points rather than nothing.
        utext_close(&utext);
        for (std::size_t k = begin; k < end;) {
            std::size_t start = k;
            decodeCodePoint(text, k);
            if (!onCluster(start, k)) return false;
        }
        return true;
    }
    bool keepsGoing = true;
    std::size_t clusterBegin = begin;
    for (int32_t boundary = iterator->next(); keepsGoing && boundary != icu::BreakIterator::DONE;
         boundary = iterator->next()) {
        std::size_t clusterEnd = begin + static_cast<std::size_t>(boundary);
        keepsGoing = onCluster(clusterBegin, clusterEnd);
        clusterBegin = clusterEnd;
    }
    utext_close(&utext);
    return keepsGoing;
}

// Calls `onCluster(begin, end)` for each cluster, in order, until it returns false. ICU's break
// iterator is slow per code point, so it only sees the stretches where a rule could join code
// points; runs of plain characters are split here.
template <class OnCluster>
void forEachGrapheme(std::string_view text, OnCluster&& onCluster) {
    const std::size_t n = text.size();
    if (n == 0) return;
    const unsigned char* s = bytesOf(text);
    ClusterUnit current = readClusterUnit(text, 0);
    while (true) {
        // Between two ASCII characters other than CR LF there is always a boundary.
        if (s[current.begin] < 0x80) {
            std::size_t i = current.begin;
            while (i + 1 < n && s[i + 1] < 0x80 && !(s[i] == '\r' && s[i + 1] == '\n')) {
                if (!onCluster(i, i + 1)) return;
                ++i;
            }
            if (i != current.begin) current = readClusterUnit(text, i);
        }
        if (current.end == n) {
            onCluster(current.begin, n);
            return;
        }
        ClusterUnit next = readClusterUnit(text, current.end);
        if (current.graphemeBreak == U_GCB_CR && next.graphemeBreak == U_GCB_LF) {
            if (!onCluster(current.begin, next.end) || next.end == n) return;
            current = readClusterUnit(text, next.end);
            continue;
        }
        if (isBoundaryCertain(current.graphemeBreak, next.graphemeBreak)) {
            if (!onCluster(current.begin, current.end)) return;
            current = next;
            continue;
        }
        // Extend to the next certain boundary. Past 64 KB without one (a pile of combining
        // marks), ICU takes the rest of the text: its iterator is lazy, so a caller that stops
        // early (graphemePrefix) never pays for the whole pile.
        std::size_t regionBegin = current.begin;
        ClusterUnit last = next;
        bool hasFollower = false;
        ClusterUnit follower{};
        while (last.end < n) {
            if (last.end - regionBegin >= kIcuLookahead) {
                clustersThroughIcu(text, regionBegin, n, onCluster);
                return;
            }
            follower = readClusterUnit(text, last.end);
            if (isBoundaryCertain(last.graphemeBreak, follower.graphemeBreak)) {
                hasFollower = true;
                break;
            }
            last = follower;
        }
        if (!clustersThroughIcu(text, regionBegin, last.end, onCluster) || last.end == n) return;
        current = hasFollower ? follower : readClusterUnit(text, last.end);
    }
}

// --- Folding ------------------------------------------------------------------------------------

const icu::Normalizer2* nfd() {
    static const icu::Normalizer2* instance = [] {
        UErrorCode status = U_ZERO_ERROR;
        const icu::Normalizer2* found = icu::Normalizer2::getNFDInstance(status);
        return U_SUCCESS(status) ? found : nullptr;
    }();
    return instance;
}

const icu::Normalizer2* nfc() {
    static const icu::Normalizer2* instance = [] {
        UErrorCode status = U_ZERO_ERROR;
        const icu::Normalizer2* found = icu::Normalizer2::getNFCInstance(status);
        return U_SUCCESS(status) ? found : nullptr;
    }();
    return instance;
}

// Folds `piece` as a whole through ICU, appending to `out`: NFD, Mn dropped (if asked), full case
// fold, NFC. Returns whether the folded text before composition starts with a code point that
// nothing before it can compose with (false if it is empty).
bool foldThroughIcu(std::string_view piece, bool dropsMarks, std::string& out) {
    thread_local icu::UnicodeString source, decomposed, kept, composed;
    UErrorCode status = U_ZERO_ERROR;

    // UTF-16 is never longer in code units than UTF-8 is in bytes.
    auto capacity = static_cast<int32_t>(piece.size() + 1);
    char16_t* buffer = source.getBuffer(capacity);
    int32_t length = 0;
    u_strFromUTF8WithSub(buffer, capacity, &length, piece.data(), static_cast<int32_t>(piece.size()), 0xFFFD,
                         nullptr, &status);
    source.releaseBuffer(U_SUCCESS(status) ? length : 0);

    const icu::Normalizer2* decomposer = nfd();
    const icu::Normalizer2* composer = nfc();
    if (decomposer) {
        decomposer->normalize(source, decomposed, status);
    } else {
        decomposed = source;
    }
    if (dropsMarks) {
        kept.remove();
        for (int32_t k = 0; k < decomposed.length();) {
            UChar32 c = decomposed.char32At(k);
            if (u_charType(c) != U_NON_SPACING_MARK) kept.append(c);
            k += U16_LENGTH(c);
        }
    }
    icu::UnicodeString& folded = dropsMarks ? kept : decomposed;
    folded.foldCase(U_FOLD_CASE_DEFAULT);
    bool startsFresh = !folded.isEmpty() && composer && composer->hasBoundaryBefore(folded.char32At(0));
    if (composer) {
        composer->normalize(folded, composed, status);
    } else {
        composed = folded;
    }
    if (U_FAILURE(status)) composed = folded;
    icu::StringByteSink<std::string> sink(&out);
    composed.toUTF8(sink);
    return startsFresh;
}

// What a fold makes of one code point on its own, and whether the fold may cut the text just
// before it: true when normalization cannot reorder across that point (an NFD starter) and its
// folded form composes with nothing before it. Then folding the text piece by piece at such
// points gives what folding it whole would.
struct FoldedCodePoint {
    char32_t codePoint = 0xFFFFFFFF;
    bool startsPiece = false;
    std::string folded;
};

class FoldCache {
public:
    explicit FoldCache(bool dropsMarks) : dropsMarks_(dropsMarks) {}

    const FoldedCodePoint& operator[](char32_t c) {
        // Direct-mapped: a text's letters mostly come from one 1024-code-point stretch.
        FoldedCodePoint& entry = entries_[c & (entries_.size() - 1)];
        if (entry.codePoint != c) {
            entry.codePoint = c;
            entry.folded.clear();
            std::string single;
            appendUtf8(single, c);
            bool startsFresh = foldThroughIcu(single, dropsMarks_, entry.folded);
            const icu::Normalizer2* decomposer = nfd();
            entry.startsPiece = startsFresh && decomposer && decomposer->hasBoundaryBefore(static_cast<UChar32>(c));
        }
        return entry;
    }

private:
    bool dropsMarks_;
    std::array<FoldedCodePoint, 1024> entries_;
};

// Most code points fold on their own, from a per-thread cache; ICU sees only the stretches that
// hold combining marks and the like.
std::string fold(std::string_view text, bool dropsMarks) {
    thread_local FoldCache searchCache(true), caseCache(false);
    FoldCache& cache = dropsMarks ? searchCache : caseCache;
    std::string out;
    out.reserve(text.size());
    const unsigned char* s = bytesOf(text);
    const std::size_t n = text.size();
    std::size_t i = 0;
    while (i < n) {
        // ASCII folds to its lower case and starts a piece, so only what follows it matters.
        if (s[i] < 0x80 && (i + 1 == n || s[i + 1] < 0x80)) {
            out += asciiLower(static_cast<char>(s[i]));
            ++i;
            continue;
        }
        std::size_t pieceEnd = i;
        char32_t first = decodeCodePoint(text, pieceEnd);
        std::size_t singleEnd = pieceEnd;
        while (pieceEnd < n && pieceEnd - i < kMaxIcuPiece / 2) {
            std::size_t next = pieceEnd;
            char32_t c = s[next] < 0x80 ? char32_t{s[next++]} : decodeCodePoint(text, next);
            if (c < 0x80 || cache[c].startsPiece) break;
            pieceEnd = next;
        }
        if (pieceEnd != singleEnd) {
            foldThroughIcu(text.substr(i, pieceEnd - i), dropsMarks, out);
        } else if (first < 0x80) {
            out += asciiLower(static_cast<char>(first));
        } else {
            out += cache[first].folded;
        }
        i = pieceEnd;
    }
    return out;
}

bool asciiCaseInsensitiveContains(std::string_view haystack, std::string_view needle) {
    auto found = std::search(haystack.begin(), haystack.end(), needle.begin(), needle.end(),
                             [](char a, char b) { return asciiLower(a) == asciiLower(b); });
    return found != haystack.end();
}

// --- Lines ----------------------------------------------------------------------------------------

// Length of the newline starting at `i`, 0 if none starts there.
std::size_t newlineLengthAt(const unsigned char* s, std::size_t i, std::size_t n) {
    unsigned char b = s[i];
    if (b >= 0x0A && b <= 0x0D) return b == '\r' && i + 1 < n && s[i + 1] == '\n' ? 2 : 1;
    if (b == 0xC2 && i + 1 < n && s[i + 1] == 0x85) return 2;
    if (b == 0xE2 && i + 2 < n && s[i + 1] == 0x80 && (s[i + 2] == 0xA8 || s[i + 2] == 0xA9)) return 3;
    return 0;
}

// Calls `onLine(line)` for each line until it returns false.
template <class OnLine>
void forEachLine(std::string_view text, OnLine&& onLine) {
    const unsigned char* s = bytesOf(text);
    const std::size_t n = text.size();
    std::size_t start = 0;
    for (std::size_t i = 0; i < n;) {
        std::size_t length = newlineLengthAt(s, i, n);
        if (length == 0) {
            ++i;
            continue;
        }
        if (!onLine(text.substr(start, i - start))) return;
        i += length;
        start = i;
    }
    onLine(text.substr(start));
}

// Runs one of ICU's UTF-8 case mappings over the text made valid, in pieces its int32_t lengths can
// hold. The text unchanged (but valid) if ICU fails.
template <class Mapping>
std::string mappingCase(std::string_view text, Mapping&& mapping) {
    std::string storage;
    std::string_view source = validated(text, storage);
    std::string out;
    out.reserve(source.size());
    icu::StringByteSink<std::string> sink(&out);
    for (std::size_t begin = 0; begin < source.size();) {
        std::size_t end = source.size() - begin > kMaxIcuPiece
                              ? codePointBoundaryAtOrBefore(source, begin + kMaxIcuPiece)
                              : source.size();
        UErrorCode status = U_ZERO_ERROR;
        mapping(piece(source.substr(begin, end - begin)), sink, status);
        if (U_FAILURE(status)) return std::string(source);
        begin = end;
    }
    return out;
}

template <class Piece>
std::string joinPieces(const std::vector<Piece>& pieces, std::string_view separator) {
    std::size_t size = pieces.empty() ? 0 : separator.size() * (pieces.size() - 1);
    for (const Piece& piece : pieces) size += piece.size();
    std::string out;
    out.reserve(size);
    for (std::size_t k = 0; k < pieces.size(); ++k) {
        if (k > 0) out += separator;
        out += pieces[k];
    }
    return out;
}

}  // namespace

// --- Code points ---------------------------------------------------------------------------------

char32_t decodeCodePoint(std::string_view text, std::size_t& offset) {
    if (offset >= text.size()) return kReplacementCharacter;
    const unsigned char* s = bytesOf(text);
    UChar32 c;
    U8_NEXT_OR_FFFD(s, offset, text.size(), c);
    return static_cast<char32_t>(c);
}

std::u32string codePoints(std::string_view text) {
    std::u32string out;
    out.reserve(text.size());
    forEachCodePoint(text, [&](char32_t c) { out.push_back(c); });
    return out;
}

std::size_t codePointCount(std::string_view text) {
    std::size_t count = 0;
    forEachCodePoint(text, [&](char32_t) { ++count; });
    return count;
}

void appendUtf8(std::string& out, char32_t codePoint) {
    if (codePoint > 0x10FFFF || (codePoint >= 0xD800 && codePoint <= 0xDFFF)) codePoint = kReplacementCharacter;
    char bytes[4];
    std::size_t length = 0;
    U8_APPEND_UNSAFE(bytes, length, codePoint);
    out.append(bytes, length);
}

bool isValidUtf8(std::string_view text) {
    const unsigned char* s = bytesOf(text);
    std::size_t i = 0;
    while (i < text.size()) {
        if (s[i] < 0x80) {
            ++i;
            continue;
        }
        UChar32 c;
        U8_NEXT(s, i, text.size(), c);
        if (c < 0) return false;
    }
    return true;
}

std::string validUtf8(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    const unsigned char* s = bytesOf(text);
    std::size_t i = 0;
    while (i < text.size()) {
        std::size_t begin = i;
        UChar32 c;
        U8_NEXT(s, i, text.size(), c);
        if (c < 0) {
            appendUtf8(out, kReplacementCharacter);
        } else {
            out.append(text.substr(begin, i - begin));
        }
    }
    return out;
}

// --- Properties ----------------------------------------------------------------------------------

bool isWhiteSpace(char32_t c) { return u_hasBinaryProperty(static_cast<UChar32>(c), UCHAR_WHITE_SPACE); }

bool isNewline(char32_t c) { return (c >= 0x0A && c <= 0x0D) || c == 0x85 || c == 0x2028 || c == 0x2029; }

namespace {
bool isInCategories(char32_t c, uint32_t mask) { return (U_GET_GC_MASK(static_cast<UChar32>(c)) & mask) != 0; }
}  // namespace

bool isLetter(char32_t c) { return isInCategories(c, U_GC_L_MASK); }
bool isMark(char32_t c) { return isInCategories(c, U_GC_M_MASK); }
bool isDecimalDigit(char32_t c) { return isInCategories(c, U_GC_ND_MASK); }
int decimalDigitValue(char32_t c) { return isDecimalDigit(c) ? u_charDigitValue(static_cast<UChar32>(c)) : -1; }
bool isUppercase(char32_t c) { return isInCategories(c, U_GC_LU_MASK); }
bool isLowercase(char32_t c) { return isInCategories(c, U_GC_LL_MASK); }
bool isPunctuation(char32_t c) { return isInCategories(c, U_GC_P_MASK); }
bool isSymbol(char32_t c) { return isInCategories(c, U_GC_S_MASK); }
bool isControl(char32_t c) { return isInCategories(c, U_GC_CC_MASK); }

// --- Characters ----------------------------------------------------------------------------------

std::size_t graphemeCount(std::string_view text) {
    std::size_t count = 0;
    forEachGrapheme(text, [&](std::size_t, std::size_t) {
        ++count;
        return true;
    });
    return count;
}

std::vector<std::string_view> graphemes(std::string_view text) {
    std::vector<std::string_view> out;
    forEachGrapheme(text, [&](std::size_t begin, std::size_t end) {
        out.push_back(text.substr(begin, end - begin));
        return true;
    });
    return out;
}

std::string_view graphemePrefix(std::string_view text, std::size_t count) {
    if (count == 0) return text.substr(0, 0);
    std::size_t seen = 0;
    std::size_t prefixEnd = text.size();
    forEachGrapheme(text, [&](std::size_t, std::size_t end) {
        if (++seen < count) return true;
        prefixEnd = end;
        return false;
    });
    return text.substr(0, prefixEnd);
}

std::string_view trimmed(std::string_view text) {
    std::size_t begin = 0;
    while (begin < text.size()) {
        std::size_t next = begin;
        if (!isWhiteSpace(decodeCodePoint(text, next))) break;
        begin = next;
    }
    std::size_t end = text.size();
    while (end > begin) {
        // The last code point starts at the nearest non-trail byte; decoding forward from there
        // must reach `end` exactly, or the tail is ill-formed (and so not white space).
        std::size_t start = codePointBoundaryAtOrBefore(text, end - 1);
        std::size_t next = start;
        char32_t c = decodeCodePoint(text, next);
        if (next != end || !isWhiteSpace(c)) break;
        end = start;
    }
    return text.substr(begin, end - begin);
}

// --- Case ----------------------------------------------------------------------------------------

std::string uppercased(std::string_view text) {
    if (isAsciiText(text)) {
        std::string out(text);
        std::transform(out.begin(), out.end(), out.begin(), asciiUpper);
        return out;
    }
    return mappingCase(text, [](icu::StringPiece source, icu::ByteSink& sink, UErrorCode& status) {
        icu::CaseMap::utf8ToUpper("", 0, source, sink, nullptr, status);
    });
}

std::string lowercased(std::string_view text) {
    if (isAsciiText(text)) {
        std::string out(text);
        std::transform(out.begin(), out.end(), out.begin(), asciiLower);
        return out;
    }
    return mappingCase(text, [](icu::StringPiece source, icu::ByteSink& sink, UErrorCode& status) {
        icu::CaseMap::utf8ToLower("", 0, source, sink, nullptr, status);
    });
}

std::string capitalized(std::string_view text) {
    icu::BreakIterator* iterator = wordBreaks();
    if (!iterator) return validUtf8(text);
    return mappingCase(text, [iterator](icu::StringPiece source, icu::ByteSink& sink, UErrorCode& status) {
        icu::CaseMap::utf8ToTitle("", 0, iterator, source, sink, nullptr, status);
    });
}

// --- Folds and comparisons -----------------------------------------------------------------------

std::string searchFold(std::string_view text) { return fold(text, true); }

std::string caseInsensitiveFold(std::string_view text) { return fold(text, false); }

bool localizedStandardContains(std::string_view haystack, std::string_view needle) {
    if (needle.empty()) return false;
    // ASCII folds to its lower case under both folds.
    if (isAsciiText(needle) && isAsciiText(haystack)) return asciiCaseInsensitiveContains(haystack, needle);
    std::string foldedNeedle = searchFold(needle);
    if (foldedNeedle.empty()) return false;
    return searchFold(haystack).find(foldedNeedle) != std::string::npos;
}

bool localizedCaseInsensitiveContains(std::string_view haystack, std::string_view needle) {
    if (needle.empty()) return false;
    if (isAsciiText(needle) && isAsciiText(haystack)) return asciiCaseInsensitiveContains(haystack, needle);
    std::string foldedNeedle = caseInsensitiveFold(needle);
    if (foldedNeedle.empty()) return false;
    return caseInsensitiveFold(haystack).find(foldedNeedle) != std::string::npos;
}

bool caseInsensitiveEquals(std::string_view a, std::string_view b) {
    if (isAsciiText(a) && isAsciiText(b)) {
        return a.size() == b.size() &&
               std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) { return asciiLower(x) == asciiLower(y); });
    }
    return caseInsensitiveFold(a) == caseInsensitiveFold(b);
}

std::strong_ordering localizedStandardCompare(std::string_view a, std::string_view b) {
    thread_local std::unique_ptr<icu::Collator> collator = [] {
        UErrorCode status = U_ZERO_ERROR;
        std::unique_ptr<icu::Collator> created(icu::Collator::createInstance(icu::Locale::getRoot(), status));
        if (created) created->setAttribute(UCOL_NUMERIC_COLLATION, UCOL_ON, status);
        if (U_FAILURE(status)) created.reset();
        return created;
    }();
    if (collator && a.size() <= kMaxIcuPiece && b.size() <= kMaxIcuPiece) {
        std::string storageA, storageB;
        UErrorCode status = U_ZERO_ERROR;
        UCollationResult result =
            collator->compareUTF8(piece(validated(a, storageA)), piece(validated(b, storageB)), status);
        if (U_SUCCESS(status) && result == UCOL_LESS) return std::strong_ordering::less;
        if (U_SUCCESS(status) && result == UCOL_GREATER) return std::strong_ordering::greater;
    }
    return a <=> b;
}

// --- Lines and pieces ----------------------------------------------------------------------------

std::vector<std::string_view> lines(std::string_view text) {
    std::vector<std::string_view> out;
    forEachLine(text, [&](std::string_view line) {
        out.push_back(line);
        return true;
    });
    return out;
}

std::string_view firstLine(std::string_view text) {
    std::string_view first;
    forEachLine(text, [&](std::string_view line) {
        first = line;
        return false;
    });
    return first;
}

std::string replacingNewlinesWithSpaces(std::string_view input) {
    std::string storage;
    std::string_view text = validated(input, storage);
    std::string out;
    out.reserve(text.size());
    forEachLine(text, [&, isFirst = true](std::string_view line) mutable {
        if (!isFirst) out += ' ';
        isFirst = false;
        out += line;
        return true;
    });
    return out;
}

std::vector<std::string_view> split(std::string_view text, std::string_view separator) {
    if (separator.empty()) return {text};
    std::vector<std::string_view> out;
    std::size_t start = 0;
    for (std::size_t found = text.find(separator); found != std::string_view::npos;
         found = text.find(separator, start)) {
        out.push_back(text.substr(start, found - start));
        start = found + separator.size();
    }
    out.push_back(text.substr(start));
    return out;
}

std::string join(const std::vector<std::string>& pieces, std::string_view separator) {
    return joinPieces(pieces, separator);
}

std::string join(const std::vector<std::string_view>& pieces, std::string_view separator) {
    return joinPieces(pieces, separator);
}

}  // namespace tamarind
