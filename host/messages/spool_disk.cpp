// SPDX-License-Identifier: MIT
#include "host/messages/spool_disk.h"

#include "host/state/status.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kelo_host
{

namespace
{

constexpr const char* paths[places] = {
    "outgoing",   "sent",           "failed",       "incoming",          ".state",
    ".state/tmp", ".state/sending", ".state/marks", ".state/ready-sent", ".state/ready-failed",
    ".state/seen"};

constexpr int open_flags = O_CLOEXEC | O_NOFOLLOW;

// "name.3"; room is left for what else is put behind it.
std::string numbered(const std::string& name, int number)
{
    constexpr size_t longest = 230;
    return number == 0 ? name : name.substr(0, longest) + "." + std::to_string(number);
}

} // namespace

disk::~disk()
{
    for (const int fd : folders_)
        if (fd >= 0)
            close(fd);
    if (lock_ >= 0)
        close(lock_);
}

std::string disk::open(const std::string& folder)
{
    const auto wrong = [&](const std::string& what) {
        return folder + (what.empty() ? "" : "/" + what) + ": " + std::strerror(errno);
    };
    mkdir(folder.c_str(), 0700);
    const int base = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (base < 0)
        return wrong("");
    std::string fault;
    struct stat one = {}, first = {};
    for (size_t at = 0; at < places && fault.empty(); at++) {
        mkdirat(base, paths[at], 0700);
        folders_[at] = openat(base, paths[at], O_RDONLY | O_DIRECTORY | open_flags);
        if (folders_[at] < 0)
            fault = wrong(paths[at]);
        else if (fstat(folders_[at], at == 0 ? &first : &one) == 0 && at > 0 &&
                 one.st_dev != first.st_dev)
            fault = folder + ": all of its folders have to be on one file system";
    }
    if (fault.empty() && (fsync(base) != 0 || !sync(place::state)))
        fault = wrong("");
    close(base);
    if (!fault.empty())
        return fault;
    lock_ = openat(this->folder(place::state), "lock", O_RDWR | O_CREAT | open_flags, 0600);
    if (lock_ < 0)
        return wrong(".state/lock");
    if (flock(lock_, LOCK_EX | LOCK_NB) != 0)
        return errno == EWOULDBLOCK ? folder + ": another process has this spool"
                                    : wrong(".state/lock");
    return "";
}

bool disk::may_change()
{
    if (left_ == 0) {
        errno = ENOSPC;
        return false;
    }
    left_ -= left_ != INT_MAX;
    return true;
}

bool disk::done(bool worked, const char* what, const std::string& name)
{
    error_ = errno;
    if (!worked)
        fault_ =
            std::string("can't ") + what + " " + printable(name) + ": " + std::strerror(error_);
    return worked;
}

bool disk::write(place where, const std::string& name, std::string_view content)
{
    if (!may_change())
        return done(false, "write", name);
    const int fd =
        openat(folder(where), name.c_str(), O_WRONLY | O_CREAT | O_TRUNC | open_flags, 0600);
    if (fd < 0)
        return done(false, "write", name);
    bool worked = write_all(fd, content) && fsync(fd) == 0;
    const int error = errno;
    worked = close(fd) == 0 && worked;
    if (!worked) {
        unlinkat(folder(where), name.c_str(), 0);
        errno = error;
    }
    return done(worked, "write", name);
}

bool disk::rename(place from, const std::string& name, place to, const std::string& new_name)
{
    return done(may_change() &&
                    renameat(folder(from), name.c_str(), folder(to), new_name.c_str()) == 0,
                "move", name);
}

bool disk::rename_new(place from, const std::string& name, place to, std::string& new_name)
{
    constexpr int most = 100000;
    const std::string wanted = new_name;
    bool worked = may_change();
    for (int number = 0; worked; number++) {
        new_name = numbered(wanted, number);
        if (renameat2(folder(from), name.c_str(), folder(to), new_name.c_str(), RENAME_NOREPLACE) ==
            0)
            return true;
        worked = errno == EEXIST && number < most;
    }
    return done(false, "move", name);
}

bool disk::link(place from, const std::string& name, place to, const std::string& new_name)
{
    return done(may_change() &&
                    linkat(folder(from), name.c_str(), folder(to), new_name.c_str(), 0) == 0,
                "link", name);
}

bool disk::remove(place where, const std::string& name)
{
    return done(may_change() && (unlinkat(folder(where), name.c_str(), 0) == 0 || errno == ENOENT),
                "remove", name);
}

bool disk::sync(place where)
{
    return done(may_change() && fsync(folder(where)) == 0, "sync",
                paths[static_cast<size_t>(where)]);
}

reading disk::read(place where, const std::string& name, size_t longest, std::string& content)
{
    content.clear();
    struct stat file = {};
    if (fstatat(folder(where), name.c_str(), &file, AT_SYMLINK_NOFOLLOW) != 0)
        return errno == ENOENT ? reading::gone : (done(false, "read", name), reading::later);
    fault_ = S_ISLNK(file.st_mode)    ? "a link"
             : S_ISDIR(file.st_mode)  ? "a folder"
             : !S_ISREG(file.st_mode) ? "no file"
                                      : "";
    if (fault_.empty() && static_cast<unsigned long long>(file.st_size) > longest)
        fault_ = "larger than " + std::to_string(longest / 1024) + " KiB";
    if (!fault_.empty())
        return reading::bad;
    const int fd =
        openat(folder(where), name.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | open_flags);
    if (fd < 0) {
        done(false, "read", name);
        return errno == EACCES || errno == EPERM || errno == EIO ? reading::bad : reading::later;
    }
    char bytes[4096];
    ssize_t count = 0;
    while (content.size() <= longest &&
           ((count = ::read(fd, bytes, sizeof bytes)) > 0 || (count < 0 && errno == EINTR)))
        content.append(bytes, count > 0 ? static_cast<size_t>(count) : 0);
    done(count >= 0, "read", name);
    close(fd);
    return count < 0 ? reading::bad : reading::done;
}

bool disk::same_file(place one, const std::string& name, place other, const std::string& its) const
{
    struct stat first = {}, second = {};
    return fstatat(folder(one), name.c_str(), &first, AT_SYMLINK_NOFOLLOW) == 0 &&
           fstatat(folder(other), its.c_str(), &second, AT_SYMLINK_NOFOLLOW) == 0 &&
           first.st_ino == second.st_ino;
}

std::optional<long long> disk::age_mark(place where, const std::string& name) const
{
    struct stat file = {};
    if (fstatat(folder(where), name.c_str(), &file, AT_SYMLINK_NOFOLLOW) != 0)
        return std::nullopt;
    return file.st_mtim.tv_sec * 1000000000LL + file.st_mtim.tv_nsec;
}

void disk::each(place where, const std::function<void(const std::string&)>& take) const
{
    const int fd = openat(folder(where), ".", O_RDONLY | O_DIRECTORY | open_flags);
    DIR* const entries = fd < 0 ? nullptr : fdopendir(fd);
    if (entries == nullptr) {
        if (fd >= 0)
            close(fd);
        return;
    }
    while (const dirent* entry = readdir(entries))
        if (entry->d_name[0] != '.')
            take(entry->d_name);
    closedir(entries);
}

std::vector<std::string> disk::names(place where) const
{
    std::vector<std::string> all;
    each(where, [&](const std::string& name) { all.push_back(name); });
    return all;
}

} // namespace kelo_host
