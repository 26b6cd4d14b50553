#pragma once
// Regular expressions over UTF-8 text, in ICU's dialect (\p{L}, (?i), \b, [[:alpha:]], (?<name>...)).
// Every position reported is a byte offset into the searched text.
//
// A compiled Regex never changes: any thread may use it, one Regex may be used from several threads
// at once, and copies share the compiled pattern.
//
// Patterns may come from users, so each search is bounded. A search that exceeds ICU's step limit
// (set to roughly a second of work on current hardware) or its 64 MB backtracking stack gives up and
// counts as finding nothing from that point on; matches found before it still count. Ill-formed
// UTF-8 in a text or a pattern reads as U+FFFD, one per maximal ill-formed subsequence.
//
// ICU matches UTF-16 much faster than UTF-8, so each search works on a UTF-16 copy of the text (at
// most twice its size) and translates the offsets back.

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tamarind {

struct RegexOptions {
    bool caseInsensitive = false;
    bool multiline = false;           // ^ and $ also match at the start and end of each line
    bool dotMatchesNewlines = false;  // . also matches line terminators
};

struct RegexMatch {
    std::size_t begin = 0;
    std::size_t end = 0;
    // Capture group n is at [n - 1], as byte offsets; absent when the group took no part.
    std::vector<std::optional<std::pair<std::size_t, std::size_t>>> groups;

    std::string_view text(std::string_view subject) const { return subject.substr(begin, end - begin); }
    // Group 0 is the whole match. Absent for a group that took no part or does not exist.
    std::optional<std::string_view> groupText(std::size_t group, std::string_view subject) const;
};

class Regex {
public:
    // Absent when ICU rejects the pattern.
    static std::optional<Regex> compile(std::string_view pattern, RegexOptions options = {});

    const std::string& pattern() const;
    RegexOptions options() const;
    std::size_t captureGroupCount() const;
    // The number of the group named `name`, absent if there is none.
    std::optional<std::size_t> groupNumber(std::string_view name) const;

    // The leftmost match anywhere in `text`.
    std::optional<RegexMatch> firstMatch(std::string_view text) const;
    // Non-overlapping matches, left to right. After an empty match the search resumes one code
    // point further on, so a pattern like "a*" yields an empty match at each position it fails.
    std::vector<RegexMatch> allMatches(std::string_view text) const;
    // Whether the whole of `text` matches.
    bool matches(std::string_view text) const;
    bool containsMatch(std::string_view text) const;
    // Every match of allMatches replaced by `replacement` taken literally ("$1" and "\" are plain
    // text); the text between matches is copied byte for byte.
    std::string replacingAllMatches(std::string_view text, std::string_view replacement) const;

private:
    struct Impl;
    explicit Regex(std::shared_ptr<const Impl> impl) : impl_(std::move(impl)) {}

    std::shared_ptr<const Impl> impl_;
};

}  // namespace tamarind
