// SPDX-License-Identifier: MIT
// Starts a program that is not for this machine's processor. Where the device has such a program
// there is a link to this one, and the program itself is below /target: for /usr/bin/prodctl it is
// /target/usr/bin/prodctl. The emulator is started through a link with the program's name, since
// the kernel names a process after the file that it was started from, and the firmware finds
// processes by name.
//
// Linked statically: what LD_PRELOAD and LD_LIBRARY_PATH hold is for the program, and is handed on
// to it past this machine's own loader.
#define _GNU_SOURCE
#include <errno.h>
#include <limits.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/auxv.h>
#include <unistd.h>

static const char *const kLoaderVariables[] = {"LD_PRELOAD", "LD_LIBRARY_PATH"};
enum { kLoaderVariableCount = sizeof(kLoaderVariables) / sizeof(kLoaderVariables[0]) };

static _Noreturn void fail(const char *what)
{
    const int err = errno;
    fprintf(stderr, "emulate: %s: %s\n", what, strerror(err));
    exit(err == ENOENT ? 127 : 126);
}

__attribute__((format(printf, 1, 2))) static char *text(const char *format, ...)
{
    char *result = NULL;
    va_list args;
    va_start(args, format);
    if (vasprintf(&result, format, args) < 0) {
        fail("memory");
    }
    va_end(args);
    return result;
}

/** The absolute path of the link that was started. The link itself is not followed. */
static char *started_link(void)
{
    const char *const path = (const char *)getauxval(AT_EXECFN);
    const char *const slash = strrchr(path, '/');
    const char *const name = slash != NULL ? slash + 1 : path;
    char folder[PATH_MAX];
    if (realpath(text("./%.*s", (int)(name - path), path) + (*path == '/' ? 2 : 0), folder) ==
        NULL) {
        fail(path);
    }
    return text("%s/%s", strcmp(folder, "/") == 0 ? "" : folder, name);
}

int main(int argc, char **argv)
{
    char *const link = started_link();
    char **const words = calloc((size_t)argc + 2 * kLoaderVariableCount + 4, sizeof(*words));
    if (words == NULL) {
        fail("memory");
    }
    int count = 0;
    words[count++] = link;
    words[count++] = text("-0");
    words[count++] = argc > 0 ? argv[0] : link;
    for (int i = 0; i < kLoaderVariableCount; ++i) {
        const char *const value = getenv(kLoaderVariables[i]);
        if (value != NULL) {
            words[count++] = text("-E");
            words[count++] = text("%s=%s", kLoaderVariables[i], value);
            unsetenv(kLoaderVariables[i]);
        }
    }
    words[count++] = text("/target%s", link);
    for (int i = 1; i < argc; ++i) {
        words[count++] = argv[i];
    }
    execv(text("/target/processes%s", strrchr(link, '/')), words);
    fail(link);
}
