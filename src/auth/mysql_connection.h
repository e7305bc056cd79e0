// A small query-stream client of the panel database: a connection into which the query text
// is written piece by piece, its results as rows of named fields, and its error type.
#pragma once

#include <map>
#include <sstream>
#include <stdexcept>
#include <string>

#include "auth/panel_db.h"

namespace quelt::mysql {

// A failure of the panel database client; what() is the whole message.
class mError : public std::exception {
public:
    explicit mError(std::string message) : message_(std::move(message)) {}
    // "MySQL error <number>: <client text><context>", or "Unknown error\n<context>" for number 0.
    mError(MYSQL* handle, const std::string& context);
    const char* what() const noexcept override { return message_.c_str(); }

private:
    std::string message_;
};

// One row: field value by column name (NULL reads as the empty text).
using row_t = std::map<std::string, std::string>;

// The rows of one fetch query; the result set is freed when the Result is cleared or destroyed.
class Result {
public:
    Result() = default;
    explicit Result(MYSQL_RES* result) : result_(result) {}
    Result(Result&&) noexcept = default;
    Result& operator=(Result&&) noexcept = default;

    // Fills `row` with the next row; false when there are no more. Throws mError
    // "duplicated field <name> in query" when two columns share a name.
    bool fetch(row_t& row);
    void clear() { result_.reset(); }

private:
    MysqlResult result_;
};

// Markers written into a Connection: `fetch` runs the buffered query and yields its Result;
// `value` and `name` make the next string an escaped value or a quoted-name part.
struct Query {
    enum Fetch { fetch };
    enum Mode { raw, value, name };
};

class Connection {
public:
    // Opens at once when `openNow` is true.
    explicit Connection(bool openNow = false);
    // Uses a handle the caller keeps open and closes.
    explicit Connection(MYSQL* borrowed) : handle_(borrowed) {}
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    // Connects through db_connect; throws mError("connection failed") when that yields nothing.
    void open();
    bool isOpen() const { return handle_ != nullptr; }
    MYSQL* handle() const { return handle_; }

    // Appends a string in the current mode, which then returns to raw.
    Connection& operator<<(const char* text);
    Connection& operator<<(const std::string& text);
    Connection& operator<<(int number);
    Connection& operator<<(unsigned long long number);
    Connection& operator<<(double number);  // as "%f"
    Connection& operator<<(Query::Mode mode);
    // Runs the buffered text and empties the buffer. Throws mError with " executing query: " or
    // " fetching result of query: " and the query text.
    Result operator<<(Query::Fetch);

    // The client library's escaping for this connection.
    std::string escape(const char* text, std::size_t length);
    // Backquotes doubled, for a name inside backquotes.
    std::string escape_name(const char* text, std::size_t length);

private:
    MysqlHandle owned_;
    MYSQL* handle_ = nullptr;
    std::ostringstream query_;
    Query::Mode mode_ = Query::raw;
};

}  // namespace quelt::mysql

namespace quelt::mail::restore {

// The panel setting `name` from the misc table: true exactly when its value is "true". A missing
// row gives `defaultValue`; a database error is reported on quelt::uerr and gives it too.
bool getBoolMiscParamSafe(const std::string& name, quelt::mysql::Connection& connection, bool defaultValue);

}  // namespace quelt::mail::restore
