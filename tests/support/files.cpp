// SPDX-License-Identifier: MIT
#include "support/files.hpp"

#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace test
{
namespace
{

namespace fs = std::filesystem;
constexpr const char *kRealProc = "/tmp/.proc";

void must(bool done, const std::string &what)
{
    if (!done) {
        perror(what.c_str());
        abort();
    }
}

}  // namespace

void write_text(const std::string &path, const std::string &text)
{
    fs::create_directories(fs::path{path}.parent_path());
    std::ofstream file{path, std::ios::binary | std::ios::trunc};
    file << text;
    file.close();
    must(file.good(), "write " + path);
}

void write_script(const std::string &path, const std::string &script)
{
    write_text(path, "#!/bin/sh\n" + script);
    must(chmod(path.c_str(), 0755) == 0, "chmod " + path);
}

std::string read_text(const std::string &path)
{
    std::ifstream file{path, std::ios::binary};
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

void remove_all(const std::string &path)
{
    std::error_code ignored;
    fs::remove_all(path, ignored);
}

bool exists(const std::string &path)
{
    struct stat status;
    return lstat(path.c_str(), &status) == 0;
}

KeptFile::KeptFile(std::string path)
    : path_(std::move(path)), before_(read_text(path_)), existed_(exists(path_))
{
}

KeptFile::~KeptFile()
{
    remove_all(path_);
    if (existed_) {
        write_text(path_, before_);
    }
}

FileHolds::FileHolds(const std::string &path, const std::string &text) : FileHolds(path)
{
    write_text(path, text);
}

FileHolds::FileHolds(const std::string &path) : KeptFile(path)
{
    remove_all(path);
}

MountedFolder::MountedFolder(std::string path, const char *options, bool read_only)
    : path_(std::move(path))
{
    fs::create_directories(path_);
    must(mount("tmpfs", path_.c_str(), "tmpfs", read_only ? MS_RDONLY : 0, options) == 0,
         "mount " + path_);
}

MountedFolder::~MountedFolder()
{
    umount2(path_.c_str(), MNT_DETACH);
}

void MountedFolder::fill() const
{
    FILE *const file = fopen((path_ + "/fill").c_str(), "w");
    must(file != nullptr, "fill " + path_);
    setvbuf(file, nullptr, _IONBF, 0);
    const std::string page(4096, 'x');
    while (fwrite(page.data(), 1, page.size(), file) == page.size()) {
    }
    fclose(file);
}

FakeProcNet::FakeProcNet()
{
    fs::create_directories(kRealProc);
    must(mount("/proc", kRealProc, nullptr, MS_BIND | MS_REC, nullptr) == 0, "bind /proc");
    must(mount("tmpfs", "/proc", "tmpfs", 0, nullptr) == 0, "cover /proc");
    for (const auto &entry : fs::directory_iterator{kRealProc}) {
        const std::string name = entry.path().filename();
        if (name != "net") {
            fs::create_symlink(entry.path(), "/proc/" + name);
        }
    }
    fs::create_directory("/proc/net");
    for (const auto &entry : fs::directory_iterator{std::string{kRealProc} + "/self/net"}) {
        fs::create_symlink(entry.path(), "/proc/net/" + std::string{entry.path().filename()});
    }
}

FakeProcNet::~FakeProcNet()
{
    umount2("/proc", MNT_DETACH);
    umount2(kRealProc, MNT_DETACH);
}

void FakeProcNet::write(const std::string &name, const std::string &text) const
{
    remove(name);
    write_text("/proc/net/" + name, text);
}

void FakeProcNet::remove(const std::string &name) const
{
    remove_all("/proc/net/" + name);
}

int open_descriptors()
{
    int count = 0;
    for ([[maybe_unused]] const auto &entry : fs::directory_iterator{"/proc/self/fd"}) {
        ++count;
    }
    return count;
}

}  // namespace test
