// SPDX-License-Identifier: MIT
// Files that a test lays out and looks at.
#pragma once

#include <string>

namespace test
{

/** Writes a whole file, creating its folders. */
void write_text(const std::string &path, const std::string &text);

/** Writes a shell script that can be run. */
void write_script(const std::string &path, const std::string &script);

/** The whole of a file; empty when there is none. */
std::string read_text(const std::string &path);

/** Removes a file or a folder with all it holds. */
void remove_all(const std::string &path);

bool exists(const std::string &path);

/** Whatever a test makes of a file while this lives, in the end it is what it was. */
class KeptFile
{
  public:
    explicit KeptFile(std::string path);
    ~KeptFile();
    KeptFile(const KeptFile &) = delete;
    KeptFile &operator=(const KeptFile &) = delete;

  private:
    std::string path_;
    std::string before_;
    bool existed_;
};

/** Puts @p text in place of a file for as long as it lives; without a text there is no file. */
class FileHolds : public KeptFile
{
  public:
    FileHolds(const std::string &path, const std::string &text);
    explicit FileHolds(const std::string &path);
};

/**
 * A file system of its own mounted over a folder for as long as this lives: of a few pages, to be
 * filled up, or read-only.
 */
class MountedFolder
{
  public:
    explicit MountedFolder(std::string path, const char *options = "size=16k",
                           bool read_only = false);
    ~MountedFolder();
    MountedFolder(const MountedFolder &) = delete;
    MountedFolder &operator=(const MountedFolder &) = delete;

    /** Takes up all the room that is left. */
    void fill() const;

  private:
    std::string path_;
};

/**
 * Stands other files before the real ones of /proc/net for as long as this lives. The kernel makes
 * each entry of /proc/net anew at every look-up, so none can be covered by itself; /proc as a whole
 * is replaced by one that shows the rest unchanged.
 */
class FakeProcNet
{
  public:
    FakeProcNet();
    ~FakeProcNet();
    FakeProcNet(const FakeProcNet &) = delete;
    FakeProcNet &operator=(const FakeProcNet &) = delete;

    void write(const std::string &name, const std::string &text) const;
    void remove(const std::string &name) const;
};

/** How many descriptors this process has open: equal before and after what must not leak. */
int open_descriptors();

}  // namespace test
