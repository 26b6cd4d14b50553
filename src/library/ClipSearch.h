#pragma once
// The vocabulary of the store's search: the orders a page can be sorted in, and
// a query as the store file answers it. ModelContainer runs the search
// (ClipSearch.cpp) and ClipStore merges what its stores answer.

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "foundation/Uuid.h"
#include "library/ClipKind.h"

namespace tamarind {

enum class ClipSortOrder { newest, oldest, mostUsed, largest };

struct ClipQuery {
    std::string text;  // trimmed before use; the whole piece must occur in the search text
    std::optional<ClipKind> kind;
    std::optional<std::string> appBundleID;
    std::optional<Uuid> collectionID;
    bool onlyFavorites = false;
    bool onlyPinned = false;
    std::optional<long long> withinDays;  // carried for the surfaces; not part of the match

    bool isEmpty() const;
};

// The part of a query that every store answers the same way: all of it but the collection.
struct ClipMatch {
    std::string where = "deletedAt IS NULL";  // everything but the text, over the clip's columns
    std::vector<std::variant<std::int64_t, double, std::string>> parameters;
    std::string needle;           // searchFold of the trimmed text; empty for no text test
    bool matchesNothing = false;  // text that folds to nothing is never contained

    static ClipMatch from(const ClipQuery& query);
    bool isOnlyLive() const { return parameters.empty() && where == "deletedAt IS NULL"; }
};

// Where an export's walk stands: the last clip read, by the order (createdAt, id).
struct ClipKey {
    double createdAt = 0;
    std::string id;
};

}  // namespace tamarind
