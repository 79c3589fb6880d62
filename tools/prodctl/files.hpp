// SPDX-License-Identifier: MIT
// Files that a command takes whole.
#pragma once

#include <cstdio>
#include <memory>
#include <string>

#include "command.hpp"

namespace prodctl
{

struct CloseFile {
    void operator()(FILE *file) const { fclose(file); }
};
using File = std::unique_ptr<FILE, CloseFile>;

/** Appends all that is left of a stream. @return 0 or an errno value */
int read_all(FILE *stream, std::string &text);

/** Appends a whole file; why that cannot be is said. @return an exit status */
int read_file(const Call &call, const char *path, std::string &text);
/** The same for a file that may be standard input, as "-". */
int read_file_or_input(const Call &call, const char *path, std::string &text);

}  // namespace prodctl
