// One file up and down through FileTransfer, beside curl against the same service: seconds of wall time and of
// processor, and the largest memory of the client.
//
//     TARN_BIN_DIR=build/bench/bin build/bench/bin/stream_bench [MEBIBYTES]
#include "support/TarndProcess.h"

#include "tarn/session/SessionMessages.h"
#include "tarnhost/FileSink.h"
#include "tarnhost/FileSource.h"
#include "tarnhost/TarnHost.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace connector;
using namespace connector::tarn;

constexpr int rounds = 5;

struct Cost {
    double wall = 0;      ///< seconds
    double processor = 0; ///< seconds
    long memory = 0;      ///< KiB
};

/// Logs in and moves one file; run as a process of its own, whose memory is then the transfer's.
void move(const std::string& direction, const std::string& url, const std::string& token,
          const std::string& file)
{
    host::TarnHost tarnHost({.endpoint = url});
    auto login = std::make_unique<Login>();
    login->user = u"alice";
    login->authenticationToken = token;
    tarnHost.session()->login(std::move(login)).get();
    if (direction == "up") {
        auto source = host::FileSource::open(file);
        auto upload = std::make_unique<FileUpload>();
        upload->path = u"/big";
        upload->createMode = CreateMode::createOrUpdate;
        upload->size = source->size();
        upload->content = std::move(source);
        tarnHost.fileTransfer()->uploadFile(std::move(upload)).get();
    } else {
        const int target = open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        auto download = std::make_unique<FileDownload>();
        download->path = u"/big";
        download->content = std::make_shared<host::FileSink>(target);
        tarnHost.fileTransfer()->downloadFile(std::move(download)).get();
        close(target);
    }
}

Cost run(std::vector<std::string> command)
{
    std::vector<char*> arguments;
    for (auto& word : command)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    const auto begin = std::chrono::steady_clock::now();
    const pid_t child = fork();
    if (child == 0) {
        execvp(arguments[0], arguments.data());
        _exit(127);
    }
    int status = 0;
    rusage used{};
    wait4(child, &status, 0, &used);
    if (status != 0) throw std::runtime_error(command[0] + " failed");
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return {std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count(),
            seconds(used.ru_utime) + seconds(used.ru_stime), used.ru_maxrss};
}

/// The median of each column.
Cost median(std::vector<Cost> costs)
{
    Cost middle;
    auto pick = [&](auto column) {
        std::nth_element(costs.begin(), costs.begin() + rounds / 2, costs.end(),
                         [&](const Cost& a, const Cost& b) { return a.*column < b.*column; });
        middle.*column = costs[rounds / 2].*column;
    };
    pick(&Cost::wall);
    pick(&Cost::processor);
    pick(&Cost::memory);
    return middle;
}

void report(const std::string& name, const Cost& ours, const Cost& curl)
{
    std::printf("%-5s tarn %.2f s, %.2f s of processor, %ld MiB; curl %.2f s, %.2f s, %ld MiB; ratio %.2f\n",
                name.c_str(), ours.wall, ours.processor, ours.memory / 1024, curl.wall, curl.processor,
                curl.memory / 1024, ours.wall / curl.wall);
}

void writeNoise(const std::string& file, std::size_t mebibytes)
{
    std::ifstream noise("/dev/urandom", std::ios::binary);
    std::ofstream out(file, std::ios::binary);
    std::vector<char> block(1 << 20);
    for (std::size_t i = 0; i < mebibytes; ++i) {
        noise.read(block.data(), static_cast<std::streamsize>(block.size()));
        out.write(block.data(), static_cast<std::streamsize>(block.size()));
    }
}

void compare(const std::string& self, std::size_t mebibytes)
{
    tarnd::test::TarndProcess service;
    const std::string token = service.addUser("alice");
    service.start();
    host::TarnHost tarnHost({.endpoint = service.url()});
    auto login = std::make_unique<Login>();
    login->user = u"alice";
    login->authenticationToken = token;
    const std::string session =
        "x-qz-tarn-session-id: " + tarnHost.session()->login(std::move(login)).get()->sessionId;

    const std::string source = service.dataDir().parent_path() / "source";
    const std::string target = service.dataDir().parent_path() / "target";
    writeNoise(source, mebibytes);
    const std::string url = service.url() + "/service/v1/files/big?locale=en_US";
    const std::vector<std::string> curl = {"curl", "-sSf", "-H", session};
    auto with = [&](std::vector<std::string> more) {
        more.insert(more.begin(), curl.begin(), curl.end());
        return more;
    };
    std::vector<Cost> up, curlUp, down, curlDown;
    for (int i = 0; i < rounds; ++i) {
        up.push_back(run({self, "up", service.url(), token, source}));
        curlUp.push_back(run(with({"-H", "Expect:", "-o", "/dev/null", "-T", source,
                                   url + "&createMode=CREATE_OR_UPDATE&createNewVersion=false"})));
        down.push_back(run({self, "down", service.url(), token, target}));
        curlDown.push_back(run(with({"-o", target, url})));
    }
    report("up", median(up), median(curlUp));
    report("down", median(down), median(curlDown));
}

} // namespace

int main(int argc, char** argv)
{
    try {
        if (argc == 5) {
            move(argv[1], argv[2], argv[3], argv[4]);
        } else {
            compare("/proc/self/exe", argc > 1 ? std::stoul(argv[1]) : 1024);
        }
    } catch (const std::exception& error) {
        std::cerr << "stream_bench: " << error.what() << '\n';
        return 1;
    }
}
