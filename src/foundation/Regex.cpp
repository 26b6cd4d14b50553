#include "foundation/Regex.h"

#include <unicode/regex.h>
#include <unicode/unistr.h>
#include <unicode/ustring.h>
#include <unicode/utext.h>
#include <unicode/utf16.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <climits>
#include <mutex>
#include <tuple>

namespace tamarind {
namespace {

// ICU's time limit counts matching steps in batches; this many stop a runaway backtracking search
// after about a second on current hardware, while an ordinary pattern scans megabytes well within it.
constexpr int32_t kTimeLimitTicks = 8000;
constexpr int32_t kStackLimitBytes = 64 * 1024 * 1024;
// More idle matchers than this are not worth keeping: few threads search with one Regex at once.
constexpr std::size_t kMaxIdleMatchers = 4;
// A matcher keeps the backtracking stack its largest search grew, so one that searched a long text
// is dropped rather than kept; making a new one costs little next to such a search.
constexpr std::size_t kMaxPooledTextLength = std::size_t{1} << 14;

std::unique_ptr<icu::RegexMatcher> boundedMatcher(const icu::RegexPattern& pattern) {
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::RegexMatcher> matcher(pattern.matcher(status));
    if (matcher) {
        matcher->setTimeLimit(kTimeLimitTicks, status);
        matcher->setStackLimit(kStackLimitBytes, status);
    }
    if (U_FAILURE(status)) matcher.reset();
    return matcher;
}

// The searched text in UTF-16, which ICU's matcher runs through several times faster than UTF-8,
// and the way back from its UTF-16 offsets to byte offsets in the original.
class Utf16Text {
public:
    explicit Utf16Text(std::string_view text) : utf8_(text), utf16_(new char16_t[text.size() + 1]) {
        // A code point never takes more UTF-16 units than UTF-8 bytes, so the buffer is big enough.
        isAscii_ = std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
        // In pieces that ICU's int32_t lengths can hold, cut before a lead or ASCII byte, which is
        // where decoding would start a new code point anyway.
        for (std::size_t begin = 0; begin < text.size();) {
            std::size_t end = std::min(text.size(), begin + kMaxPiece);
            while (end < text.size() && end > begin + 1 && U8_IS_TRAIL(static_cast<unsigned char>(text[end]))) --end;
            UErrorCode status = U_ZERO_ERROR;
            int32_t written = 0;
            u_strFromUTF8WithSub(utf16_.get() + length_, static_cast<int32_t>(end - begin + 1), &written,
                                 text.data() + begin, static_cast<int32_t>(end - begin), 0xFFFD, nullptr, &status);
            if (U_FAILURE(status)) break;
            length_ += static_cast<std::size_t>(written);
            begin = end;
        }
    }

    const char16_t* data() const { return utf16_.get(); }
    std::size_t size() const { return length_; }

    // Offsets asked for mostly move forward a little at a time, so the walk goes on from the last
    // answer; going back, it restarts from a checkpoint left on the way.
    std::size_t byteOffset(int64_t utf16Offset) {
        auto target = static_cast<std::size_t>(std::clamp<int64_t>(utf16Offset, 0, static_cast<int64_t>(length_)));
        if (isAscii_) return target;
        if (target < cursor_.utf16) {
            std::size_t k = std::min(target / kStride, checkpoints_.size() - 1);
            while (k > 0 && checkpoints_[k].utf16 > target) --k;
            cursor_ = checkpoints_[k];
        }
        const auto* s = reinterpret_cast<const unsigned char*>(utf8_.data());
        while (cursor_.utf16 < target) {
            if (cursor_.utf16 >= checkpoints_.size() * kStride) checkpoints_.push_back(cursor_);
            // The UTF-16 unit tells the UTF-8 length, except for U+FFFD, which may stand for
            // ill-formed bytes: those are decoded the way the conversion did.
            char16_t unit = utf16_[cursor_.utf16];
            if (unit < 0x80) {
                cursor_.utf8 += 1;
            } else if (unit < 0x800) {
                cursor_.utf8 += 2;
            } else if (U16_IS_LEAD(unit)) {
                cursor_.utf8 += 4;
                cursor_.utf16 += 1;
            } else if (unit == 0xFFFD) {
                UChar32 c;
                U8_NEXT_OR_FFFD(s, cursor_.utf8, utf8_.size(), c);
            } else {
                cursor_.utf8 += 3;
            }
            cursor_.utf16 += 1;
        }
        return std::min(cursor_.utf8, utf8_.size());
    }

private:
    static constexpr std::size_t kMaxPiece = std::size_t{1} << 30;
    static constexpr std::size_t kStride = 256;
    struct Position {
        std::size_t utf16;
        std::size_t utf8;
    };

