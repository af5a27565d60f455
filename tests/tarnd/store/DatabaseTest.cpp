#include "tests/tarnd/store/StoreTest.h"

#include <vector>

/// What is asked ahead forbids what comes after it: an answer that arrives too late, or with somebody else's question,
/// lets through what it should not.
namespace tarnd {
namespace {

class DatabaseTest : public testing::Test {
protected:
    DatabaseTest()
    {
        database.write([](Transaction& sql) { sql.run("CREATE TABLE numbers (number BIGINT NOT NULL)"); });
        database.write([](Transaction& sql) { sql.run("INSERT INTO numbers (number) VALUES (1)"); });
    }

    static void refuse(const SqlRow*) { throw sentences::sessionEnded(); }

    static std::int64_t count(Transaction& sql)
    {
        return sql.value<std::int64_t>("SELECT COUNT(*) FROM numbers").value();
    }

    const std::string one = "SELECT number FROM numbers WHERE number = $1";
    StorePlace place;
    Database database{place.dialect(), 1};
};

TEST_F(DatabaseTest, WhatIsAskedAheadIsAnsweredFirst)
{
    const auto ask = [&](Transaction& sql) {
        std::vector<std::string> answers;
        for (const int number : {1, 2})
            sql.ahead(
                one,
                [&](const SqlRow* row) { answers.push_back(row ? std::to_string(row->number(0)) : "none"); },
                number);
        answers.push_back("all " + std::to_string(count(sql)));
        return answers;
    };
    const std::vector<std::string> expected = {"1", "none", "all 1"};
    EXPECT_EQ(database.lookUp(ask), expected);
    EXPECT_EQ(database.read(ask), expected);
    EXPECT_EQ(database.write(ask), expected);
}

TEST_F(DatabaseTest, ARefusalAheadStopsWhatFollows)
{
    const auto insert = [&](Transaction& sql) {
        count(sql); // the transaction is open: only the commit is still to come
        sql.ahead(one, refuse, 1);
        sql.run("INSERT INTO numbers (number) VALUES (2)");
    };
    EXPECT_THROW(database.write(insert), ServiceError);
    EXPECT_EQ(database.lookUp(count), 1);
}

TEST_F(DatabaseTest, WhatNobodyWaitedForDisturbsNoOther)
{
    const auto giveUp = [&](Transaction& sql) {
        try {
            sql.ahead(one, refuse, 1);
        } catch (const ServiceError&) { // answered at once
        }
    };
    database.lookUp(giveUp);
    EXPECT_EQ(database.lookUp(count), 1);
    database.read(giveUp);
    EXPECT_EQ(database.read(count), 1);
}

} // namespace
} // namespace tarnd
