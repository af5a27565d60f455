// Every success reply, letter for letter: a renamed, repeated or missing element is silently read as a default.
#include "tests/tarnd/http/ServiceTest.h"

#include <regex>

namespace tarnd::test {
namespace {

class Replies : public ServiceTest {
protected:
    /// Values that differ from run to run become '*'.
    static std::string masked(const std::string& body)
    {
        static const std::regex changing(
            "<(TarnSessionId|VersionId|FileHandleId|PermissionId|Watermark|Created|"
            "LastModified|PublicLinkId)>[^<]+<");
        static const std::regex link("http://127.0.0.1:[0-9]+/public/[0-9a-f]{32,}<");
        return std::regex_replace(std::regex_replace(body, changing, "<$1>*<"), link, "LINK<");
    }

    /// "{id}" in a target stands for the last id of a handle or grant that a reply has told.
    std::string filled(const std::string& target)
    {
        return std::regex_replace(target, std::regex("\\{id\\}"), id);
    }

    void remember(const std::string& body)
    {
        static const std::regex told("<(?:FileHandleId|PermissionId|PublicLinkId)>([^<]+)<");
        for (std::sregex_iterator each(body.begin(), body.end(), told), none; each != none; ++each)
            id = (*each)[1];
    }

    std::string id;
};

TEST_F(Replies, AreExactlyThese)
{
    struct Row {
        char user;
        std::string method, target, body, reply;
    };

    const std::string record = "<Created>*</Created><LastModified>*</LastModified>";
    const std::string folder = record + "<Writable>true</Writable><Watermark>*</Watermark>";
    const std::string file3 = record + "<Size>3</Size><Writable>true</Writable><Watermark>*</Watermark>";
    const std::string shared3 = record + "<Size>3</Size><Writable>false</Writable><Watermark>*</Watermark>";
    const std::string sharedFolder = record + "<Writable>false</Writable><Watermark>*</Watermark>";
    const Row rows[] = {
        {'t', "GET", "/login", "",
         "<TarnSessionId>*</TarnSessionId><MinutesBeforeRelogin>30</MinutesBeforeRelogin>"},
        {'a', "GET", "/ping", "", "<Value>pong</Value>"},
        {'a', "PUT", "/files/a.txt?createMode=CREATE&createNewVersion=true", "four",
         "<VersionId>*</VersionId><VersionLabel>1</VersionLabel>"},
        {'a', "PUT", "/files/a.txt?createMode=UPDATE&createNewVersion=true", "two",
         "<VersionId>*</VersionId><VersionLabel>2</VersionLabel>"},
        {'a', "GET", "/filesystem/a.txt", "",
         "<FileAttributes><Type>FILE</Type><Name>a.txt</Name>" + file3 + "</FileAttributes>"},
        {'a', "PUT", "/folders/docs", "", ""},
        {'a', "GET", "/filesystem/docs", "",
         "<FileAttributes><Type>FOLDER</Type><Name>docs</Name>" + folder + "</FileAttributes>"},
        {'a', "GET", "/folders/docs", "",
         "<FolderSummary><Name>docs</Name>" + folder + "</FolderSummary><Files></Files><Folders></Folders>"},
        {'a', "PUT", "/filesystem/a.txt?targetPath=%2Fdocs%2Fb.txt&targetBucket=&moveTargetOverwrite=false",
         "", ""},
        {'a', "PUT", "/folders/docs/sub", "", ""},
        {'a', "GET", "/folders/docs?bucket=alice", "",
         "<FolderSummary><Name>docs</Name>" + folder +
             "</FolderSummary><Files><FileSummary><Name>b.txt</Name>" + file3 +
             "</FileSummary></Files><Folders><FolderSummary><Name>sub</Name>" + folder +
             "</FolderSummary></Folders>"},
        {'a', "GET", "/versions/files/docs/b.txt", "",
         "<Name>b.txt</Name>"
         "<VersionSummary><VersionId>*</VersionId><VersionLabel>2</VersionLabel><Created>*</Created></"
         "VersionSummary>"
         "<VersionSummary><VersionId>*</VersionId><VersionLabel>1</VersionLabel><Created>*</Created></"
         "VersionSummary>"},
        {'a', "PUT", "/versions/files/docs/b.txt?versionId=&versionLabel=1&createNewVersion=true", "",
         "<VersionId>*</VersionId><VersionLabel>3</VersionLabel>"},
        {'a', "PUT", "/filehandle?path=%2Fdocs%2Fb.txt&accessMode=readOnly", "",
         "<FileHandleId>*</FileHandleId><FileSize>4</FileSize><FileCreated>false</FileCreated>"},
        {'a', "DELETE", "/filehandle/{id}?handleOperation=ABORT_CHANGES&createNewVersion=false", "", ""},
        {'a', "PUT",
         "/filehandle?path=%2Fdocs%2Fsub%2Fnew&accessMode=readWrite&createMode=CREATE&truncate=false", "",
         "<FileHandleId>*</FileHandleId><FileSize>0</FileSize><FileCreated>true</FileCreated>"},
        {'a', "DELETE", "/filehandle/{id}?handleOperation=COMMIT_CHANGES&createNewVersion=false", "", ""},
        {'a', "PUT", "/versions/files/docs/b.txt?versionId=&versionLabel=2&createNewVersion=false", "",
         "<VersionId>*</VersionId><VersionLabel>2</VersionLabel>"},
        {'a', "PUT", "/permissions?path=%2Fdocs&bucket=alice&subject=bob&operation=READ_ONLY", "",
         "<PermissionId>*</PermissionId>"},
        {'a', "PUT",
         "/permissions?path=%2Fdocs%2Fb.txt&bucket=&subject=carol&operation=READ_ONLY&allowNonExistingUser="
         "true",
         "", "<PermissionId>*</PermissionId>"},
        {'a', "GET", "/permissions", "",
         "<Permission><PermissionId>*</PermissionId><Subject><SubjectName>bob</SubjectName></Subject>"
         "<Resource><Path>/docs</Path><Bucket>alice</Bucket></Resource><Operation>READ_ONLY</Operation>"
         "<Status>ACTIVE</Status></Permission>"
         "<Permission><PermissionId>*</PermissionId><Subject><SubjectName>carol</SubjectName></Subject>"
         "<Resource><Path>/docs/b.txt</Path><Bucket>alice</Bucket></Resource><Operation>READ_ONLY</Operation>"
         "<Status>PENDING</Status></Permission>"},
        {'a', "GET", "/permissions?path=%2Fdocs%2Fb.txt", "",
         "<Permission><PermissionId>*</PermissionId><Subject><SubjectName>carol</SubjectName></Subject>"
         "<Resource><Path>/docs/b.txt</Path><Bucket>alice</Bucket></Resource><Operation>READ_ONLY</Operation>"
         "<Status>PENDING</Status></Permission>"},
        {'a', "DELETE", "/permissions/{id}", "", ""},
        {'a', "PUT", "/permissions?path=%2Fdocs%2Fb.txt&bucket=alice&subject=bob&operation=READ_ONLY", "",
         "<PermissionId>*</PermissionId>"},
        {'b', "GET", "/sharedcontent", "",
         "<SharedContent><SharedByUserId>alice</SharedByUserId><SharedFiles><SharedFile><Name>b.txt</Name>" +
             shared3 +
             "<Resource><Path>/docs/b.txt</Path><Bucket>alice</Bucket></Resource></SharedFile></SharedFiles>"
             "<SharedFolders><SharedFolder><Name>docs</Name>" +
             sharedFolder +
             "<Resource><Path>/docs</Path><Bucket>alice</Bucket></Resource></SharedFolder></SharedFolders>"
             "</SharedContent>"},
        {'b', "GET", "/permissions", "", ""},
        {'a', "GET", "/public/urls/docs/b.txt", "", "<PublicAccessUrl>LINK</PublicAccessUrl>"},
        {'a', "PUT", "/public/links/docs?expires=4102444800000", "",
         "<PublicLinkId>*</PublicLinkId><PublicAccessUrl>LINK</PublicAccessUrl><Expires>4102444800000</"
         "Expires>"},
        {'a', "GET", "/public/links", "",
         "<PublicLink><PublicLinkId>*</PublicLinkId><PublicAccessUrl>LINK</PublicAccessUrl><Type>FILE</Type>"
         "<Resource><Path>/docs/b.txt</Path><Bucket>alice</Bucket></Resource></PublicLink>"
         "<PublicLink><PublicLinkId>*</PublicLinkId><PublicAccessUrl>LINK</PublicAccessUrl>"
         "<Expires>4102444800000</Expires><Type>FOLDER</Type>"
         "<Resource><Path>/docs</Path><Bucket>alice</Bucket></Resource></PublicLink>"},
        {'a', "DELETE", "/public/links/{id}", "", ""},
        {'a', "DELETE", "/files/docs/b.txt", "", ""},
        {'a', "DELETE", "/folders/docs?forceRecursive=true", "", ""},
        {'a', "GET", "/logout", "", ""},
    };
    for (const auto& row : rows) {
        const auto target = "/service/v1" + filled(row.target);
        const auto session = row.user == 'a' ? alice : row.user == 'b' ? bob : "";
        const auto token =
            row.user == 't' ? "x-qz-authentication-token: " + aliceToken + "\r\n" : std::string();
        const auto reply = send(requestText(row.method, target, session, row.body, token));
        EXPECT_EQ(reply.status, 200) << row.method << " " << target;
        EXPECT_EQ(masked(reply.body),
                  R"(<?xml version="1.0" encoding="UTF-8"?><Response>)" + row.reply + "</Response>")
            << row.method << " " << target;
        remember(reply.body);
    }
}

TEST_F(Replies, FollowTheQueryDecodedOnceAndItsPlusAsAPlus)
{
    put("/a%20b", "1");
    require(asAlice("PUT", "/service/v1/filesystem/a%20b?targetPath=/c+%2B%20%2525&targetBucket=&"
                           "moveTargetOverwrite=false"));
    EXPECT_EQ(asAlice("GET", "/service/v1/files/c++%20%2525").body, "1");
}

} // namespace
} // namespace tarnd::test
