#include "tarnd/store/RowCopy.h"

#include "tarnd/store/Dialect.h"
#include "tarnd/store/Secrets.h"

#include <Poco/StringTokenizer.h>

#include <limits>

namespace tarnd {

namespace {

/// A table, and its columns with the key first. "#" marks a number, "?" what may be NULL and is never 0 or empty.
struct TableText {
    const char* name;
    const char* columns;
    const char* condition = "";
};

/// In an order in which no row refers to a later table.
constexpr TableText tableTexts[] = {
    {"meta", "name value", "AND name <> 'schema'"},
    {"users", "id# name token created# disabled# quota# used#"},
    {"sessions", "id account# used# address?"},
    {"nodes", "id# owner# parent#? name kind# created# modified# revision# current"},
    {"versions", "id node# label# created# size# sha256 content revision#"},
    {"grants", "id node# subject"},
    {"links", "token node# expires#"},
    {"handles", "id session parent# name node# mode# changes#"},
};

constexpr std::size_t rowsPerPage = 1000;

/// How many statements may be on their way together: few enough that no end waits for the other with full buffers.
constexpr std::size_t rowsUnderWay = 500;

/// The statements for one table.
class Table {
public:
    explicit Table(const TableText& text)
    {
        std::string selected, inserted, values;
        for (const auto& each : Poco::StringTokenizer(text.columns, " ")) {
            const bool nullable = each.ends_with('?'), number = each.find('#') != each.npos;
            const auto column = each.substr(0, each.find_last_not_of("#?") + 1);
            const auto place = "$" + std::to_string(isNumber.size() + 1);
            const std::string comma = isNumber.empty() ? "" : ", ", none = number ? ", 0)" : ", '')";
            isNumber.push_back(number);
            selected += comma + (nullable ? "COALESCE(" + column + none : column);
            inserted += comma + column;
            values += comma + (nullable ? "NULLIF(" + place + none : place);
        }
        const auto key = inserted.substr(0, inserted.find(','));
        select = "SELECT " + selected + " FROM " + text.name + " WHERE " + key + " > $1 " + text.condition +
                 " ORDER BY " + key + " LIMIT " + std::to_string(rowsPerPage);
        insert = std::string("INSERT INTO ") + text.name + " (" + inserted + ") VALUES (" + values + ")";
    }

    std::vector<bool> isNumber; ///< column by column
    std::string select;         ///< the rows behind the key $1
    std::string insert;
};

using Row = std::span<const SqlValue>;

/// Hands on all rows by their keys, a page at a time.
void forEachRow(Transaction& transaction, const Table& table, const std::function<void(Row)>& take)
{
    auto lastNumber = std::numeric_limits<std::int64_t>::min();
    std::string lastText;
    std::vector<SqlValue> row;
    for (auto got = rowsPerPage; got == rowsPerPage;) {
        got = 0;
        const auto text = lastText; // outlives the statement, while the other follows its rows
        const SqlValue after[] = {table.isNumber[0] ? SqlValue(lastNumber)
                                                    : SqlValue(std::string_view(text))};
        transaction.each(table.select, after, [&](const SqlRow& found) {
            row.clear();
            for (int i = 0; i < static_cast<int>(table.isNumber.size()); ++i)
                row.push_back(table.isNumber[static_cast<std::size_t>(i)] ? SqlValue(found.number(i))
                                                                          : SqlValue(found.text(i)));
            take(row);
            if (table.isNumber[0])
                lastNumber = found.number(0);
            else
                lastText = found.text(0);
            ++got;
        });
    }
}

/// Lengths keep neighbours apart.
void add(Sha256& digest, Row row)
{
    for (const auto& value : row) {
        const auto* number = std::get_if<std::int64_t>(&value);
        const auto text = number ? std::to_string(*number) : std::string(std::get<std::string_view>(value));
        const auto whole = std::to_string(text.size()) + ":" + text;
        digest.update(whole.data(), whole.size());
    }
}

/// The engine goes on behind the highest id: a handle must never meet another item under the id of a deleted one.
void continueIds(Transaction& from, Transaction& to, const Dialect& target)
{
    constexpr std::pair<const char*, const char*> used[] = {
        {"users", "SELECT COALESCE(MAX(id), 0) FROM users"}, {"nodes", R"(SELECT COALESCE(MAX(id), 0)
                     FROM (SELECT id FROM nodes UNION ALL SELECT node FROM handles) AS used)"}};
    for (const auto& [table, query] : used)
        to.run(target.continueIds(table), from.value<std::int64_t>(query).value());
}

} // namespace

std::string digestOfRows(Transaction& transaction)
{
    Sha256 digest;
    for (const auto& text : tableTexts)
        forEachRow(transaction, Table(text), [&](Row row) { add(digest, row); });
    return digest.finish();
}

std::uint64_t copyRows(Transaction& from, Transaction& to, const Dialect& target, const RowProgress& progress)
{
    const auto& [before, after] = target.aroundFilling();
    std::uint64_t rows = 0;
    Sha256 digest;
    to.run(before);
    for (const auto& text : tableTexts) {
        const Table table(text);
        forEachRow(from, table, [&](Row row) {
            add(digest, row);
            to.runWith(table.insert, row);
            if (++rows % rowsUnderWay != 0) return;
            to.settle();
            if (progress) progress(rows);
        });
        to.settle();
    }
    continueIds(from, to, target);
    to.run(after);
    if (digestOfRows(to) != digest.finish())
        throw sentences::internal.because("the rows that were copied are not those that were read");
    if (progress) progress(rows);
    return rows;
}

} // namespace tarnd
