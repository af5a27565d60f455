#pragma once

#include "tarnd/store/Engine.h"
#include "tarnd/store/FileVersions.h"

#include <string>
#include <vector>

namespace tarnd {

class Database;
class Transaction;

/// Where contents and rows differ.
struct ContentCheck {
    std::vector<std::string>
        missing; ///< "alice:/a.txt, version 3: its content … is missing", one per version
    std::vector<std::string> orphans; ///< ids of contents that no row names and nobody is writing
};

/// The contents that versions name, sorted.
std::vector<std::string> namedContents(Database& database);

/// Compares all rows with all contents, right also while other processes write and delete.
ContentCheck compareContents(Engine engine);

/// The orphans among the contents whose ids begin so.
std::vector<std::string> orphansAmong(Engine engine, const std::string& beginning);

/// "alice:/a.txt, version 3" for each version with this content.
std::vector<std::string> describeContent(Engine engine, const std::string& content);

/// Some version has this content.
bool isNamed(Transaction& transaction, const std::string& content);

} // namespace tarnd
