#include "tests/tarnd/store/StoreTest.h"

/// The rules of the tree: what taken names, missing parents and moves do, and that a refused call changes
/// nothing.
namespace tarnd {

class CatalogTest : public StoreTest {};

TEST_F(CatalogTest, CreateModesDecideOnExistingAndMissingFiles)
{
    const PutOptions create{CreateMode::create, false}, update{CreateMode::update, false};
    EXPECT_EQ(refusal([&] { put(alice, at("/a"), "1", update); }), Kind::notFound);
    put(alice, at("/a"), "1", create);
    EXPECT_EQ(refusal([&] { put(alice, at("/a"), "2", create); }), Kind::conflict);
    EXPECT_EQ(lastSentence(), "The file already exists.");
    EXPECT_EQ(get(alice, at("/a")), "1");
    put(alice, at("/a"), "22", update);
    EXPECT_EQ(get(alice, at("/a")), "22");

    EXPECT_EQ(refusal([&] { put(alice, at("/x/y/a"), "1", create); }), Kind::conflict);
    EXPECT_EQ(lastSentence(), "The folder \"/x/y\" does not exist.");
    EXPECT_EQ(refusal([&] { put(alice, at("/a/b"), "1"); }), Kind::conflict) << "below a file";
    folder("/docs");
    for (const auto mode : {CreateMode::create, CreateMode::update, CreateMode::createOrUpdate}) {
        EXPECT_EQ(refusal([&] { put(alice, at("/docs"), "1", {mode, false}); }), Kind::conflict);
        EXPECT_EQ(refusal([&] { put(alice, at("/"), "1", {mode, false}); }), Kind::conflict);
    }
    EXPECT_EQ(names(alice, at("/")), "docs/ a");
}

TEST_F(CatalogTest, ListingShowsFolderFilesAndFoldersInByteOrder)
{
    for (const auto* path : {"/b", "/B", "/a"})
        folder(path);
    for (const auto* path : {"/z.txt", "/\xc3\xa9.txt", "/Z.txt", "/a b+c%2F"})
        put(alice, at(path), "12345");
    folder("/b/inner");
    EXPECT_EQ(names(alice, at("/")), "B/ a/ b/ Z.txt a b+c%2F z.txt \xc3\xa9.txt");

    now += 5000;
    put(alice, at("/b/f"), "1234567");
    const auto listing = store->catalog().list(alice, at("/b"));
    EXPECT_EQ(listing.folder.name, "b");
    EXPECT_EQ(listing.folder.created, 1'700'000'000'000);
    EXPECT_EQ(listing.folder.lastModified, 1'700'000'005'000);
    ASSERT_EQ(listing.files.size(), 1U);
    EXPECT_EQ(listing.files[0].size, 7);
    EXPECT_TRUE(listing.files[0].writable);
    EXPECT_EQ(store->catalog().attributes(alice, at("/")).name, "/");
    EXPECT_EQ(refusal([&] { store->catalog().list(alice, at("/z.txt")); }), Kind::conflict);
    EXPECT_EQ(refusal([&] { store->catalog().list(alice, at("/none")); }), Kind::notFound);
}

TEST_F(CatalogTest, WatermarkFollowsTheContentAndNotTheName)
{
    const auto watermark = [&](const char* path) {
        return store->catalog().attributes(alice, at(path)).watermark;
    };
    put(alice, at("/a"), "1");
    const auto first = watermark("/a");
    put(alice, at("/a"), "2"); // within the same millisecond
    const auto second = watermark("/a");
    EXPECT_NE(first, second);
    store->catalog().move(alice, at("/a"), at("/b"), false);
    EXPECT_EQ(watermark("/b"), second);
    put(alice, at("/a"), "1");
    EXPECT_NE(watermark("/a"), first) << "another file of the old name";
}

TEST_F(CatalogTest, DeepPathsAreFollowedToTheEnd)
{
    std::string path;
    for (int i = 0; i < 30; ++i)
        folder(path += "/" + std::to_string(i));
    put(alice, at(path + "/leaf"), "deep");
    EXPECT_EQ(get(alice, at(path + "/leaf")), "deep");
    EXPECT_EQ(refusal([&] { get(alice, at("/0/1/2/3/4/5/6/7/8/x/10/leaf")); }), Kind::notFound);
    store->catalog().deleteFolder(alice, at("/0"), true);
    EXPECT_EQ(filesIn("contents"), 0U);
    EXPECT_EQ(problems(), "");
}

TEST_F(CatalogTest, DeletesRefuseTheWrongKindAndWhatIsNotEmpty)
{
    auto& catalog = store->catalog();
    folder("/d");
    put(alice, at("/d/f"), "1");
    EXPECT_EQ(refusal([&] { catalog.deleteFolder(alice, at("/d"), false); }), Kind::conflict);
    EXPECT_EQ(refusal([&] { catalog.deleteFile(alice, at("/d")); }), Kind::conflict);
    EXPECT_EQ(refusal([&] { catalog.deleteFolder(alice, at("/d/f"), true); }), Kind::conflict);
    EXPECT_EQ(refusal([&] { catalog.deleteFolder(alice, at("/"), true); }), Kind::conflict);
    EXPECT_EQ(get(alice, at("/d/f")), "1");

    const auto open = catalog.read(alice, at("/d/f"));
    catalog.deleteFile(alice, at("/d/f"));
    EXPECT_EQ(bytesOf(open), "1") << "an open content stays readable";
    EXPECT_EQ(filesIn("contents"), 0U);
    catalog.deleteFolder(alice, at("/d"), false);
    EXPECT_EQ(names(alice, at("/")), "");
}

TEST_F(CatalogTest, MoveTable)
{
    struct Row {
        const char* source;
        const char* target;
        bool overwrite;
        std::optional<Kind> refusal;
    };

    const Row rows[] = {
        {"/d", "/d/sub/d", false, Kind::conflict}, // into itself
        {"/d", "/d/d", true, Kind::conflict},      // into itself
        {"/d/sub", "/d", true, Kind::conflict},    // over the folder that holds it
        {"/f", "/g", false, Kind::conflict},       // taken
        {"/f", "/f", false, Kind::conflict},       // taken, by itself
        {"/f", "/f", true, std::nullopt},          // onto itself
        {"/f", "/d", true, Kind::conflict},        // file over folder
        {"/d", "/f", true, Kind::conflict},        // folder over file
        {"/empty", "/d", true, Kind::conflict},    // over a folder with entries
        {"/f", "/none/f", false, Kind::conflict},  // parent missing
        {"/f", "/g/f", false, Kind::conflict},     // parent is a file
        {"/none", "/x", false, Kind::notFound},    //
        {"/", "/x", false, Kind::conflict},        // root
        {"/f", "/", true, Kind::conflict},         // onto root
    };
    folder("/d");
    folder("/d/sub");
    folder("/empty");
    put(alice, at("/f"), "f");
    put(alice, at("/g"), "g");
    for (const auto& row : rows) {
        EXPECT_EQ(
            refusal([&] { store->catalog().move(alice, at(row.source), at(row.target), row.overwrite); }),
            row.refusal)
            << row.source << " to " << row.target;
        EXPECT_EQ(names(alice, at("/")), "d/ empty/ f g");
        EXPECT_EQ(names(alice, at("/d")), "sub/");
    }
    store->catalog().move(alice, at("/f"), at("/g"), true);
    EXPECT_EQ(get(alice, at("/g")), "f");
    EXPECT_EQ(filesIn("contents"), 1U) << "the replaced content is gone";
    store->catalog().move(alice, at("/d"), at("/empty", "alice"), true);
    store->catalog().move(alice, at("/g"), at("/empty/sub/h"), false);
    EXPECT_EQ(get(alice, at("/empty/sub/h")), "f");
    EXPECT_EQ(names(alice, at("/")), "empty/");
    EXPECT_EQ(problems(), "");
}

TEST_F(CatalogTest, UploadsOfTheWrongLengthLeaveNothing)
{
    const auto shorter = store->catalog().put(alice, at("/a"), {}, 10);
    shorter->write("123", 3);
    EXPECT_EQ(refusal([&] { shorter->commit(); }), Kind::badRequest);
    const auto longer = store->catalog().put(alice, at("/a"), {}, 4);
    longer->write("123", 3);
    EXPECT_EQ(refusal([&] { longer->write("45", 2); }), Kind::badRequest);
    store->catalog().put(alice, at("/a"), {}, 1000)->write("abandoned", 9);
    EXPECT_EQ(filesIn("contents"), 0U);
    EXPECT_EQ(filesIn("uploads"), 2U) << "the two still open";
    EXPECT_EQ(names(alice, at("/")), "");
}

} // namespace tarnd
