#pragma once

#include "cli/service/Connection.h"
#include "cli/terminal/Output.h"

#include <string>
#include <vector>

/// The verbs. Each takes what the command line told, does its work, writes its result, and fails with a
/// Failure.
namespace tarncli {

/// What every verb gets.
struct Invocation {
    ConnectionOptions connection;
    Output& out;

    /// A session with the service. @throws Failure (notLoggedIn, unreachable, …)
    Connection connect() const
    {
        Connection opened(connection, out);
        opened.resume();
        return opened;
    }
};

struct LoginOptions {
    std::string user; ///< empty: the profile's
    bool noStoreToken = false;
};

struct LocalOptions {
    std::string action; ///< "status" or "stop"
};

struct ListOptions {
    std::string path = "/";
    bool longFormat = false;
};

struct CatOptions {
    std::vector<std::string> paths;
    std::string version; ///< label or id; empty: the current one
};

struct PutOptions {
    std::vector<std::string> places; ///< local sources, then the remote target
    bool recursive = false;
    bool force = false;
    bool newVersion = false;
    bool skipExisting = false;
};

struct GetOptions {
    std::vector<std::string> places; ///< remote sources, then the local target; one alone goes to "."
    std::string version;
    bool recursive = false;
    bool force = false;
};

struct MakeFolderOptions {
    std::vector<std::string> paths;
    bool parents = false;
};

struct MoveOptions {
    std::string source;
    std::string target;
    bool force = false;
};

struct RemoveOptions {
    std::vector<std::string> paths;
    bool recursive = false;
    bool force = false;
};

struct GrantOptions {
    std::string path;
    std::string user;
    bool pending = false;
};

struct RevokeOptions {
    std::vector<std::string> what; ///< an id, or a path and a user
};

struct PathOptions {
    std::string path;
};

struct RestoreOptions {
    std::string path;
    std::string version;
    bool asNew = false;
};

namespace verbs {

void login(const Invocation&, const LoginOptions&);
void logout(const Invocation&);
void ping(const Invocation&);
void local(const Invocation&, const LocalOptions&);
void list(const Invocation&, const ListOptions&);
void tree(const Invocation&, const PathOptions&);
void stat(const Invocation&, const PathOptions&);
void cat(const Invocation&, const CatOptions&);
void put(const Invocation&, const PutOptions&);
void get(const Invocation&, const GetOptions&);
void makeFolder(const Invocation&, const MakeFolderOptions&);
void move(const Invocation&, const MoveOptions&);
void remove(const Invocation&, const RemoveOptions&);
void grant(const Invocation&, const GrantOptions&);
void revoke(const Invocation&, const RevokeOptions&);
void grants(const Invocation&, const PathOptions&);
void shared(const Invocation&);
void link(const Invocation&, const PathOptions&);
void versions(const Invocation&, const PathOptions&);
void restore(const Invocation&, const RestoreOptions&);

} // namespace verbs

} // namespace tarncli
