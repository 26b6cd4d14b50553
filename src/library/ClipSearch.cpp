// The search over one store file. Substring search picks, per query, the
// cheaper way to a page: walking the sort order's index and testing each row,
// which stops when the page is full (quick for a common needle, a full scan for
// a rare one), or reading the rows that the trigram index lists for the needle
// and sorting them (quick when they are few). The index keeps the trigrams'
// positions, so the needle quoted as one phrase is matched as a substring by the
// index alone; a capped read of its rows tells which way is cheaper. The index
// covers the start of each text (kIndexedSearchCharacters); the few longer
// texts are tested whole beside it. The result is exactly the containment test.

#include <SQLiteCpp/Database.h>
#include <SQLiteCpp/Statement.h>

#include <algorithm>
#include <cmath>

#include "foundation/Text.h"
#include "library/ModelContainer.h"

namespace tamarind {

namespace {

using Parameters = ModelContainer::Parameters;

// The trigram tokenizer indexes runs of three code points; shorter needles can't use it.
constexpr std::size_t kTrigramLength = 3;
// Each code point of a phrase adds a row list to read; a long pasted needle is narrowed enough
// by its start, and the rows found are then tested for the whole of it.
constexpr std::size_t kMaximumPhraseLength = 24;
// Bounds of the candidate count below which the index beats a walk (see indexLimit).
constexpr long long kMinimumIndexLimit = 64;
constexpr long long kMaximumIndexLimit = 20'000;
// How many times the expected number of rows a walk may read before the index takes over.
constexpr long long kScanBudgetFactor = 4;

// The rowid ends each order so that pages of equal keys neither repeat nor skip a clip; every
// order is the reverse or the walk of one index (the rowid is the last column of each).
std::string orderBy(ClipSortOrder sort) {
    switch (sort) {
    case ClipSortOrder::newest: return "createdAt DESC, clip.pk DESC";
    case ClipSortOrder::oldest: return "createdAt, clip.pk";
    case ClipSortOrder::mostUsed: return "useCount DESC, createdAt DESC, clip.pk DESC";
    case ClipSortOrder::largest: return "byteSize DESC, createdAt DESC, clip.pk DESC";
    }
    return "createdAt DESC, clip.pk DESC";
}

// The needle (or its start) as one FTS5 phrase: quoted, so that no character is query syntax.
struct Phrase {
    std::string expression;
    bool isWholeNeedle = true;
};

// None for a needle shorter than a trigram, or holding a NUL, which would end the query text.
std::optional<Phrase> phraseOf(std::string_view needle) {
    if (needle.find('\0') != std::string_view::npos) return std::nullopt;
    std::size_t codePoints = 0;
    std::size_t end = 0;
    while (end < needle.size() && codePoints < kMaximumPhraseLength) {
        decodeCodePoint(needle, end);
        ++codePoints;
    }
    if (codePoints < kTrigramLength) return std::nullopt;
    Phrase phrase{.expression = "\"", .isWholeNeedle = end == needle.size()};
    for (char c : needle.substr(0, end)) {
        if (c == '"') phrase.expression += '"';
        phrase.expression += c;
    }
    phrase.expression += '"';
    return phrase;
}

// How a store answers a needle of three characters or more.
struct SearchPlan {
    enum class Way {
        nothing,        // no row holds the phrase
        candidates,     // these rows, few enough to sort
        walkThenIndex,  // the needle looks common: walk the order, or fall back to the index
    } way = Way::nothing;
    std::vector<std::int64_t> rowIDs;
    long long indexLimit = 0;
};

// Sorting c candidates read by rowid costs about c rows; filling a page by a walk costs about
// (offset + limit) × N / c rows, the needle being in c of N clips. The two meet at
// c = sqrt((offset + limit) × N): below that the index wins.
long long indexLimit(SQLite::Database& database, long long wanted) {
    auto rows = database.execAndGet("SELECT coalesce(max(pk), 0) FROM clip").getInt64();
    auto balance = static_cast<long long>(std::sqrt(static_cast<double>(std::max<long long>(wanted, 1)) *
                                                    static_cast<double>(std::max<std::int64_t>(rows, 1))));
    return std::clamp(balance, kMinimumIndexLimit, kMaximumIndexLimit);
}

// The rows holding the phrase, from the index, and the long texts holding the needle beyond the
// part the index covers; the arguments are the two parameters' places.
std::string phraseRows(const std::string& phrase, const std::string& needle) {
    return "SELECT rowid FROM clip_search WHERE clip_search MATCH " + phrase +
           " UNION SELECT pk FROM clip WHERE length(searchFolded) > " + std::to_string(kIndexedSearchCharacters) +
           " AND instr(searchFolded, " + needle + ") > 0";
}

SearchPlan planSearch(SQLite::Database& database, const Phrase& phrase, const std::string& needle, long long wanted) {
    SearchPlan plan;
    plan.indexLimit = indexLimit(database, wanted);
    SQLite::Statement listed(database, phraseRows("?1", "?2") + " LIMIT ?3");
    listed.bind(1, phrase.expression);
    listed.bind(2, needle);
    listed.bind(3, static_cast<std::int64_t>(plan.indexLimit));
    while (listed.executeStep()) plan.rowIDs.push_back(listed.getColumn(0).getInt64());
    if (plan.rowIDs.empty()) return plan;
    if (static_cast<long long>(plan.rowIDs.size()) < plan.indexLimit) {
        plan.way = SearchPlan::Way::candidates;
        return plan;
    }
    plan.rowIDs.clear();
    plan.way = SearchPlan::Way::walkThenIndex;
    return plan;
}

std::string rowIDList(const std::vector<std::int64_t>& rowIDs) {
    std::string list;
    for (std::int64_t rowID : rowIDs) {
        if (!list.empty()) list += ",";
        list += std::to_string(rowID);
    }
    return list;
}

// The WHERE clause and parameters narrowed to these rows, or (with none) to the phrase's rows;
// only a phrase of part of the needle leaves a test to make on each row.
std::string narrowed(const ClipMatch& match, const Phrase& phrase, const std::vector<std::int64_t>& rowIDs,
                     Parameters& parameters) {
    parameters = match.parameters;
    std::string where = match.where;
    if (!phrase.isWholeNeedle) {
        where += " AND instr(searchFolded, ?) > 0";
        parameters.emplace_back(match.needle);
    }
    if (!rowIDs.empty()) return where + " AND clip.pk IN (" + rowIDList(rowIDs) + ")";
    // Numbered after the match's own parameters.
    auto next = [&](std::string value) {
        parameters.emplace_back(std::move(value));
        return "?" + std::to_string(parameters.size());
    };
    std::string expression = next(phrase.expression);
    return where + " AND clip.pk IN (" + phraseRows(expression, next(match.needle)) + ")";
}

std::string withScan(const ClipMatch& match, Parameters& parameters) {
    parameters = match.parameters;
    parameters.emplace_back(match.needle);
    return match.where + " AND instr(searchFolded, ?) > 0";
}

void bindAll(SQLite::Statement& statement, const Parameters& parameters) {
    int index = 1;
    for (const auto& parameter : parameters)
        std::visit([&](const auto& value) { statement.bind(index++, value); }, parameter);
}

// Walks the sort order testing each row, reading at most `budget` rows. The row ids of the page,
// or nothing when the budget ran out first.
std::optional<std::vector<std::int64_t>> walk(SQLite::Database& database, const ClipMatch& match, ClipSortOrder sort,
                                              long long limit, long long offset, long long budget) {
    std::string sql = "SELECT clip.pk, searchFolded FROM clip WHERE " + match.where + " ORDER BY " + orderBy(sort);
    SQLite::Statement rows(database, sql);
    bindAll(rows, match.parameters);
    std::vector<std::int64_t> page;
    long long matched = 0;
    for (long long read = 0; read < budget; ++read) {
        if (!rows.executeStep()) return page;
        SQLite::Column folded = rows.getColumn(1);
        std::string_view text(static_cast<const char*>(folded.getBlob()), static_cast<std::size_t>(folded.getBytes()));
        if (text.find(match.needle) == std::string_view::npos) continue;
        if (matched++ < offset) continue;
        page.push_back(rows.getColumn(0).getInt64());
        if (static_cast<long long>(page.size()) == limit) return page;
    }
    return std::nullopt;
}

}  // namespace

bool ClipQuery::isEmpty() const {
    return text.empty() && !kind && !appBundleID && !collectionID && !onlyFavorites && !onlyPinned;
}

ClipMatch ClipMatch::from(const ClipQuery& query) {
    ClipMatch match;
    if (query.kind) {
        match.where += " AND kind = ?";
        match.parameters.emplace_back(std::string(rawValue(*query.kind)));
    }
    if (query.appBundleID) {
        match.where += " AND sourceAppBundleID = ?";
        match.parameters.emplace_back(*query.appBundleID);
    }
    if (query.onlyFavorites) match.where += " AND isFavorite <> 0";
    if (query.onlyPinned) match.where += " AND isPinned <> 0";
    std::string_view text = trimmed(query.text);
    if (!text.empty()) {
        match.needle = searchFold(text);
        match.matchesNothing = match.needle.empty();
    }
    return match;
}

std::vector<Clip> ModelContainer::searchPage(const ClipMatch& match, ClipSortOrder sort, long long limit,
                                             long long offset) {
    if (match.matchesNothing || limit <= 0) return {};
    ClipFetch request{.where = match.where, .parameters = match.parameters, .orderBy = orderBy(sort),
                      .limit = limit, .offset = offset};
    if (match.needle.empty()) return fetchRows(request);
    auto phrase = phraseOf(match.needle);
    if (!phrase) {
        request.where = withScan(match, request.parameters);
        return fetchRows(request);
    }
    auto byRowIDs = [&](const std::vector<std::int64_t>& rowIDs) {
        if (rowIDs.empty()) return std::vector<Clip>{};
        return fetchRows(ClipFetch{.where = "clip.pk IN (" + rowIDList(rowIDs) + ")", .orderBy = orderBy(sort)});
    };
    SearchPlan plan = planSearch(*database_, *phrase, match.needle, offset + limit);
    if (plan.way == SearchPlan::Way::nothing) return {};
    if (plan.way == SearchPlan::Way::walkThenIndex) {
        // The needle is common, so a walk most likely fills the page within about indexLimit
        // rows; other conditions that are rare exhaust the budget and go to the index.
        auto page = walk(*database_, match, sort, limit, offset, kScanBudgetFactor * plan.indexLimit);
        if (page) return byRowIDs(*page);
    }
    // Candidates that must be sorted: sorting whole rows (with their collections) is what costs
    // when thousands match, so the page is cut on row ids and keys, and only its rows are read.
    Parameters parameters;
    std::string where = narrowed(match, *phrase, plan.rowIDs, parameters);
    SQLite::Statement rows(*database_, "SELECT clip.pk FROM clip WHERE " + where + " ORDER BY " + orderBy(sort) +
                                           " LIMIT " + std::to_string(limit) + " OFFSET " + std::to_string(offset));
    bindAll(rows, parameters);
    std::vector<std::int64_t> page;
    while (rows.executeStep()) page.push_back(rows.getColumn(0).getInt64());
    return byRowIDs(page);
}

long long ModelContainer::searchCount(const ClipMatch& match) {
    auto count = [&](const std::string& where, const Parameters& parameters) {
        SQLite::Statement query(*database_, "SELECT count(*) FROM clip WHERE " + where);
        bindAll(query, parameters);
        query.executeStep();
        return query.getColumn(0).getInt64();
    };
    if (match.matchesNothing) return 0;
    if (match.needle.empty()) {
        // The store keeps this one; counting "deletedAt IS NULL" would read every row.
        if (match.isOnlyLive()) return database_->execAndGet("SELECT live FROM clip_stats WHERE id = 1").getInt64();
        return count(match.where, match.parameters);
    }
    Parameters parameters;
    auto phrase = phraseOf(match.needle);
    if (!phrase) return count(withScan(match, parameters), parameters);
    if (match.isOnlyLive() && phrase->isWholeNeedle) {
        // The index alone counts the rows holding the needle; only the tombstones among them
        // (found by their own index) are taken off.
        SQLite::Statement listed(*database_, "SELECT count(*) FROM clip_search WHERE clip_search MATCH ?");
        listed.bind(1, phrase->expression);
        listed.executeStep();
        // Long texts holding the needle only past the part the index covers are added.
        std::string longOnly = "deletedAt IS NULL AND length(searchFolded) > " +
                               std::to_string(kIndexedSearchCharacters) +
                               " AND instr(searchFolded, ?1) > 0 AND instr(substr(searchFolded, 1, " +
                               std::to_string(kIndexedSearchCharacters) + "), ?1) = 0";
        return listed.getColumn(0).getInt64() -
               count("deletedAt IS NOT NULL AND instr(searchFolded, ?) > 0", {match.needle}) +
               count(longOnly, {match.needle});
    }
    // Reading the phrase's rows by rowid never costs more than reading every row.
    return count(narrowed(match, *phrase, {}, parameters), parameters);
}

Result<std::vector<Clip>> ModelContainer::fetchMatching(const ClipMatch& match, ClipSortOrder sort, long long limit,
                                                        long long offset) {
    return guarded([&] { return searchPage(match, sort, limit, offset); });
}

Result<long long> ModelContainer::countMatching(const ClipMatch& match) {
    return guarded([&]() -> long long { return searchCount(match); });
}

Result<std::vector<Clip>> ModelContainer::fetchMatchingAfter(const ClipMatch& match,
                                                             const std::optional<ClipKey>& after, long long limit) {
    return guarded([&] {
        if (match.matchesNothing) return std::vector<Clip>{};
        ClipFetch request{.where = match.where, .parameters = match.parameters, .orderBy = "createdAt, id",
                          .limit = limit, .includesMedia = true};
        if (!match.needle.empty()) request.where = withScan(match, request.parameters);
        if (after) {
            request.where += " AND (createdAt > ? OR (createdAt = ? AND id > ?))";
            request.parameters.emplace_back(after->createdAt);
            request.parameters.emplace_back(after->createdAt);
            request.parameters.emplace_back(after->id);
        }
        return fetchRows(request);
    });
}

Result<std::vector<Uuid>> ModelContainer::clipIDsWithPrefix(const std::string& upperPrefix, int limit) {
    return guarded([&] {
        // A range on the id index: ids are upper-case text, and '~' sorts after every digit.
        SQLite::Statement query(*database_,
                                "SELECT id FROM clip WHERE id >= ?1 AND id < ?1 || '~' AND deletedAt IS NULL "
                                "ORDER BY id LIMIT ?2");
        query.bind(1, upperPrefix);
        query.bind(2, limit);
        std::vector<Uuid> ids;
        while (query.executeStep())
            if (auto id = Uuid::parse(query.getColumn(0).getString())) ids.push_back(*id);
        return ids;
    });
}

}  // namespace tamarind
