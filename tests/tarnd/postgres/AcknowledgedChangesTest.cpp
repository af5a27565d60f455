// Processes over one database are stopped, continued and killed, and their connections cut, while all are used:
// what was acknowledged is there, what was refused is not, and the others go on meanwhile.
#include "tests/tarnd/postgres/ChangingClients.h"
#include "tests/tarnd/postgres/OwnDatabase.h"

#include <cstdlib>
#include <iostream>
#include <random>

namespace tarnd::test {
namespace {

class AcknowledgedChanges : public OwnDatabase {};

/// TARN_TEST_ROUNDS=50 for the long form.
TEST_F(AcknowledgedChanges, OutliveStopsAndKills)
{
    const char* given = std::getenv("TARN_TEST_ROUNDS");
    const int rounds = given ? std::atoi(given) : 6;
    ChangingClients all(url("options=-cidle_in_transaction_session_timeout%3D500ms"), ownObjects());
    std::mt19937 random(1);
    for (int round = 0; round < rounds; ++round) {
        const auto which = random() % ChangingClients::processes;
        all.acknowledge();
        if (round % 3 == 0) {
            ask("SELECT pg_terminate_backend(pid) FROM pg_stat_activity WHERE datname = current_database() "
                "AND pid "
                "<> pg_backend_pid()");
            continue;
        }
        all.process(which).pause();
        all.acknowledge();
        if (round % 3 == 1) {
            all.process(which).resume();
        } else {
            all.process(which).kill();
            all.start(which);
        }
    }
    all.acknowledge();
    std::cout << rounds << " rounds, ";
    all.endAndCheck();
}

} // namespace
} // namespace tarnd::test
