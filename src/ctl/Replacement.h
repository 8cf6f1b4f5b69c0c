#pragma once

#include <ctime>
#include <memory>
#include <string>

namespace kennly {

/// A modification time for a file that is to replace one of time `live`: now, or the second after
/// that one when now is no later. The daemon sees a change only in whole seconds that differ.
std::time_t TimeOfReplacement(std::time_t live, std::time_t now);

/// A file that is to take the place of another, at first beside it under a name of its own.
///
/// Threads: one at a time. Ownership: owns the file beside; whatever has not taken its place is
/// removed with this object.
class Replacement {
public:
    /// Writes `content` beside the file at `path`, with that one's owner, group and mode; a file
    /// that there is not yet belongs to this process's user, who alone can write it. Where `path`
    /// is a symbolic link, the file that it leads to is meant, be that there or not: the link
    /// stays. Null, with a sentence in `failure`, when that cannot be done.
    static std::unique_ptr<Replacement> Prepare(const std::string& path, const std::string& content,
                                                std::string& failure);
    ~Replacement();
    Replacement(const Replacement&) = delete;
    Replacement& operator=(const Replacement&) = delete;

    /// Where it is until it takes its place.
    const std::string& DraftPath() const { return draft_; }

    /// The place that it is to take.
    const std::string& Path() const { return path_; }

    /// Takes the place at once: whoever opens the file meanwhile gets all of the old one or all of
    /// the new one, whose time differs from the old one's by a second at least. Returns an empty
    /// text, or a sentence that says what failed; then the old file is untouched.
    std::string TakePlace();

    /// Tries, before the file takes its place, whether its file system tells of a reading: one
    /// that is mounted so, and some of networks and of user space, never do.
    bool TellsOfReading() const;

    /// Whether it still has the place that it has taken, and no other file does.
    bool IsInPlace() const;

    /// Whether the file has been read since it has taken its place, where that is told.
    bool WasRead() const;

private:
    Replacement(std::string path, std::string draft);

    const std::string path_;
    const std::string draft_;
    dev_t device_ = 0;  // of the file that has taken its place, as long as nobody changes that
    ino_t inode_ = 0;
    std::time_t time_ = 0;
};

}  // namespace kennly
