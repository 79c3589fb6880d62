// SPDX-License-Identifier: MIT
#include "support/commands.hpp"

#include <dlfcn.h>

#include <cstdarg>
#include <cstdio>

#include "platform/process.h"

namespace
{

bool recording;
std::vector<std::string> commands;
std::function<int(const std::string &)> answer_to;

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
    return reinterpret_cast<int (*)(const char *)>(dlsym(RTLD_NEXT, "system"))(command);
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
    const auto real = reinterpret_cast<int (*)(const char *, ...)>(dlsym(RTLD_NEXT, "doSystemCmd"));
    return real("%s", command);
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

}  // namespace test