    std::string_view utf8_;
    std::unique_ptr<char16_t[]> utf16_;
    std::size_t length_ = 0;
    bool isAscii_ = true;
    // The first code point at or after each multiple of kStride units, as far as walked so far.
    std::vector<Position> checkpoints_{Position{0, 0}};
    Position cursor_{0, 0};
};

}  // namespace

struct Regex::Impl {
    std::string source;
    RegexOptions options;
    std::unique_ptr<icu::RegexPattern> pattern;
    std::size_t groupCount = 0;

    // A matcher holds per-search state and costs an allocation or two to make, so finished ones
    // wait here for the next search on any thread.
    mutable std::mutex mutex;
    mutable std::vector<std::unique_ptr<icu::RegexMatcher>> idleMatchers;

    class Search;
};

// A matcher borrowed from the pool and set to search one text; it goes back when this ends.
class Regex::Impl::Search {
public:
    Search(const Regex::Impl& impl, std::string_view text) : impl_(impl), text_(text) {
        {
            std::lock_guard lock(impl.mutex);
            if (!impl.idleMatchers.empty()) {
                matcher_ = std::move(impl.idleMatchers.back());
                impl.idleMatchers.pop_back();
            }
        }
        if (!matcher_) matcher_ = boundedMatcher(*impl.pattern);
        UErrorCode status = U_ZERO_ERROR;
        utext_openUChars(&utext_, text_.data(), static_cast<int64_t>(text_.size()), &status);
        if (U_FAILURE(status) || !matcher_) return;
        // The matcher keeps a shallow clone of the UText, which reads text_ in place.
        matcher_->reset(&utext_);
        isUsable_ = true;
    }

    ~Search() {
        utext_close(&utext_);
        if (!matcher_ || text_.size() > kMaxPooledTextLength) return;
        std::lock_guard lock(impl_.mutex);
        if (impl_.idleMatchers.size() < kMaxIdleMatchers) impl_.idleMatchers.push_back(std::move(matcher_));
    }

    Search(const Search&) = delete;
    Search& operator=(const Search&) = delete;

    // The next match, left to right; false at the end or when the search gives up.
    bool findNext() {
        if (!isUsable_) return false;
        UErrorCode status = U_ZERO_ERROR;
        bool isFound = matcher_->find(status);
        if (U_FAILURE(status)) isUsable_ = false;
        return isFound && isUsable_;
    }

    bool matchesWhole() {
        if (!isUsable_) return false;
        UErrorCode status = U_ZERO_ERROR;
        bool isMatch = matcher_->matches(status);
        return isMatch && U_SUCCESS(status);
    }

    std::pair<std::size_t, std::size_t> range() {
        UErrorCode status = U_ZERO_ERROR;
        int64_t begin = matcher_->start64(status);
        int64_t end = matcher_->end64(status);
        return {text_.byteOffset(begin), text_.byteOffset(end)};
    }

