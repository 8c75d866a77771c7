// SPDX-License-Identifier: MIT
// The folders of a spool, and the few things that are done to them. Each is done wholly or not at
// all, and what `sync` has been called for outlasts a loss of power.
#pragma once

#include <climits>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kelo_host
{

// Under DIR: what scripts use, and under DIR/.state what the spool alone does.
enum class place {
    outgoing,
    sent,
    failed,
    incoming,
    state,
    tmp,          // files that are being written
    sending,      // handed to the library
    marks,        // of each of those, "1" once it has begun to go out
    ready_sent,   // whose result is written; on their way to `sent`
    ready_failed, // ... and to `failed`
    seen,         // the messages kept last, by digest
};
constexpr size_t places = 11;

// What reading a file came to.
enum class reading { done, bad, gone, later };

class disk
{
  public:
    disk() = default;
    ~disk();
    disk(const disk&) = delete;
    disk& operator=(const disk&) = delete;

    // Makes what is missing and takes the lock. Returns what is wrong.
    std::string open(const std::string& folder);

    // These give false for what did not work; then fault() says it.
    bool write(place where, const std::string& name, std::string_view content); // and syncs it
    bool rename(place from, const std::string& name, place to, const std::string& new_name);
    bool rename_new(place from, const std::string& name, place to,
                    std::string& new_name); // never onto another: a number is put behind it
    bool link(place from, const std::string& name, place to, const std::string& new_name);
    bool remove(place where, const std::string& name); // what is gone already is fine
    bool sync(place where);

    // A regular file of at most so many bytes; for what is none, fault() says why.
    reading read(place where, const std::string& name, size_t longest, std::string& content);
    bool same_file(place one, const std::string& name, place other, const std::string& its) const;
    std::optional<long long> age_mark(place where, const std::string& name) const; // mtime, ns
    void each(place where, const std::function<void(const std::string&)>& take) const;
    std::vector<std::string>
    names(place where) const; // of the spool's own folders, which are small

    int folder(place where) const { return folders_[static_cast<size_t>(where)]; }
    const std::string& fault() const { return fault_; }
    int error() const { return error_; } // errno of what did not work

    // For tests: behind so many of the changes above no further one works, as if the process had
    // been killed, or the disk were full.
    void stop_after(int changes) { left_ = changes; }
    bool stopped() const { return left_ == 0; }

  private:
    bool may_change();
    bool done(bool worked, const char* what, const std::string& name);

    int folders_[places] = {-1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1};
    int lock_ = -1;
    int left_ = INT_MAX, error_ = 0;
    std::string fault_;
};

} // namespace kelo_host
