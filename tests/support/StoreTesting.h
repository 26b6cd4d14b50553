#pragma once
// Helpers for tests of the store: must() for a call a test expects to go
// through (a failure fails the test with its message and, for a value, throws
// when it is read), and tamperWith() for doing to a store file, from another
// connection, what the store itself never would.

#include <SQLiteCpp/Database.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "foundation/Result.h"

namespace tamarind {

inline void must(const Status& status) { EXPECT_TRUE(status.ok()) << status.error(); }

template <class T>
T must(Result<T> result) {
    EXPECT_TRUE(result.ok()) << (result.ok() ? "" : result.error());
    return std::move(*result);
}

inline SQLite::Database tamperWith(const std::filesystem::path& file) {
    SQLite::Database database(file, SQLite::OPEN_READWRITE);
    database.setBusyTimeout(5000);
    return database;
}

}  // namespace tamarind
