// Answers in JSON, put together value by value.
#pragma once

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "tabulo/times.h"

namespace tabulo::tool::serve {

class Json {
  public:
    Json& begin();
    Json& end();
    Json& beginList();
    Json& endList();
    Json& key(std::string_view name);

    // A text; one that is no UTF-8 is shown as the command shows texts.
    Json& text(std::string_view text);
    Json& number(std::int64_t number);
    // Null for what JSON has no number for.
    Json& number(double number);
    Json& flag(bool flag);
    Json& null();
    // A time as pages count: in milliseconds, or as it is stored where the unit is not known.
    Json& time(std::int64_t time, std::optional<TimeUnit> unit);
    // JSON as it is.
    Json& raw(std::string_view json);

    std::size_t size() const noexcept { return buffer_.GetSize(); }
    std::string take();

  private:
    rapidjson::StringBuffer buffer_;
    rapidjson::Writer<rapidjson::StringBuffer> writer_{buffer_};
};

// The number that a page has for a time, and the reverse: the first time of the table at that moment or behind it.
double pageTime(std::int64_t time, std::optional<TimeUnit> unit) noexcept;
std::int64_t storedTime(double pageTime, std::optional<TimeUnit> unit) noexcept;

}  // namespace tabulo::tool::serve
