#include "testing/childProcess.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <utility>

#ifdef _WIN32

#include <windows.h>

namespace ZvTest {

void setVariable(char const *name, char const *value)
{
    ::_putenv_s(name, value ? value : "");
}

ChildProcess::ChildProcess(std::vector<std::string> const &arguments)
{
    char program[MAX_PATH] = {};
    ::GetModuleFileNameA(nullptr, program, MAX_PATH);
    std::string command = std::string("\"") + program + "\"";
    for (std::string const &argument : arguments)
        command += " \"" + argument + "\"";

    SECURITY_ATTRIBUTES inherited = {sizeof inherited, nullptr, TRUE};
    HANDLE reading = nullptr, writing = nullptr;
    EXPECT_TRUE(::CreatePipe(&reading, &writing, &inherited, 0));
    ::SetHandleInformation(reading, HANDLE_FLAG_INHERIT, 0);
    STARTUPINFOA start = {};
    start.cb = sizeof start;
    start.dwFlags = STARTF_USESTDHANDLES;
    start.hStdInput = ::GetStdHandle(STD_INPUT_HANDLE);
    start.hStdOutput = start.hStdError = writing;
    PROCESS_INFORMATION child = {};
    if (::CreateProcessA(program, command.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr,
                         &start, &child)) {
        ::CloseHandle(child.hThread);
        _process = child.hProcess;
    } else {
        ADD_FAILURE() << command << " does not start: " << ::GetLastError();
    }
    ::CloseHandle(writing);
    _output = reading;
}

void ChildProcess::kill()
{
    ::TerminateProcess(_process, CODE_OF_THE_KILLED);
}

ChildProcess::End ChildProcess::await()
{
    End end = {"", -1};
    char buffer[4096];
    DWORD count = 0;
    while (::ReadFile(_output, buffer, sizeof buffer, &count, nullptr) && count > 0)
        for (DWORD i = 0; i < count; ++i)
            if (buffer[i] != '\r')
                end.output += buffer[i];
    ::CloseHandle(std::exchange(_output, nullptr));
    if (!_process)
        return end;
    ::WaitForSingleObject(_process, INFINITE);
    DWORD code = 0;
    ::GetExitCodeProcess(_process, &code);
    end.code = static_cast<int>(code);
    ::CloseHandle(std::exchange(_process, nullptr));
    return end;
}

} // namespace ZvTest

#else

#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace ZvTest {

namespace {

void *toPointer(int number)
{
    return reinterpret_cast<void *>(std::intptr_t{number});
}

int toNumber(void *pointer)
{
    return static_cast<int>(reinterpret_cast<std::intptr_t>(pointer));
}

} // namespace

void setVariable(char const *name, char const *value)
{
    if (value)
        ::setenv(name, value, 1);
    else
        ::unsetenv(name);
}

ChildProcess::ChildProcess(std::vector<std::string> const &arguments)
{
    std::vector<std::string> own(arguments);
    own.insert(own.begin(), "test");
    std::vector<char *> pointers;
    for (std::string &argument : own)
        pointers.push_back(argument.data());
    pointers.push_back(nullptr);

    int ends[2] = {-1, -1};
    EXPECT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions, ends[1], STDERR_FILENO);
#ifdef ZV_EMULATED
    // The name of this process is that of a script that calls the emulator.
    char const * const program = program_invocation_name;
#else
    char const * const program = "/proc/self/exe";
#endif
    pid_t child = 0;
    EXPECT_EQ(::posix_spawn(&child, program, &actions, nullptr, pointers.data(), environ), 0);
    ::posix_spawn_file_actions_destroy(&actions);
    ::close(ends[1]);
    _process = toPointer(child);
    _output = toPointer(ends[0]);
}

void ChildProcess::kill()
{
    ::kill(toNumber(_process), SIGKILL);
}

ChildProcess::End ChildProcess::await()
{
    End end = {"", -1};
    int const output = toNumber(std::exchange(_output, nullptr));
    char buffer[4096];
    for (ssize_t count; (count = ::read(output, buffer, sizeof buffer)) != 0;) {
        if (count > 0)
            end.output.append(buffer, static_cast<std::size_t>(count));
        else if (errno != EINTR)
            break;
    }
    ::close(output);
    int const child = toNumber(std::exchange(_process, nullptr));
    int status = 0;
    if (child == 0 || ::waitpid(child, &status, 0) != child)
        return end;
    end.code = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    return end;
}

} // namespace ZvTest

#endif

ZvTest::ChildProcess::~ChildProcess()
{
    if (_output)
        await();
}
