// SPDX-License-Identifier: MIT
#include "support/commands.hpp"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <set>

#include "platform/process.h"
#include "support/interpose.hpp"

namespace
{

bool recording;
std::vector<std::string> commands;
std::function<int(const std::string &)> answer_to;

std::function<std::optional<std::string>(const std::string &)> pipe_answer;
std::vector<std::string> piped;
std::set<FILE *> open_pipes;

/** A stream that holds a text to be read. */
FILE *stream_of(const std::string &text)
{
    const int fd = memfd_create("pipe", MFD_CLOEXEC);
    if (write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
        abort();
    }
    lseek(fd, 0, SEEK_SET);
    FILE *const stream = fdopen(fd, "r");
    open_pipes.insert(stream);
    return stream;
}

int record(const std::string &command)
{
    commands.push_back(command);
    return answer_to ? answer_to(command) : 0;
}

}  // namespace

extern "C" {

int system(const char *command)
{
    if (recording) {
        return record(command);
    }
    return test::next(system, "system")(command);
}

int doSystemCmd(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    char command[16384];
    vsnprintf(command, sizeof(command), format, args);
    va_end(args);
    if (recording) {
        return record(command);
    }
    const auto real = test::next(doSystemCmd, "doSystemCmd");
    return real("%s", command);
}

FILE *popen(const char *command, const char *type)
{
    if (pipe_answer == nullptr) {
        return test::next(popen, "popen")(command, type);
    }
    piped.emplace_back(command);
    const std::optional<std::string> text = pipe_answer(command);
    return text ? stream_of(*text) : nullptr;
}

int pclose(FILE *stream)
{
    if (open_pipes.erase(stream) != 0) {
        return fclose(stream);
    }
    return test::next(pclose, "pclose")(stream);
}
}

namespace test
{

RecordedCommands::RecordedCommands(std::function<int(const std::string &)> answer)
{
    commands.clear();
    answer_to = std::move(answer);
    recording = true;
}

RecordedCommands::~RecordedCommands()
{
    recording = false;
    answer_to = {};
}

const std::vector<std::string> &RecordedCommands::all() const
{
    return commands;
}

RecordedPipes::RecordedPipes(std::function<std::optional<std::string>(const std::string &)> answer)
{
    piped.clear();
    pipe_answer = std::move(answer);
}

RecordedPipes::~RecordedPipes()
{
    pipe_answer = nullptr;
}

const std::vector<std::string> &RecordedPipes::all() const
{
    return piped;
}

std::size_t RecordedPipes::left_open() const
{
    return open_pipes.size();
}

}  // namespace test
