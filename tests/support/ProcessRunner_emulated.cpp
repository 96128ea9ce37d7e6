#include "ProcessRunner.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <map>
#include <stdexcept>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace KestrelTest {
namespace {

struct Pipe {
    int read = -1;
    int write = -1;
    Pipe()
    {
        int fds[2];
        if (::pipe2(fds, O_CLOEXEC) != 0) throw std::runtime_error(std::string("pipe: ") + std::strerror(errno));
        read = fds[0];
        write = fds[1];
    }
    ~Pipe()
    {
        CloseRead();
        CloseWrite();
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;
    void CloseRead()
    {
        if (read >= 0) ::close(read);
        read = -1;
    }
    void CloseWrite()
    {
        if (write >= 0) ::close(write);
        write = -1;
    }
};

struct SpawnActions {
    posix_spawn_file_actions_t actions;
    SpawnActions() { posix_spawn_file_actions_init(&actions); }
    ~SpawnActions() { posix_spawn_file_actions_destroy(&actions); }
    SpawnActions(const SpawnActions&) = delete;
    SpawnActions& operator=(const SpawnActions&) = delete;
};

std::vector<std::string> MergedEnvironment(const std::vector<EnvironmentChange>& changes)
{
    std::map<std::string, std::string> variables;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text = *entry;
        const auto equals = text.find('=');
        if (equals != std::string::npos) variables[text.substr(0, equals)] = text.substr(equals + 1);
    }
    for (const EnvironmentChange& change : changes) {
        if (change.value) {
            variables[change.name] = *change.value;
        } else {
            variables.erase(change.name);
        }
    }
    std::vector<std::string> merged;
    for (const auto& [name, value] : variables) merged.push_back(name + "=" + value);
    return merged;
}

} // namespace

const int kExitStatusOfMinusOne = 255;
const std::string_view kLineEnd = "\n";

ProcessResult RunProcess(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                         const std::vector<EnvironmentChange>& environment,
                         const std::filesystem::path& workingDirectory)
{
    Pipe out;
    Pipe err;
    SpawnActions spawn;
    posix_spawn_file_actions_addopen(&spawn.actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&spawn.actions, out.write, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&spawn.actions, err.write, STDERR_FILENO);
    if (!workingDirectory.empty()) posix_spawn_file_actions_addchdir_np(&spawn.actions, workingDirectory.c_str());

    const std::string path = program.string();
    std::vector<char*> argv{const_cast<char*>(path.c_str())};
    for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    std::vector<std::string> variables = MergedEnvironment(environment);
    std::vector<char*> envp;
    for (std::string& variable : variables) envp.push_back(variable.data());
    envp.push_back(nullptr);

    pid_t pid = 0;
    if (const int error = posix_spawn(&pid, path.c_str(), &spawn.actions, nullptr, argv.data(), envp.data());
        error != 0) {
        throw std::runtime_error("cannot start " + path + ": " + std::strerror(error));
    }
    out.CloseWrite();
    err.CloseWrite();

    ProcessResult result;
    pollfd fds[2] = {{out.read, POLLIN, 0}, {err.read, POLLIN, 0}};
    std::string* sinks[2] = {&result.out, &result.err};
    int open = 2;
    while (open > 0) {
        if (::poll(fds, 2, -1) < 0) {
            if (errno == EINTR) continue;
            throw std::runtime_error(std::string("poll: ") + std::strerror(errno));
        }
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || fds[i].revents == 0) continue;
            char chunk[4096];
            const ssize_t n = ::read(fds[i].fd, chunk, sizeof chunk);
            if (n > 0) {
                sinks[i]->append(chunk, static_cast<std::size_t>(n));
            } else if (n == 0 || errno != EINTR) {
                fds[i].fd = -1;
                --open;
            }
        }
    }

    int status = 0;
    while (::waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR) throw std::runtime_error(std::string("waitpid: ") + std::strerror(errno));
    }
    result.exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return result;
}

void SetOwnEnvironment(const EnvironmentChange& change)
{
    if (change.value) {
        ::setenv(change.name.c_str(), change.value->c_str(), 1);
    } else {
        ::unsetenv(change.name.c_str());
    }
}

std::filesystem::path BuiltProgram(std::string_view name)
{
    if (const char* directory = std::getenv("KESTREL_PROGRAM_DIR"); directory != nullptr && *directory != '\0') {
        return std::filesystem::path(directory) / name;
    }
    return std::filesystem::read_symlink("/proc/self/exe").parent_path() / name;
}

} // namespace KestrelTest
