// SPDX-License-Identifier: MIT
// cfm: the configuration manager's command-line tool.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <span>
#include <string_view>

#include "cfm_tool.h"
#include "platform/cfm.h"

namespace
{

enum ExitCode : int { kDone = 0, kRefused = 1, kUsage = 2 };

constexpr const char *kUploaded = "/webroot/default.cfg";

constexpr const char *kHelp =
    "usage: cfm COMMAND [ARGUMENT]...\n"
    "\n"
    "The device's configuration: settings of the form key=value in a working copy that every\n"
    "program shares, and a persistent file that a start of the device begins with.\n"
    "\n"
    "  show [FILE]     all settings as sorted key=value lines, to standard output or FILE\n"
    "  get KEY         the value of KEY\n"
    "  set KEY VALUE   stores VALUE under KEY in the working copy\n"
    "  unset KEY       removes KEY from the working copy\n"
    "  commit          writes the working copy to the persistent file\n"
    "  restore         goes back to the factory defaults, and commits\n"
    "  Upload [FILE]   makes the key=value lines of FILE (/webroot/default.cfg, where the web "
    "server\n"
    "                  leaves an uploaded backup) the whole configuration, and commits; FILE is\n"
    "                  checked first: with one bad line in it nothing changes\n"
    "  --help          this text\n"
    "\n"
    "A key has 1 to 511 bytes, no '=', and does not begin with '#'; a value has at most 2307 "
    "bytes.\n"
    "Neither holds a line break. In FILE, empty lines and lines beginning with '#' are passed "
    "over.\n"
    "\n"
    "Exit status: 0 done; 1 refused, or the key is absent; 2 the command line makes no sense.\n";

using Arguments = std::span<char *const>;
using Text = std::unique_ptr<char, decltype(&free)>;

int refused(const char *why, const char *what)
{
    fprintf(stderr, "cfm: %s: %s\n", what, why);
    return kRefused;
}

bool write_out(FILE *stream, const char *text, std::size_t size)
{
    return fwrite(text, 1, size, stream) == size && fflush(stream) == 0;
}

int show(Arguments arguments)
{
    char *block = nullptr;
    std::size_t size = 0;
    if (cfm_show(&block, &size) == 0) {
        return refused("the configuration cannot be read", "show");
    }
    const Text text{block, &free};
    if (arguments.empty()) {
        return write_out(stdout, block, size) ? kDone : refused(strerror(errno), "show");
    }
    FILE *const file = fopen(arguments[0], "we");
    if (file == nullptr) {
        return refused(strerror(errno), arguments[0]);
    }
    const bool written = write_out(file, block, size);
    const int err = errno;
    return fclose(file) == 0 && written ? kDone : refused(strerror(err), arguments[0]);
}

int get(Arguments arguments)
{
    char value[CFM_VALUE_SIZE];
    if (GetValue(arguments[0], value) == 0) {
        return kRefused;
    }
    const bool written = puts(value) >= 0 && fflush(stdout) == 0;
    return written ? kDone : refused(strerror(errno), arguments[0]);
}

int set(Arguments arguments)
{
    return SetValue(arguments[0], arguments[1]) != 0 ? kDone : refused("not stored", arguments[0]);
}

int unset(Arguments arguments)
{
    return UnSetValue(arguments[0]) != 0 ? kDone : kRefused;
}

int commit(Arguments)
{
    return CommitCfm() != 0 ? kDone : refused("not written", "commit");
}

int restore(Arguments)
{
    return RestoreValue() != 0 ? kDone : refused("nothing changed", "restore");
}

/** A whole file in memory; nothing when it cannot be read. */
Text read_whole(const char *path, std::size_t &size)
{
    constexpr off_t kLargest = off_t{16} * 1024 * 1024;
    FILE *const file = fopen(path, "re");
    struct stat status;
    Text text{nullptr, &free};
    if (file == nullptr) {
        return text;
    }
    if (fstat(fileno(file), &status) != 0 || !S_ISREG(status.st_mode) ||
        status.st_size > kLargest) {
        errno = EINVAL;
    } else {
        const auto room = static_cast<std::size_t>(status.st_size);
        text.reset(static_cast<char *>(malloc(room + 1)));
        size = text != nullptr ? fread(text.get(), 1, room, file) : 0;
        if (size != room) {
            text.reset();
        }
    }
    const int err = errno;
    fclose(file);
    errno = err;
    return text;
}

int upload(Arguments arguments)
{
    const char *const path = arguments.empty() ? kUploaded : arguments[0];
    std::size_t size = 0;
    const Text text = read_whole(path, size);
    if (text == nullptr) {
        return refused(strerror(errno), path);
    }
    return cfm_upload(text.get(), size) != 0 ? kDone : refused("not taken, nothing changed", path);
}

bool asks_for_help(std::string_view word)
{
    return word == "--help" || word == "-h";
}

int wrong_usage(const char *why, std::string_view command)
{
    fprintf(stderr, "cfm: %.*s%s%s\n%s", static_cast<int>(command.size()), command.data(),
            command.empty() ? "" : ": ", why, kHelp);
    return kUsage;
}

struct Command {
    std::string_view name;
    std::size_t least;
    std::size_t most;
    int (*run)(Arguments);
};
constexpr Command kCommands[] = {
    {"show", 0, 1, show},     {"get", 1, 1, get},       {"set", 2, 2, set},
    {"unset", 1, 1, unset},   {"commit", 0, 0, commit}, {"restore", 0, 0, restore},
    {"Upload", 0, 1, upload},
};

}  // namespace

int main(int argc, char **argv)
{
    const Arguments all{argv, static_cast<std::size_t>(argc)};
    const std::string_view name = all.size() > 1 ? all[1] : "";
    const Arguments arguments = all.size() > 2 ? all.subspan(2) : Arguments{};
    // Alone behind a command, too, where it would be the name of a key or of a file.
    if (asks_for_help(name) || (arguments.size() == 1 && asks_for_help(arguments[0]))) {
        fputs(kHelp, stdout);
        return kDone;
    }
    if (name.empty()) {
        return wrong_usage("a command is missing", "");
    }
    for (const Command &command : kCommands) {
        if (command.name == name) {
            return arguments.size() < command.least  ? wrong_usage("an argument is missing", name)
                   : arguments.size() > command.most ? wrong_usage("too many arguments", name)
                                                     : command.run(arguments);
        }
    }
    return wrong_usage("unknown command", name);
}
