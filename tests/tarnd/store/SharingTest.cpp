#include "tests/tarnd/store/StoreTest.h"

/// What others may see and do: a slip here shows or changes somebody's files.
namespace tarnd {

class SharingTest : public StoreTest {
protected:
    void SetUp() override
    {
        StoreTest::SetUp();
        folder("/docs");
        folder("/docs/sub");
        put(alice, at("/docs/sub/a.txt"), "shared");
        put(alice, at("/private.txt"), "private");
    }

    std::string share(const std::string& path, const std::string& subject = "bob")
    {
        return store->permissions().grant(alice, at(path), subject, false);
    }
};

TEST_F(SharingTest, ListsNameWhatWasGrantedAndByWhom)
{
    share("/docs");
    share("/docs/sub/a.txt");
    share("/docs", [&] { return login("carol").user; }());
    store->permissions().grant(bob, at("/"), "alice", false);
    EXPECT_EQ(refusal([&] { share("/docs", "dave"); }), Kind::badRequest);
    EXPECT_EQ(refusal([&] { share("/docs", "alice"); }), Kind::badRequest);
    EXPECT_EQ(share("/docs"), share("/docs"));

    std::string granted;
    for (const auto& p : store->permissions().list(alice))
        granted += p.bucket + p.path + ">" + p.subject + " ";
    EXPECT_EQ(granted, "alice/docs>bob alice/docs>carol alice/docs/sub/a.txt>bob ");
    EXPECT_EQ(store->permissions().list(alice, at("/docs/sub/a.txt")).size(), 1U);
    EXPECT_TRUE(store->permissions().list(alice, at("/private.txt")).empty());

    const auto forBob = store->sharedContent().list(bob);
    ASSERT_EQ(forBob.size(), 1U);
    EXPECT_EQ(forBob[0].user, "alice");
    ASSERT_EQ(forBob[0].files.size(), 1U);
    ASSERT_EQ(forBob[0].folders.size(), 1U);
    EXPECT_EQ(forBob[0].files[0].path, "/docs/sub/a.txt");
    EXPECT_EQ(forBob[0].files[0].item.size, 6);
    EXPECT_FALSE(forBob[0].files[0].item.writable);
    EXPECT_EQ(forBob[0].folders[0].bucket, "alice");
    EXPECT_EQ(store->sharedContent().list(alice).at(0).folders.at(0).path, "/");
}

TEST_F(SharingTest, PublicLinksAreStableAndShowOnlyWhatIsLinked)
{
    const auto file = store->links().get(alice, at("/docs/sub/a.txt"));
    const auto docs = store->links().get(alice, at("/docs"));
    EXPECT_GE(file.size(), 32U);
    EXPECT_NE(file, docs);
    store->catalog().move(alice, at("/docs"), at("/renamed"), false);
    EXPECT_EQ(store->links().get(alice, at("/renamed/sub/a.txt")), file);
    put(alice, at("/renamed/sub/a.txt"), "newer");
    EXPECT_EQ(bytesOf(std::get<OpenContent>(store->links().open(file))), "newer");
    EXPECT_EQ(bytesOf(std::get<OpenContent>(store->links().open(docs, ItemPath::fromText("/sub/a.txt")))),
              "newer");
    EXPECT_EQ(std::get<Listing>(store->links().open(docs)).folders.at(0).name, "sub");
    EXPECT_FALSE(std::get<Listing>(store->links().open(docs)).folder.writable);

    EXPECT_EQ(refusal([&] { store->links().open("0"); }), Kind::notFound);
    EXPECT_EQ(refusal([&] { store->links().open(docs, ItemPath::fromText("/private.txt")); }),
              Kind::notFound);
    store->catalog().deleteFile(alice, at("/renamed/sub/a.txt"));
    EXPECT_EQ(refusal([&] { store->links().open(file); }), Kind::notFound);
}

} // namespace tarnd
