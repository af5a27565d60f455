// Refusals: the library shows the sentence to the user and turns every 404 into a missing file, so a wrong
// status misleads as much as a wrong sentence.
#include "tests/tarnd/http/ServiceTest.h"

#include <filesystem>

namespace tarnd::test {
namespace {

class Errors : public ServiceTest {
protected:
    Errors() : ServiceTest({"--max-file-size", "1000"}) {}
};

TEST_F(Errors, HaveTheStatusOfTheirKindAndOneSentence)
{
    struct Row {
        char user;
        std::string method, target, error;
    };

    put("/f", "content");
    require(asAlice("PUT", "/service/v1/folders/shared"));
    put("/shared/g", "content");
    require(asAlice("PUT", "/service/v1/permissions?path=%2Fshared&subject=bob&operation=READ_ONLY"));
    const std::string missing = "404 The path does not exist.";
    const Row rows[] = {
        {'a', "GET", "/service/v1/nothing", "400 The service has nothing at this address."},
        {'a', "GET", "/app", "400 The service has nothing at this address."},
        {'a', "GET", "/service/v1/filesdocs/a", "400 The service has nothing at this address."},
        {'a', "GET", "/service/v1/ping/more", "400 The service has nothing at this address."},
        {'a', "DELETE", "/service/v1/permissions/a/b", "400 The service has nothing at this address."},
        {'a', "PUT", "/service/v1/ping", "400 The method PUT is not possible at this address."},
        {'a', "PATCH", "/service/v1/files/f", "400 The method PATCH is not possible at this address."},
        {'a', "PUT", "/service/v1/files/n", "400 The parameter createMode is missing."},
        {'a', "PUT", "/service/v1/files/n?createMode=create",
         "400 The parameter createMode must be CREATE, UPDATE or CREATE_OR_UPDATE."},
        {'a', "PUT", "/service/v1/files/n?createMode=CREATE&createNewVersion=1",
         "400 The parameter createNewVersion must be true or false."},
        {'a', "PUT", "/service/v1/files/n?createMode=CREATE&createMode=UPDATE",
         "400 The parameter createMode may be given only once."},
        {'a', "GET", "/service/v1/files/f?versionLabel=1x",
         "400 The parameter versionLabel must be a whole number."},
        {'a', "GET", "/service/v1/files/f?versionId=none&versionLabel=1",
         "400 The file has no such version."},
        {'a', "PUT", "/service/v1/filehandle?path=%2Ff&accessMode=write",
         "400 The parameter accessMode must be readOnly or readWrite."},
        {'a', "DELETE", "/service/v1/filehandle?handleOperation=ABORT_CHANGES",
         "400 The session has no open file handle with this id."},
        {'a', "DELETE", "/service/v1/permissions/none", "400 There is no permission with this id."},
        {'a', "PUT", "/service/v1/permissions?path=%2Ff&subject=carol&operation=READ_ONLY",
         "400 There is no user named \"carol\"."},
        {'a', "PUT", "/service/v1/permissions?path=%2Ff&subject=alice&operation=READ_ONLY",
         "400 The item already belongs to this user."},
        {'a', "PUT", "/service/v1/permissions?path=%2Ff&subject=bob&operation=WRITE",
         "400 The parameter operation must be READ_ONLY."},
        {'x', "GET", "/service/v1/login", "401 The authentication token is not valid."},
        {'x', "GET", "/service/v1/ping", "401 Your session has ended. Log in again."},
        {'x', "PUT", "/service/v1/files/f?createMode=CREATE", "401 Your session has ended. Log in again."},
        {'b', "DELETE", "/service/v1/files/shared/g?bucket=alice",
         "403 You may read this item but not change or share it."},
        {'a', "GET", "/service/v1/files/%4",
         "400 The address of the request is not valid percent-encoded UTF-8."},
        {'a', "GET", "/service/v1/files/none", missing},
        {'a', "GET", "/service/v1/folders/none", missing},
        {'b', "GET", "/service/v1/files/f?bucket=alice", missing},
        {'b', "GET", "/service/v1/files/f?bucket=nobody", missing},
        {'a', "PUT", "/service/v1/files/f?createMode=CREATE", "409 The file already exists."},
        {'a', "PUT", "/service/v1/files/no/f?createMode=CREATE", "409 The folder \"/no\" does not exist."},
        {'a', "DELETE", "/service/v1/folders/shared?forceRecursive=false", "409 The folder is not empty."},
        {'a', "PUT",
         "/service/v1/filesystem/shared?targetPath=%2Fshared%2Fin&targetBucket=&moveTargetOverwrite=false",
         "409 A folder cannot be moved into itself."},
    };
    for (const auto& row : rows) {
        const auto session = row.user == 'a' ? alice : row.user == 'b' ? bob : "";
        const auto reply = send(requestText(row.method, row.target, session));
        EXPECT_EQ(outcomeOf(reply), row.error) << row.method << " " << row.target;
    }
    EXPECT_EQ(outcomeOf(asAlice("PUT", "/service/v1/files/n?createMode=CREATE", std::string(1001, 'x'))),
              "413 The file is larger than this service accepts.");
}

TEST_F(Errors, OfTheServiceItselfAreLoggedWithoutSecrets)
{
    if (service.usesObjects()) GTEST_SKIP() << "takes contents out of their folder";
    put("/f", "content");
    for (const auto& entry : std::filesystem::recursive_directory_iterator(service.dataDir() / "contents"))
        if (entry.is_regular_file()) std::filesystem::resize_file(entry.path(), 3);
    const auto failed = "500 The service failed to carry out the request.";
    EXPECT_EQ(outcomeOf(asAlice("GET", "/service/v1/files/f?locale=en_US")), failed);
    std::filesystem::remove_all(service.dataDir() / "contents");
    EXPECT_EQ(outcomeOf(asAlice("GET", "/service/v1/files/f?locale=en_US")), failed);
    EXPECT_NE(service.errors().find("tarnd: GET /service/v1/files/f failed: "), std::string::npos);
    EXPECT_EQ(service.errors().find(alice), std::string::npos);
    ASSERT_EQ(service.terminate(), 0);
    const auto fsck = service.run({"fsck"});
    EXPECT_EQ(fsck.exitCode, 1);
    EXPECT_NE(fsck.out.find("/f"), std::string::npos) << fsck.out;
}

} // namespace
} // namespace tarnd::test
