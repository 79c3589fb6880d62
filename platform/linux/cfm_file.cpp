// SPDX-License-Identifier: MIT
#include "cfm_file.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace platform
{
namespace
{

constexpr const char *kPersistentFolder = "/cfg";
constexpr const char *kNewFile = "/cfg/cfm.cfg.new";
constexpr mode_t kPrivate = 0600;  // the configuration holds passwords

bool has(std::string_view text, char c)
{
    return !text.empty() && memchr(text.data(), c, text.size()) != nullptr;
}

bool is_one_line(std::string_view text)
{
    return !has(text, '\n') && !has(text, '\r') && !has(text, '\0');
}

}  // namespace

bool is_key(std::string_view key)
{
    return !key.empty() && key.size() <= CFM_KEY_MAX && key.front() != '#' && !has(key, '=') &&
           is_one_line(key);
}

bool is_value(std::string_view value)
{
    return value.size() < CFM_VALUE_SIZE && is_one_line(value);
}

bool ConfigText::next()
{
    while (!rest_.empty()) {
        const std::size_t end = rest_.find('\n');
        std::string_view line = first_of(rest_, end);
        rest_.remove_prefix(end == std::string_view::npos ? rest_.size() : end + 1);
        if (!line.empty() && line.back() == '\r') {
            line.remove_suffix(1);
        }
        if (line.empty() || line.front() == '#' ||
            line.find_first_not_of(" \t") == std::string_view::npos) {
            continue;
        }
        const std::size_t equals = line.find('=');
        key_ = first_of(line, equals);
        value_ = after(line, key_.size() + 1);
        if (equals != std::string_view::npos && is_key(key_) && is_value(value_)) {
            return true;
        }
        ++damaged_;
    }
    return false;
}

ConfigSummary::ConfigSummary(std::string_view text)
{
    ConfigText lines{text};
    while (lines.next()) {
        ++settings;
    }
    sound = lines.damaged() == 0;
}

NewPersistentFile::~NewPersistentFile()
{
    if (exists_) {
        const int saved = errno;
        unlink(kNewFile);
        errno = saved;
    }
}

bool NewPersistentFile::write(std::string_view text)
{
    const Fd fd{open(kNewFile, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, kPrivate)};
    exists_ = static_cast<bool>(fd);
    return fd && write_all(fd.get(), text) && fsync(fd.get()) == 0;
}

bool NewPersistentFile::put_in_place()
{
    if (rename(kNewFile, kPersistentFile) != 0) {
        return false;
    }
    exists_ = false;
    const Fd folder{open(kPersistentFolder, O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
    // Some file systems know no fsync of a folder; the rename is then as safe as they make it.
    return folder && (fsync(folder.get()) == 0 || errno == EINVAL);
}

}  // namespace platform
