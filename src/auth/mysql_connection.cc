// The query-stream client of the panel database and the boolean panel settings read through it.
#include "auth/mysql_connection.h"

#include <cstdio>

#include "runtime/uerr.h"

namespace quelt::mysql {

mError::mError(MYSQL* handle, const std::string& context)
{
    const unsigned number = handle ? mysql_errno(handle) : 0;
    if (number == 0)
        message_ = "Unknown error\n" + context;
    else
        message_ = "MySQL error " + std::to_string(number) + ": " + mysql_error(handle) + context;
}

bool Result::fetch(row_t& row)
{
    if (!result_)
        return false;
    MYSQL_ROW values = mysql_fetch_row(result_.get());
    if (!values)
        return false;
    const unsigned count = mysql_num_fields(result_.get());
    const MYSQL_FIELD* fields = mysql_fetch_fields(result_.get());
    row.clear();
    for (unsigned i = 0; i < count; ++i) {
        if (!row.emplace(fields[i].name, values[i] ? values[i] : "").second)
            throw mError(std::string("duplicated field ") + fields[i].name + " in query");
    }
    return true;
}

Connection::Connection(bool openNow)
{
    if (openNow)
        open();
}

void Connection::open()
{
    owned_ = db_connect();
    if (!owned_)
        throw mError("connection failed");
    handle_ = owned_.get();
}

Connection& Connection::operator<<(const char* text)
{
    return *this << std::string(text);
}

Connection& Connection::operator<<(const std::string& text)
{
    switch (mode_) {
    case Query::value:
        query_ << escape(text.data(), text.size());
        break;
    case Query::name:
        query_ << escape_name(text.data(), text.size());
        break;
    case Query::raw:
        query_ << text;
        break;
    }
    mode_ = Query::raw;
    return *this;
}

Connection& Connection::operator<<(int number)
{
    query_ << number;
    return *this;
}

Connection& Connection::operator<<(unsigned long long number)
{
    query_ << number;
    return *this;
}

Connection& Connection::operator<<(double number)
{
    char text[512];
    std::snprintf(text, sizeof text, "%f", number);
    query_ << text;
    return *this;
}

Connection& Connection::operator<<(Query::Mode mode)
{
    mode_ = mode;
    return *this;
}

Result Connection::operator<<(Query::Fetch)
{
    const std::string text = query_.str();
    query_.str(std::string());
    mode_ = Query::raw;
    if (!handle_)
        throw mError("connection failed");
    if (mysql_real_query(handle_, text.data(), text.size()) != 0)
        throw mError(handle_, " executing query: " + text);
    MYSQL_RES* result = mysql_store_result(handle_);
    if (!result && mysql_errno(handle_) != 0)
        throw mError(handle_, " fetching result of query: " + text);
    return Result(result);
}

std::string Connection::escape(const char* text, std::size_t length)
{
    std::string escaped(length * 2 + 1, '\0');
    escaped.resize(mysql_real_escape_string(handle_, &escaped[0], text, length));
    return escaped;
}

std::string Connection::escape_name(const char* text, std::size_t length)
{
    std::string escaped;
    for (std::size_t i = 0; i < length; ++i) {
        escaped += text[i];
        if (text[i] == '`')
            escaped += '`';
    }
    return escaped;
}

}  // namespace quelt::mysql

namespace quelt::mail::restore {

bool getBoolMiscParamSafe(const std::string& name, quelt::mysql::Connection& connection, bool defaultValue)
{
    using quelt::mysql::Query;
    try {
        static const std::string kColumn = "val";
        connection << "SELECT    val  FROM misc    WHERE param='" << name << "'";
        quelt::mysql::Result result = connection << Query::fetch;
        quelt::mysql::row_t row;
        if (!result.fetch(row))
            return defaultValue;
        const auto value = row.find(kColumn);
        if (value == row.end())
            throw quelt::mysql::mError("No field named " + kColumn + " in result set");
        return value->second == "true";
    } catch (const quelt::mysql::mError& e) {
        quelt::uerr << "Warning: MySQL Error on Mail Authentication Type query: " << e.what() << ", ignored"
                    << std::endl;
        return defaultValue;
    }
}

}  // namespace quelt::mail::restore
