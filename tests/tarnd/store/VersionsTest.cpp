#include "tests/tarnd/store/StoreTest.h"

/// Which content a version shows after writes, restores and handles, and which contents stay on the disk for
/// it.
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

TEST_F(VersionsTest, WritesAddAVersionOrReplaceTheCurrentOne)
{
    const auto first = putVersion("/f", "a");
    const auto second = putVersion("/f", "bb");
    EXPECT_EQ(first.label, 1);
    EXPECT_EQ(second.label, 2);
    const auto replaced = put(alice, at("/f"), "BB");
    EXPECT_EQ(replaced.id, second.id);
    EXPECT_EQ(replaced.label, 2);
    EXPECT_EQ(history("/f"), "2:BB* 1:a");
    EXPECT_EQ(filesIn("contents"), 2U);
    EXPECT_EQ(store->versions().list(alice, at("/f")).name, "f");
}

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

TEST_F(VersionsTest, RestoreAddsACopyOrMakesTheOldOneCurrent)
{
    const auto first = putVersion("/f", "a");
    putVersion("/f", "bb");
    now += 1000;
    EXPECT_EQ(store->versions().restore(alice, at("/f"), {first.id, 1}, false).label, 1);
    EXPECT_EQ(history("/f"), "2:bb 1:a*");
    EXPECT_EQ(store->catalog().attributes(alice, at("/f")).lastModified, now);
    EXPECT_EQ(store->catalog().attributes(alice, at("/f")).size, 1);
    EXPECT_EQ(putVersion("/f", "ccc").label, 3);
    EXPECT_EQ(store->versions().restore(alice, at("/f"), {first.id, 1}, true).label, 4);
    EXPECT_EQ(history("/f"), "4:a* 3:ccc 2:bb 1:a");

    put(alice, at("/f"), "A"); // the copy changes, the original must not
    EXPECT_EQ(history("/f"), "4:A* 3:ccc 2:bb 1:a");
    EXPECT_EQ(filesIn("contents"), 4U);
    EXPECT_EQ(refusal([&] { store->versions().restore(alice, at("/f"), {}, true); }), Kind::badRequest);
    EXPECT_EQ(refusal([&] {
                  store->versions().restore(alice, at("/f"), {"nonsense", 0}, true);
              }),
              Kind::badRequest);
    store->catalog().deleteFile(alice, at("/f"));
    EXPECT_EQ(filesIn("contents"), 0U);
    EXPECT_EQ(problems(), "");
}

TEST_F(VersionsTest, HandlesShowNothingBeforeTheCommit)
{
    using Close = FileHandles::CloseOperation;
    auto& handles = store->handles();
    const auto created = handles.openReadWrite(alice, at("/new"), CreateMode::create, false);
    EXPECT_TRUE(created.created);
    EXPECT_EQ(names(alice, at("/")), "");
    handles.close(alice, created.id, Close::commit, true);
    EXPECT_EQ(history("/new"), "1:*");

    const auto aborted = handles.openReadWrite(alice, at("/gone"), CreateMode::createOrUpdate, true);
    handles.close(alice, aborted.id, Close::abort, false);
    EXPECT_EQ(names(alice, at("/")), "new");
    EXPECT_EQ(refusal([&] { handles.close(alice, aborted.id, Close::abort, false); }), Kind::badRequest);

    putVersion("/new", "text");
    const auto untouched = handles.openReadWrite(alice, at("/new"), CreateMode::update, false);
    EXPECT_EQ(untouched.size, 4);
    EXPECT_FALSE(untouched.created);
    handles.close(alice, untouched.id, Close::commit, true);
    EXPECT_EQ(history("/new"), "2:text* 1:");
    const auto truncated = handles.openReadWrite(alice, at("/new"), CreateMode::update, true);
    EXPECT_EQ(truncated.size, 0);
    EXPECT_EQ(history("/new"), "2:text* 1:");
    handles.close(alice, truncated.id, Close::commit, true);
    EXPECT_EQ(history("/new"), "3:* 2:text 1:");
    EXPECT_EQ(handles.openReadOnly(alice, at("/new"), {"", 2}).size, 4);
}

} // namespace tarnd
