// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

// SQLite as the history store uses it: one connection, scripts, and statements that are finalised on every
// path. Nothing here is thread-safe; the store serialises.
namespace monitor::history {

enum class Step : std::uint8_t { Row, Done, Failed };

// A compiled statement. Must not outlive its connection.
class Statement {
 public:
  // Makes the statement ready for another round, all parameters unbound.
  void reset();
  // Parameters count from 1. Text is not copied: it has to stay in place until the next reset() or
  // destruction. A NaN is bound as NULL.
  void bind(int parameter, double value);
  void bind(int parameter, std::string_view text);
  [[nodiscard]] Step step();
  // Columns of the current row count from 0.
  [[nodiscard]] bool isNull(int column);
  [[nodiscard]] double number(int column);
  [[nodiscard]] std::int64_t integer(int column);

 private:
  friend class Connection;
  struct Finalise {
    void operator()(sqlite3_stmt* statement) const noexcept;
  };
  explicit Statement(sqlite3_stmt* statement) : statement_(statement) {}

  std::unique_ptr<sqlite3_stmt, Finalise> statement_;
};

enum class Access : std::uint8_t { ReadWriteCreate, ReadOnly };

class Connection {
 public:
  // Throws MonitorStorageError "Could not open local storage".
  explicit Connection(const std::filesystem::path& file, Access access = Access::ReadWriteCreate);

  // Runs a script of one or more statements, up to the first that fails. Throws MonitorStorageError with
  // SQLite's message.
  void execute(const char* script);
  // The same where a failure must not hide an earlier one. Says whether it succeeded.
  bool tryExecute(const char* script) noexcept;
  // Throws MonitorStorageError "Could not prepare history query".
  [[nodiscard]] Statement prepare(std::string_view text);
  // Rows changed since the connection was opened; wraps around.
  [[nodiscard]] int totalChanges() const;

 private:
  struct Close {
    void operator()(sqlite3* handle) const noexcept;
  };
  std::unique_ptr<sqlite3, Close> handle_;
};

}  // namespace monitor::history
