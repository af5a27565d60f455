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

/// A client that does one random thing after another and compares each reply with the model.
class RandomUser {
public:
    /// @param urls of the tarnds; every request goes to one of them at random
    RandomUser(std::deque<Account>& all, std::size_t own, std::vector<std::string> urls, unsigned seed);

    /// Does one operation. A divergence is reported as a test failure and told by the result.
    bool step();

    /// Compares all that the service holds with the model.
    bool judgeEverything();

private:
    using Step = void (RandomUser::*)();

    void put();
    void read();
    void deleteFile();
    void handle();
    void createFolder();
    void list();
    void deleteFolder();
    void move();
    void attributes();
    void grant();
    void revoke();
    void listGrants();
    void versions();
    void restore();
    void loginAgain();
    void readForeign();
    void changeForeign();
    void sharedContent();

    void judge(const std::string& what, const RestReply& reply, int status);
    void judge(const std::string& what, const std::string& got, const std::string& expected);
    void judgeListing(const RestReply& reply, const Account& of, const std::string& path);
    void judgeAttributes(const RestReply& reply, const Account& of, const std::string& path);
    void judgeVersions(const RestReply& reply, const Account& of, const std::string& path);
    void learnVersion(const RestReply& reply, const std::string& path);

    unsigned below(std::size_t count);

    bool coin() { return below(2) == 1; }

    std::string somePath(const TreeModel& tree);
    std::string anyPath(const TreeModel& tree);
    Account& someOther();
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
