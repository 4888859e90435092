#include "RestartableServer.h"

#include <Kestro/Threads.h>
#include <csignal>
#include <cstdlib>
#include <db_client.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr unsigned LookInterval = 10'000; // microseconds

// Waits for the end of a process that need not be a child.
void awaitEnd(int process)
{
    pollfd end{static_cast<int>(syscall(SYS_pidfd_open, process, 0)), POLLIN, 0};
    poll(&end, 1, -1);
    close(end.fd);
    waitpid(process, nullptr, 0);
}

} // namespace

RestartableServer::RestartableServer()
{
    const char* const socket = std::getenv("MYSQL_UNIX_PORT");
    m_directory = std::filesystem::path(socket != nullptr ? socket : "").parent_path();
    std::ifstream(m_directory + "/pid") >> m_process;
    std::ifstream command("/proc/" + std::to_string(m_process) + "/cmdline");
    bool here = false;
    for (std::string word; std::getline(command, word, '\0');) {
        here |= word == "--socket=" + m_directory + "/socket";
        m_command.push_back(word);
    }
    if (!here || m_directory.find("/kestro.") == std::string::npos) {
        throw std::runtime_error("MYSQL_UNIX_PORT names no private server");
    }
}

void RestartableServer::signal(int number) const
{
    kill(m_process, number);
}

void RestartableServer::stop(int number) const
{
    signal(number);
    awaitEnd(m_process);
}

void RestartableServer::start()
{
    std::vector<char*> arguments;
    const std::string guard[] = {"setpriv", "--pdeathsig", "KILL"};
    for (const std::string& word : guard) {
        arguments.push_back(const_cast<char*>(word.c_str()));
    }
    for (const std::string& word : m_command) {
        arguments.push_back(const_cast<char*>(word.c_str()));
    }
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    const std::string log = m_directory + "/restarts.log";
    for (const int stream : {STDOUT_FILENO, STDERR_FILENO}) {
        posix_spawn_file_actions_addopen(&files, stream, log.c_str(), O_WRONLY | O_CREAT | O_APPEND,
                                         0600);
    }
    const int failed =
        posix_spawnp(&m_process, arguments[0], &files, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&files);
    if (failed != 0) {
        throw std::runtime_error("setpriv cannot be started");
    }
    void* link = nullptr;
    while ((link = db_connect_unix("")) == nullptr) {
        if (waitpid(m_process, nullptr, WNOHANG) != 0) {
            throw std::runtime_error("the server does not start again, see " + log);
        }
        Kestro::ks_usleep(LookInterval, 0);
    }
    db_disconnect(link);
}
