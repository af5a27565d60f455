#include "tests/tarnd/store/StoreTest.h"

/// What of the tree's rules the random users of tests/tarnd/model meet seldom, or cannot see.
namespace tarnd {

class CatalogTest : public StoreTest {};

TEST_F(CatalogTest, ListingShowsWhenAFolderWasMadeAndLastChanged)
{
    folder("/b");
    now += 5000;
    put(alice, at("/b/f"), "1234567");
    const auto listing = store->catalog().list(alice, at("/b"));
    EXPECT_EQ(listing.folder.created, 1'700'000'000'000);
    EXPECT_EQ(listing.folder.lastModified, 1'700'000'005'000);
    EXPECT_EQ(listing.files.at(0).created, 1'700'000'005'000);
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

TEST_F(CatalogTest, UploadsOfTheWrongLengthLeaveNothing)
{
    const auto shorter = store->catalog().put(alice, at("/a"), {}, 10);
    shorter->write("123", 3);
    EXPECT_EQ(refusal([&] { shorter->commit(); }), Kind::badRequest);
    const auto longer = store->catalog().put(alice, at("/a"), {}, 4);
    longer->write("123", 3);
    EXPECT_EQ(refusal([&] { longer->write("45", 2); }), Kind::badRequest);
    EXPECT_EQ(names(alice, at("/")), "");
}

} // namespace tarnd
