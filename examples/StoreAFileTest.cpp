// The example is what a newcomer copies: it has to work against the real service, and to say why it does not.
#include "support/TarndProcess.h"

#include <gmock/gmock.h>

#include <cstdlib>

namespace {

using namespace tarnd::test;

std::string program(const std::string& name)
{
    return std::string(std::getenv("TARN_BIN_DIR")) + "/" + name;
}

CommandResult storeAFile(const std::string& user, const std::string& path)
{
    return runCommand({program("store_a_file"), user, path});
}

TEST(StoreAFile, StoresReadsBackAndReportsFailures)
{
    TarndProcess service;
    ::setenv("TARN_TOKEN", service.addUser("alice").c_str(), 1);
    service.start();
    ::setenv("TARN_ENDPOINT", service.url().c_str(), 1);

    const auto first = storeAFile("alice", "/hello \u00e4.txt");
    EXPECT_EQ(first.exitCode, 0) << first.err;
    EXPECT_EQ(first.out, "Hello, Tarn!\n");

    const auto again = storeAFile("alice", "/hello \u00e4.txt");
    EXPECT_EQ(again.exitCode, 1);
    EXPECT_EQ(again.err, "store_a_file: The file already exists.\n");

    const std::string copy = service.dataDir() / "copy";
    auto moveAFile = [](const std::string& verb, const std::string& file) {
        return runCommand({program("move_a_file"), "alice", verb, file, "/moved"}).err;
    };
    EXPECT_EQ(moveAFile("put", program("move_a_file")), "");
    EXPECT_EQ(moveAFile("get", copy), "");
    EXPECT_EQ(runCommand({"cmp", program("move_a_file"), copy}).exitCode, 0);
    EXPECT_EQ(moveAFile("get", copy), "move_a_file: The file cannot be made.\n");

    service.terminate();
    EXPECT_THAT(storeAFile("alice", "/b").err,
                testing::StartsWith("store_a_file: Could not connect to 127.0.0.1:"));
}

} // namespace
