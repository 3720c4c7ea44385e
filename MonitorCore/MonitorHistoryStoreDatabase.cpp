// SPDX-License-Identifier: MIT
#include "MonitorCore/MonitorHistoryStoreDatabase.h"

#include <sqlite3.h>

#include "MonitorCore/MonitorStorageError.h"

namespace monitor::history {

void Statement::Finalise::operator()(sqlite3_stmt* statement) const noexcept {
  sqlite3_finalize(statement);
}

void Statement::reset() {
  sqlite3_reset(statement_.get());
  sqlite3_clear_bindings(statement_.get());
}

// A binding that fails (out of memory, text beyond SQLite's limit) leaves the parameter NULL, which the
// table's NOT NULL columns refuse when the statement is stepped.
void Statement::bind(int parameter, double value) {
  sqlite3_bind_double(statement_.get(), parameter, value);
}

void Statement::bind(int parameter, std::string_view text) {
  // A null pointer would bind NULL instead of the empty text.
  const char* data = text.data() == nullptr ? "" : text.data();
  sqlite3_bind_text64(statement_.get(), parameter, data, text.size(), SQLITE_STATIC, SQLITE_UTF8);
}

Step Statement::step() {
  switch (sqlite3_step(statement_.get())) {
    case SQLITE_ROW:
      return Step::Row;
    case SQLITE_DONE:
      return Step::Done;
    default:
      return Step::Failed;
  }
}

bool Statement::isNull(int column) {
  return sqlite3_column_type(statement_.get(), column) == SQLITE_NULL;
}

double Statement::number(int column) {
  return sqlite3_column_double(statement_.get(), column);
}

std::int64_t Statement::integer(int column) {
  return sqlite3_column_int64(statement_.get(), column);
}

void Connection::Close::operator()(sqlite3* handle) const noexcept {
  sqlite3_close(handle);
}

Connection::Connection(const std::filesystem::path& file, Access access) {
  sqlite3* handle = nullptr;
  const int flags =
      access == Access::ReadOnly ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
  const int status = sqlite3_open_v2(file.c_str(), &handle, flags, nullptr);
  handle_.reset(handle);  // a failed open mostly yields a handle too, which has to be closed
  if (status != SQLITE_OK || handle == nullptr) {
    throw MonitorStorageError::database("Could not open local storage");
  }
}

void Connection::execute(const char* script) {
  if (!tryExecute(script)) throw MonitorStorageError::database(sqlite3_errmsg(handle_.get()));
}

bool Connection::tryExecute(const char* script) noexcept {
  return sqlite3_exec(handle_.get(), script, nullptr, nullptr, nullptr) == SQLITE_OK;
}

Statement Connection::prepare(std::string_view text) {
  sqlite3_stmt* statement = nullptr;
  const int status =
      sqlite3_prepare_v2(handle_.get(), text.data(), static_cast<int>(text.size()), &statement, nullptr);
  Statement result(statement);
  if (status != SQLITE_OK || statement == nullptr) {
    throw MonitorStorageError::database("Could not prepare history query");
  }
  return result;
}

int Connection::totalChanges() const {
  return sqlite3_total_changes(handle_.get());
}

}  // namespace monitor::history