    RegexMatch match() {
        RegexMatch result;
        std::tie(result.begin, result.end) = range();
        result.groups.reserve(impl_.groupCount);
        for (std::size_t group = 1; group <= impl_.groupCount; ++group) {
            UErrorCode status = U_ZERO_ERROR;
            int64_t begin = matcher_->start64(static_cast<int32_t>(group), status);
            int64_t end = matcher_->end64(static_cast<int32_t>(group), status);
            if (U_FAILURE(status) || begin < 0 || end < 0) {
                result.groups.emplace_back(std::nullopt);
            } else {
                result.groups.emplace_back(std::pair(text_.byteOffset(begin), text_.byteOffset(end)));
            }
        }
        return result;
    }

private:
    const Regex::Impl& impl_;
    Utf16Text text_;
    std::unique_ptr<icu::RegexMatcher> matcher_;
    UText utext_ = UTEXT_INITIALIZER;
    bool isUsable_ = false;
};

std::optional<std::string_view> RegexMatch::groupText(std::size_t group, std::string_view subject) const {
    if (group == 0) return text(subject);
    if (group > groups.size() || !groups[group - 1]) return std::nullopt;
    auto [begin, end] = *groups[group - 1];
    return subject.substr(begin, end - begin);
}

std::optional<Regex> Regex::compile(std::string_view pattern, RegexOptions options) {
    if (pattern.size() > INT32_MAX) return std::nullopt;
    uint32_t flags = 0;
    if (options.caseInsensitive) flags |= UREGEX_CASE_INSENSITIVE;
    if (options.multiline) flags |= UREGEX_MULTILINE;
    if (options.dotMatchesNewlines) flags |= UREGEX_DOTALL;

    UParseError parseError{};
    UErrorCode status = U_ZERO_ERROR;
    icu::UnicodeString patternText =
        icu::UnicodeString::fromUTF8(icu::StringPiece(pattern.data(), static_cast<int32_t>(pattern.size())));
    std::unique_ptr<icu::RegexPattern> compiled(icu::RegexPattern::compile(patternText, flags, parseError, status));
    if (U_FAILURE(status) || !compiled) return std::nullopt;

    // Only a matcher knows the group count; it then serves the first search.
    std::unique_ptr<icu::RegexMatcher> matcher = boundedMatcher(*compiled);
    if (!matcher) return std::nullopt;

    auto impl = std::make_shared<Impl>();
    impl->source = std::string(pattern);
    impl->options = options;
    impl->groupCount = static_cast<std::size_t>(matcher->groupCount());
    impl->pattern = std::move(compiled);
    impl->idleMatchers.push_back(std::move(matcher));
    return Regex(std::move(impl));
}

const std::string& Regex::pattern() const { return impl_->source; }

RegexOptions Regex::options() const { return impl_->options; }

std::size_t Regex::captureGroupCount() const { return impl_->groupCount; }

std::optional<std::size_t> Regex::groupNumber(std::string_view name) const {
    if (name.size() > INT32_MAX) return std::nullopt;
    UErrorCode status = U_ZERO_ERROR;
    int32_t number = impl_->pattern->groupNumberFromName(name.data(), static_cast<int32_t>(name.size()), status);
    if (U_FAILURE(status) || number <= 0) return std::nullopt;
    return static_cast<std::size_t>(number);
}

std::optional<RegexMatch> Regex::firstMatch(std::string_view text) const {
    Impl::Search search(*impl_, text);
    if (!search.findNext()) return std::nullopt;
    return search.match();
}

std::vector<RegexMatch> Regex::allMatches(std::string_view text) const {
    std::vector<RegexMatch> out;
    Impl::Search search(*impl_, text);
    while (search.findNext()) out.push_back(search.match());
    return out;
}

bool Regex::matches(std::string_view text) const {
    Impl::Search search(*impl_, text);
    return search.matchesWhole();
}

bool Regex::containsMatch(std::string_view text) const {
    Impl::Search search(*impl_, text);
    return search.findNext();
}

std::string Regex::replacingAllMatches(std::string_view text, std::string_view replacement) const {
    std::string out;
    out.reserve(text.size());
    std::size_t copiedUpTo = 0;
    Impl::Search search(*impl_, text);
    while (search.findNext()) {
        auto [begin, end] = search.range();
        out.append(text.substr(copiedUpTo, begin - copiedUpTo));
        out.append(replacement);
        copiedUpTo = end;
    }
    out.append(text.substr(copiedUpTo));
    return out;
}

}  // namespace tamarind
