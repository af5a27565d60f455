#pragma once

#include "tests/tarnd/access/ServiceUser.h"
#include "tests/tarnd/model/TreeModel.h"

#include <deque>
#include <mutex>
#include <random>
#include <string>
#include <vector>

namespace tarnd::test {

/// A user of the service with what the service should hold for them. Only the user's own client writes.
struct Account {
    std::string name;
    std::string token;
    TreeModel tree;
    std::mutex mutex; ///< guards tree; held from before a request about the tree until its reply is judged
};

/// What an operation is about.
struct Draw {
    Account& of; ///< whose tree it is about
    std::string path;
    Place item, target; ///< the item at the path, and where a move takes it
    std::string mode, content, subject, grant;
    std::size_t version; ///< index
    bool first, second, third;
};

/// A client that does one random thing after another and compares each reply with the model.
class RandomUser {
public:
    /// @param urls of the tarnds; every request goes to one of them at random
    RandomUser(std::deque<Account>& all, std::size_t own, std::vector<std::string> urls, unsigned seed);

    /// Does one operation. A divergence is reported as a test failure and told by the result.
    bool step();

    /// Compares all that the service holds for this user with the model, while nobody changes anything.
    void judgeEverything();

    // How the reply of a success is judged.
    void nothing(const Draw&, const RestReply&) {}

    void content(const Draw& draw, const RestReply& reply);
    void version(const Draw& draw, const RestReply& reply);
    void listing(const Draw& draw, const RestReply& reply);
    void attributes(const Draw& draw, const RestReply& reply);
    void versions(const Draw& draw, const RestReply& reply);
    void permission(const Draw& draw, const RestReply& reply);

private:
    void judge(const std::string& what, const std::string& got, const std::string& expected);
    void learn(const std::string& what, const std::string& got, std::string& expected);
    void judgeShared();
    void loginAgain();

    std::size_t below(std::size_t count) { return random() % count; }

    bool coin() { return below(2) == 1; }

    std::string somePath(const TreeModel& tree);
    Draw draw(Account& of);
    ServiceUser& http();

    std::deque<Account>& accounts;
    Account& own;
    std::vector<std::string> serverUrls;
    std::mt19937 random;
    ServiceUser user;
    unsigned counter = 0;
    bool agrees = true;
};

} // namespace tarnd::test
