#pragma once

#include "tarnd/store/Secrets.h"
#include "tests/tarnd/postgres/DatabaseTest.h"

#include <csignal>
#include <filesystem>
#include <fstream>
#include <sys/shm.h>

namespace tarnd::test {

/// A PostgreSQL server with a standby that every commit waits for, in the folder that TARN_TEST_SERVERS names. They
/// end with it.
class StandbyPair {
public:
    StandbyPair()
    {
        primary.ask("ALTER SYSTEM SET synchronous_standby_names = '*'");
        primary.ask("SELECT pg_reload_conf()");
        waitUntil([&] { return primary.ask("SELECT sync_state FROM pg_stat_replication") == "sync"; });
    }

    /// Of whichever of the two takes writes.
    std::string url() const
    {
        return "postgresql://tarn@127.0.0.1:" + primary.port + ",127.0.0.1:" + standby.port +
               "/tarn?connect_timeout=2";
    }

    struct Server {
        explicit Server(const std::string& primaryPort = {})
        {
            const std::string script = TARN_SOURCE_DIR "/scripts/postgres-server";
            std::vector<std::string> command = {script, folder};
            if (!primaryPort.empty()) command.push_back(primaryPort);
            const auto started = runCommand(command, std::chrono::seconds(200));
            if (started.exitCode != 0) throw std::runtime_error("postgres-server: " + started.err);
            port = started.out.substr(0, started.out.find('\n'));
            std::ifstream notes(folder / "data/postmaster.pid");
            notes >> pid;
            for (int i = 0; i < 6; ++i)
                notes.ignore(1000, '\n');
            notes >> memory >> memory;
        }

        ~Server()
        {
            end();
            std::error_code ignored; // of what its processes still write while they die
            std::filesystem::remove_all(folder, ignored);
        }

        std::string ask(const std::string& sql) const
        {
            return test::ask(sql, "postgresql://tarn@127.0.0.1:" + port + "/tarn");
        }

        /// All of its processes at once.
        void signal(int number) const
        {
            ::kill(pid, SIGSTOP); // or it would start others
            std::ifstream children("/proc/" + std::to_string(pid) + "/task/" + std::to_string(pid) +
                                   "/children");
            for (pid_t child; children >> child;)
                ::kill(child, number);
            ::kill(pid, number);
        }

        /// As a power cut does.
        void end()
        {
            if (pid <= 0) return;
            signal(SIGKILL);
            ::shmctl(memory, IPC_RMID, nullptr); // goes with nobody
            pid = 0;
        }

        const std::filesystem::path folder =
            std::filesystem::path(std::getenv("TARN_TEST_SERVERS")) / randomHex(8);
        std::string port;
        pid_t pid = 0;
        int memory = -1;
    };

    Server primary, standby{primary.port};
};

} // namespace tarnd::test
