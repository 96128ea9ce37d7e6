#include "ProcessRunner.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace KestrelTest {
namespace {

[[noreturn]] void Fail(const std::string& what, int error)
{
    throw std::runtime_error(what + ": " + std::strerror(error));
}

// An unnamed file that a child's output goes to, read once the child has ended:
// no reader has to keep up with it.
struct Capture {
    int fd = ::memfd_create("kestrel-test-output", MFD_CLOEXEC);
    Capture()
    {
        if (fd < 0) Fail("memfd_create", errno);
    }
    ~Capture() { ::close(fd); }
    Capture(const Capture&) = delete;
    Capture& operator=(const Capture&) = delete;
    std::string Text() const
    {
        std::string text(static_cast<std::size_t>(::lseek(fd, 0, SEEK_END)), '\0');
        if (::pread(fd, text.data(), text.size(), 0) != static_cast<ssize_t>(text.size())) Fail("reading the output", errno);
        return text;
    }
};

struct SpawnActions {
    posix_spawn_file_actions_t actions;
    SpawnActions() { posix_spawn_file_actions_init(&actions); }
    ~SpawnActions() { posix_spawn_file_actions_destroy(&actions); }
    SpawnActions(const SpawnActions&) = delete;
    SpawnActions& operator=(const SpawnActions&) = delete;
};

// This process's environment with the changes made.
std::vector<std::string> MergedEnvironment(const std::vector<EnvironmentChange>& changes)
{
    std::vector<std::string> variables;
    for (char** entry = environ; *entry != nullptr; ++entry) variables.emplace_back(*entry);
    for (const EnvironmentChange& change : changes) {
        std::erase_if(variables, [&](const std::string& variable) { return variable.starts_with(change.name + "="); });
        if (change.value) variables.push_back(change.name + "=" + *change.value);
    }
    return variables;
}

} // namespace

const int kExitStatusOfMinusOne = 255;
const std::string_view kLineEnd = "\n";

ProcessResult RunProcess(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                         const std::vector<EnvironmentChange>& environment)
{
    Capture out;
    Capture err;
    SpawnActions spawn;
    posix_spawn_file_actions_addopen(&spawn.actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&spawn.actions, out.fd, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&spawn.actions, err.fd, STDERR_FILENO);

    const std::string path = program.string();
    std::vector<char*> argv{const_cast<char*>(path.c_str())};
    for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    std::vector<std::string> variables = MergedEnvironment(environment);
    std::vector<char*> envp;
    for (std::string& variable : variables) envp.push_back(variable.data());
    envp.push_back(nullptr);

    pid_t pid = 0;
    if (const int error = posix_spawn(&pid, path.c_str(), &spawn.actions, nullptr, argv.data(), envp.data()); error != 0) {
        Fail("cannot start " + path, error);
    }
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR) Fail("waitpid", errno);
    }
    return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), out.Text(), err.Text()};
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
