#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>

namespace tarnd {

/// One column of a query and the member of a record that takes it: a text, a number, an enumeration or a
/// bool. A member of a member is named by the steps to it.
template <class RecordType, class... Steps>
struct Column {
    using Record = RecordType;

    std::string_view expression;
    std::tuple<Steps...> steps;

    using Member = std::remove_reference_t<decltype((std::declval<Record&>().*....*std::declval<Steps>()))>;

    Member& of(Record& record) const
    {
        return std::apply([&](auto... step) -> Member& { return (record.*....*step); }, steps);
    }

    using Stored = std::conditional_t<std::is_same_v<Member, std::string>, std::string, std::int64_t>;
};

template <class Record, class Member, class... Steps>
constexpr Column<Record, Member Record::*, Steps...> column(std::string_view expression,
                                                            Member Record::*member, Steps... steps)
{
    return {expression, {member, steps...}};
}

/// What a query selects, and where in the record each part of it goes.
template <class First, class... Others>
struct Columns {
    using Record = typename First::Record;

    std::tuple<First, Others...> all;

    /// The list behind SELECT.
    std::string list() const
    {
        std::string text;
        std::apply(
            [&](const auto&... each) {
                ((text.append(text.empty() ? "" : ", ").append(each.expression)), ...);
            },
            all);
        return text;
    }

    Record record(std::tuple<typename First::Stored, typename Others::Stored...>&& row) const
    {
        Record record{};
        fill(record, row, std::index_sequence_for<First, Others...>());
        return record;
    }

private:
    template <class Row, std::size_t... I>
    void fill(Record& record, Row& row, std::index_sequence<I...>) const
    {
        (set(std::get<I>(all).of(record), std::get<I>(row)), ...);
    }

    static void set(std::string& member, std::string& value) { member = std::move(value); }

    template <class Number>
    static void set(Number& member, std::int64_t value)
    {
        member = static_cast<Number>(value);
    }
};

template <class... Each>
constexpr Columns<Each...> columns(const Each&... each)
{
    return {{each...}};
}

} // namespace tarnd
