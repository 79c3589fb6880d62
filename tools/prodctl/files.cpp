// SPDX-License-Identifier: MIT
#include "files.hpp"

#include <cerrno>
#include <cstring>

namespace prodctl
{

namespace
{

int read_stream(const Call &call, FILE *stream, const char *name, std::string &text)
{
    const int err = read_all(stream, text);
    return err == 0 ? kYes : call.no("cannot read %s: %s", name, strerror(err));
}

}  // namespace

int read_all(FILE *stream, std::string &text)
{
    char block[4096];
    for (std::size_t size; (size = fread(block, 1, sizeof(block), stream)) > 0;) {
        text.append(block, size);
    }
    return ferror(stream) != 0 ? errno : 0;
}

int read_file(const Call &call, const char *path, std::string &text)
{
    const File file{fopen(path, "re")};
    return file != nullptr ? read_stream(call, file.get(), path, text)
                           : call.no("cannot open %s: %s", path, strerror(errno));
}

int read_file_or_input(const Call &call, const char *path, std::string &text)
{
    return strcmp(path, "-") == 0 ? read_stream(call, stdin, path, text)
                                  : read_file(call, path, text);
}

}  // namespace prodctl
