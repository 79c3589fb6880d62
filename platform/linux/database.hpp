// SPDX-License-Identifier: MIT
// What the two ways into a record database share: handles of tables, and backups.
#pragma once

#include <cstddef>

namespace platform
{

inline constexpr const char *kDatabaseFolder = "/cfg/database";
inline constexpr std::size_t kDatabaseNameSize = 64;

bool can_name_database(const char *name);

/** Makes the file of a database if there is none; the engine's own way would let everybody read it.
 */
void make_database_file(const char *path);

/** The calling thread is inside the engine, alone in its process. */
class Inside
{
  public:
    Inside();
    ~Inside();
    Inside(const Inside &) = delete;
    Inside &operator=(const Inside &) = delete;
};

/** Makes a fork wait until no thread is inside; false when that cannot be had. */
bool watch_forks();

}  // namespace platform
