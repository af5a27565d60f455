#include "tests/tarnd/store/StoreTest.h"

/// Which content a version shows after restores and handles, and what chooses a version.
namespace tarnd {

class VersionsTest : public StoreTest {
protected:
    /// "3:ccc* 2:bb 1:a", newest first, the current one starred.
    std::string history(const std::string& path)
    {
        std::string text;
        for (const auto& version : store->versions().list(alice, at(path)).versions)
            text.append(text.empty() ? "" : " ")
                .append(std::to_string(version.stamp.label) + ":" +
                        get(alice, at(path), {version.stamp.id, 0}))
                .append(version.current ? "*" : "");
        return text;
    }
};

TEST_F(VersionsTest, VersionsAreChosenByIdAndLabel)
{
    const auto first = putVersion("/f", "a");
    putVersion("/f", "bb");
    const auto other = putVersion("/other", "x");
    EXPECT_EQ(get(alice, at("/f"), {first.id, 1}), "a");
    EXPECT_EQ(get(alice, at("/f"), {first.id, 0}), "a");
    EXPECT_EQ(get(alice, at("/f"), {"", 1}), "a");
    EXPECT_EQ(get(alice, at("/f"), {"", -3}), "bb") << "no label below 1 names a version";
    for (const VersionChoice& wrong : {VersionChoice{first.id, 2}, {"nonsense", 1}, {other.id, 1}, {"", 9}})
        EXPECT_EQ(refusal([&] { get(alice, at("/f"), wrong); }), Kind::badRequest)
            << wrong.id << " " << wrong.label;
}

TEST_F(VersionsTest, ARestoredCopyHasAContentOfItsOwn)
{
    const auto first = putVersion("/f", "a");
    putVersion("/f", "bb");
    now += 1000;
    store->versions().restore(alice, at("/f"), {first.id, 1}, true);
    EXPECT_EQ(store->catalog().attributes(alice, at("/f")).lastModified, now);
    put(alice, at("/f"), "A");
    EXPECT_EQ(history("/f"), "3:A* 2:bb 1:a");
    EXPECT_EQ(filesIn("contents"), 3U);
    for (const VersionChoice& none : {VersionChoice{}, {"nonsense", 0}})
        EXPECT_EQ(refusal([&] { store->versions().restore(alice, at("/f"), none, true); }), Kind::badRequest);
}

TEST_F(VersionsTest, HandlesShowNothingBeforeTheCommit)
{
    using Close = FileHandles::CloseOperation;
    auto& handles = store->handles();
    const auto created = handles.openReadWrite(alice, at("/new"), CreateMode::create, false);
    EXPECT_EQ(names(alice, at("/")), "");
    handles.close(alice, created.id, Close::commit, true);
    EXPECT_EQ(history("/new"), "1:*");

    const auto aborted = handles.openReadWrite(alice, at("/gone"), CreateMode::createOrUpdate, true);
    handles.close(alice, aborted.id, Close::abort, false);
    EXPECT_EQ(names(alice, at("/")), "new");
    EXPECT_EQ(refusal([&] { handles.close(alice, aborted.id, Close::abort, false); }), Kind::badRequest);

    putVersion("/new", "text");
    const auto truncated = handles.openReadWrite(alice, at("/new"), CreateMode::update, true);
    EXPECT_EQ(history("/new"), "2:text* 1:");
    handles.close(alice, truncated.id, Close::commit, true);
    EXPECT_EQ(history("/new"), "3:* 2:text 1:");
    EXPECT_EQ(handles.openReadOnly(alice, at("/new"), {"", 2}).size, 4);

    store->sessions().logout(alice);
    EXPECT_EQ(refusal([&] { handles.openReadOnly(alice, at("/new"), {}); }), Kind::loginRequired);
    EXPECT_EQ(refusal([&] { handles.openReadWrite(alice, at("/new"), CreateMode::update, true); }),
              Kind::loginRequired);
}

} // namespace tarnd
